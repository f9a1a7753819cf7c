#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "sipstack/DsSipHeader.h"
#include "sipstack/DsSipURL.h"

namespace Quorvex
{

/// A display name and a URI (RFC 3261 name-addr and addr-spec); a value.
class DsSipNameAddress
{
public:
    DsSipNameAddress() = default;
    explicit DsSipNameAddress(DsHandle<DsSipURL> in_hURL, std::string_view in_displayName = {});
    /// Parses "Bob" <sip:bob@b>, <sip:bob@b> or sip:bob@b; what follows the address goes to `out_rest`.
    /// Throws a DsException when quotes or brackets do not close. A URI without a scheme leaves the URL nil.
    static DsSipNameAddress parse(std::string_view in_text, std::string_view& out_rest);

    /// Nil when what stands there is no URI.
    const DsHandle<DsSipURL>& getURL() const { return m_hURL; }
    void setURL(const DsHandle<DsSipURL>& in_hURL);
    /// The URI as text, also when it is none.
    DsString getURIText() const;
    /// Without its quotes and escapes; empty when absent.
    const DsString& getDisplayName() const { return m_strDisplayName; }
    void setDisplayName(std::string_view in_displayName) { m_strDisplayName = DsString(in_displayName); }

    /// "Bob" <sip:bob@b>; always with angle brackets.
    void append(std::string& io_strText) const;

private:
    DsHandle<DsSipURL> m_hURL;
    std::string m_strURI;  // when it is no URI
    DsString m_strDisplayName;
};

/// A header that holds an address and parameters. The URL is a part of the header: copy it before changing
/// it, unless the header is yours.
class DsSipAddressHeader : public DsSipHeader
{
public:
    DsSipAddressHeader& operator=(const DsSipAddressHeader&) = delete;
    ~DsSipAddressHeader() override = default;

    const DsSipNameAddress& getNameAddress() const { return m_address; }
    /// Nil when what stands there is no URI.
    const DsHandle<DsSipURL>& getURL() const { return m_address.getURL(); }
    DsString getURIText() const { return m_address.getURIText(); }
    const DsString& getDisplayName() const { return m_address.getDisplayName(); }
    void setNameAddress(const DsSipNameAddress& in_address);

    /// A parameter's value as written; empty when absent or a flag.
    DsString getParameter(std::string_view in_name) const;
    bool hasParameter(std::string_view in_name) const { return m_parameters.has(in_name); }
    void setParameter(std::string_view in_name, std::string_view in_value);
    bool removeParameter(std::string_view in_name);
    const DsSipParameters& getParameters() const { return m_parameters; }

    DsString formatValue() const override;

protected:
    DsSipAddressHeader(int in_iID, std::string_view in_value);
    DsSipAddressHeader(int in_iID, DsSipNameAddress in_address);
    /// The URL is copied too.
    DsSipAddressHeader(const DsSipAddressHeader& in_other);

    DsSipNameAddress m_address;
    DsSipParameters m_parameters;
};

/// From and To: an address with a tag.
class DsSipTaggedAddressHeader : public DsSipAddressHeader
{
public:
    /// Empty when absent.
    DsString getTag() const { return getParameter("tag"); }
    void setTag(std::string_view in_tag) { setParameter("tag", in_tag); }
    bool removeTag() { return removeParameter("tag"); }

protected:
    using DsSipAddressHeader::DsSipAddressHeader;
};

// The classes below are made from a value's text, which throws a DsException when it cannot be read, from a
// URL (copied), or from a name-address.
// NOLINTBEGIN(bugprone-macro-parentheses): names of classes
#define QUORVEX_ADDRESS_HEADER(Class, Base, ID)                                       \
    class Class final : public Base                                                   \
    {                                                                                 \
    public:                                                                           \
        static constexpr int kID = DsSipHeaderID::ID;                                 \
        explicit Class(std::string_view in_value) : Base(kID, in_value) {}            \
        explicit Class(const DsSipNameAddress& in_address) : Base(kID, in_address) {} \
        explicit Class(const DsSipURL& in_url)                                        \
            : Base(kID, DsSipNameAddress(DsHandle<DsSipURL>(in_url.clone())))         \
        {                                                                             \
        }                                                                             \
        explicit Class(const DsHandle<DsSipURL>& in_hURL) : Class(*in_hURL) {}        \
        Class* clone() const override { return new Class(*this); }
// NOLINTEND(bugprone-macro-parentheses)

QUORVEX_ADDRESS_HEADER(DsSipFromHeader, DsSipTaggedAddressHeader, eFROM)
};
QUORVEX_ADDRESS_HEADER(DsSipToHeader, DsSipTaggedAddressHeader, eTO)
}
;
QUORVEX_ADDRESS_HEADER(DsSipRouteHeader, DsSipAddressHeader, eROUTE)
}
;
QUORVEX_ADDRESS_HEADER(DsSipRecordRouteHeader, DsSipAddressHeader, eRECORD_ROUTE)
}
;
QUORVEX_ADDRESS_HEADER(DsSipReferToHeader, DsSipAddressHeader, eREFER_TO)
}
;
QUORVEX_ADDRESS_HEADER(DsSipReferredByHeader, DsSipAddressHeader, eREFERRED_BY)
}
;

/// One Contact; "*" is a wildcard without URL.
QUORVEX_ADDRESS_HEADER(DsSipContactHeader, DsSipAddressHeader, eCONTACT)
/// The "q" parameter as written; empty when absent.
DsString getQValue() const
{
    return getParameter("q");
}
bool isWildcard() const
{
    return getURIText() == "*";
}
/// The "expires" parameter in seconds; nothing when absent or not a number of 32 bits.
std::optional<std::uint32_t> getExpires() const;
}
;

#undef QUORVEX_ADDRESS_HEADER

}  // namespace Quorvex
