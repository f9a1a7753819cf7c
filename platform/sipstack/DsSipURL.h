#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "sipstack/DsHandle.h"
#include "sipstack/DsObject.h"
#include "sipstack/DsSipParameters.h"
#include "sipstack/DsString.h"

namespace Quorvex
{

/// A SIP or SIPS URI (RFC 3261 section 19.1), in parts. URIs of other schemes ("tel:", "urn:") are carried as
/// text: they print as they came and compare by their text, and have no host.
class DsSipURL final : public DsObject
{
public:
    QUORVEX_MEM_ACCOUNT("DsSipURL");

    /// A header carried by a URI ("?Subject=x"), name and value with their escapes resolved.
    using Header = std::pair<std::string, std::string>;

    /// Parses a URI of any scheme. Throws a DsException that says what is wrong, also when there is no
    /// scheme.
    explicit DsSipURL(std::string_view in_text);

    /// A SIP URI from its parts; the user is escaped as needed. Port 0: none. IPv6 addresses with or without
    /// brackets.
    DsSipURL(std::string_view in_user, std::string_view in_host, std::uint16_t in_uiPort);

    DsSipURL(const DsSipURL& in_other);
    DsSipURL& operator=(const DsSipURL& in_other) = default;
    ~DsSipURL() override;

    /// A SIP or SIPS URI, nil when the text is not one.
    static DsHandle<DsSipURL> parse(std::string_view in_text);

    /// True for "sip" and "sips".
    bool isSipURL() const { return m_bSip; }
    bool isSecure() const { return m_bSip && m_strScheme.size() == 4; }
    /// In lower case.
    const std::string& getScheme() const { return m_strScheme; }

    /// With its escapes resolved; empty when absent.
    DsString getUser() const;
    void setUser(std::string_view in_user);
    /// As written; empty when absent.
    const std::string& getPassword() const { return m_strPassword; }
    /// As written, IPv6 without brackets; empty for other schemes.
    const std::string& getHost() const { return m_strHost; }
    void setHost(std::string_view in_host);
    /// 0 when absent.
    std::uint16_t getPort() const { return m_uiPort; }
    void setPort(std::uint16_t in_uiPort) { m_uiPort = in_uiPort; }

    /// The transport parameter ("udp", "tcp", ...) as written; empty when absent.
    DsString getTransportParam() const;
    void setTransportParam(std::string_view in_transport);

    /// A parameter's value with its escapes resolved; empty when absent or a flag.
    DsString getParameter(std::string_view in_name) const;
    bool hasParameter(std::string_view in_name) const { return m_parameters.has(in_name); }
    /// The value is escaped as needed; an empty value makes a flag.
    void setParameter(std::string_view in_name, std::string_view in_value);
    bool removeParameter(std::string_view in_name) { return m_parameters.remove(in_name); }
    void clearParameters() { m_parameters.clear(); }
    const DsSipParameters& getParameters() const { return m_parameters; }

    /// The headers in their order.
    const std::vector<Header>& getHeaders() const { return m_vHeaders; }
    bool hasHeader(std::string_view in_name) const;
    /// Empty when absent.
    DsString getHeader(std::string_view in_name) const;
    void addHeader(std::string_view in_name, std::string_view in_value);
    bool removeHeader(std::string_view in_name);
    void clearHeaders() { m_vHeaders.clear(); }

    /// The URI as text.
    DsString getText() const;
    void append(std::string& io_strText) const;

    /// RFC 3261 section 19.1.4. Other schemes: the same text, schemes in any case.
    friend bool operator==(const DsSipURL& in_lhs, const DsSipURL& in_rhs);

    DsSipURL* clone() const override;
    int compareWith(const DsObject& in_other) const override;
    std::size_t hashCode() const override;
    std::ostream& display(std::ostream& out_stream) const override;

    /// Resolves "%41"; what is not a complete escape stays as it is.
    static DsString decode(std::string_view in_text);
    /// Escapes what may not stand in a user part.
    static DsString encodeUser(std::string_view in_text);
    /// Escapes what may not stand in a header name or value of a URI.
    static DsString encodeHeader(std::string_view in_text);

private:
    void parseSip(std::string_view in_rest);
    void parseHostPort(std::string_view in_text);

    bool m_bSip = true;
    bool m_bHasPassword = false;
    std::uint16_t m_uiPort = 0;
    std::string m_strScheme = "sip";
    std::string m_strUser;  // as written; what follows the colon for other schemes
    std::string m_strPassword;
    std::string m_strHost;
    DsSipParameters m_parameters;
    std::vector<Header> m_vHeaders;
};

}  // namespace Quorvex
