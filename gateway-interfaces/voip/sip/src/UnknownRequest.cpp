#include "UnknownRequest.h"

#include "infra/Assertion.h"
#include "sipstack/DsException.h"

namespace Quorvex
{

namespace
{
const Logger& getLogger()
{
    static const StaticLogger s_logger("quorvex.voip.SipLegInterface");
    return s_logger;
}

constexpr const char* kAllow = "INVITE, ACK, BYE, CANCEL, NOTIFY, INFO, OPTIONS, REFER";
}  // namespace

UnknownRequestNoT::UnknownRequestNoT(DsHandle<DsSipServerTransaction> in_hTransaction,
                                     DsHandle<DsSipRequest> in_hRequest)
    : m_hTransaction(std::move(in_hTransaction)), m_hRequest(std::move(in_hRequest))
{
}

UnknownRequestNoT::~UnknownRequestNoT() = default;

void UnknownRequestNoT::sendResponse(const DsHandle<DsSipResponse>& in_hResponse)
{
    QLOG_TRACE(getLogger(), "UnknownRequest_MO::sendResponse");
    if (QUORVEX_ASSERT(getLogger(), !m_hTransaction.isNil()))
    {
        m_hTransaction->sendResponse(in_hResponse);
    }
}

template <class Create>
void UnknownRequestNoT::respond(Create in_create)
{
    try
    {
        sendResponse(in_create(m_hRequest));
    }
    catch (const DsException& exception)
    {
        QLOG_DEBUG(getLogger(), "no response to " << m_hRequest->getMethod() << ": " << exception);
    }
}

int UnknownRequestNoT::infoRequest()
{
    respond([](const DsHandle<DsSipRequest>& in_hRequest)
            { return makeDs<DsSipResponse>(200U, in_hRequest); });
    return 0;
}

DsHandle<DsSipResponse> UnknownRequestNoT::createOptionsResponse(const DsHandle<DsSipRequest>& in_hRequest)
{
    DsHandle<DsSipResponse> hResponse = makeDs<DsSipResponse>(200U, in_hRequest);
    hResponse->addHeader("Allow", kAllow);
    hResponse->addHeader("Supported", "replaces");
    hResponse->addHeader("Accept-Language", "en");
    hResponse->addHeader("Accept-Encoding", "identity");
    hResponse->addHeader("Accept", "application/sdp");
    return hResponse;
}

int UnknownRequestNoT::optionsRequest()
{
    QLOG_TRACE(getLogger(), "UnknownRequest_MO::optionsRequest");
    respond(&UnknownRequestNoT::createOptionsResponse);
    return 0;
}

DsHandle<DsSipResponse> UnknownRequestNoT::createUnsupportedResponse(
    const DsHandle<DsSipRequest>& in_hRequest)
{
    DsHandle<DsSipResponse> hResponse = makeDs<DsSipResponse>(405U, in_hRequest);
    hResponse->addHeader("Allow", kAllow);
    return hResponse;
}

void UnknownRequestNoT::unsupportedRequest()
{
    QLOG_WARN(getLogger(), "Unsupported request " << m_hRequest->getMethod());
    respond(&UnknownRequestNoT::createUnsupportedResponse);
}

}  // namespace Quorvex
