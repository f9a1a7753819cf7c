#pragma once

#include <cstddef>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "infra/MemAccount.h"
#include "sipstack/DsHandle.h"
#include "sipstack/DsObject.h"
#include "sipstack/DsSdpFields.h"

namespace Quorvex
{

/// One media section of a session description: the media line with what belongs to it. One thread at a time.
class DsSdpMediaDescription final : public virtual DsObject
{
public:
    QUORVEX_MEM_ACCOUNT("DsSdpMediaDescription");

    DsSdpMediaDescription() = default;
    explicit DsSdpMediaDescription(DsSdpMediaField in_mediaField) : m_mediaField(std::move(in_mediaField)) {}

    /// The media line; null when none was set.
    const DsSdpMediaField* getMediaField() const { return m_mediaField ? &*m_mediaField : nullptr; }
    void setMediaField(DsSdpMediaField in_field) { m_mediaField = std::move(in_field); }

    /// The section's own connection; null when the session's counts.
    const DsSdpConnectionField* getConnectionField() const { return m_connection ? &*m_connection : nullptr; }
    void setConnectionField(DsSdpConnectionField in_field) { m_connection = std::move(in_field); }
    void clearConnectionField() { m_connection.reset(); }

    const DsSdpAttributeVector& getAttributeFields() const { return m_vAttributes; }
    void addAttributeField(DsSdpAttributeField in_field) { m_vAttributes.push_back(std::move(in_field)); }

    /// Appends the section's lines, each ended by CR LF.
    void appendTo(std::string& io_strText) const;

protected:
    ~DsSdpMediaDescription() override = default;

private:
    std::optional<DsSdpMediaField> m_mediaField;
    std::optional<DsSdpConnectionField> m_connection;
    DsSdpAttributeVector m_vAttributes;
};

/// A session description (RFC 4566). One thread at a time.
class DsSdpMsg final : public virtual DsObject
{
public:
    QUORVEX_MEM_ACCOUNT("DsSdpMsg");

    /// No description may have more sections: each costs a media endpoint.
    static constexpr std::size_t kMaxMediaDescriptions = 16;

    /// An empty description of version 0.
    DsSdpMsg() = default;

    /// Reads a received description. Line ends may be CR LF or LF; lines that a description should have
    /// (version, origin, name, time) may be missing, since peers leave them out; lines of unknown type are
    /// passed over; of a line that should stand once the first counts. Throws a DsException naming the line
    /// and the fault for what is not a session description, a version other than 0, a media, connection or
    /// attribute line that cannot be read, a NUL anywhere, or too many sections.
    static DsHandle<DsSdpMsg> parse(std::string_view in_text);

    const DsSdpOriginField* getOriginField() const { return m_origin ? &*m_origin : nullptr; }
    void setOriginField(DsSdpOriginField in_field) { m_origin = std::move(in_field); }

    const DsSdpSessionNameField* getSessionNameField() const
    {
        return m_sessionName ? &*m_sessionName : nullptr;
    }
    void setSessionNameField(DsSdpSessionNameField in_field) { m_sessionName = std::move(in_field); }

    /// The connection of the sections that have none of their own; null when there is none.
    const DsSdpConnectionField* getConnectionField() const { return m_connection ? &*m_connection : nullptr; }
    void setConnectionField(DsSdpConnectionField in_field) { m_connection = std::move(in_field); }

    const DsSdpTimeDescription* getTimeDescription() const { return m_time ? &*m_time : nullptr; }
    void setTimeDescription(DsSdpTimeDescription in_time) { m_time = std::move(in_time); }

    /// The session's own attributes: those before the first media line.
    const DsSdpAttributeVector& getAttributeFields() const { return m_vAttributes; }
    void addAttributeField(DsSdpAttributeField in_field) { m_vAttributes.push_back(std::move(in_field)); }

    const std::vector<DsHandle<DsSdpMediaDescription>>& getMediaDescriptions() const { return m_vMedia; }
    void addMediaDescription(const DsHandle<DsSdpMediaDescription>& in_hMedia)
    {
        m_vMedia.push_back(in_hMedia);
    }

    /// The text as it goes on the wire, lines in the standard's order and ended by CR LF.
    std::string toString() const;
    std::ostream& display(std::ostream& out_stream) const override;

protected:
    ~DsSdpMsg() override = default;

private:
    void takeLine(char in_cType, std::string_view in_value);

    std::optional<DsSdpOriginField> m_origin;
    std::optional<DsSdpSessionNameField> m_sessionName;
    std::optional<DsSdpConnectionField> m_connection;
    std::optional<DsSdpTimeDescription> m_time;
    DsSdpAttributeVector m_vAttributes;
    std::vector<DsHandle<DsSdpMediaDescription>> m_vMedia;
};

}  // namespace Quorvex
