#include "InStateMachine.h"

#include "CommonStateMachine.h"
#include "ConnectedState.h"
#include "DsVoipGatewayNetIf.h"
#include "InSipLeg.h"
#include "InStates.h"
#include "SipEvents.h"
#include "VoipMedia.h"
#include "calleng/Call.h"
#include "calleng/CallLegInfo.h"
#include "infra/Assertion.h"
#include "infra/TraceScope.h"
#include "sip/SipFailure.h"

namespace Quorvex
{

// --------------------------------------------------------------------------------------------------- the
// machine

InStateMachine::InStateMachine()
    : ObjectWithLogger<CallLogger>(CallLogger("quorvex.voip.StateMachine.In")), VoipStateMachine(getLogger())
{
    using InDisconnecting = Disconnecting<CallIfPtr, CallType>;
    using InConnected = Connected<CallIfPtr, CallType, InStateMachine>;
    setInitialStateName("INITIAL");
    setInitialState(StatePtr::make<InInitial>(*this));
    addState("INVITING_OUT", StatePtr::make<InvitingOut>(*this));
    addState("ACCEPTING", StatePtr::make<Accepting>(*this));
    addState("ANSWERING", StatePtr::make<Answering>(*this));
    addState("CONNECTED", StatePtr::make<InConnected>(*this, this));
    addState("DISCONNECTING", StatePtr::make<InDisconnecting>(*this, this));
    addState("DISCONNECTING PENDING CONNECTION", StatePtr::make<DisconnectingPendingConnection>(*this));
    addState("PROGRESSING_WITH_SDP_OFFER", StatePtr::make<ProgressingWithSDPOffer>(*this));
    addState("EARLY_DIALOG", StatePtr::make<InEarlyDialog>(*this));
    addFinalState("IDLE", StatePtr::make<Idle<CallIfPtr>>(*this, this));
}

InStateMachine::~InStateMachine() = default;

bool InStateMachine::initialize(const CountedObjPtr<InStateMachine>& /*in_pThis*/,
                                DsVoipGatewayNetIf& in_netIf,
                                const CallIfPtr& in_pCallIf)
{
    return initialize(in_netIf.getTimerScheduler(), in_pCallIf);
}

bool InStateMachine::initialize(TimerScheduler& in_timers, const CallIfPtr& in_pCallIf)
{
    QLOG_TRACE(getLogger(), "InStateMachine::initialize");
    m_pCallIf = in_pCallIf;
    m_remoteConnectionType.invalidate();
    m_bTimedOut = false;
    m_bOffered = false;
    m_bFarEndEnded = false;
    TimeoutStateMachine::initialize(&in_timers, this);
    // Empties the queue and cancels a running timer first.
    return goToInitialState(VoipEvent(EventType::eINVALID));
}

void InStateMachine::createInSipLeg(const DsHandle<DsSipIncomingCall>& in_hCall,
                                    const DsHandle<DsSipInviteMessage>& in_hInvite)
{
    static_cast<void>(QUORVEX_ASSERT_TEXT(getLogger(), m_pSipLeg == nullptr, "m_pSipLeg.isNull()"));
    InSipLeg* pSipLeg = newInSipLeg(in_hCall, in_hInvite);
    setSipLeg(pSipLeg);
    pSipLeg->initialize();
    pSipLeg->callStart(getCallId());
    pSipLeg->getLogger().refreshLevel();
}

bool InStateMachine::processEvent(const VoipEvent& in_event)
{
    // What the far end ended is no time-out when the SIP stack then closes it.
    const EventType::eTYPE type = in_event.getType();
    m_bFarEndEnded = m_bFarEndEnded || type == EventType::eBYE || type == EventType::eCANCEL;
    m_bTimedOut = !m_bFarEndEnded && (m_bTimedOut || type == EventType::eTERMINATED_UPON_TIMEOUT);
    return VoipStateMachine::processEvent(in_event);
}

void InStateMachine::done()
{
    auto* pSipLeg = dynamic_cast<InSipLeg*>(getSipLeg());
    if (pSipLeg != nullptr && !m_pCallIf.isNull())
    {
        const DsHandle<DsSipInviteMessage>& hInvite = pSipLeg->getInitialInviteMsg();
        if (!m_bOffered && !hInvite.isNil() && pSipLeg->noteParties(hInvite))
        {
            CallLegInfo legInfo;
            legInfo.setParameter("sip.in.requestUri", pSipLeg->getRequestURI());
            legInfo.setParameter("sip.in.from.uri", pSipLeg->getFromURI());
            legInfo.setParameter("sip.in.from.displayName", pSipLeg->getFromDisplayName());
            legInfo.setParameter("sip.in.to.uri", pSipLeg->getToURI());
            legInfo.setParameter("sip.in.to.displayName", pSipLeg->getToDisplayName());
            pSipLeg->fillInLegInfoFromKnownHeaders(hInvite, legInfo);
            m_pCallIf->notOffered(legInfo);
        }
        m_pCallIf->ended(pSipLeg->getFinalStatus(),
                         pSipLeg->isEndedHere() ? CallInInterface::Ending::NEAR_END
                         : m_bTimedOut          ? CallInInterface::Ending::TIMEOUT
                                                : CallInInterface::Ending::FAR_END);
    }
    VoipStateMachine::done();
}

InSipLeg* InStateMachine::newInSipLeg(const DsHandle<DsSipIncomingCall>& in_hCall,
                                      const DsHandle<DsSipInviteMessage>& in_hInvite)
{
    return new InSipLeg(getVoipGatewayNetIf(), in_hCall, in_hInvite);
}

// ----------------------------------------------------------------------------------------- what its states
// share

VoipInNamedState::VoipInNamedState(InStateMachine& in_machine) : VoipNamedState(in_machine, &in_machine)
{
}

bool VoipInNamedState::internal_assert(const char* in_szFile, int in_iLine) const
{
    if (m_pSM == nullptr)
    {
        Assertion::report("m_pSM != 0", getVoipStateMachineLogger(), in_szFile, in_iLine);
        return false;
    }
    if (dynamic_cast<InSipLeg*>(m_pSM->getSipLeg()) == nullptr)
    {
        Assertion::report("pRealPtr != 0", getVoipStateMachineLogger(), in_szFile, in_iLine);
        return false;
    }
    return true;
}

InStateMachine& VoipInNamedState::getMachine() const
{
    return static_cast<InStateMachine&>(*m_pSM);
}

InSipLeg& VoipInNamedState::getInSipLeg() const
{
    return static_cast<InSipLeg&>(getSipLeg());
}

bool VoipInNamedState::allCapacitiesReceived(const VoipEvent& /*in_event*/) const
{
    return getMedia().allCapacitiesReceived();
}

bool VoipInNamedState::remoteMadeAnOffer(const VoipEvent& /*in_event*/) const
{
    return getMedia().remoteHasMadeAnOffer();
}

bool VoipInNamedState::rejectStopped(const VoipEvent& /*in_event*/, std::string& /*out_strStateName*/)
{
    static_cast<void>(getInSipLeg().rejectIncomingCall(ConnectionFailureType(eUNAVAILABLE_FAILURE)));
    return true;
}

bool VoipInNamedState::rejectHungUp(const VoipEvent& /*in_event*/, std::string& /*out_strStateName*/)
{
    rejectWithResult(403, Call::eCONNECTION_HUNG_UP_BEFORE_ANSWER);
    return true;
}

bool VoipInNamedState::rejectForEngine(const VoipEvent& in_event, std::string& /*out_strStateName*/)
{
    const auto* pEvent = dynamic_cast<const InviteRejectedEvent*>(&in_event);
    if (!QUORVEX_ASSERT_TEXT(
            getLogger(), pEvent != nullptr, "QUORVEX_DYNCAST_ASSERT(const InviteRejectedEvent, &in_event)"))
    {
        return false;
    }
    static_cast<void>(getInSipLeg().rejectIncomingCall(pEvent->getInvFailType()));
    return true;
}

bool VoipInNamedState::rejectFailedConnection(const VoipEvent& in_event, std::string& /*out_strStateName*/)
{
    const auto* pEvent = dynamic_cast<const RemoteConnFailedEvent*>(&in_event);
    if (!QUORVEX_ASSERT_TEXT(
            getLogger(), pEvent != nullptr, "QUORVEX_DYNCAST_ASSERT(const RemoteConnFailedEvent, &in_event)"))
    {
        return false;
    }
    static_cast<void>(getInSipLeg().rejectIncomingCall(pEvent->getConnFailType()));
    return true;
}

bool VoipInNamedState::answerOrReject(const VoipEvent& in_event, std::string& out_strStateName)
{
    const auto* pEvent = dynamic_cast<const RemoteConnEvent*>(&in_event);
    if (!QUORVEX_ASSERT_TEXT(getLogger(), pEvent != nullptr, "pEvent != 0"))
    {
        return false;
    }
    const unsigned int uiCode = Sip::getResponseCode(pEvent->getConnType());
    if (uiCode / 100 == 2)
    {
        getMachine().getRemoteConnectionType().set(pEvent->getConnType());
        out_strStateName = "ANSWERING";
        return true;
    }
    rejectWithResult(uiCode, pEvent->getConnType());
    out_strStateName = "IDLE";
    return true;
}

bool VoipInNamedState::endAfterBye(const VoipEvent& in_event, std::string& /*out_strStateName*/)
{
    // Answered or not, the call is over.
    static_cast<void>(ByeHelper<InStateMachine::CallType>::respondToBye(in_event, m_pSM->getSipLeg()));
    tellCallEngine();
    return true;
}

bool VoipInNamedState::endAfterCancel(const VoipEvent& /*in_event*/, std::string& /*out_strStateName*/)
{
    tellCallEngine();
    return true;
}

bool VoipInNamedState::endInTransaction(const VoipEvent& /*in_event*/, std::string& /*out_strStateName*/)
{
    QLOG_INFO(getLogger(),
              "SIP server transaction timed out in state " << getName() << ": inbound SIP call rejected.");
    tellCallEngine();
    return true;
}

bool VoipInNamedState::killCall(const VoipEvent& /*in_event*/, std::string& /*out_strStateName*/)
{
    static_cast<void>(getInSipLeg().hangup());
    return true;
}

bool VoipInNamedState::declineEvent(const VoipEvent& /*in_event*/, std::string& /*out_strStateName*/)
{
    return decline();
}

bool VoipInNamedState::sendEarlyMedia(const VoipEvent& /*in_event*/, std::string& /*out_strStateName*/)
{
    getMedia().startAll(false);
    if (!getInSipLeg().sendProvisionalResponse(183, true))
    {
        QLOG_WARN(getLogger(), "failed to send the 183 with SDP");
    }
    return true;
}

void VoipInNamedState::rejectWithResult(unsigned int in_uiCode, Call::ConnectionType in_type)
{
    static_cast<void>(getInSipLeg().rejectIncomingCall(
        in_uiCode, InSipLeg::newCPDResultHeader(Call::getCPDResultString(in_type))));
}

void VoipInNamedState::endAfterMediaError(const VoipEvent& in_event,
                                          const char* in_szText,
                                          std::string& out_strStateName)
{
    QLOG_ERROR(getLogger(), in_szText << in_event << " in state " << getName());
    static_cast<void>(getInSipLeg().hangup());
    tellCallEngine();
    out_strStateName = "IDLE";
}

// -------------------------------------------------------------------------------------------------------
// INITIAL

void InInitial::entryAction(const VoipEvent& /*in_event*/, std::string& out_strStateName)
{
    m_bStopped = false;
    out_strStateName = getName();
}

std::span<const InInitial::Row> InInitial::rows()
{
    using namespace EventType;
    using namespace StateTable;
    // clang-format off
    static constexpr Row kRows[] = {
        // event    guard                    action                   next
        {eAPI_STOP, always,                  &InInitial::noteStop,    stay},
        {eAPI_KILL, always,                  nothing,                 "IDLE"},
        {eINVITE,   &InInitial::isStopped,   &InInitial::rejectCall,  "IDLE"},
        {eINVITE,   always,                  &InInitial::takeCall,    "INVITING_OUT"},
    };  // every other event: nothing to do
    // clang-format on
    static_assert(allReachable(kRows));
    return kRows;
}

bool InInitial::processEvent_i(const VoipEvent& in_event, std::string& out_strStateName)
{
    out_strStateName = getName();
    if (const Row* pRow = StateTable::find(*this, rows(), in_event))
    {
        return StateTable::run(*this, *pRow, in_event, out_strStateName);
    }
    QLOG_DEBUG(getLogger(), "Nothing to do with event " << in_event.getName());
    return true;
}

bool InInitial::isStopped(const VoipEvent& /*in_event*/) const
{
    return m_bStopped;
}

bool InInitial::noteStop(const VoipEvent& /*in_event*/, std::string& /*out_strStateName*/)
{
    m_bStopped = true;
    return true;
}

bool InInitial::takeCall(const VoipEvent& in_event, std::string& /*out_strStateName*/)
{
    const auto* pEvent = dynamic_cast<const InCalledEvent*>(&in_event);
    if (!QUORVEX_ASSERT_TEXT(getLogger(), pEvent != nullptr, "pEvent != 0"))
    {
        return false;
    }
    const DsHandle<DsSipDialog> hDialog = pEvent->getDialog();
    if (!QUORVEX_ASSERT_TEXT(getLogger(), !hDialog.isNil(), "hDialog != 0"))
    {
        return true;
    }
    if (!hDialog->loggerIsSet())
    {
        auto* pLogger = new CallLogger(getLogger());
        pLogger->callStart(m_pSM->getCallId());
        hDialog->setLogger(pLogger);
    }
    return true;
}

bool InInitial::rejectCall(const VoipEvent& in_event, std::string& out_strStateName)
{
    if (!takeCall(in_event, out_strStateName))
    {
        return false;
    }
    QLOG_DEBUG(getLogger(), "State Machine has been stopped. Rejecting incoming call.");
    const auto& event = dynamic_cast<const InCalledEvent&>(in_event);
    getMachine().createInSipLeg(event.getCall(), event.getInvite());
    return rejectStopped(in_event, out_strStateName);
}

}  // namespace Quorvex
