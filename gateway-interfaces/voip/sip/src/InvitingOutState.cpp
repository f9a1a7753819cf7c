#include "InSipLeg.h"
#include "InStates.h"
#include "LegInfo.h"
#include "SipEvents.h"
#include "VoipMedia.h"
#include "calleng/Call.h"
#include "calleng/CallLegInfo.h"
#include "infra/Assertion.h"
#include "infra/TraceScope.h"
#include "sip/SipFailure.h"

namespace Quorvex
{

InvitingOut::InvitingOut(InStateMachine& in_machine)
    : VoipInNamedState(in_machine), m_cdrLogger("quorvex.cdr.voip")
{
}

void InvitingOut::entryAction(const VoipEvent& in_event, std::string& out_strStateName)
{
    TRACE_SCOPE(getLogger(), "InvitingOut::entryAction");
    out_strStateName = getName();
    const auto* pEvent = dynamic_cast<const InCalledEvent*>(&in_event);
    if (!QUORVEX_ASSERT_TEXT(getLogger(), pEvent != nullptr, "pEvent != 0"))
    {
        out_strStateName = "IDLE";
        return;
    }
    m_hInvite = pEvent->getInvite();
    getMachine().createInSipLeg(pEvent->getCall(), m_hInvite);
    InSipLeg& sipLeg = getInSipLeg();
    VoipMedia& media = getMedia();
    const InStateMachine::CallIfPtr pCallIf = m_pSM->getCallIf();
    if (pCallIf.isNull())
    {
        static_cast<void>(sipLeg.rejectIncomingCall(ConnectionFailureType(eBUSY_FAILURE)));
        out_strStateName = "IDLE";
        return;
    }
    media.initialize(m_pSM->getCallId(), m_pSM);
    if (!media.setSdpOffer(m_hInvite))
    {
        QLOG_ERROR(getLogger(), "Media error while processing SIP incoming call. Rejecting the call.");
        static_cast<void>(
            media.isOfferUnreadable()
                ? sipLeg.rejectIncomingCall(
                      ConnectionFailureType(eOTHER_FAILURE, new Sip::SipConnectionFailureType(400)),
                      "Unreadable SDP")
                : sipLeg.rejectIncomingCall(ConnectionFailureType(eOTHER_FAILURE)));
        out_strStateName = "IDLE";
        return;
    }
    if (!sipLeg.send100Trying(pEvent->getCall(), m_hInvite))
    {
        QLOG_DEBUG(getLogger(), "failed to send the 100 Trying. Terminating call");
        tellCallEngine();
        out_strStateName = "IDLE";
        return;
    }
    const CallLegInfo& legInfo = fillLegInfo(m_hInvite);
    getMachine().noteOffered();
    if (!pCallIf->invite(legInfo))
    {
        static_cast<void>(sipLeg.rejectIncomingCall(ConnectionFailureType(eOTHER_FAILURE)));
        out_strStateName = "IDLE";
        return;
    }
    logInvitation(legInfo);
}

const CallLegInfo& InvitingOut::fillLegInfo(const DsHandle<DsSipInviteMessage>& in_hInvite)
{
    InSipLeg& sipLeg = getInSipLeg();
    const int iTimeoutMs = sipLeg.getNameResolutionTimeoutMs();
    m_callInfo = CallInfo();
    CallLegInfo& legInfo = m_callInfo.addLeg(CallLegInfo());
    setUriParameters(legInfo, "sip.in.requestUri", sipLeg.getRequestURI(), iTimeoutMs, "request URI ");
    setUriParameters(legInfo, "sip.in.from.uri", sipLeg.getFromURI(), iTimeoutMs, "\"From\" URI ");
    legInfo.setParameter("sip.in.from.displayName", sipLeg.getFromDisplayName());
    setUriParameters(legInfo, "sip.in.to.uri", sipLeg.getToURI(), iTimeoutMs, "\"To\" URI ");
    legInfo.setParameter("sip.in.to.displayName", sipLeg.getToDisplayName());
    sipLeg.fillInLegInfoFromKnownHeaders(in_hInvite, legInfo);
    sipLeg.fillInLegInfoFromUnknownHeaders(in_hInvite, legInfo);
    VoipMedia& media = getMedia();
    media.fillLegInfo(legInfo);
    if (!media.remoteHasMadeAnOffer())
    {
        QLOG_DEBUG(getLogger(), "Remote invite did not contain any SDP offer.");
        media.configure(legInfo);
    }
    return legInfo;
}

void InvitingOut::logInvitation(const CallLegInfo& in_legInfo)
{
    m_cdrLogger.callStart(m_pSM->getCallId());
    m_cdrLogger.refreshLevel();
    QLOG_INFO(m_cdrLogger, "IN From Header= " << getInSipLeg().getFromURI());
    QLOG_INFO(m_cdrLogger, "IN To Header= " << getInSipLeg().getToURI());
    QLOG_DEBUG(getLogger(), "Call engine invited with following LegInfo:" << in_legInfo);
}

void InvitingOut::onStateExit(const VoipEvent& /*in_event*/, const std::string& /*in_strNewStateName*/)
{
    m_hInvite.reset();
    m_callInfo = CallInfo();
}

std::span<const InvitingOut::Row> InvitingOut::rows()
{
    using namespace EventType;
    using namespace StateTable;
    // clang-format off
    static constexpr Row kRows[] = {
        // event                    guard                                action                               next
        {eAPI_STOP,                 always,                              &InvitingOut::rejectStopped,         "IDLE"},
        {eAPI_KILL,                 always,                              &InvitingOut::rejectStopped,         "IDLE"},
        {eAPI_HANGUP,               always,                              &InvitingOut::rejectHungUp,          "IDLE"},
        {eAPI_INVITE_ACCEPTED,      &InvitingOut::allCapacitiesReceived, &InvitingOut::noteCapacities,        "ACCEPTING"},
        {eAPI_INVITE_ACCEPTED,      always,                              &InvitingOut::waitForCapacities,     stay},
        {eAPI_INVITE_REJECTED,      always,                              &InvitingOut::rejectForEngine,       "IDLE"},
        {eAPI_REMOTE_CONN_FAILED,   always,                              &InvitingOut::rejectFailedConnection, "IDLE"},
        {eAPI_REMOTE_CONNECTED,     &InvitingOut::allCapacitiesReceived, &InvitingOut::connectWithCapacities, byAction, "ANSWERING|IDLE"},
        {eAPI_REMOTE_CONNECTED,     always,                              &InvitingOut::waitForCapacities,     stay},
        {eCANCEL,                   always,                              &InvitingOut::endAfterCancel,        "IDLE"},
        {eBYE,                      always,                              &InvitingOut::endAfterBye,           "IDLE"},
        {eTERMINATED_UPON_TIMEOUT,  always,                              &InvitingOut::endInTransaction,      "IDLE"},
        {eMEDIA_SET_CAPACITY,       always,                              &InvitingOut::takeCapacity,          byAction, "IDLE"},
        {eAPI_MEDIA_START_CMD,      &InvitingOut::missesCapacities,      &InvitingOut::delayEarlyMedia,       stay},
        {eAPI_MEDIA_START_CMD,      &InvitingOut::remoteMadeAnOffer,     &InvitingOut::sendValidEarlyMedia,   stay},
        {eAPI_MEDIA_START_CMD,      &InvitingOut::knows100rel,           nothing,               "PROGRESSING_WITH_SDP_OFFER"},
        {eAPI_MEDIA_START_CMD,      always,                              &InvitingOut::sendPlainProgress,     stay},
        {eMEDIA_OP_STATUS,          always,                              &InvitingOut::followMedia,           byAction, "IDLE"},
    };
    // clang-format on
    static_assert(allReachable(kRows));
    return kRows;
}

bool InvitingOut::processEvent_i(const VoipEvent& in_event, std::string& out_strStateName)
{
    return StateTable::walk(*this, in_event, out_strStateName);
}

bool InvitingOut::missesCapacities(const VoipEvent& in_event) const
{
    return !allCapacitiesReceived(in_event);
}

bool InvitingOut::knows100rel(const VoipEvent& /*in_event*/) const
{
    return m_hInvite->isSupported("100rel") || m_hInvite->isRequired("100rel");
}

bool InvitingOut::noteCapacities(const VoipEvent& /*in_event*/, std::string& /*out_strStateName*/)
{
    QLOG_DEBUG(getLogger(), "Media has received all its capacities.Can process invite accepted");
    return true;
}

bool InvitingOut::waitForCapacities(const VoipEvent& in_event, std::string& out_strStateName)
{
    QLOG_DEBUG(getLogger(), "Media has not received all its capacitesLeaving in InvitingOut");
    return declineEvent(in_event, out_strStateName);
}

bool InvitingOut::connectWithCapacities(const VoipEvent& in_event, std::string& out_strStateName)
{
    QLOG_DEBUG(getLogger(), "Media has received all its capacitesCan process remote connected.");
    return answerOrReject(in_event, out_strStateName);
}

bool InvitingOut::takeCapacity(const VoipEvent& in_event, std::string& out_strStateName)
{
    if (relayCapacityMediaEvent(in_event, m_pSM->getSipLeg(), out_strStateName))
    {
        return true;
    }
    static const StaticLogger s_bug1022Logger("quorvex.bug1022");
    QLOG_WARN(getLogger(), "Error when relaying media capacity. Hanging up");
    QLOG_DEBUG(s_bug1022Logger, "Additionnal debug information:" << in_event);
    static_cast<void>(getInSipLeg().rejectIncomingCall(ConnectionFailureType(eOTHER_FAILURE)));
    tellCallEngine();
    out_strStateName = "IDLE";
    return true;
}

bool InvitingOut::delayEarlyMedia(const VoipEvent& in_event, std::string& out_strStateName)
{
    QLOG_DEBUG(getLogger(), "Media has not received all its capacites, delaying the start of early media");
    return declineEvent(in_event, out_strStateName);
}

bool InvitingOut::sendValidEarlyMedia(const VoipEvent& in_event, std::string& out_strStateName)
{
    if (!getMedia().isSdpOfferValid(*m_pSM->getConfig()))
    {
        QLOG_WARN(getLogger(),
                  "Could not start early media as the initial INVITE contains a unsupported SDP");
        return true;
    }
    return sendEarlyMedia(in_event, out_strStateName);
}

bool InvitingOut::sendPlainProgress(const VoipEvent& /*in_event*/, std::string& /*out_strStateName*/)
{
    QLOG_WARN(
        getLogger(),
        "Early media requested without SDP offer nor support for reliable provisional responses: Sending a "
        "183 Session Progress response without SDP");
    if (!getInSipLeg().sendProvisionalResponse(183, false))
    {
        QLOG_WARN(getLogger(), "Failed to send the 183 without SDP");
        return false;
    }
    return true;
}

bool InvitingOut::followMedia(const VoipEvent& in_event, std::string& out_strStateName)
{
    if (!relayMediaOpEvent(in_event, m_pSM->getSipLeg()))
    {
        endAfterMediaError(in_event, "Error processing media event ", out_strStateName);
    }
    return true;
}

void InvitingOut::finalExecution(std::string& out_strStateName, SipLeg* /*in_pSipLeg*/)
{
    m_cdrLogger.callEnd();
    out_strStateName = getName();
    if (!getMedia().remoteHasMadeAnOffer())
    {
        return;
    }
    QLOG_DEBUG(getLogger(), "Validating remote offer against our capacities.");
    if (!getMedia().isSdpOfferValid(*m_pSM->getConfig()))
    {
        static_cast<void>(getInSipLeg().rejectIncomingCall(
            488, InSipLeg::newCPDResultHeader(Call::getCPDResultString(eOTHER_FAILURE))));
        out_strStateName = "IDLE";
    }
}

}  // namespace Quorvex
