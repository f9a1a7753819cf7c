#include "OutSipLegInterfaceProxy.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "DsVoipGatewayNetIf.h"
#include "OutStateMachine.h"
#include "ReleaseSameThread.h"
#include "UnknownRequest.h"
#include "infra/Assertion.h"
#include "infra/TraceScope.h"
#include "sipstack/DsSipMessage.h"
#include "sipstack/DsSipOutgoingCall.h"
#include "sipstack/DsSipRequest.h"
#include "sipstack/DsSipResponse.h"

namespace Quorvex
{

namespace
{

using OutProxy = TaskObjectProxy<OutStateMachine>;
using OutCall = OutSipSide::Call;
using Dialog = DsHandle<DsSipDialog>;
using Response = DsHandle<DsSipResponse>;
using Common = SipLegMethodObjects<OutSipSide>;

/// What a failure status of the INVITE means for the machine; any other status counts as an invalid number.
struct StatusClass
{
    unsigned int m_uiStatus;
    EventType::eTYPE m_type;
};
// clang-format off
constexpr StatusClass kStatusClasses[] = {
    {300, EventType::e3XX_REDIRECTION}, {301, EventType::e3XX_REDIRECTION}, {302, EventType::e3XX_REDIRECTION},
    {305, EventType::e3XX_REDIRECTION},
    {403, EventType::eINVALID_NUMBER},  {404, EventType::eINVALID_NUMBER},  {406, EventType::eINVALID_NUMBER},
    {410, EventType::eINVALID_NUMBER},  {484, EventType::eINVALID_NUMBER},  {485, EventType::eINVALID_NUMBER},
    {488, EventType::eINVALID_NUMBER},  {604, EventType::eINVALID_NUMBER},
    {408, EventType::eNO_ANSWER},
    {480, EventType::eREMOTE_BUSY},     {486, EventType::eREMOTE_BUSY},     {503, EventType::eREMOTE_BUSY},
    {600, EventType::eREMOTE_BUSY},     {603, EventType::eREMOTE_BUSY},
};
// clang-format on

EventType::eTYPE classifyFailure(const DsSipResponse& in_response)
{
    const unsigned int uiStatus = in_response.getStatusCode();
    const auto* pFound =
        std::find_if(std::begin(kStatusClasses),
                     std::end(kStatusClasses),
                     [uiStatus](const StatusClass& in_class) { return in_class.m_uiStatus == uiStatus; });
    if (pFound != std::end(kStatusClasses))
    {
        return pFound->m_type;
    }
    QLOG_WARN(OutSipSide::getLogger(),
              "Unknown status code received as answer to INVITE: " << uiStatus << " "
                                                                   << in_response.getReasonPhrase());
    return EventType::eINVALID_NUMBER;
}

/// A method object whose event is known only when it runs: keeps what the callback brought.
template <class Message, FixedString Account>
class OutMethodObject : public OutProxy::MethodObject, public Accounted<Account>
{
public:
    OutMethodObject(const OutProxy::ProxyData& in_data,
                    OutCall in_hCall,
                    Dialog in_hDialog,
                    DsHandle<Message> in_hMessage)
        : MethodObject(in_data),
          m_hCall(std::move(in_hCall)),
          m_hDialog(std::move(in_hDialog)),
          m_hMessage(std::move(in_hMessage))
    {
    }

protected:
    static int process(OutStateMachine& io_machine, const VoipEvent& in_event)
    {
        return io_machine.processEvent(in_event) ? eMO_DONE : eMO_FAILED;
    }
    static int processTimeOut(OutStateMachine& io_machine)
    {
        QLOG_DEBUG(OutSipSide::getLogger(), "Client transaction timed out and terminated by SIP stack");
        return process(io_machine, VoipEvent(EventType::eTERMINATED_UPON_TIMEOUT));
    }

    const OutCall m_hCall;
    const Dialog m_hDialog;
    const DsHandle<Message> m_hMessage;
};

class ProvisionalResponse_MO final : public OutMethodObject<DsSipResponse, "ProvisionalResponse_MO">
{
public:
    using OutMethodObject::OutMethodObject;

protected:
    int call_i(const OutProxy::ObjectPtr& in_pMachine) override
    {
        QLOG_TRACE(OutSipSide::getLogger(), getPlainName());
        const unsigned int uiStatus = m_hMessage->getStatusCode();
        const EventType::eTYPE type = uiStatus == 100   ? EventType::e100_TRYING
                                      : uiStatus == 180 ? EventType::e180_RINGING
                                                        : EventType::e183_SESSION_PROGRESS;
        return process(*in_pMachine, ProvisionalResponseEvent(type, m_hCall, m_hDialog, m_hMessage));
    }
};

class FailedToConnect_MO final : public OutMethodObject<DsSipResponse, "FailedToConnect_MO">
{
public:
    using OutMethodObject::OutMethodObject;

protected:
    int call_i(const OutProxy::ObjectPtr& in_pMachine) override
    {
        TRACE_SCOPE(OutSipSide::getLogger(), "FailedToConnect_MO::call_i");
        if (m_hMessage.isNil())
        {
            if (!m_hCall.isNil() && m_hCall->isUnreachable())
            {
                in_pMachine->noteUnreachable();
            }
            return processTimeOut(*in_pMachine);
        }
        return process(*in_pMachine,
                       FailedToConnectEvent(classifyFailure(*m_hMessage), m_hCall, m_hDialog, m_hMessage));
    }
};

class Redirect_MO final : public OutMethodObject<DsSipResponse, "Redirect_MO">
{
public:
    using OutMethodObject::OutMethodObject;

protected:
    int call_i(const OutProxy::ObjectPtr& in_pMachine) override
    {
        TRACE_SCOPE(OutSipSide::getLogger(), "Redirect_MO::call_i");
        return m_hMessage.isNil() ? int{eMO_DONE}
                                  : process(*in_pMachine, RedirectEvent(m_hCall, m_hDialog, m_hMessage));
    }
};

class Succeeded_MO final : public OutMethodObject<DsSipResponse, "Succeeded_MO">
{
public:
    using OutMethodObject::OutMethodObject;

protected:
    int call_i(const OutProxy::ObjectPtr& in_pMachine) override
    {
        TRACE_SCOPE(OutSipSide::getLogger(), "Succeeded_MO::call_i");
        return process(*in_pMachine, SucceededEvent(m_hCall, m_hDialog, m_hMessage));
    }
};

/// The end of the dialog: the event depends on the message that ended it.
class DialogTerminated_MO final : public OutMethodObject<DsSipMessage, "DialogTerminated_MO">
{
public:
    using OutMethodObject::OutMethodObject;

protected:
    int call_i(const OutProxy::ObjectPtr& in_pMachine) override
    {
        TRACE_SCOPE(OutSipSide::getLogger(), "DialogTerminated_MO::call_i");
        if (m_hMessage.isNil())
        {
            return processTimeOut(*in_pMachine);
        }
        if (const auto hRequest = m_hMessage.dynamicCast<DsSipRequest>(); !hRequest.isNil())
        {
            if (hRequest->getMethod() == "BYE")
            {
                return process(*in_pMachine, BYERequestEvent<OutCall>(m_hCall, m_hDialog, hRequest));
            }
            return process(*in_pMachine, VoipEvent(EventType::eINVALID));
        }
        const auto pResponse = m_hMessage.dynamicCast<DsSipResponse>();
        if (!QUORVEX_ASSERT_TEXT(OutSipSide::getLogger(), !pResponse.isNil(), "pResponse != 0"))
        {
            return eMO_FAILED;
        }
        switch (pResponse->getStatusCode())
        {
            case 200:
                return process(*in_pMachine, SipResponseEvent(EventType::e200_OK, pResponse));
            case 481:
                return process(*in_pMachine,
                               SipResponseEvent(EventType::e481_CALLEG_DOESNOTEXIST, pResponse));
            case 487:
                return process(*in_pMachine, SipResponseEvent(EventType::e487_REQUEST_CANCELLED, pResponse));
            default:
                return process(*in_pMachine, SipResponseEvent(pResponse));
        }
    }
};

}  // namespace

OutSipLegInterfaceProxy::OutSipLegInterfaceProxy(DsVoipGatewayNetIf& in_netIf,
                                                 IDGenerator& in_idGenerator,
                                                 ACE_Activation_Queue& in_queue,
                                                 Container& in_container)
    : SipLegInterfaceProxy<OutSipSide>(in_netIf, in_idGenerator, in_queue, in_container)
{
    QLOG_TRACE(OutSipSide::getLogger(), "OutSipLegInterfaceProxy ctor");
}

OutSipLegInterfaceProxy::~OutSipLegInterfaceProxy()
{
    QLOG_TRACE(OutSipSide::getLogger(), "OutSipLegInterfaceProxy dtor");
    if (!isReleaseEnqueued())
    {
        enqueueReleaseObject();
    }
}

void OutSipLegInterfaceProxy::enqueueReleaseObject()
{
    TRACE_SCOPE(OutSipSide::getLogger(), "OutSipLegInterfaceProxy::enqueueReleaseObject");
    enqueueLast(new ReleaseSameThread_MO<OutStateMachine>(getNetIf(), *this));
}

void OutSipLegInterfaceProxy::reliableProvisionalResponse(const Call& /*in_hCall*/,
                                                          const Dialog& /*in_hDialog*/,
                                                          const Response& /*in_hResponse*/)
{
    QLOG_WARN(OutSipSide::getLogger(), "OutSipLegInterfaceProxy::reliableProvisionalResponse : ignored");
}

void OutSipLegInterfaceProxy::provisionalResponse(const Call& in_hCall,
                                                  const Dialog& in_hDialog,
                                                  const Response& in_hResponse)
{
    TRACE_SCOPE(OutSipSide::getLogger(), "OutSipLegInterfaceProxy::provisionalResponse");
    post<ProvisionalResponse_MO>(in_hCall, in_hDialog, in_hResponse);
}

void OutSipLegInterfaceProxy::failedToConnect(const Call& in_hCall,
                                              const Dialog& in_hDialog,
                                              const Response& in_hResponse)
{
    TRACE_SCOPE(OutSipSide::getLogger(), "OutSipLegInterfaceProxy::failedToConnect");
    post<FailedToConnect_MO>(in_hCall, in_hDialog, in_hResponse);
}

void OutSipLegInterfaceProxy::redirect(const Call& in_hCall,
                                       const Dialog& in_hDialog,
                                       const Response& in_hResponse)
{
    TRACE_SCOPE(OutSipSide::getLogger(), "OutSipLegInterfaceProxy::redirect");
    post<Redirect_MO>(in_hCall, in_hDialog, in_hResponse);
}

void OutSipLegInterfaceProxy::succeeded(const Call& in_hCall,
                                        const Dialog& in_hDialog,
                                        const Response& in_hResponse)
{
    TRACE_SCOPE(OutSipSide::getLogger(), "OutSipLegInterfaceProxy::succeeded");
    post<Succeeded_MO>(in_hCall, in_hDialog, in_hResponse);
}

void OutSipLegInterfaceProxy::dialogTerminated(const Call& in_hCall,
                                               const Dialog& in_hDialog,
                                               const DsHandle<DsSipMessage>& in_hMessage)
{
    TRACE_SCOPE(OutSipSide::getLogger(), "OutSipLegInterfaceProxy::dialogTerminated");
    post<DialogTerminated_MO>(in_hCall, in_hDialog, in_hMessage);
}

void OutSipLegInterfaceProxy::terminated(const Call& /*in_hCall*/,
                                         const DsHandle<DsSipMessage>& /*in_hMessage*/)
{
    // The machine ends with its dialog.
}

void OutSipLegInterfaceProxy::unknownRequest(const Call& in_hCall,
                                             const Dialog& in_hDialog,
                                             const DsHandle<DsSipServerTransaction>& in_hTransaction,
                                             const DsHandle<DsSipRequest>& in_hRequest)
{
    TRACE_SCOPE(OutSipSide::getLogger(), "OutSipLegInterfaceProxy::unknownRequest");
    post<UnknownRequest_MO<OutSipSide>>(in_hCall, in_hDialog, in_hTransaction, in_hRequest);
}

void OutSipLegInterfaceProxy::referRequest(const Call& in_hCall,
                                           const Dialog& in_hDialog,
                                           const DsHandle<DsSipServerTransaction>& in_hTransaction,
                                           const DsHandle<DsSipRequest>& in_hRefer)
{
    TRACE_SCOPE(OutSipSide::getLogger(), "OutSipLegInterfaceProxy::referRequest");
    post<Common::ReferRequest_MO>(in_hCall, in_hDialog, in_hTransaction, in_hRefer);
}

void OutSipLegInterfaceProxy::referResponse(const Call& /*in_hCall*/,
                                            const Dialog& /*in_hDialog*/,
                                            const Response& /*in_hResponse*/)
{
    QLOG_WARN(OutSipSide::getLogger(), "OutSipLegInterfaceProxy::referResponse : ignored");
}

void OutSipLegInterfaceProxy::notifyRequest(const Call& /*in_hCall*/,
                                            const Dialog& /*in_hDialog*/,
                                            const DsHandle<DsSipServerTransaction>& /*in_hTransaction*/,
                                            const DsHandle<DsSipRequest>& /*in_hNotify*/)
{
    QLOG_WARN(OutSipSide::getLogger(), "OutSipLegInterfaceProxy::notifyRequest : ignored");
}

void OutSipLegInterfaceProxy::notifyResponse(const Call& /*in_hCall*/,
                                             const Dialog& /*in_hDialog*/,
                                             const Response& /*in_hResponse*/)
{
}

void OutSipLegInterfaceProxy::reinviteRequest(const Call& in_hCall,
                                              const Dialog& in_hDialog,
                                              const DsHandle<DsSipInviteMessage>& in_hInvite)
{
    TRACE_SCOPE(OutSipSide::getLogger(), "OutSipLegInterfaceProxy::reinviteRequest");
    post<Common::ReinviteRequest_MO>(in_hCall, in_hDialog, in_hInvite);
}

void OutSipLegInterfaceProxy::reinviteCancel(const Call& in_hCall,
                                             const Dialog& in_hDialog,
                                             const DsHandle<DsSipRequest>& in_hCancel)
{
    TRACE_SCOPE(OutSipSide::getLogger(), "OutSipLegInterfaceProxy::reinviteCancel");
    post<Common::ReinviteCancel_MO>(in_hCall, in_hDialog, in_hCancel);
}

void OutSipLegInterfaceProxy::reinviteResponse(const Call& in_hCall,
                                               const Dialog& in_hDialog,
                                               const Response& in_hResponse)
{
    TRACE_SCOPE(OutSipSide::getLogger(), "OutSipLegInterfaceProxy::reinviteResponse");
    post<Common::ReinviteResponse_MO>(in_hCall, in_hDialog, in_hResponse);
}

void OutSipLegInterfaceProxy::reinviteAck(const Call& in_hCall,
                                          const Dialog& /*in_hDialog*/,
                                          const DsHandle<DsSipAckMessage>& in_hAck)
{
    TRACE_SCOPE(OutSipSide::getLogger(), "OutSipLegInterfaceProxy::reinviteAck");
    postReinviteAck(in_hCall, in_hAck);
}

void OutSipLegInterfaceProxy::reinviteTimeOut(const Call& /*in_hCall*/,
                                              const Dialog& /*in_hDialog*/,
                                              const DsHandle<DsSipInviteMessage>& /*in_hInvite*/)
{
    TRACE_SCOPE(OutSipSide::getLogger(), "OutSipLegInterfaceProxy::reinviteTimeOut");
    post<Common::ReinviteTimeOut_MO>();
}

void OutSipLegInterfaceProxy::onSessionTimeOut(const Call& in_hCall, const Dialog& in_hDialog)
{
    TRACE_SCOPE(OutSipSide::getLogger(), "OutSipLegInterfaceProxy::onSessionTimeOut");
    post<Common::OnSessionTimeOut_MO>(in_hCall, in_hDialog);
}

void OutSipLegInterfaceProxy::onSessionRefreshTime(const Call& in_hCall, const Dialog& in_hDialog)
{
    TRACE_SCOPE(OutSipSide::getLogger(), "OutSipLegInterfaceProxy::onSessionRefreshTime");
    post<Common::OnSessionRefreshTime_MO>(in_hCall, in_hDialog);
}

void OutSipLegInterfaceProxy::multipleResponse(const Call& /*in_hCall*/,
                                               const Dialog& /*in_hDialog*/,
                                               const Response& /*in_hResponse*/)
{
    QLOG_WARN(OutSipSide::getLogger(), "OutSipLegInterfaceProxy::multipleResponse : ignored");
}

void OutSipLegInterfaceProxy::replacesDialog(const Call& in_hCall,
                                             const Dialog& in_hReplacedDialog,
                                             const Dialog& in_hNewDialog,
                                             const DsHandle<DsSipInviteMessage>& in_hInvite)
{
    TRACE_SCOPE(OutSipSide::getLogger(), "OutSipLegInterfaceProxy::replacesDialog");
    post<Common::ReplacesDialog_MO>(in_hCall, in_hReplacedDialog, in_hNewDialog, in_hInvite);
}

}  // namespace Quorvex
