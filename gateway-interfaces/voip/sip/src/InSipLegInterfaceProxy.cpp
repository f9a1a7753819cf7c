#include "InSipLegInterfaceProxy.h"

#include <string>
#include <utility>

#include "DsVoipGatewayNetIf.h"
#include "InStateMachine.h"
#include "UnknownRequest.h"
#include "infra/Assertion.h"
#include "infra/TraceScope.h"
#include "sipstack/DsSipMessage.h"
#include "sipstack/DsSipRequest.h"
#include "sipstack/DsSipResponse.h"

namespace Quorvex
{

namespace
{

using InProxy = TaskObjectProxy<InStateMachine>;
using InCall = InSipSide::Call;
using Common = SipLegMethodObjects<InSipSide>;

// The callbacks of inbound calls only.
// clang-format off
// callback                              event               account
/* called        */ using Called_MO        = EventMethodObject<InSipSide, InCalledEvent,              "Called_MO">;
/* prack         */ using Prack_MO         = EventMethodObject<InSipSide, PrackEvent<InCall>,         "Prack_MO">;
/* callConfirmed */ using CallConfirmed_MO = EventMethodObject<InSipSide, CallConfirmedEvent<InCall>, "CallConfirmed_MO">;
// clang-format on

/// The end of the call: the event depends on the message that ended it.
class Terminated_MO final : public InProxy::MethodObject, public Accounted<"Terminated_MO">
{
public:
    Terminated_MO(const InProxy::ProxyData& in_data, InCall in_hCall, DsHandle<DsSipMessage> in_hMessage)
        : MethodObject(in_data), m_hCall(std::move(in_hCall)), m_hMessage(std::move(in_hMessage))
    {
    }

protected:
    int call_i(const InProxy::ObjectPtr& in_pMachine) override
    {
        QLOG_TRACE(InSipSide::getLogger(), getPlainName());
        if (m_hMessage.isNil())
        {
            QLOG_DEBUG(InSipSide::getLogger(), "Server ransaction timed out and terminated by SIP stack");
            return process(*in_pMachine, VoipEvent(EventType::eTERMINATED_UPON_TIMEOUT));
        }
        if (const auto hResponse = m_hMessage.dynamicCast<DsSipResponse>(); !hResponse.isNil())
        {
            return process(*in_pMachine, SipResponseEvent(EventType::e200_OK, hResponse));
        }
        const auto hRequest = m_hMessage.dynamicCast<DsSipRequest>();
        const DsString strMethod = hRequest.isNil() ? DsString() : hRequest->getMethod();
        if (strMethod == "BYE")
        {
            return process(*in_pMachine, BYERequestEvent<InCall>(m_hCall, m_hCall->getDialog(), hRequest));
        }
        if (strMethod == "ACK")
        {
            return process(*in_pMachine, VoipEvent(EventType::eACK));
        }
        if (strMethod == "CANCEL")
        {
            return process(*in_pMachine, VoipEvent(EventType::eCANCEL));
        }
        Assertion::report("0", InSipSide::getLogger(), __FILE__, __LINE__);
        return eMO_FAILED;
    }

private:
    static int process(InStateMachine& io_machine, const VoipEvent& in_event)
    {
        return io_machine.processEvent(in_event) ? eMO_DONE : eMO_FAILED;
    }

    const InCall m_hCall;
    const DsHandle<DsSipMessage> m_hMessage;
};

}  // namespace

/// Asks for the machine of a new call.
class AcquireInStateMachine_MO final : public InProxy::ProxyData_MO,
                                       public Accounted<"AcquireInStateMachine_MO">
{
public:
    AcquireInStateMachine_MO(DsVoipGatewayNetIf& in_netIf,
                             const InProxy::ProxyData& in_data,
                             std::string in_strCallId)
        : ProxyData_MO(in_data), m_netIf(in_netIf), m_strCallId(std::move(in_strCallId))
    {
    }

    int call() override
    {
        QLOG_TRACE(InSipSide::getLogger(), getPlainName());
        return m_netIf.acquireInStateMachine(getContainer(), getObjectID(), m_strCallId.c_str());
    }

private:
    DsVoipGatewayNetIf& m_netIf;
    const std::string m_strCallId;
};

/// Releases it.
class InDestructor_MO final : public InProxy::ProxyData_MO, public Accounted<"InDestructor_MO">
{
public:
    InDestructor_MO(DsVoipGatewayNetIf& in_netIf, const InProxy::ProxyData& in_data)
        : ProxyData_MO(in_data), m_netIf(in_netIf)
    {
    }

    int call() override
    {
        QLOG_TRACE(InSipSide::getLogger(), getPlainName());
        return m_netIf.releaseStateMachine(getContainer(), getObjectID());
    }

private:
    DsVoipGatewayNetIf& m_netIf;
};

InSipLegInterfaceProxy::InSipLegInterfaceProxy(DsVoipGatewayNetIf& in_netIf,
                                               IDGenerator& in_idGenerator,
                                               ACE_Activation_Queue& in_queue,
                                               Container& in_container,
                                               const std::string& in_strCallId)
    : SipLegInterfaceProxy<InSipSide>(in_netIf, in_idGenerator, in_queue, in_container)
{
    QLOG_TRACE(InSipSide::getLogger(), "InSipLegInterfaceProxy ctor");
    // First in the queue: the machine is there before anything that the stack reports to this object.
    enqueue(new AcquireInStateMachine_MO(in_netIf, getProxyData(), in_strCallId));
}

InSipLegInterfaceProxy::~InSipLegInterfaceProxy()
{
    QLOG_TRACE(InSipSide::getLogger(), "InSipLegInterfaceProxy dtor");
    if (!isReleaseEnqueued())
    {
        enqueueReleaseObject();
    }
    // Whoever gets the identifier next queues its acquisition behind this release.
    TaskObjectProxyNoT::proxyDestruction();
}

void InSipLegInterfaceProxy::enqueueReleaseObject()
{
    TRACE_SCOPE(InSipSide::getLogger(), "InSipLegInterfaceProxy::enqueueReleaseObject");
    enqueueLast(new InDestructor_MO(getNetIf(), getProxyData()));
}

void InSipLegInterfaceProxy::called(const Call& in_hCall, const DsHandle<DsSipInviteMessage>& in_hInvite)
{
    TRACE_SCOPE(InSipSide::getLogger(), "InSipLegInterfaceProxy::called");
    const auto data = getProxyData();
    post<Called_MO>(in_hCall, in_hInvite, data.m_container, data.m_uiObjectID);
}

void InSipLegInterfaceProxy::prack(const Call& in_hCall, const DsHandle<DsSipPrackMessage>& in_hPrack)
{
    TRACE_SCOPE(InSipSide::getLogger(), "InSipLegInterfaceProxy::prack");
    post<Prack_MO>(in_hCall, in_hPrack);
}

void InSipLegInterfaceProxy::callConfirmed(const Call& in_hCall, const DsHandle<DsSipAckMessage>& in_hAck)
{
    TRACE_SCOPE(InSipSide::getLogger(), "InSipLegInterfaceProxy::callConfirmed");
    post<CallConfirmed_MO>(EventType::eACK, in_hCall, in_hAck);
}

void InSipLegInterfaceProxy::terminated(const Call& in_hCall, const DsHandle<DsSipMessage>& in_hMessage)
{
    TRACE_SCOPE(InSipSide::getLogger(), "InSipLegInterfaceProxy::terminated");
    post<Terminated_MO>(in_hCall, in_hMessage);
}

void InSipLegInterfaceProxy::unknownRequest(const Call& in_hCall,
                                            const DsHandle<DsSipServerTransaction>& in_hTransaction,
                                            const DsHandle<DsSipRequest>& in_hRequest)
{
    TRACE_SCOPE(InSipSide::getLogger(), "InSipLegInterfaceProxy::unknownRequest");
    post<UnknownRequest_MO<InSipSide>>(in_hCall, in_hCall->getDialog(), in_hTransaction, in_hRequest);
}

void InSipLegInterfaceProxy::referRequest(const Call& in_hCall,
                                          const DsHandle<DsSipServerTransaction>& in_hTransaction,
                                          const DsHandle<DsSipRequest>& in_hRefer)
{
    TRACE_SCOPE(InSipSide::getLogger(), "InSipLegInterfaceProxy::referRequest");
    post<Common::ReferRequest_MO>(in_hCall, in_hCall->getDialog(), in_hTransaction, in_hRefer);
}

void InSipLegInterfaceProxy::notifyResponse(const Call& /*in_hCall*/,
                                            const DsHandle<DsSipResponse>& /*in_hResponse*/)
{
}

void InSipLegInterfaceProxy::reinviteRequest(const Call& in_hCall,
                                             const DsHandle<DsSipInviteMessage>& in_hInvite)
{
    TRACE_SCOPE(InSipSide::getLogger(), "InSipLegInterfaceProxy::reinviteRequest");
    post<Common::ReinviteRequest_MO>(in_hCall, in_hCall->getDialog(), in_hInvite);
}

void InSipLegInterfaceProxy::reinviteCancel(const Call& in_hCall, const DsHandle<DsSipRequest>& in_hCancel)
{
    TRACE_SCOPE(InSipSide::getLogger(), "InSipLegInterfaceProxy::reinviteCancel");
    post<Common::ReinviteCancel_MO>(in_hCall, in_hCall->getDialog(), in_hCancel);
}

void InSipLegInterfaceProxy::reinviteResponse(const Call& in_hCall,
                                              const DsHandle<DsSipResponse>& in_hResponse)
{
    TRACE_SCOPE(InSipSide::getLogger(), "InSipLegInterfaceProxy::reinviteResponse");
    post<Common::ReinviteResponse_MO>(in_hCall, in_hCall->getDialog(), in_hResponse);
}

void InSipLegInterfaceProxy::reinviteAck(const Call& in_hCall, const DsHandle<DsSipAckMessage>& in_hAck)
{
    TRACE_SCOPE(InSipSide::getLogger(), "InSipLegInterfaceProxy::reinviteAck");
    postReinviteAck(in_hCall, in_hAck);
}

void InSipLegInterfaceProxy::reinviteTimeOut(const Call& /*in_hCall*/,
                                             const DsHandle<DsSipInviteMessage>& /*in_hInvite*/)
{
    TRACE_SCOPE(InSipSide::getLogger(), "InSipLegInterfaceProxy::reinviteTimeOut");
    post<Common::ReinviteTimeOut_MO>();
}

void InSipLegInterfaceProxy::onSessionTimeOut(const Call& in_hCall)
{
    TRACE_SCOPE(InSipSide::getLogger(), "InSipLegInterfaceProxy::onSessionTimeOut");
    post<Common::OnSessionTimeOut_MO>(in_hCall, in_hCall->getDialog());
}

void InSipLegInterfaceProxy::onSessionRefreshTime(const Call& in_hCall)
{
    TRACE_SCOPE(InSipSide::getLogger(), "InSipLegInterfaceProxy::onSessionRefreshTime");
    post<Common::OnSessionRefreshTime_MO>(in_hCall, in_hCall->getDialog());
}

void InSipLegInterfaceProxy::replacesDialog(const Call& in_hCall,
                                            const DsHandle<DsSipDialog>& in_hReplacedDialog,
                                            const DsHandle<DsSipDialog>& in_hNewDialog,
                                            const DsHandle<DsSipInviteMessage>& in_hInvite)
{
    TRACE_SCOPE(InSipSide::getLogger(), "InSipLegInterfaceProxy::replacesDialog");
    post<Common::ReplacesDialog_MO>(in_hCall, in_hReplacedDialog, in_hNewDialog, in_hInvite);
}

}  // namespace Quorvex
