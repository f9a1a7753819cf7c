#include "sipstack/DsSipHeader.h"

#include <array>
#include <functional>
#include <ostream>

#include "sipstack/DsException.h"
#include "sipstack/DsSipAddressHeaders.h"
#include "sipstack/DsSipText.h"
#include "sipstack/DsSipValueHeaders.h"

namespace Quorvex
{

namespace
{

template <class H>
DsHandle<DsSipHeader> make(std::string_view in_value)
{
    return DsHandle<DsSipHeader>(new H(in_value));
}

struct Entry
{
    int m_iID;
    char m_compact;  // '\0': none
    std::string_view m_name;
    DsHandle<DsSipHeader> (*m_make)(std::string_view);
};

using namespace DsSipHeaderID;

// Ordered by how often a message has them, since names are looked for from the front.
constexpr std::array kEntries = {
    Entry{eVIA,                 'v',  "Via",                 &make<DsSipViaHeader>               },
    Entry{eFROM,                'f',  "From",                &make<DsSipFromHeader>              },
    Entry{eTO,                  't',  "To",                  &make<DsSipToHeader>                },
    Entry{eCALL_ID,             'i',  "Call-ID",             &make<DsSipCallIDHeader>            },
    Entry{eCSEQ,                '\0', "CSeq",                &make<DsSipCSeqHeader>              },
    Entry{eCONTACT,             'm',  "Contact",             &make<DsSipContactHeader>           },
    Entry{eMAX_FORWARDS,        '\0', "Max-Forwards",        &make<DsSipMaxForwardsHeader>       },
    Entry{eCONTENT_TYPE,        'c',  "Content-Type",        &make<DsSipContentTypeHeader>       },
    Entry{eCONTENT_LENGTH,      'l',  "Content-Length",      &make<DsSipContentLengthHeader>     },
    Entry{eALLOW,               '\0', "Allow",               &make<DsSipAllowHeader>             },
    Entry{eSUPPORTED,           'k',  "Supported",           &make<DsSipSupportedHeader>         },
    Entry{eUSER_AGENT,          '\0', "User-Agent",          &make<DsSipUserAgentHeader>         },
    Entry{eROUTE,               '\0', "Route",               &make<DsSipRouteHeader>             },
    Entry{eRECORD_ROUTE,        '\0', "Record-Route",        &make<DsSipRecordRouteHeader>       },
    Entry{eREQUIRE,             '\0', "Require",             &make<DsSipRequireHeader>           },
    Entry{eSERVER,              '\0', "Server",              &make<DsSipServerHeader>            },
    Entry{eDATE,                '\0', "Date",                &make<DsSipDateHeader>              },
    Entry{eEXPIRES,             '\0', "Expires",             &make<DsSipExpiresHeader>           },
    Entry{eSESSION_EXPIRES,     'x',  "Session-Expires",     &make<DsSipSessionExpiresHeader>    },
    Entry{eMIN_SE,              '\0', "Min-SE",              &make<DsSipMinSEHeader>             },
    Entry{eRSEQ,                '\0', "RSeq",                &make<DsSipRSeqHeader>              },
    Entry{eRACK,                '\0', "RAck",                &make<DsSipRAckHeader>              },
    Entry{eREFER_TO,            'r',  "Refer-To",            &make<DsSipReferToHeader>           },
    Entry{eREFERRED_BY,         'b',  "Referred-By",         &make<DsSipReferredByHeader>        },
    Entry{eREPLACES,            '\0', "Replaces",            &make<DsSipReplacesHeader>          },
    Entry{eEVENT,               'o',  "Event",               &make<DsSipEventHeader>             },
    Entry{eALLOW_EVENTS,        'u',  "Allow-Events",        &make<DsSipAllowEventsHeader>       },
    Entry{eSUBSCRIPTION_STATE,  '\0', "Subscription-State",  &make<DsSipSubscriptionStateHeader> },
    Entry{eAUTHORIZATION,       '\0', "Authorization",       &make<DsSipAuthorizationHeader>     },
    Entry{ePROXY_AUTHORIZATION, '\0', "Proxy-Authorization", &make<DsSipProxyAuthorizationHeader>},
    Entry{eWWW_AUTHENTICATE,    '\0', "WWW-Authenticate",    &make<DsSipWWWAuthenticateHeader>   },
    Entry{ePROXY_AUTHENTICATE,  '\0', "Proxy-Authenticate",  &make<DsSipProxyAuthenticateHeader> },
    Entry{ePROXY_REQUIRE,       '\0', "Proxy-Require",       &make<DsSipProxyRequireHeader>      },
    Entry{eUNSUPPORTED,         '\0', "Unsupported",         &make<DsSipUnsupportedHeader>       },
    Entry{eMIN_EXPIRES,         '\0', "Min-Expires",         &make<DsSipMinExpiresHeader>        },
    Entry{eRETRY_AFTER,         '\0', "Retry-After",         &make<DsSipRetryAfterHeader>        },
    Entry{eACCEPT_ENCODING,     '\0', "Accept-Encoding",     &make<DsSipAcceptEncodingHeader>    },
    Entry{eACCEPT_LANGUAGE,     '\0', "Accept-Language",     &make<DsSipAcceptLanguageHeader>    },
    Entry{eCONTENT_DISPOSITION, '\0', "Content-Disposition", &make<DsSipContentDispositionHeader>},
    Entry{eCONTENT_ENCODING,    'e',  "Content-Encoding",    &make<DsSipContentEncodingHeader>   },
    Entry{eMIME_VERSION,        '\0', "MIME-Version",        &make<DsSipMimeVersionHeader>       },
    Entry{eTIMESTAMP,           '\0', "Timestamp",           &make<DsSipTimestampHeader>         },
};

const Entry* findEntry(std::string_view in_name)
{
    if (in_name.empty())
    {
        return nullptr;
    }
    const int iFirst = in_name.front() | 0x20;
    for (const Entry& entry : kEntries)
    {
        if (in_name.size() == 1
                ? entry.m_compact == iFirst
                : entry.m_name.size() == in_name.size() && (entry.m_name.front() | 0x20) == iFirst &&
                      SipText::equalsIgnoreCase(entry.m_name, in_name))
        {
            return &entry;
        }
    }
    return nullptr;
}

}  // namespace

int DsSipHeader::getIDFromName(std::string_view in_name)
{
    const Entry* const entry = findEntry(in_name);
    return entry == nullptr ? eUNKNOWN : entry->m_iID;
}

std::string_view DsSipHeader::getNameFromID(int in_iID)
{
    for (const Entry& entry : kEntries)
    {
        if (entry.m_iID == in_iID)
        {
            return entry.m_name;
        }
    }
    return {};
}

DsHandle<DsSipHeader> DsSipHeader::create(std::string_view in_name, std::string_view in_value)
{
    const Entry* const entry = findEntry(in_name);
    if (entry == nullptr)
    {
        return DsHandle<DsSipHeader>(new DsSipUnknownHeader(in_name, in_value));
    }
    DsHandle<DsSipHeader> header;
    try
    {
        header = entry->m_make(in_value);
    }
    catch (const DsException& e)
    {
        throw DsException("header " + std::string(entry->m_name) + ": " + e.getReason());
    }
    if (in_name != entry->m_name)
    {
        header->m_strToken = std::string(in_name);
    }
    return header;
}

DsSipHeader::~DsSipHeader()
{
    // One after the other: a long chain would not fit on the stack.
    DsHandle<DsSipHeader> next = std::move(m_hNext);
    while (!next.isNil() && next->getRefCount() == 1)
    {
        DsHandle<DsSipHeader> after = std::move(next->m_hNext);
        next = std::move(after);
    }
}

DsString DsSipHeader::getToken() const
{
    return m_strToken.empty() ? DsString(getNameFromID(m_iID)) : DsString(m_strToken);
}

DsString DsSipHeader::getText() const
{
    DsString text = getToken();
    text.append(": ").append(getValueText());
    return text;
}

int DsSipHeader::compareWith(const DsObject& in_other) const
{
    const auto* const other = dynamic_cast<const DsSipHeader*>(&in_other);
    if (other == nullptr)
    {
        return DsObject::compareWith(in_other);
    }
    return SipText::toLower(getText()).compare(SipText::toLower(other->getText()));
}

std::size_t DsSipHeader::hashCode() const
{
    return std::hash<std::string>()(SipText::toLower(getText()));
}

std::ostream& DsSipHeader::display(std::ostream& out_stream) const
{
    return out_stream << getText();
}

DsSipUnknownHeader::DsSipUnknownHeader(std::string_view in_name, std::string_view in_value)
    : DsSipHeader(eUNKNOWN), m_strName(in_name), m_strValue(SipText::unfold(SipText::trim(in_value)))
{
}

DsSipUnknownHeader::DsSipUnknownHeader(int in_iID,
                                       std::string_view in_name,
                                       std::string_view in_value,
                                       std::string_view in_error)
    : DsSipHeader(in_iID), m_strName(in_name), m_strValue(in_value), m_strError(in_error)
{
}

DsSipUnknownHeader* DsSipUnknownHeader::clone() const
{
    return new DsSipUnknownHeader(*this);
}

}  // namespace Quorvex
