#include "ConnectedState.h"

#include <memory>

#include "SipEvents.h"
#include "SipInfoMsgContent.h"
#include "SipLeg.h"
#include "VoipMedia.h"
#include "infra/TraceScope.h"
#include "quorvex/CallInterface.h"

// The outer state, and what its sub-states share. ConnectedMedia.cpp has the sub-states in which media are
// set up and changed, ConnectedTransfer.cpp those of a transfer.

namespace Quorvex
{

template <class CallIfPtr, class CallType, class Machine>
Connected<CallIfPtr, CallType, Machine>::Connected(ObjectWithLogger<CallLogger>& in_logger,
                                                   VoipStateMachine<CallIfPtr>* in_pSM)
    : VoipNamedState<CallIfPtr>(in_logger, in_pSM), Nested(in_logger.getLogger())
{
    using StatePtr = typename VoipStateMachine<CallIfPtr>::StatePtr;
    auto& machine = this->m_stateMachine;
    machine.setInitialStateName("CONNECTED::iInitial");
    machine.setInitialState(StatePtr::template make<iInitial>(*this, machine));
    machine.addState("CONNECTED::iConnected", StatePtr::template make<iConnected>(*this, machine));
    machine.addState("CONNECTED::iMediaSetup", StatePtr::template make<iMediaSetup>(*this, machine));
    machine.addState("CONNECTED::iTransfering", StatePtr::template make<iTransfering>(*this, machine));
    machine.addState("CONNECTED::iTransfered", StatePtr::template make<iTransfered>(*this, machine));
    machine.addFinalState("DISCONNECTING");
    machine.addFinalState("IDLE");
}

template <class CallIfPtr, class CallType, class Machine>
void Connected<CallIfPtr, CallType, Machine>::entryAction(const VoipEvent& in_event,
                                                          std::string& out_strStateName)
{
    TRACE_SCOPE(this->getLogger(), "Connected::entryAction");
    m_bReinvitePending = false;
    this->m_stateMachine.setLogger(this->getLogger());
    Nested::entryAction(in_event, out_strStateName);
}

template <class CallIfPtr, class CallType, class Machine>
void Connected<CallIfPtr, CallType, Machine>::onStateExit(const VoipEvent& /*in_event*/,
                                                          const std::string& /*in_strNewStateName*/)
{
    TRACE_SCOPE(this->getLogger(), "Connected::onStateExit");
    // What still waits there must not wait for the machine's next call.
    this->m_stateMachine.emptyEventQueue();
    this->m_stateMachine.getLogger().callEnd();
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::processEvent(const VoipEvent& in_event,
                                                           std::string& out_strStateName)
{
    return NoTimeoutState<VoipEvent>::processEvent(in_event, out_strStateName);
}

template <class CallIfPtr, class CallType, class Machine>
auto Connected<CallIfPtr, CallType, Machine>::rows() -> std::span<const Row>
{
    using namespace EventType;
    using namespace StateTable;
    // clang-format off
    static constexpr Row kRows[] = {
        // event                    guard    action                        next
        {eAPI_SEND_INFO_MSG,        always,  &Connected::sendInfo,         stay},
        {eTERMINATED_UPON_TIMEOUT,  always,  &Connected::endAfterTimeout,  "IDLE"},
        {eINFO,                     always,  &Connected::relayInfo,        stay},
    };  // every other event: the nested machine
    // clang-format on
    static_assert(allReachable(kRows));
    return kRows;
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::processEvent_i(const VoipEvent& in_event,
                                                             std::string& out_strStateName)
{
    out_strStateName = getName();
    if (!this->internal_assert(__FILE__, __LINE__))
    {
        return false;
    }
    if (const Row* pRow = StateTable::find<Connected>(*this, rows(), in_event))
    {
        return StateTable::run(*this, *pRow, in_event, out_strStateName);
    }
    return Nested::processEvent(in_event, out_strStateName);
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::sendInfo(const VoipEvent& in_event,
                                                       std::string& /*out_strStateName*/)
{
    const auto* pInfoEvent = dynamic_cast<const SendInfoMsgEvent*>(&in_event);
    if (!QUORVEX_ASSERT_TEXT(this->getLogger(), pInfoEvent != nullptr, "pInfoEvent != 0"))
    {
        return false;
    }
    return this->getSipLeg().sendInfoMsg(*pInfoEvent->getInfoMsg());
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::endAfterTimeout(const VoipEvent& /*in_event*/,
                                                              std::string& /*out_strStateName*/)
{
    QLOG_WARN(this->getLogger(), "Hanging up following a SIP timeout");
    this->getMedia().stopAll();
    this->tellCallEngine();
    return true;
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::relayInfo(const VoipEvent& in_event,
                                                        std::string& /*out_strStateName*/)
{
    const auto* pRequestEvent = dynamic_cast<const RequestEvent*>(&in_event);
    if (!QUORVEX_ASSERT_TEXT(this->getLogger(), pRequestEvent != nullptr, "pRequestEvent != 0"))
    {
        return false;
    }
    const std::unique_ptr<std::vector<Parameter>> pContent(getNewInfoMsgContent(pRequestEvent->getRequest()));
    if (!pContent)
    {
        QLOG_ERROR(this->getLogger(),
                   "Could not relay INFO event to Call Engine as we failed to extract message content");
        return false;
    }
    const CallIfPtr pCallIf = this->m_pSM->getCallIf();
    return !pCallIf.isNull() && pCallIf->infoReceived(*pContent);
}

// ------------------------------------------------------------------------------------- what the sub-states
// share

template <class CallIfPtr, class CallType, class Machine>
void Connected<CallIfPtr, CallType, Machine>::ConnectedSubState::hangUp(bool in_bTellCallEngine,
                                                                        std::string& out_strStateName,
                                                                        const char* in_szError)
{
    if (!this->getSipLeg().hangup())
    {
        QLOG_ERROR(this->getLogger(), in_szError);
    }
    if (in_bTellCallEngine)
    {
        this->tellCallEngine();
    }
    out_strStateName = "DISCONNECTING";
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::ConnectedSubState::killCall(const VoipEvent& /*in_event*/,
                                                                          std::string& /*out_strStateName*/)
{
    static_cast<void>(this->getSipLeg().hangup());
    this->getMedia().stopAll();
    return true;
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::ConnectedSubState::hangUpForEngine(
    const VoipEvent& /*in_event*/, std::string& out_strStateName)
{
    hangUp(false, out_strStateName, "Could not send the BYE!");
    return true;
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::ConnectedSubState::hangUpForEngineInTransfer(
    const VoipEvent& /*in_event*/, std::string& out_strStateName)
{
    hangUp(false, out_strStateName, "Could not send the BYE!!!");
    return true;
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::ConnectedSubState::endAfterBye(
    const VoipEvent& in_event, std::string& /*out_strStateName*/)
{
    // Answered or not, the call is over.
    static_cast<void>(ByeHelper<CallType>::respondToBye(in_event, this->m_pSM->getSipLeg()));
    this->getMedia().stopAll();
    this->tellCallEngine();
    return true;
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::ConnectedSubState::clearReinvitePending(
    const VoipEvent& /*in_event*/, std::string& /*out_strStateName*/)
{
    m_outer.m_bReinvitePending = false;
    return true;
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::ConnectedSubState::declineEvent(
    const VoipEvent& /*in_event*/, std::string& /*out_strStateName*/)
{
    return this->decline();
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::ConnectedSubState::processResponse(
    const VoipEvent& in_event, std::string& out_strStateName)
{
    if (!m_outer.m_bReinvitePending)
    {
        this->logUnexpectedEvent(in_event);
        QLOG_WARN(this->getLogger(), "received a SIP response when no request was sent");
        return true;
    }
    const auto* pRespEvent = in_event.asSipResponseEvent();
    if (!QUORVEX_ASSERT_TEXT(this->getLogger(), pRespEvent != nullptr, "pRespEvent != 0"))
    {
        return false;
    }
    const DsHandle<DsSipResponse>& hResponse = pRespEvent->getResponse();
    if (!QUORVEX_ASSERT_TEXT(this->getLogger(), !hResponse.isNil(), "! hResponse.isNil()"))
    {
        return false;
    }
    const DsString strMethod = hResponse->getMethod();
    if (!QUORVEX_ASSERT_TEXT(this->getLogger(), !strMethod.isEmpty(), "! hCSeq.isNil()"))
    {
        return false;
    }
    if (strMethod != "BYE")
    {
        QLOG_WARN(this->getLogger(),
                  "received a response for a " << strMethod << ". We don't send these. Ignoring");
        return true;
    }
    QLOG_DEBUG(this->getLogger(), "received a response for a BYE ds sent during a reinvite.");
    processByeResponse(in_event, hResponse->getStatusCode(), out_strStateName);
    return true;
}

template <class CallIfPtr, class CallType, class Machine>
void Connected<CallIfPtr, CallType, Machine>::ConnectedSubState::processByeResponse(
    const VoipEvent& in_event, unsigned int in_uiCode, std::string& out_strStateName)
{
    switch (in_uiCode / 100)
    {
        case 1:
            if (in_uiCode == 180 || in_uiCode == 183)
            {
                this->logUnexpectedEvent(in_event);
            }
            break;
        case 2:
        case 4:
        case 5:
        case 6:
            this->getMedia().stopAll();
            this->tellCallEngine();
            m_outer.m_bReinvitePending = false;
            out_strStateName = "IDLE";
            break;
        default:
            this->logUnexpectedEvent(in_event);
            break;
    }
}

template <class CallIfPtr, class CallType, class Machine>
void Connected<CallIfPtr, CallType, Machine>::iInitial::entryAction(const VoipEvent& /*in_event*/,
                                                                    std::string& out_strStateName)
{
    out_strStateName = getName();
    if (this->internal_assert(__FILE__, __LINE__))
    {
        out_strStateName =
            this->getMedia().isAllStarted() ? "CONNECTED::iConnected" : "CONNECTED::iMediaSetup";
    }
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::iInitial::processEvent_i(const VoipEvent& /*in_event*/,
                                                                       std::string& out_strStateName)
{
    QLOG_TRACE(this->getLogger(), "Connected::iInitial::processEvent_i");
    out_strStateName = getName();
    return QUORVEX_ASSERT_TEXT(this->getLogger(), false, "0");
}

template class Connected<CountedObjPtr<CallInInterface>, DsHandle<DsSipIncomingCall>, InStateMachine>;
template class Connected<CountedObjPtr<CallOutInterface>, DsHandle<DsSipOutgoingCall>, OutStateMachine>;

}  // namespace Quorvex
