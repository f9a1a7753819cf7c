#include "OutStateMachine.h"

#include <memory>

#include "CommonStateMachine.h"
#include "ConnectedState.h"
#include "DsVoipGatewayNetIf.h"
#include "OutSipLeg.h"
#include "OutStates.h"
#include "SipEvents.h"
#include "SipRedirection.h"
#include "VoipMedia.h"
#include "infra/Assertion.h"
#include "infra/TraceScope.h"
#include "sip/Sip.h"
#include "sip/SipFailure.h"
#include "sipstack/DsException.h"

namespace Quorvex
{

namespace
{

constexpr const char* kAcceptEarlyMediaKey = "quorvex.sip.out.acceptEarlyMedia";

/// The response of an event; nil when it carries none.
DsHandle<DsSipResponse> responseOf(const VoipEvent& in_event)
{
    const auto* pEvent = in_event.asSipResponseEvent();
    return pEvent == nullptr ? DsHandle<DsSipResponse>() : pEvent->getResponse();
}

unsigned int statusOf(const VoipEvent& in_event)
{
    const DsHandle<DsSipResponse> hResponse = responseOf(in_event);
    return hResponse.isNil() ? 0 : hResponse->getStatusCode();
}

}  // namespace

// --------------------------------------------------------------------------------------------------- the
// machine

OutStateMachine::OutStateMachine()
    : ObjectWithLogger<CallLogger>(CallLogger("quorvex.voip.StateMachine.Out")), VoipStateMachine(getLogger())
{
    using OutDisconnecting = Disconnecting<CallIfPtr, CallType>;
    using OutConnected = Connected<CallIfPtr, CallType, OutStateMachine>;
    setInitialStateName("INITIAL");
    setInitialState(StatePtr::make<InitialState>(*this));
    addState("INVITING", StatePtr::make<InvitingState>(*this));
    addState("REMOTE_RINGING", StatePtr::make<RemoteRinging>(*this));
    addState("WAIT_FOR_CPA_RESULT", StatePtr::make<WaitForCPAResult>(*this));
    addState("CANCEL", StatePtr::make<CancelState>(*this));
    addState("CONNECTED", StatePtr::make<OutConnected>(*this, this));
    addState("DISCONNECTING", StatePtr::make<OutDisconnecting>(*this, this));
    addFinalState("IDLE", StatePtr::make<Idle<CallIfPtr>>(*this, this));
}

OutStateMachine::~OutStateMachine() = default;

bool OutStateMachine::initialize(CallOutInterface* in_pCallIf, DsVoipGatewayNetIf& in_netIf)
{
    return initialize(in_pCallIf, in_netIf.getTimerScheduler());
}

bool OutStateMachine::initialize(CallOutInterface* in_pCallIf, TimerScheduler& in_timers)
{
    QLOG_TRACE(getLogger(), "OutStateMachine::initialize");
    if (!QUORVEX_ASSERT_TEXT(getLogger(), in_pCallIf != nullptr, "in_pCallIf != 0"))
    {
        return false;
    }
    static_cast<void>(QUORVEX_ASSERT_TEXT(getLogger(), m_pSipLeg == nullptr, "m_pSipLeg.isNull()"));
    m_pCallIf = CallIfPtr(in_pCallIf);
    m_uiFinalStatus = 0;
    m_ending.reset();
    OutSipLeg* const pSipLeg = newOutSipLeg();
    setSipLeg(pSipLeg);
    pSipLeg->callStart(getCallId());
    pSipLeg->getLogger().refreshLevel();
    pSipLeg->getMedia().initialize(getCallId(), this);
    setCallInfo(nullptr);
    setProvisionalRules(false, false);
    m_bAcceptEarlyMedia = getConfig().isNull() || getConfig()->getBooleanOr(kAcceptEarlyMediaKey, true);
    TimeoutStateMachine::initialize(&in_timers, this);
    // Empties the queue and cancels a running timer first.
    return goToInitialState(VoipEvent(EventType::eINVALID));
}

bool OutStateMachine::processEvent(const VoipEvent& in_event)
{
    using Ending = CallOutInterface::Ending;
    // The INVITE's response is the first final one; whatever comes first has ended the leg.
    const unsigned int uiStatus = statusOf(in_event);
    if (m_uiFinalStatus == 0 && !Sip::isProvisionalResponse(uiStatus))
    {
        m_uiFinalStatus = uiStatus;
    }
    const EventType::eTYPE type = in_event.getType();
    if (!m_ending.has_value())
    {
        if (type == EventType::eAPI_HANGUP || type == EventType::eAPI_STOP || type == EventType::eAPI_KILL)
        {
            m_ending = Ending::NEAR_END;
        }
        else if (type == EventType::eTERMINATED_UPON_TIMEOUT || type == EventType::eSESSION_TIMED_OUT)
        {
            m_ending = Ending::TIMEOUT;
        }
        else if (type == EventType::eBYE ||
                 (m_uiFinalStatus == uiStatus && uiStatus != 0 && !Sip::isSuccessResponse(uiStatus)))
        {
            m_ending = Ending::FAR_END;
        }
    }
    return VoipStateMachine::processEvent(in_event);
}

void OutStateMachine::done()
{
    if (!m_pCallIf.isNull())
    {
        m_pCallIf->ended(m_uiFinalStatus, m_ending.value_or(CallOutInterface::Ending::NEAR_END));
    }
    VoipStateMachine::done();
}

OutSipLeg* OutStateMachine::newOutSipLeg()
{
    return new OutSipLeg(getVoipGatewayNetIf());
}

// ----------------------------------------------------------------------------------------- what its states
// share

VoipOutNamedState::VoipOutNamedState(OutStateMachine& in_machine) : VoipNamedState(in_machine, &in_machine)
{
}

bool VoipOutNamedState::internal_assert(const char* in_szFile, int in_iLine) const
{
    if (m_pSM == nullptr)
    {
        Assertion::report("m_pSM != 0", getVoipStateMachineLogger(), in_szFile, in_iLine);
        return false;
    }
    if (dynamic_cast<OutSipLeg*>(m_pSM->getSipLeg()) == nullptr)
    {
        Assertion::report("pSipLeg != 0", getVoipStateMachineLogger(), in_szFile, in_iLine);
        return false;
    }
    if (m_pSM->getCallIf().isNull())
    {
        Assertion::report("! m_pCallIf.isNull()", getVoipStateMachineLogger(), in_szFile, in_iLine);
        return false;
    }
    return true;
}

OutStateMachine& VoipOutNamedState::getMachine() const
{
    return static_cast<OutStateMachine&>(*m_pSM);
}

OutSipLeg& VoipOutNamedState::getOutSipLeg() const
{
    return static_cast<OutSipLeg&>(getSipLeg());
}

bool VoipOutNamedState::isProvisional(const VoipEvent& in_event) const
{
    return Sip::isProvisionalResponse(statusOf(in_event));
}

bool VoipOutNamedState::isSuccess(const VoipEvent& in_event) const
{
    return Sip::isSuccessResponse(statusOf(in_event));
}

bool VoipOutNamedState::isFailure(const VoipEvent& in_event) const
{
    return Sip::isFailureResponse(statusOf(in_event));
}

ConnectionFailureType VoipOutNamedState::GetSipConnectionFailureType(const VoipEvent& in_event,
                                                                     ConnectionFailureEnum in_failure) const
{
    if (in_event.asSipResponseEvent() == nullptr)
    {
        QLOG_WARN(getLogger(),
                  "Trying to get a SipConnection from a non-Sip"
                  "ResponseEvent");
        return ConnectionFailureType(in_failure);
    }
    return ConnectionFailureType(in_failure, new Sip::SipConnectionFailureType(statusOf(in_event)));
}

bool VoipOutNamedState::process1XXResponse(const VoipEvent& in_event, std::string& out_strStateName)
{
    TRACE_SCOPE(getLogger(), "VoipOutNamedState::processSdpIn1XXResponse");
    const OutStateMachine& machine = getMachine();
    if (in_event.getType() == EventType::e180_RINGING && machine.ignores180())
    {
        QLOG_DEBUG(getLogger(), "Ignoring 180 message as sip.out.ignore180 is set to true");
        return true;
    }
    const DsHandle<DsSipResponse> hResponse = responseOf(in_event);
    const bool bRinging = in_event.getType() == EventType::e180_RINGING ||
                          (in_event.getType() == EventType::e183_SESSION_PROGRESS && machine.accepts183());
    const bool bSdp = !hResponse.isNil() && hResponse->getBodyLength() != 0 &&
                      hResponse->getBodyType().equalsIgnoreCase("application/sdp");
    if (bSdp && !getOutSipLeg().validateSdpInResponse(hResponse))
    {
        QLOG_ERROR(getLogger(), "The SDP in the 1XX response was not acceptable, hanging up");
        getCallOut().callFailed(ConnectionFailureType(eSDP_FAILURE));
        static_cast<void>(getOutSipLeg().hangup());
        out_strStateName = "IDLE";
        return true;
    }
    const bool bEarlyMedia = bSdp && machine.acceptsEarlyMedia();
    if (bEarlyMedia)
    {
        QLOG_DEBUG(getLogger(), "1XX with valid SDP received, starting early media");
    }
    else if (bSdp)
    {
        QLOG_DEBUG(getLogger(),
                   "1XX with valid SDP received, NOT starting early media because "
                       << kAcceptEarlyMediaKey << " is set to " << (machine.acceptsEarlyMedia() ? 1 : 0));
    }
    if (bRinging)
    {
        getCallOut().ringing(bEarlyMedia ? eRING_WITH_EARLY_MEDIA : eRING_WITHOUT_EARLY_MEDIA);
        out_strStateName = "REMOTE_RINGING";
    }
    else if (bEarlyMedia)
    {
        getCallOut().earlyMedia();
    }
    if (bEarlyMedia && !getMedia().isAllStarted())
    {
        getMedia().startAll(false);
    }
    return true;
}

bool VoipOutNamedState::acknowledge2XX(const VoipEvent& in_event)
{
    const auto* pEvent = dynamic_cast<const SucceededEvent*>(&in_event);
    if (!QUORVEX_ASSERT_TEXT(getLogger(), pEvent != nullptr, "pEvent != 0"))
    {
        return false;
    }
    const bool bAcceptable = getOutSipLeg().validateSdpInResponse(pEvent->getResponse());
    if (!bAcceptable)
    {
        QLOG_INFO(
            getLogger(),
            "The SDP in the 200 OK response was not acceptable, media streams may not have been set up.");
    }
    if (!getOutSipLeg().send2XXAck(pEvent->getDialog(), pEvent->getResponse()))
    {
        QLOG_ERROR(getLogger(), "in_pSipLeg->sendAck failed");
    }
    return bAcceptable;
}

bool VoipOutNamedState::process2XXResponseToInvite(const VoipEvent& in_event, std::string& out_strStateName)
{
    if (acknowledge2XX(in_event))
    {
        out_strStateName = "WAIT_FOR_CPA_RESULT";
        return true;
    }
    QLOG_INFO(getLogger(), "invalid 200 OK SDP. hanging up");
    getCallOut().callFailed(ConnectionFailureType(eSDP_FAILURE));
    static_cast<void>(getOutSipLeg().hangup());
    out_strStateName = "IDLE";
    return true;
}

SipRedirectionTargetData::Ptr VoipOutNamedState::obtainTargetData(const CallInfo& in_callInfo)
{
    if (const auto* pLeg = dynamic_cast<const SipRedirectionLegInfo*>(&in_callInfo.getCurrentLeg());
        pLeg != nullptr)
    {
        SipRedirectionTargetData::Ptr pTargetData = pLeg->getTargetData();
        return pTargetData->updateFrom(in_callInfo) ? pTargetData : SipRedirectionTargetData::Ptr();
    }
    const DsHandle<DsSipInviteMessage> hInviteMsg = getOutSipLeg().getInitialInviteMsg();
    if (!QUORVEX_ASSERT(getLogger(), !hInviteMsg.isNil()))
    {
        return {};
    }
    return SipRedirectionTargetData::Ptr(new SipRedirectionTargetData(hInviteMsg));
}

bool VoipOutNamedState::processRedirectEvent(const RedirectEvent& in_event, std::string& out_strStateName)
{
    TRACE_SCOPE(getLogger(), "OutStateMachine::processRedirectEvent");
    out_strStateName = getName();
    auto* ptr_OutSM = dynamic_cast<OutStateMachine*>(m_pSM);
    if (!QUORVEX_ASSERT_TEXT(getLogger(), ptr_OutSM != nullptr, "ptr_OutSM != 0"))
    {
        return false;
    }
    const CallInfo* const pCallInfo = ptr_OutSM->getCallInfo();
    if (!QUORVEX_ASSERT_TEXT(getLogger(), pCallInfo != nullptr, "! ptr_OutSM->m_pCallInfo.isNull()") ||
        !QUORVEX_ASSERT_TEXT(
            getLogger(), pCallInfo->getNumLeg() > 0, "ptr_OutSM->m_pCallInfo->getNumLeg() > 0"))
    {
        return false;
    }
    const SipRedirectionTargetData::Ptr pTargetData = obtainTargetData(*pCallInfo);
    if (pTargetData.isNull())
    {
        return false;
    }
    const DsHandle<DsSipResponse>& hRedirectResponse = in_event.getResponse();
    if (!QUORVEX_ASSERT(getLogger(), !hRedirectResponse.isNil()))
    {
        return false;
    }
    if (!hRedirectResponse->hasHeader("Contact"))
    {
        QLOG_ERROR(getLogger(),
                   "No contact header in received SIP redirection request " << *hRedirectResponse);
        return false;
    }
    for (const auto& hContact : hRedirectResponse->getAllTyped<DsSipContactHeader>())
    {
        // "*", or what is no URI, names no target.
        if (!hContact->getURL().isNil())
        {
            pTargetData->addContact(hContact);
        }
    }
    pTargetData->sortTargets();
    CallInfo targets;
    for (const auto& hContact : pTargetData->getToTry())
    {
        SipRedirectionLegInfo leg(pTargetData);
        leg.setContact(hContact);
        targets.addLeg(leg);
    }
    out_strStateName = "IDLE";
    if (targets.getNumLeg() == 0)
    {
        QLOG_ERROR(getLogger(),
                   "failed to form a redirection request, contact list is empty. Ignoring 3XX message :"
                       << *hRedirectResponse);
        return true;
    }
    return getCallOut().redirected(targets);
}

bool VoipOutNamedState::redirect(const VoipEvent& in_event, std::string& out_strStateName)
{
    const auto* pRedirectEvent = dynamic_cast<const RedirectEvent*>(&in_event);
    return QUORVEX_ASSERT_TEXT(getLogger(), pRedirectEvent != nullptr, "pRedirectEvent != 0") &&
           processRedirectEvent(*pRedirectEvent, out_strStateName);
}

bool VoipOutNamedState::followProvisional(const VoipEvent& in_event, std::string& out_strStateName)
{
    static_cast<void>(process1XXResponse(in_event, out_strStateName));
    return true;
}

bool VoipOutNamedState::killCall(const VoipEvent& /*in_event*/, std::string& /*out_strStateName*/)
{
    static_cast<void>(getOutSipLeg().hangup());
    return true;
}

bool VoipOutNamedState::declineEvent(const VoipEvent& /*in_event*/, std::string& /*out_strStateName*/)
{
    return decline();
}

bool VoipOutNamedState::failRefused(const VoipEvent& in_event, std::string& /*out_strStateName*/)
{
    QLOG_DEBUG(getLogger(), "Received a " << statusOf(in_event) << " in response to an INVITE");
    getCallOut().connectFailed(GetSipConnectionFailureType(in_event, eOTHER_FAILURE));
    return true;
}

void VoipOutNamedState::warnUnasked487() const
{
    QLOG_WARN(getLogger(), "SIP response with 487 status code received without any CANCEL request sent");
}

void VoipOutNamedState::noteTimeout() const
{
    QLOG_INFO(getLogger(),
              "SIP client transaction timed out in state " << getName() << ": outbound SIP call abandoned.");
}

}  // namespace Quorvex
