#include "sipstack/DsSipRequest.h"

#include "sipstack/DsException.h"
#include "sipstack/DsSipAckMessage.h"
#include "sipstack/DsSipByeMessage.h"
#include "sipstack/DsSipCancelMessage.h"
#include "sipstack/DsSipInviteMessage.h"
#include "sipstack/DsSipPrackMessage.h"
#include "sipstack/DsSipReferMessage.h"
#include "sipstack/DsSipResponse.h"
#include "sipstack/DsSipText.h"

namespace Quorvex
{

DsSipRequest::DsSipRequest(std::string_view in_method, std::string_view in_requestURI)
    : m_strMethod(in_method), m_strRequestURI(in_requestURI)
{
}

DsSipRequest::DsSipRequest(std::string_view in_method, const DsSipURL& in_requestURL)
    : DsSipRequest(in_method, std::string_view(in_requestURL.getText()))
{
}

DsSipRequest::~DsSipRequest() = default;

DsHandle<DsSipRequest> DsSipRequest::create(std::string_view in_method, std::string_view in_requestURI)
{
    if (!SipText::isToken(in_method))
    {
        throw DsException("a method was expected, found " + SipText::excerpt(in_method));
    }
    DsSipRequest* request = nullptr;
    if (in_method == DsSipInviteMessage::kMethod)
    {
        request = new DsSipInviteMessage(in_requestURI);
    }
    else if (in_method == DsSipAckMessage::kMethod)
    {
        request = new DsSipAckMessage(in_requestURI);
    }
    else if (in_method == DsSipByeMessage::kMethod)
    {
        request = new DsSipByeMessage(in_requestURI);
    }
    else if (in_method == DsSipCancelMessage::kMethod)
    {
        request = new DsSipCancelMessage(in_requestURI);
    }
    else if (in_method == DsSipPrackMessage::kMethod)
    {
        request = new DsSipPrackMessage(in_requestURI);
    }
    else if (in_method == DsSipReferMessage::kMethod)
    {
        request = new DsSipReferMessage(in_requestURI);
    }
    else
    {
        request = new DsSipRequest(in_method, in_requestURI);
    }
    return DsHandle<DsSipRequest>(request);
}

std::string DsSipRequest::getStartLine() const
{
    std::string line;
    line.reserve(m_strMethod.size() + m_strRequestURI.size() + 9);
    line.append(m_strMethod).append(" ").append(m_strRequestURI).append(" SIP/2.0");
    return line;
}

DsHandle<DsSipURL> DsSipRequest::getRequestURL() const
{
    return makeDs<DsSipURL>(m_strRequestURI);
}

DsSipRequest* DsSipRequest::clone() const
{
    return new DsSipRequest(*this);
}

DsSipInviteMessage::DsSipInviteMessage(const DsSipURL& in_requestURL,
                                       const DsHandle<DsSipFromHeader>& in_hFrom,
                                       const DsHandle<DsSipToHeader>& in_hTo,
                                       const DsHandle<DsSipContactHeader>& in_hContact,
                                       std::string_view in_body,
                                       std::string_view in_bodyType)
    : DsSipRequest(kMethod, in_requestURL)
{
    for (const DsHandle<DsSipHeader>& header :
         {DsHandle<DsSipHeader>(in_hFrom), DsHandle<DsSipHeader>(in_hTo), DsHandle<DsSipHeader>(in_hContact)})
    {
        if (!header.isNil())
        {
            addHeader(*header);
        }
    }
    if (!in_body.empty())
    {
        setBody(in_body, in_bodyType);
    }
}

DsSipAckMessage::DsSipAckMessage(const DsHandle<DsSipResponse>& in_hResponse,
                                 std::string_view in_body,
                                 std::string_view in_bodyType)
    : DsSipRequest(kMethod, std::string_view())
{
    const auto contact = in_hResponse->getContactHeader();
    const auto to = in_hResponse->getToHeader();
    const auto cseq = in_hResponse->getCSeqHeader();
    if (to.isNil() || cseq.isNil())
    {
        throw DsException("a response with To and CSeq was expected for an ACK");
    }
    setRequestURI(contact.isNil() ? to->getURIText() : contact->getURIText());
    copyHeaders(*in_hResponse, {DsSipHeaderID::eFROM, DsSipHeaderID::eTO, DsSipHeaderID::eCALL_ID});
    addHeader(DsSipCSeqHeader(cseq->getNumber(), kMethod));
    if (!in_body.empty())
    {
        setBody(in_body, in_bodyType);
    }
}

}  // namespace Quorvex
