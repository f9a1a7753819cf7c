#pragma once

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

#include "EventMethodObject.h"
#include "SipEvents.h"
#include "infra/Logger.h"
#include "thread/Task.h"
#include "thread/TaskObjectProxy.h"

namespace Quorvex
{

class DsSipOutgoingCall;
class DsVoipGatewayNetIf;
class InStateMachine;
class OutStateMachine;

/// Inbound calls, as the SIP stack's callbacks see them.
struct InSipSide
{
    using Machine = InStateMachine;
    using Call = DsHandle<DsSipIncomingCall>;
    static constexpr const char* kName = "InSipLegInterfaceProxy";
    static constexpr const char* kEnqueueError = "InSipLegInterfaceProxy : Error calling enqueue: ";
    static const Logger& getLogger();
};

/// Outbound calls, as the SIP stack's callbacks see them.
struct OutSipSide
{
    using Machine = OutStateMachine;
    using Call = DsHandle<DsSipOutgoingCall>;
    static constexpr const char* kName = "OutSipLegInterfaceProxy";
    static constexpr const char* kEnqueueError = "OutSipLegInterfaceProxy dtor: Error calling enqueue: ";
    static const Logger& getLogger();
};

/// The callbacks that inbound and outbound calls have in common: method object and event of each. Those of
/// one direction only stand in InSipLegInterfaceProxy and OutSipLegInterfaceProxy.
template <class Side>
struct SipLegMethodObjects
{
    using Call = typename Side::Call;
    using Machine = typename Side::Machine;

    template <class Event, FixedString Account, int Level = eTRACE_LEVEL, FixedString Text = "">
    using MO = EventMethodObject<Side, Event, Account, Level, Text>;

    // clang-format off
    // callback                                 event                             account
    /* referRequest     */ using ReferRequest_MO =
                              MO<ReferEvent<Call>,                  "ReferRequest_MO<>">;
    /* reinviteRequest  */ using ReinviteRequest_MO =
                              MO<ReinviteReqEvent<Call, Machine>,   "ReinviteRequest_MO<>">;
    /* reinviteCancel   */ using ReinviteCancel_MO =
                              MO<ReinviteCancelEvent<Call>,         "ReinviteCancel_MO<>">;
    /* reinviteResponse */ using ReinviteResponse_MO =
                              MO<ReinviteResponseEvent<Call>,       "ReinviteResponse_MO<>">;
    /* reinviteAck      */ using ReinviteAckWithSDP_MO =
                              MO<ReinviteAckWithSDPEvent<Call>,     "ReinviteAckWithSDP_MO<>">;
    /*   without SDP    */ using VoipEvent_MO = ReadyEventMethodObject<Side, "VoipEvent_MO">;
    /* reinviteTimeOut  */ using ReinviteTimeOut_MO =
                              MO<PlainEvent<EventType::eREINVITE_TIMED_OUT>, "ReinviteTimeOut_MO<>",
                                 eINFO_LEVEL, "Request timed-out">;
    /* onSessionTimeOut */ using OnSessionTimeOut_MO =
                              MO<SessionTimeOutEvent<Call>,         "OnSessionTimeOut_MO<>",
                                 eWARN_LEVEL, "Session timed out">;
    /* onSessionRefreshTime */ using OnSessionRefreshTime_MO =
                              MO<SessionRefreshEvent<Call>,         "OnSessionRefreshTime_MO<>">;
    /* replacesDialog   */ using ReplacesDialog_MO =
                              MO<ReplacesEvent<Call>,               "ReplacesDialog_MO<>">;
    // clang-format on
};

/// Whether an ACK brings the answer to an offer of ours: a body of type application/sdp, in any case.
bool carriesSDP(const DsHandle<DsSipAckMessage>& in_hAck);

/// What the proxies of the SIP stack's callbacks share: each callback becomes a method object on the task's
/// queue. Called on the SIP stack thread, which also destroys it; touches nothing but itself and the queue.
template <class Side>
class SipLegInterfaceProxy : public TaskObjectProxy<typename Side::Machine>
{
protected:
    using Proxy = TaskObjectProxy<typename Side::Machine>;
    using Call = typename Side::Call;

    SipLegInterfaceProxy(DsVoipGatewayNetIf& in_netIf,
                         IDGenerator& in_idGenerator,
                         ACE_Activation_Queue& in_queue,
                         typename Proxy::Container& in_container)
        : Proxy(in_idGenerator, in_queue, in_container), m_netIf(in_netIf)
    {
    }
    ~SipLegInterfaceProxy() = default;

    /// Queues the method object; one that is refused is deleted and counted.
    void enqueue(ACE_Method_Request* in_pMethodObject)
    {
        if (m_bReleaseEnqueued)
        {
            QLOG_WARN(Side::getLogger(),
                      "trying to enqueue a method object after the release object has been enqueued");
            delete in_pMethodObject;
            return;
        }
        errno = 0;
        if (!Task::enqueue(this->getQueue(), in_pMethodObject, Side::kName))
        {
            QLOG_ERROR(Side::getLogger(), Side::kEnqueueError << std::system_category().message(errno));
        }
    }

    /// Makes a method object of that class for this proxy's machine and queues it.
    template <class MethodObject, class... Args>
    void post(Args&&... in_args)
    {
        enqueue(new MethodObject(this->getProxyData(), std::forward<Args>(in_args)...));
    }

    /// The ACK of a re-INVITE: the answer to our offer, or a bare confirmation.
    void postReinviteAck(const Call& in_hCall, const DsHandle<DsSipAckMessage>& in_hAck)
    {
        using MethodObjects = SipLegMethodObjects<Side>;
        if (carriesSDP(in_hAck))
        {
            post<typename MethodObjects::ReinviteAckWithSDP_MO>(in_hCall, in_hAck);
            return;
        }
        post<typename MethodObjects::VoipEvent_MO>(
            std::make_unique<CallConfirmedEvent<Call>>(EventType::eREINVITE_ACK, in_hCall, in_hAck));
    }

    /// Queues the last method object of this proxy, once.
    void enqueueLast(ACE_Method_Request* in_pMethodObject)
    {
        enqueue(in_pMethodObject);
        m_bReleaseEnqueued = true;
    }
    bool isReleaseEnqueued() const { return m_bReleaseEnqueued; }

    DsVoipGatewayNetIf& getNetIf() const { return m_netIf; }

private:
    DsVoipGatewayNetIf& m_netIf;
    bool m_bReleaseEnqueued = false;
};

}  // namespace Quorvex
