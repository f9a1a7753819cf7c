#include "CommonStateMachine.h"

#include "SipEvents.h"
#include "SipLeg.h"
#include "VoipMedia.h"
#include "VoipStateMachine.h"
#include "infra/TraceScope.h"
#include "quorvex/CallInterface.h"

namespace Quorvex
{

namespace
{

// The class of a response's status code; 0 when the event carries no response.
unsigned int statusClass(const VoipEvent& in_event)
{
    const auto* pEvent = in_event.asSipResponseEvent();
    return pEvent == nullptr || pEvent->getResponse().isNil() ? 0
                                                              : pEvent->getResponse()->getStatusCode() / 100;
}

}  // namespace

const Logger& getCommonStateMachineLogger()
{
    static const StaticLogger s_logger("quorvex.voip.CommonStateMachine");
    return s_logger;
}

template <class CallIfPtr>
void Idle<CallIfPtr>::entryAction(const VoipEvent& /*in_event*/, std::string& out_strStateName)
{
    TRACE_SCOPE(this->getLogger(), "Idle::entryAction");
    out_strStateName = getName();
    // A call that was killed before its INVITE has no leg, and ends like every other.
    if (this->m_pSM->getSipLeg() != nullptr && !this->getMedia().isAllStopped())
    {
        this->getMedia().stopAll();
    }
    this->m_pSM->done();
}

template <class CallIfPtr>
bool Idle<CallIfPtr>::processEvent_i(const VoipEvent& /*in_event*/, std::string& out_strStateName)
{
    QLOG_TRACE(this->getLogger(), "Idle::processEvent_i");
    out_strStateName = getName();
    return true;
}

template <class CallIfPtr, class CallType>
void Disconnecting<CallIfPtr, CallType>::entryAction_i(const VoipEvent& /*in_event*/,
                                                       std::string& out_strStateName)
{
    TRACE_SCOPE(this->getLogger(), "Disconnecting::entryAction_i");
    out_strStateName = getName();
    if (!this->internal_assert(__FILE__, __LINE__))
    {
        return;
    }
    if (!this->getMedia().isAllStopped())
    {
        this->getMedia().stopAll();
    }
    int iTimeoutMs = 0;
    if (!this->m_pSM->getConfig().isNull() &&
        this->m_pSM->getConfig()->getInteger("quorvex.sip.state.Disconnecting.timeoutMs", iTimeoutMs) &&
        iTimeoutMs > 0)
    {
        m_timeout = ACE_Time_Value(iTimeoutMs / 1000, (iTimeoutMs % 1000) * 1000L);
    }
}

template <class CallIfPtr, class CallType>
auto Disconnecting<CallIfPtr, CallType>::rows() -> std::span<const Row>
{
    using namespace EventType;
    using namespace StateTable;
    // clang-format off
    static constexpr Row kRows[] = {
        // event                    guard                          action                         next
        {eAPI_KILL,                 always,                        nothing,                       "IDLE"},
        {eBYE,                      always,                        &Disconnecting::answerBye,     "IDLE"},
        {e200_OK,                   always,                        nothing,                       "IDLE"},
        {e481_CALLEG_DOESNOTEXIST,  always,                        nothing,                       "IDLE"},
        {eSIP_RESPONSE,             &Disconnecting::isSuccess,     nothing,                       "IDLE"},
        {eSIP_RESPONSE,             &Disconnecting::isFailure,     &Disconnecting::noteFailure,   "IDLE"},
        {eSIP_RESPONSE,             &Disconnecting::isProvisional, nothing,                       stay},
        {eTERMINATED_UPON_TIMEOUT,  always,                        &Disconnecting::noteNoAnswer,  "IDLE"},
        {eAPI_STOP,                 always,                        nothing,                       stay},
        {eAPI_HANGUP,               always,                        nothing,                       stay},
        {eREFER,                    always,                        nothing,                       stay},
        {eREINVITE_REQUEST,         always,                        nothing,                       stay},
        {eREINVITE_ACK,             always,                        nothing,                       stay},
        {eREINVITE_ACK_WITH_SDP,    always,                        nothing,                       stay},
        {eMEDIA_OP_STATUS,          always,                        nothing,                       stay},
    };
    // clang-format on
    static_assert(allReachable(kRows));
    return kRows;
}

template <class CallIfPtr, class CallType>
bool Disconnecting<CallIfPtr, CallType>::processEvent_i(const VoipEvent& in_event,
                                                        std::string& out_strStateName)
{
    return StateTable::walk(*this, in_event, out_strStateName);
}

template <class CallIfPtr, class CallType>
bool Disconnecting<CallIfPtr, CallType>::processTimeout_i(std::string& out_strStateName)
{
    QLOG_WARN(this->getLogger(),
              "Timeout in state " << getName() << "(" << m_timeout.msec()
                                  << "ms). Was waiting for a response to a BYE.");
    out_strStateName = "IDLE";
    return true;
}

template <class CallIfPtr, class CallType>
bool Disconnecting<CallIfPtr, CallType>::isProvisional(const VoipEvent& in_event) const
{
    return statusClass(in_event) == 1;
}

template <class CallIfPtr, class CallType>
bool Disconnecting<CallIfPtr, CallType>::isSuccess(const VoipEvent& in_event) const
{
    return statusClass(in_event) == 2;
}

template <class CallIfPtr, class CallType>
bool Disconnecting<CallIfPtr, CallType>::isFailure(const VoipEvent& in_event) const
{
    const unsigned int uiClass = statusClass(in_event);
    return uiClass >= 4 && uiClass <= 6;
}

template <class CallIfPtr, class CallType>
bool Disconnecting<CallIfPtr, CallType>::answerBye(const VoipEvent& in_event,
                                                   std::string& /*out_strStateName*/)
{
    // Answered or not, the call is over.
    static_cast<void>(ByeHelper<CallType>::respondToBye(in_event, this->m_pSM->getSipLeg()));
    return true;
}

template <class CallIfPtr, class CallType>
bool Disconnecting<CallIfPtr, CallType>::noteFailure(const VoipEvent& in_event,
                                                     std::string& /*out_strStateName*/)
{
    QLOG_DEBUG(this->getLogger(),
               "Received a " << dynamic_cast<const SipResponseEvent&>(in_event).getResponse()->getStatusCode()
                             << " in response to a BYE");
    return true;
}

template <class CallIfPtr, class CallType>
bool Disconnecting<CallIfPtr, CallType>::noteNoAnswer(const VoipEvent& /*in_event*/,
                                                      std::string& /*out_strStateName*/)
{
    QLOG_INFO(this->getLogger(),
              "Got a eTERMINATED_UPON_TIMEOUT event in state DISCONNECTING (Voip CommonStateMachine). "
              "Usually due to "
              "not receiving 200 OK for a BYE request in time");
    return true;
}

template class Idle<CountedObjPtr<CallInInterface>>;
template class Idle<CountedObjPtr<CallOutInterface>>;
template class Disconnecting<CountedObjPtr<CallInInterface>, DsHandle<DsSipIncomingCall>>;
template class Disconnecting<CountedObjPtr<CallOutInterface>, DsHandle<DsSipOutgoingCall>>;

}  // namespace Quorvex
