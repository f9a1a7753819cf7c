#include "sipstack/base/MessageClass.h"

#include <cctype>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "sipstack/DsSipText.h"
#include "sipstack/base/OverloadRefusal.h"
#include "sipstack/base/SofiaLog.h"

namespace Quorvex
{

namespace
{

bool isBlank(char in_c)
{
    return in_c == '\r' || in_c == '\n' || in_c == ' ' || in_c == '\t';
}

// Puts the line as received into the copy that is parsed, which is as long as the line without what stands
// before it.
void restoreLine(const msg_header_t* in_pHeader, char* out_szLine, isize_t in_length)
{
    const auto* const common = reinterpret_cast<const msg_common_t*>(in_pHeader);
    const auto* const raw = static_cast<const char*>(common->h_data);
    if (raw == nullptr || common->h_len == 0 || !isBlank(raw[0]))
    {
        return;
    }
    std::size_t skip = 0;
    while (skip < common->h_len && isBlank(raw[skip]))
    {
        ++skip;
    }
    const auto length = static_cast<std::size_t>(in_length);
    if (skip + length <= common->h_len)
    {
        std::memcpy(out_szLine, raw + skip, length);
    }
}

bool isToken(std::string_view in_text)
{
    constexpr std::string_view kOthers = "-.!%*_+`'~";
    for (const char c : in_text)
    {
        if (std::isalnum(static_cast<unsigned char>(c)) == 0 && kOthers.find(c) == std::string_view::npos)
        {
            return false;
        }
    }
    return !in_text.empty();
}

// What the base library drops without an answer, though it begins with a method and ends in the version: a
// method of characters that only RFC 3261 allows, or a Request-URI that is none. A request with such a URI is
// answered 400.
issize_t readOddRequestLine(su_home_t* in_pHome, msg_header_t* out_pHeader)
{
    const auto* const common = reinterpret_cast<const msg_common_t*>(out_pHeader);
    auto* const request = reinterpret_cast<sip_request_t*>(out_pHeader);
    constexpr std::string_view kVersion = " SIP/2.0";
    if (common->h_data == nullptr)
    {
        return -1;
    }
    std::string_view line = SipText::trim({static_cast<const char*>(common->h_data), common->h_len});
    const std::size_t blank = line.find(' ');
    if (blank == std::string_view::npos || !isToken(line.substr(0, blank)) ||
        line.size() < blank + kVersion.size() || line.substr(line.size() - kVersion.size()) != kVersion)
    {
        return -1;
    }
    const std::string_view method = line.substr(0, blank);
    line.remove_suffix(kVersion.size());
    const std::string_view uri = SipText::trim(line.substr(blank));
    char* const name = su_strndup(in_pHome, method.data(), static_cast<isize_t>(method.size()));
    char* const text = su_strndup(in_pHome, uri.data(), static_cast<isize_t>(uri.size()));
    if (name == nullptr || text == nullptr)
    {
        return -1;
    }
    request->rq_method = sip_method_code(name);
    request->rq_method_name = name;
    request->rq_version = sip_version_2_0;
    if (uri.empty() || uri.find_first_of(" \t") != std::string_view::npos || url_d(request->rq_url, text) < 0)
    {
        *request->rq_url = url_t();
        request->rq_url->url_type = url_invalid;
    }
    return 0;
}

issize_t parseRequestLine(su_home_t* in_pHome, msg_header_t* out_pHeader, char* io_szLine, isize_t in_length)
{
    restoreLine(out_pHeader, io_szLine, in_length);
    const issize_t result = sip_request_class->hc_parse(in_pHome, out_pHeader, io_szLine, in_length);
    return result >= 0 ? result : readOddRequestLine(in_pHome, out_pHeader);
}

issize_t parseStatusLine(su_home_t* in_pHome, msg_header_t* out_pHeader, char* io_szLine, isize_t in_length)
{
    restoreLine(out_pHeader, io_szLine, in_length);
    return sip_status_class->hc_parse(in_pHome, out_pHeader, io_szLine, in_length);
}

thread_local nta_agent_t* t_pAgent = nullptr;
thread_local OverloadRefusal* t_pOverload = nullptr;
thread_local const AnsweredInvites* t_pAnswered = nullptr;

bool isOfFurtherFork(const sip_t* in_pSip)
{
    const sip_status_t* const status = in_pSip->sip_status;
    if (t_pAnswered == nullptr || status == nullptr || status->st_status < 200 || status->st_status >= 300 ||
        in_pSip->sip_cseq == nullptr || in_pSip->sip_cseq->cs_method != sip_method_invite ||
        in_pSip->sip_via == nullptr || in_pSip->sip_via->v_branch == nullptr || in_pSip->sip_to == nullptr ||
        in_pSip->sip_to->a_tag == nullptr)
    {
        return false;
    }
    const auto known = t_pAnswered->find(in_pSip->sip_via->v_branch);
    return known != t_pAnswered->end() &&
           su_casematch(known->second.m_strTag.c_str(), in_pSip->sip_to->a_tag) == 0;
}

// An ACK to a 2xx belongs to a dialog (RFC 3261 13.3.1.4). When it has the branch of its INVITE, as one to a
// refusal has, the base library does not look at its To tag, and would take the answer for acknowledged by a
// far end that has not got it.
bool isAckToNoDialog(const sip_t* in_pSip)
{
    if (in_pSip->sip_request == nullptr || in_pSip->sip_request->rq_method != sip_method_ack)
    {
        return false;
    }
    nta_incoming_t* const invite = inviteOfBranch(t_pAgent, in_pSip);
    const int status = invite == nullptr ? 0 : nta_incoming_status(invite);
    if (status < 200 || status >= 300)
    {
        return false;
    }
    const char* const own = nta_incoming_gettag(invite);
    const char* const theirs = in_pSip->sip_to->a_tag;
    return own != nullptr && (theirs == nullptr || su_casematch(own, theirs) == 0);
}

// Runs when the headers of a message are there, for a message in pieces more than once.
issize_t extractBody(msg_t* in_pMsg, msg_pub_t* io_pPublic, char* io_szText, isize_t in_length, int in_iEnd)
{
    auto* const sip = reinterpret_cast<sip_t*>(io_pPublic);
    if (sip->sip_request != nullptr && sip->sip_request->rq_url->url_type == url_invalid)
    {
        sip->sip_flags |= MSG_FLG_ERROR;
    }
    if (isOfFurtherFork(sip))
    {
        sip->sip_cseq->cs_method = sip_method_unknown;
    }
    if (isAckToNoDialog(sip))
    {
        constexpr std::uint32_t kNoCSeq = 0xFFFFFFFF;  // beyond what a request may have (RFC 3261 8.1.1.5)
        sip->sip_cseq->cs_seq = kNoCSeq;
    }
    if (sip->sip_request != nullptr && sip->sip_request->rq_method == sip_method_cancel)
    {
        const nta_incoming_t* const invite = inviteOfBranch(t_pAgent, sip);
        const int status = invite == nullptr ? 0 : nta_incoming_status(invite);
        if (status >= 200 && status < 300)
        {
            sip->sip_request->rq_method = sip_method_unknown;
            sip->sip_cseq->cs_method = sip_method_unknown;
        }
    }
    if (sip->sip_request != nullptr && t_pOverload != nullptr && t_pOverload->refuses(in_pMsg, sip))
    {
        sip->sip_request = nullptr;
        muteNextGarbage();
    }
    return sip_default_mclass()->mc_extract_body(in_pMsg, io_pPublic, io_szText, in_length, in_iEnd);
}

msg_mclass_t* makeMessageClass()
{
    static msg_hclass_s s_request;
    static msg_hclass_s s_status;
    std::memcpy(&s_request, sip_request_class, sizeof s_request);
    std::memcpy(&s_status, sip_status_class, sizeof s_status);
    s_request.hc_parse = parseRequestLine;
    s_status.hc_parse = parseStatusLine;
    msg_mclass_t* const copy = msg_mclass_clone(sip_default_mclass(), 0, 0);
    if (copy != nullptr)
    {
        copy->mc_request->hr_class = &s_request;
        copy->mc_status->hr_class = &s_status;
        copy->mc_extract_body = extractBody;
    }
    return copy;
}

}  // namespace

const msg_mclass_t* messageClass()
{
    static const msg_mclass_t* const s_pClass = makeMessageClass();
    return s_pClass != nullptr ? s_pClass : sip_default_mclass();
}

void setReceiver(nta_agent_t* in_pAgent, OverloadRefusal* in_pOverload, const AnsweredInvites* in_pAnswered)
{
    t_pAgent = in_pAgent;
    t_pOverload = in_pOverload;
    t_pAnswered = in_pAnswered;
}

bool isLateCancel(const sip_t* in_pSip)
{
    return in_pSip->sip_request->rq_method == sip_method_unknown &&
           std::strcmp(in_pSip->sip_request->rq_method_name, sip_method_name_cancel) == 0;
}

nta_incoming_t* inviteOfBranch(const nta_agent_t* in_pAgent, const sip_t* in_pRequest)
{
    if (in_pAgent == nullptr || in_pRequest->sip_cseq == nullptr || in_pRequest->sip_call_id == nullptr ||
        in_pRequest->sip_from == nullptr || in_pRequest->sip_to == nullptr || in_pRequest->sip_via == nullptr)
    {
        return nullptr;
    }
    // What the INVITE said where the two differ.
    sip_cseq_t cseq = *in_pRequest->sip_cseq;
    cseq.cs_method = sip_method_invite;
    cseq.cs_method_name = sip_method_name_invite;
    sip_t invite = *in_pRequest;
    invite.sip_cseq = &cseq;
    return nta_incoming_find(in_pAgent, &invite, invite.sip_via);
}

}  // namespace Quorvex
