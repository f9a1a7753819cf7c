#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sipstack/DsSipHeader.h"
#include "sipstack/DsSipParameters.h"

// Headers that hold a text, a number, a list of tokens, or a value with parameters. All are made from a
// value's text, which throws a DsException when it cannot be read.

namespace Quorvex
{

/// A value that is kept as it stands.
class DsSipTextHeader : public DsSipHeader
{
public:
    const DsString& getValue() const { return m_strValue; }
    DsString formatValue() const override { return m_strValue; }

protected:
    DsSipTextHeader(int in_iID, std::string_view in_value);
    DsString m_strValue;
};

/// A number of 32 bits, perhaps with parameters.
class DsSipNumberHeader : public DsSipHeader
{
public:
    std::uint32_t getNumber() const { return m_uiNumber; }
    void setNumber(std::uint32_t in_uiNumber);
    const DsSipParameters& getParameters() const { return m_parameters; }
    DsString formatValue() const override;

protected:
    DsSipNumberHeader(int in_iID, std::string_view in_value);
    DsSipNumberHeader(int in_iID, std::uint32_t in_uiNumber) : DsSipHeader(in_iID), m_uiNumber(in_uiNumber) {}

    std::uint32_t m_uiNumber = 0;
    DsSipParameters m_parameters;
};

/// A comma list of tokens; may be empty.
class DsSipTokenListHeader : public DsSipHeader
{
public:
    const std::vector<std::string>& getTokens() const { return m_vTokens; }
    /// True when the token is in the list, in any case.
    bool contains(std::string_view in_token) const;
    const DsString& getValue() const { return m_strValue; }
    DsString formatValue() const override { return m_strValue; }

protected:
    DsSipTokenListHeader(int in_iID, std::string_view in_value);

private:
    DsString m_strValue;
    std::vector<std::string> m_vTokens;
};

/// A value with parameters.
class DsSipParameterHeader : public DsSipHeader
{
public:
    const DsString& getValue() const { return m_strValue; }
    /// A parameter's value without quotes; empty when absent or a flag.
    DsString getParameter(std::string_view in_name) const { return m_parameters.getUnquoted(in_name); }
    bool hasParameter(std::string_view in_name) const { return m_parameters.has(in_name); }
    const DsSipParameters& getParameters() const { return m_parameters; }
    void setParameter(std::string_view in_name, std::string_view in_value);
    DsString formatValue() const override;

protected:
    DsSipParameterHeader(int in_iID, std::string_view in_value);

    DsString m_strValue;
    DsSipParameters m_parameters;
};

// NOLINTBEGIN(bugprone-macro-parentheses): names of classes
#define QUORVEX_VALUE_HEADER(Class, Base, ID)                              \
    class Class final : public Base                                        \
    {                                                                      \
    public:                                                                \
        static constexpr int kID = DsSipHeaderID::ID;                      \
        explicit Class(std::string_view in_value) : Base(kID, in_value) {} \
        Class* clone() const override { return new Class(*this); }
// NOLINTEND(bugprone-macro-parentheses)

QUORVEX_VALUE_HEADER(DsSipCallIDHeader, DsSipTextHeader, eCALL_ID)
};
QUORVEX_VALUE_HEADER(DsSipServerHeader, DsSipTextHeader, eSERVER)
}
;
QUORVEX_VALUE_HEADER(DsSipContentEncodingHeader, DsSipTextHeader, eCONTENT_ENCODING)
}
;
QUORVEX_VALUE_HEADER(DsSipMimeVersionHeader, DsSipTextHeader, eMIME_VERSION)
}
;
QUORVEX_VALUE_HEADER(DsSipTimestampHeader, DsSipTextHeader, eTIMESTAMP)
}
;
QUORVEX_VALUE_HEADER(DsSipAuthorizationHeader, DsSipTextHeader, eAUTHORIZATION)
}
;
QUORVEX_VALUE_HEADER(DsSipProxyAuthorizationHeader, DsSipTextHeader, ePROXY_AUTHORIZATION)
}
;
QUORVEX_VALUE_HEADER(DsSipWWWAuthenticateHeader, DsSipTextHeader, eWWW_AUTHENTICATE)
}
;
QUORVEX_VALUE_HEADER(DsSipProxyAuthenticateHeader, DsSipTextHeader, ePROXY_AUTHENTICATE)
}
;

/// Product tokens and comments: "gateway/1.0 (Debian)".
QUORVEX_VALUE_HEADER(DsSipUserAgentHeader, DsSipTextHeader, eUSER_AGENT)
/// "product/version"; without the slash when the version is empty.
DsSipUserAgentHeader(std::string_view in_product, std::string_view in_version);
}
;

/// A date in the form of RFC 1123: "Sat, 13 Nov 2010 23:29:00 GMT".
QUORVEX_VALUE_HEADER(DsSipDateHeader, DsSipTextHeader, eDATE)
/// Seconds since 1970 UTC; nothing when the text is no such date.
std::optional<std::time_t> getTime() const;
}
;

// NOLINTBEGIN(bugprone-macro-parentheses): names of classes
#define QUORVEX_NUMBER_HEADER(Class, ID)                                            \
    QUORVEX_VALUE_HEADER(Class, DsSipNumberHeader, ID)                              \
    explicit Class(std::uint32_t in_uiNumber) : DsSipNumberHeader(kID, in_uiNumber) \
    {                                                                               \
    }
// NOLINTEND(bugprone-macro-parentheses)

QUORVEX_NUMBER_HEADER(DsSipMaxForwardsHeader, eMAX_FORWARDS)
}
;
QUORVEX_NUMBER_HEADER(DsSipContentLengthHeader, eCONTENT_LENGTH)
}
;
QUORVEX_NUMBER_HEADER(DsSipExpiresHeader, eEXPIRES)
}
;
QUORVEX_NUMBER_HEADER(DsSipMinExpiresHeader, eMIN_EXPIRES)
}
;
QUORVEX_NUMBER_HEADER(DsSipRSeqHeader, eRSEQ)
}
;
QUORVEX_NUMBER_HEADER(DsSipMinSEHeader, eMIN_SE)
}
;
/// Seconds; the comment is dropped.
QUORVEX_NUMBER_HEADER(DsSipRetryAfterHeader, eRETRY_AFTER)
}
;
QUORVEX_NUMBER_HEADER(DsSipSessionExpiresHeader, eSESSION_EXPIRES)
/// "uac", "uas" or empty.
DsString getRefresher() const
{
    return getParameters().getUnquoted("refresher");
}
void setRefresher(std::string_view in_refresher);
}
;

QUORVEX_VALUE_HEADER(DsSipAllowHeader, DsSipTokenListHeader, eALLOW)
}
;
QUORVEX_VALUE_HEADER(DsSipSupportedHeader, DsSipTokenListHeader, eSUPPORTED)
}
;
QUORVEX_VALUE_HEADER(DsSipRequireHeader, DsSipTokenListHeader, eREQUIRE)
}
;
QUORVEX_VALUE_HEADER(DsSipProxyRequireHeader, DsSipTokenListHeader, ePROXY_REQUIRE)
}
;
QUORVEX_VALUE_HEADER(DsSipUnsupportedHeader, DsSipTokenListHeader, eUNSUPPORTED)
}
;
QUORVEX_VALUE_HEADER(DsSipAllowEventsHeader, DsSipTokenListHeader, eALLOW_EVENTS)
}
;
QUORVEX_VALUE_HEADER(DsSipAcceptLanguageHeader, DsSipTokenListHeader, eACCEPT_LANGUAGE)
}
;
QUORVEX_VALUE_HEADER(DsSipAcceptEncodingHeader, DsSipTokenListHeader, eACCEPT_ENCODING)
}
;

QUORVEX_VALUE_HEADER(DsSipContentTypeHeader, DsSipParameterHeader, eCONTENT_TYPE)
/// "application/sdp" as written, without the parameters.
const DsString& getMediaType() const
{
    return getValue();
}
}
;
QUORVEX_VALUE_HEADER(DsSipContentDispositionHeader, DsSipParameterHeader, eCONTENT_DISPOSITION)
}
;
QUORVEX_VALUE_HEADER(DsSipEventHeader, DsSipParameterHeader, eEVENT)
}
;
QUORVEX_VALUE_HEADER(DsSipSubscriptionStateHeader, DsSipParameterHeader, eSUBSCRIPTION_STATE)
}
;

/// RFC 3891.
QUORVEX_VALUE_HEADER(DsSipReplacesHeader, DsSipParameterHeader, eREPLACES)
const DsString& getCallID() const
{
    return getValue();
}
DsString getToTag() const
{
    return getParameter("to-tag");
}
DsString getFromTag() const
{
    return getParameter("from-tag");
}
bool isEarlyOnly() const
{
    return hasParameter("early-only");
}
}
;

#undef QUORVEX_NUMBER_HEADER
#undef QUORVEX_VALUE_HEADER

/// One hop: "SIP/2.0/UDP host:port;branch=...".
class DsSipViaHeader final : public DsSipHeader
{
public:
    static constexpr int kID = DsSipHeaderID::eVIA;
    explicit DsSipViaHeader(std::string_view in_value);

    /// "UDP", "TCP", ... as written.
    const DsString& getTransport() const { return m_strTransport; }
    void setTransport(std::string_view in_transport);
    const DsString& getHost() const { return m_strHost; }
    std::uint16_t getPort() const { return m_uiPort; }  ///< 0 when absent
    DsString getBranch() const { return m_parameters.getUnquoted("branch"); }
    /// A fresh branch that begins with the cookie of RFC 3261, "z9hG4bK".
    void setBranchRFC3261();
    const DsSipParameters& getParameters() const { return m_parameters; }

    DsString formatValue() const override;
    DsSipViaHeader* clone() const override;

private:
    DsString m_strTransport;
    DsString m_strHost;
    std::uint16_t m_uiPort = 0;
    DsSipParameters m_parameters;
};

class DsSipCSeqHeader final : public DsSipHeader
{
public:
    static constexpr int kID = DsSipHeaderID::eCSEQ;
    explicit DsSipCSeqHeader(std::string_view in_value);
    DsSipCSeqHeader(std::uint32_t in_uiNumber, std::string_view in_method);

    std::uint32_t getNumber() const { return m_uiNumber; }
    const DsString& getMethod() const { return m_strMethod; }
    DsString formatValue() const override;
    DsSipCSeqHeader* clone() const override;

private:
    std::uint32_t m_uiNumber = 0;
    DsString m_strMethod;
};

/// RFC 3262: the reliable provisional response that a PRACK answers.
class DsSipRAckHeader final : public DsSipHeader
{
public:
    static constexpr int kID = DsSipHeaderID::eRACK;
    explicit DsSipRAckHeader(std::string_view in_value);

    std::uint32_t getResponseNumber() const { return m_uiResponse; }
    std::uint32_t getCSeqNumber() const { return m_uiCSeq; }
    const DsString& getMethod() const { return m_strMethod; }
    DsString formatValue() const override;
    DsSipRAckHeader* clone() const override;

private:
    std::uint32_t m_uiResponse = 0;
    std::uint32_t m_uiCSeq = 0;
    DsString m_strMethod;
};

}  // namespace Quorvex
