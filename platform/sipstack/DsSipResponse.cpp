#include "sipstack/DsSipResponse.h"

#include <algorithm>
#include <array>
#include <utility>

#include "sipstack/DsException.h"

namespace Quorvex
{

namespace
{

constexpr std::array<std::pair<unsigned int, const char*>, 66> kReasons = {
    {
     {100, "Trying"},
     {180, "Ringing"},
     {181, "Call Is Being Forwarded"},
     {182, "Queued"},
     {183, "Session Progress"},
     {199, "Early Dialog Terminated"},
     {200, "OK"},
     {202, "Accepted"},
     {204, "No Notification"},
     {300, "Multiple Choices"},
     {301, "Moved Permanently"},
     {302, "Moved Temporarily"},
     {305, "Use Proxy"},
     {380, "Alternative Service"},
     {400, "Bad Request"},
     {401, "Unauthorized"},
     {402, "Payment Required"},
     {403, "Forbidden"},
     {404, "Not Found"},
     {405, "Method Not Allowed"},
     {406, "Not Acceptable"},
     {407, "Proxy Authentication Required"},
     {408, "Request Timeout"},
     {410, "Gone"},
     {412, "Conditional Request Failed"},
     {413, "Request Entity Too Large"},
     {414, "Request-URI Too Long"},
     {415, "Unsupported Media Type"},
     {416, "Unsupported URI Scheme"},
     {417, "Unknown Resource-Priority"},
     {420, "Bad Extension"},
     {421, "Extension Required"},
     {422, "Session Interval Too Small"},
     {423, "Interval Too Brief"},
     {428, "Use Identity Header"},
     {429, "Provide Referrer Identity"},
     {433, "Anonymity Disallowed"},
     {436, "Bad Identity-Info"},
     {437, "Unsupported Certificate"},
     {438, "Invalid Identity Header"},
     {469, "Bad Info Package"},
     {480, "Temporarily Unavailable"},
     {481, "Call/Transaction Does Not Exist"},
     {482, "Loop Detected"},
     {483, "Too Many Hops"},
     {484, "Address Incomplete"},
     {485, "Ambiguous"},
     {486, "Busy Here"},
     {487, "Request Terminated"},
     {488, "Not Acceptable Here"},
     {489, "Bad Event"},
     {491, "Request Pending"},
     {493, "Undecipherable"},
     {494, "Security Agreement Required"},
     {500, "Server Internal Error"},
     {501, "Not Implemented"},
     {502, "Bad Gateway"},
     {503, "Service Unavailable"},
     {504, "Server Time-out"},
     {505, "Version Not Supported"},
     {513, "Message Too Large"},
     {580, "Precondition Failure"},
     {600, "Busy Everywhere"},
     {603, "Decline"},
     {604, "Does Not Exist Anywhere"},
     {606, "Not Acceptable"},
     }
};

unsigned int checkedCode(unsigned int in_uiStatusCode)
{
    if (in_uiStatusCode < 100 || in_uiStatusCode > 699)
    {
        throw DsException("a status code from 100 to 699 was expected, found " +
                          std::to_string(in_uiStatusCode));
    }
    return in_uiStatusCode;
}

}  // namespace

const char* DsSipResponse::getDefaultReason(unsigned int in_uiStatusCode)
{
    const auto found = std::lower_bound(kReasons.begin(),
                                        kReasons.end(),
                                        in_uiStatusCode,
                                        [](const auto& in_entry, unsigned int in_uiCode)
                                        { return in_entry.first < in_uiCode; });
    return found == kReasons.end() || found->first != in_uiStatusCode ? "Unknown" : found->second;
}

DsSipResponse::DsSipResponse(unsigned int in_uiStatusCode, std::string_view in_reason)
    : m_uiStatusCode(checkedCode(in_uiStatusCode)), m_strReason(in_reason)
{
}

DsSipResponse::DsSipResponse(unsigned int in_uiStatusCode, const DsHandle<DsSipRequest>& in_hRequest)
    : DsSipResponse(in_uiStatusCode, in_hRequest, std::string_view())
{
}

DsSipResponse::DsSipResponse(unsigned int in_uiStatusCode,
                             const DsHandle<DsSipRequest>& in_hRequest,
                             std::string_view in_reason)
    : DsSipResponse(in_uiStatusCode, in_hRequest, in_reason, std::string_view(), std::string_view())
{
}

DsSipResponse::DsSipResponse(unsigned int in_uiStatusCode,
                             const DsHandle<DsSipRequest>& in_hRequest,
                             std::string_view in_reason,
                             std::string_view in_body,
                             std::string_view in_bodyType)
    : DsSipResponse(in_uiStatusCode,
                    in_reason.empty() ? std::string_view(getDefaultReason(in_uiStatusCode)) : in_reason)
{
    if (in_hRequest.isNil())
    {
        throw DsException("the request that a response answers was expected, found nil");
    }
    using namespace DsSipHeaderID;
    if (in_uiStatusCode == 100)
    {
        copyHeaders(*in_hRequest, {eVIA, eFROM, eTO, eCALL_ID, eCSEQ, eTIMESTAMP});
    }
    else if (in_uiStatusCode < 300)
    {
        copyHeaders(*in_hRequest, {eVIA, eRECORD_ROUTE, eFROM, eTO, eCALL_ID, eCSEQ});
    }
    else
    {
        copyHeaders(*in_hRequest, {eVIA, eFROM, eTO, eCALL_ID, eCSEQ});
    }
    if (!in_body.empty())
    {
        setBody(in_body, in_bodyType);
    }
}

DsSipResponse::~DsSipResponse() = default;

DsString DsSipResponse::getMethod() const
{
    const auto header = getHeaderByID(DsSipHeaderID::eCSEQ).dynamicCast<DsSipCSeqHeader>();
    return header.isNil() ? DsString() : header->getMethod();
}

std::string DsSipResponse::getStartLine() const
{
    std::string line("SIP/2.0 ");
    line.append(std::to_string(m_uiStatusCode)).append(" ").append(m_strReason);
    return line;
}

DsSipResponse* DsSipResponse::clone() const
{
    return new DsSipResponse(*this);
}

}  // namespace Quorvex
