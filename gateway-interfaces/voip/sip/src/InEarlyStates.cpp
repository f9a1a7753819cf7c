#include "InSipLeg.h"
#include "InStates.h"
#include "SipEvents.h"
#include "VoipMedia.h"
#include "infra/Assertion.h"
#include "infra/TraceScope.h"

// The states between the call engine's acceptance and our 200: ringing, and early media with an offer of
// ours.

namespace Quorvex
{

// -----------------------------------------------------------------------------------------------------
// ACCEPTING

void Accepting::entryAction(const VoipEvent& in_event, std::string& out_strStateName)
{
    TRACE_SCOPE(getLogger(), "Accepting::entryAction");
    out_strStateName = getName();
    if (!internal_assert(__FILE__, __LINE__))
    {
        return;
    }
    const auto* pEvent = dynamic_cast<const InviteAcceptedEvent*>(&in_event);
    if (!QUORVEX_ASSERT_TEXT(getLogger(), pEvent != nullptr, "pEvent != 0"))
    {
        return;
    }
    bool bWithSDP = false;
    if (pEvent->getRingType() == eRING_WITH_EARLY_MEDIA)
    {
        if (getMedia().remoteHasMadeAnOffer())
        {
            getMedia().startAll(false);
            bWithSDP = true;
        }
        else
        {
            QLOG_INFO(
                getLogger(),
                "Bug 1140: early media without SDP offer. Sending the 180 Alerting response without SDP");
        }
    }
    if (!getInSipLeg().send180Ringing(bWithSDP))
    {
        QLOG_DEBUG(getLogger(), "failed to send the 180 Ringing. Terminating call");
        tellCallEngine();
        out_strStateName = "IDLE";
    }
}

std::span<const Accepting::Row> Accepting::rows()
{
    using namespace EventType;
    using namespace StateTable;
    // clang-format off
    static constexpr Row kRows[] = {
        // event                    guard                          action                              next
        {eAPI_STOP,                 always,                        &Accepting::rejectStopped,          "IDLE"},
        {eAPI_KILL,                 always,                        &Accepting::rejectStopped,          "IDLE"},
        {eAPI_HANGUP,               always,                        &Accepting::rejectHungUp,           "IDLE"},
        {eAPI_REMOTE_CONN_FAILED,   always,                        &Accepting::rejectFailedConnection, "IDLE"},
        {eAPI_REMOTE_CONNECTED,     always,                        &Accepting::answerOrReject,         byAction, "ANSWERING|IDLE"},
        {eBYE,                      always,                        &Accepting::endAfterBye,            "IDLE"},
        {eTERMINATED_UPON_TIMEOUT,  always,                        &Accepting::endInTransaction,       "IDLE"},
        {eCANCEL,                   always,                        &Accepting::endAfterCancel,         "IDLE"},
        {eAPI_MEDIA_START_CMD,      &Accepting::remoteMadeAnOffer, &Accepting::sendEarlyMedia,         stay},
        {eAPI_MEDIA_START_CMD,      always,                        &Accepting::warnNoOffer,            stay},
        {eMEDIA_OP_STATUS,          always,                        &Accepting::followMedia,            byAction, "IDLE"},
    };
    // clang-format on
    static_assert(allReachable(kRows));
    return kRows;
}

bool Accepting::processEvent_i(const VoipEvent& in_event, std::string& out_strStateName)
{
    return StateTable::walk(*this, in_event, out_strStateName);
}

bool Accepting::warnNoOffer(const VoipEvent& /*in_event*/, std::string& /*out_strStateName*/)
{
    QLOG_WARN(getLogger(),
              "Could not start early media as the initial INVITE does not contain any SDP "
              "(Accepting::processEvent)");
    return true;
}

bool Accepting::followMedia(const VoipEvent& in_event, std::string& out_strStateName)
{
    if (!relayMediaOpEvent(in_event, m_pSM->getSipLeg()))
    {
        endAfterMediaError(in_event, "Error processing media event", out_strStateName);
    }
    return true;
}

// ------------------------------------------------------------------------------------
// PROGRESSING_WITH_SDP_OFFER

void ProgressingWithSDPOffer::entryAction(const VoipEvent& /*in_event*/, std::string& out_strStateName)
{
    TRACE_SCOPE(getLogger(), "ProgressingWithSDPOffer::entryAction");
    out_strStateName = getName();
    m_bVerdictUnheard = false;
    if (internal_assert(__FILE__, __LINE__))
    {
        static_cast<void>(QUORVEX_ASSERT_TEXT(getLogger(),
                                              getInSipLeg().sendReliableProvisionalResponse(183, true),
                                              "pSipLeg->sendReliableProvisionalResponse(183, true)"));
    }
}

std::span<const ProgressingWithSDPOffer::Row> ProgressingWithSDPOffer::rows()
{
    using namespace EventType;
    using namespace StateTable;
    // clang-format off
    static constexpr Row kRows[] = {
        // event                    guard    action                                       next
        {ePRACK,                    always,  &ProgressingWithSDPOffer::takeAnswerInPrack, byAction, "EARLY_DIALOG|DISCONNECTING"},
        {eTERMINATED_UPON_TIMEOUT,  always,  &ProgressingWithSDPOffer::endWithoutPrack,   "IDLE"},
        {eCANCEL,                   always,  &ProgressingWithSDPOffer::endAfterCancel,    "IDLE"},
        {eAPI_INVITE_ACCEPTED,      always,  &ProgressingWithSDPOffer::declineEvent,      stay},
        {eAPI_KILL,                 always,  &ProgressingWithSDPOffer::killCall,          "IDLE"},
        {eAPI_STOP,                 always,  nothing,                         "DISCONNECTING PENDING CONNECTION"},
        {eAPI_HANGUP,               always,  nothing,                         "DISCONNECTING PENDING CONNECTION"},
    };
    // clang-format on
    static_assert(allReachable(kRows));
    return kRows;
}

bool ProgressingWithSDPOffer::processEvent_i(const VoipEvent& in_event, std::string& out_strStateName)
{
    const EventType::eTYPE type = in_event.getType();
    m_bVerdictUnheard = m_bVerdictUnheard || type == EventType::eAPI_REMOTE_CONNECTED ||
                        type == EventType::eAPI_INVITE_REJECTED || type == EventType::eAPI_REMOTE_CONN_FAILED;
    return StateTable::walk(*this, in_event, out_strStateName);
}

bool ProgressingWithSDPOffer::takeAnswerInPrack(const VoipEvent& in_event, std::string& out_strStateName)
{
    if (!QUORVEX_ASSERT_TEXT(
            getLogger(), !getMedia().remoteHasMadeAnOffer(), "! pSipLeg->getMedia().remoteHasMadeAnOffer()"))
    {
        return false;
    }
    QLOG_DEBUG(getLogger(), "PRACK after SDP offer: checking for SDP answer in message body");
    const auto* pEvent = dynamic_cast<const PrackEvent<InStateMachine::CallType>*>(&in_event);
    if (!QUORVEX_ASSERT_TEXT(getLogger(), pEvent != nullptr, "pEvent != 0"))
    {
        return false;
    }
    if (getMedia().setSdpAnswer(pEvent->getPrack()))
    {
        QLOG_DEBUG(getLogger(), "Valid SDP answer in PRACK");
        out_strStateName = "EARLY_DIALOG";
        const auto pCallIf = m_pSM->getCallIf();
        if (m_bVerdictUnheard && !pCallIf.isNull())
        {
            pCallIf->sayAgain();
        }
        return true;
    }
    QLOG_WARN(getLogger(), "Hanging-up following unacceptable SDP received in PRACK");
    if (!getInSipLeg().hangup())
    {
        QLOG_INFO(getLogger(), "Could not send the BYE in state " << getName());
        return true;
    }
    out_strStateName = "DISCONNECTING";
    return true;
}

bool ProgressingWithSDPOffer::endWithoutPrack(const VoipEvent& /*in_event*/,
                                              std::string& /*out_strStateName*/)
{
    QLOG_WARN(getLogger(), "Timed out waiting for PRACK in state " << getName());
    tellCallEngine();
    return true;
}

// --------------------------------------------------------------------------------------------------
// EARLY_DIALOG

std::span<const InEarlyDialog::Row> InEarlyDialog::rows()
{
    using namespace EventType;
    using namespace StateTable;
    // clang-format off
    static constexpr Row kRows[] = {
        // event                    guard    action                                   next
        {eAPI_INVITE_ACCEPTED,      always,  &InEarlyDialog::accept,                  "ACCEPTING"},
        {eAPI_INVITE_REJECTED,      always,  &InEarlyDialog::rejectForEngine,         "IDLE"},
        {eAPI_REMOTE_CONN_FAILED,   always,  &InEarlyDialog::rejectFailedConnection,  "IDLE"},
        {eAPI_REMOTE_CONNECTED,     always,  &InEarlyDialog::connect,                 byAction, "ANSWERING|IDLE"},
        {eTERMINATED_UPON_TIMEOUT,  always,  &InEarlyDialog::endTimedOut,             "IDLE"},
        {eCANCEL,                   always,  &InEarlyDialog::endAfterCancel,          "IDLE"},
        {eAPI_KILL,                 always,  &InEarlyDialog::killCall,                "IDLE"},
        {eAPI_STOP,                 always,  nothing,                     "DISCONNECTING PENDING CONNECTION"},
        {eAPI_HANGUP,               always,  nothing,                     "DISCONNECTING PENDING CONNECTION"},
    };
    // clang-format on
    static_assert(allReachable(kRows));
    return kRows;
}

bool InEarlyDialog::processEvent_i(const VoipEvent& in_event, std::string& out_strStateName)
{
    return StateTable::walk(*this, in_event, out_strStateName);
}

bool InEarlyDialog::accept(const VoipEvent& in_event, std::string& /*out_strStateName*/)
{
    return QUORVEX_ASSERT_TEXT(
        getLogger(), allCapacitiesReceived(in_event), "pSipLeg->getMedia().allCapacitiesReceived()");
}

bool InEarlyDialog::connect(const VoipEvent& in_event, std::string& out_strStateName)
{
    return accept(in_event, out_strStateName) && answerOrReject(in_event, out_strStateName);
}

bool InEarlyDialog::endTimedOut(const VoipEvent& /*in_event*/, std::string& /*out_strStateName*/)
{
    QLOG_INFO(getLogger(), "Timed out in state " << getName());
    tellCallEngine();
    return true;
}

}  // namespace Quorvex
