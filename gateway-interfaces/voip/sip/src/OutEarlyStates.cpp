#include <memory>

#include "OutSipLeg.h"
#include "OutStates.h"
#include "SipEvents.h"
#include "VoipMedia.h"
#include "infra/Assertion.h"
#include "infra/TraceScope.h"

// The states of an outbound call before the far end is alerted.

namespace Quorvex
{

// ------------------------------------------------------------------------------------------------------
// INITIAL

void OutStateMachine::InitialState::entryAction(const VoipEvent& /*in_event*/, std::string& out_strStateName)
{
    m_bStopped = false;
    m_bMediaConfigured = false;
    out_strStateName = getName();
}

auto OutStateMachine::InitialState::rows() -> std::span<const Row>
{
    using namespace EventType;
    using namespace StateTable;
    // clang-format off
    static constexpr Row kRows[] = {
        // event                guard                            action                             next
        {eAPI_STOP,             always,                          &InitialState::noteStop,           stay},
        {eAPI_KILL,             always,                          nothing,                           "IDLE"},
        {eAPI_HANGUP,           always,                          nothing,                           "IDLE"},
        {eMEDIA_SET_CAPACITY,   always,                          &InitialState::takeCapacity,       byAction, "IDLE"},
        {eAPI_INVITE,           &InitialState::isStopped,        &InitialState::refuseStopped,      "IDLE"},
        {eAPI_INVITE,           &InitialState::isNew,            &InitialState::configureMedia,     byAction, "IDLE"},
        {eAPI_INVITE,           &InitialState::missesCapacities, &InitialState::waitForCapacities,  stay},
        {eAPI_INVITE,           always,                          &InitialState::noteCapacities,     "INVITING"},
    };
    // clang-format on
    static_assert(allReachable(kRows));
    return kRows;
}

bool OutStateMachine::InitialState::processEvent_i(const VoipEvent& in_event, std::string& out_strStateName)
{
    return StateTable::walk(*this, in_event, out_strStateName);
}

bool OutStateMachine::InitialState::isStopped(const VoipEvent& /*in_event*/) const
{
    return m_bStopped;
}

bool OutStateMachine::InitialState::isNew(const VoipEvent& /*in_event*/) const
{
    return !m_bMediaConfigured;
}

bool OutStateMachine::InitialState::missesCapacities(const VoipEvent& /*in_event*/) const
{
    return !getMedia().allCapacitiesReceived();
}

bool OutStateMachine::InitialState::noteStop(const VoipEvent& /*in_event*/, std::string& /*out_strStateName*/)
{
    m_bStopped = true;
    return true;
}

bool OutStateMachine::InitialState::takeCapacity(const VoipEvent& in_event, std::string& out_strStateName)
{
    if (relayCapacityMediaEvent(in_event, m_pSM->getSipLeg()))
    {
        return true;
    }
    static const StaticLogger s_bug1022Logger("quorvex.bug1022");
    QLOG_WARN(getLogger(), "Error relaying capacity media event.");
    QLOG_DEBUG(s_bug1022Logger, "Additionnal debug information:" << in_event);
    getCallOut().connectFailed(ConnectionFailureType(eUNAVAILABLE_FAILURE));
    out_strStateName = "IDLE";
    return true;
}

bool OutStateMachine::InitialState::refuseStopped(const VoipEvent& /*in_event*/,
                                                  std::string& /*out_strStateName*/)
{
    QLOG_DEBUG(getLogger(), "State Machine has been stopped. Rejecting outgoing call.");
    getCallOut().connectFailed(ConnectionFailureType(eUNAVAILABLE_FAILURE));
    return true;
}

bool OutStateMachine::InitialState::configureMedia(const VoipEvent& in_event, std::string& out_strStateName)
{
    QLOG_DEBUG(getLogger(), "Configuring media with callInfo");
    const auto* pEvent = dynamic_cast<const InviteEvent*>(&in_event);
    if (!QUORVEX_ASSERT_TEXT(getLogger(), pEvent != nullptr, "pEvent != 0"))
    {
        return false;
    }
    const CallInfo& callInfo = pEvent->getCallInfo();
    if (!QUORVEX_ASSERT(getLogger(), callInfo.getNumLeg() > 0) ||
        !getMedia().configure(callInfo.getCurrentLeg()))
    {
        QLOG_ERROR(getLogger(), "Media error while processing SIP outgoing call. Rejecting the call.");
        getCallOut().connectFailed(ConnectionFailureType(eMEDIA_FAILURE));
        out_strStateName = "IDLE";
        return true;
    }
    m_bMediaConfigured = true;
    const CallLegInfo& legInfo = callInfo.getCurrentLeg();
    const bool bIgnore180 = legInfo.isTrue("sip.out.ignore180");
    const bool bAccept183 = legInfo.isTrue("sip.out.accept183");
    if (bIgnore180)
    {
        QLOG_DEBUG(getLogger(),
                   "sip.out.ignore180 is set to true : OutStateMachine will ignore 180 SIPmessage");
    }
    if (bAccept183)
    {
        QLOG_DEBUG(getLogger(),
                   "sip.out.accept183 is set to true : OutStateMachine will accept 183 SIP message as a 180");
    }
    getMachine().setProvisionalRules(bIgnore180, bAccept183);
    // It comes back when the capacities are there.
    return decline();
}

bool OutStateMachine::InitialState::waitForCapacities(const VoipEvent& in_event,
                                                      std::string& out_strStateName)
{
    QLOG_DEBUG(getLogger(), "All capacities not received");
    return declineEvent(in_event, out_strStateName);
}

bool OutStateMachine::InitialState::noteCapacities(const VoipEvent& /*in_event*/,
                                                   std::string& /*out_strStateName*/)
{
    QLOG_DEBUG(getLogger(), "All capacities received");
    return true;
}

// -----------------------------------------------------------------------------------------------------
// INVITING

void OutStateMachine::InvitingState::entryAction(const VoipEvent& in_event, std::string& out_strStateName)
{
    TRACE_SCOPE(getLogger(), "InvitingState::entryAction");
    OutStateMachine& machine = getMachine();
    static_cast<void>(QUORVEX_ASSERT_TEXT(
        getLogger(), machine.getCallInfo() == nullptr, "ptr_OutSM->m_pCallInfo.isNull()"));
    out_strStateName = getName();
    m_bProgressReported = false;
    const auto* pEvent = dynamic_cast<const InviteEvent*>(&in_event);
    if (!internal_assert(__FILE__, __LINE__) ||
        !QUORVEX_ASSERT_TEXT(getLogger(), pEvent != nullptr, "pEvent != 0"))
    {
        out_strStateName = "IDLE";
        return;
    }
    auto pLogger = std::make_unique<CallLogger>(getLogger());
    pLogger->callStart(machine.getCallId());
    machine.setCallInfo(&pEvent->getCallInfo());
    if (!getOutSipLeg().invite(
            machine.getUUID(), pEvent->getCallInfo(), machine.getCallId(), pLogger.release()))
    {
        getCallOut().connectFailed(ConnectionFailureType(eOTHER_FAILURE));
        out_strStateName = "IDLE";
        return;
    }
    const CallType& hOutCall = getOutSipLeg().getOutCall();
    getCallOut().inviteSent(hOutCall.isNil() ? std::string() : hOutCall->getCallID());
    QLOG_DEBUG(getLogger(), "Sent SIP request:" << getOutSipLeg().getInitialInviteMsg());
}

auto OutStateMachine::InvitingState::rows() -> std::span<const Row>
{
    using namespace EventType;
    using namespace StateTable;
    using S = InvitingState;
    // clang-format off
    static constexpr Row kRows[] = {
        // event                    guard              action                                     next
        {eAPI_KILL,                 always,            &S::killCall,                              "IDLE"},
        {eAPI_STOP,                 always,            nothing,                                   "CANCEL"},
        {eAPI_HANGUP,               always,            nothing,                                   "CANCEL"},
        {e100_TRYING,               always,            &S::processProvisionalResponse,            stay},
        {e180_RINGING,              always,            &S::followProvisional,                     byAction, "REMOTE_RINGING|IDLE"},
        {e183_SESSION_PROGRESS,     always,            &S::followProvisional,                     byAction, "REMOTE_RINGING|IDLE"},
        {e200_OK,                   always,            &S::process2XXResponseToInvite,            byAction, "WAIT_FOR_CPA_RESULT|IDLE"},
        {eSIP_RESPONSE,             &S::isProvisional, &S::processProvisionalResponse,            stay},
        {eSIP_RESPONSE,             &S::isSuccess,     &S::process2XXResponseToInvite,            byAction, "WAIT_FOR_CPA_RESULT|IDLE"},
        {eSIP_RESPONSE,             &S::isFailure,     &S::failRefused,                           "IDLE"},
        {e487_REQUEST_CANCELLED,    always,            &S::failUnasked487,                        "IDLE"},
        {e3XX_REDIRECTION,          always,            &S::redirect,                              byAction, "IDLE"},
        {eREMOTE_BUSY,              always,            &S::failConnect<eBUSY_FAILURE>,            "IDLE"},
        {eINVALID_NUMBER,           always,            &S::failConnect<eINVALID_NUMBER_FAILURE>,  "IDLE"},
        {eNO_ANSWER,                always,            &S::failConnect<eNO_ANSWER_FAILURE>,       "IDLE"},
        {eTERMINATED_UPON_TIMEOUT,  always,            &S::failTimedOut,                          "IDLE"},
        {eMEDIA_OP_STATUS,          always,            &S::followMedia,                           byAction, "CANCEL"},
    };
    // clang-format on
    static_assert(allReachable(kRows));
    return kRows;
}

bool OutStateMachine::InvitingState::processEvent_i(const VoipEvent& in_event, std::string& out_strStateName)
{
    return StateTable::walk(*this, in_event, out_strStateName);
}

void OutStateMachine::InvitingState::onStateExit(const VoipEvent& /*in_event*/,
                                                 const std::string& in_strNewStateName)
{
    if (in_strNewStateName != "REMOTE_RINGING")
    {
        getMachine().setCallInfo(nullptr);
    }
}

bool OutStateMachine::InvitingState::processProvisionalResponse(const VoipEvent& /*in_event*/,
                                                                std::string& /*out_strStateName*/)
{
    if (!m_bProgressReported)
    {
        m_bProgressReported = true;
        getCallOut().proceeding();
    }
    return true;
}

bool OutStateMachine::InvitingState::failUnasked487(const VoipEvent& in_event, std::string& out_strStateName)
{
    warnUnasked487();
    return failConnect<eOTHER_FAILURE>(in_event, out_strStateName);
}

bool OutStateMachine::InvitingState::failTimedOut(const VoipEvent& /*in_event*/,
                                                  std::string& /*out_strStateName*/)
{
    noteTimeout();
    getCallOut().connectFailed(ConnectionFailureType(eNO_ANSWER_FAILURE));
    return true;
}

bool OutStateMachine::InvitingState::followMedia(const VoipEvent& in_event, std::string& out_strStateName)
{
    if (!relayMediaOpEvent(in_event, m_pSM->getSipLeg()))
    {
        QLOG_ERROR(getLogger(), "Error processing media event. ");
        getCallOut().connectFailed(ConnectionFailureType(eOTHER_FAILURE));
        out_strStateName = "CANCEL";
    }
    return true;
}

}  // namespace Quorvex
