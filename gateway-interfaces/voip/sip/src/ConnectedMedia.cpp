#include "ConnectedState.h"
#include "SipEvents.h"
#include "SipLeg.h"
#include "VoipMedia.h"
#include "infra/TraceScope.h"
#include "quorvex/CallInterface.h"

// The sub-states of an established call in which its media are set up, used, and changed by the far end.

namespace Quorvex
{

// ----------------------------------------------------------------------------------------------- media
// set-up

template <class CallIfPtr, class CallType, class Machine>
void Connected<CallIfPtr, CallType, Machine>::iMediaSetup::entryAction(const VoipEvent& /*in_event*/,
                                                                       std::string& out_strStateName)
{
    TRACE_SCOPE(this->getLogger(), "Connected::iMediaSetup::entryAction");
    out_strStateName = getName();
    if (this->internal_assert(__FILE__, __LINE__))
    {
        this->getMedia().startAll(false);
    }
}

template <class CallIfPtr, class CallType, class Machine>
void Connected<CallIfPtr, CallType, Machine>::iMediaSetup::finalExecution(std::string& out_strStateName,
                                                                          SipLeg* /*in_pSipLeg*/)
{
    out_strStateName = "CONNECTED::iConnected";
}

template <class CallIfPtr, class CallType, class Machine>
auto Connected<CallIfPtr, CallType, Machine>::iMediaSetup::rows() -> std::span<const Row>
{
    using namespace EventType;
    using namespace StateTable;
    // clang-format off
    static constexpr Row kRows[] = {
        // event                  guard    action                               next
        {eAPI_KILL,               always,  &iMediaSetup::killCall,              "IDLE"},
        {eAPI_STOP,               always,  &iMediaSetup::hangUpForEngine,       byAction, "DISCONNECTING"},
        {eAPI_HANGUP,             always,  &iMediaSetup::hangUpForEngine,       byAction, "DISCONNECTING"},
        {e200_OK,                 always,  &iMediaSetup::processResponse,       byAction, "IDLE"},
        {eSIP_RESPONSE,           always,  &iMediaSetup::processResponse,       byAction, "IDLE"},
        {e100_TRYING,             always,  &iMediaSetup::processResponse,       byAction, "IDLE"},
        {e180_RINGING,            always,  &iMediaSetup::processResponse,       byAction, "IDLE"},
        {e183_SESSION_PROGRESS,   always,  &iMediaSetup::processResponse,       byAction, "IDLE"},
        {eMEDIA_OP_STATUS,        always,  &iMediaSetup::followMedia,           byAction, "CONNECTED::iConnected|DISCONNECTING"},
        {eBYE,                    always,  &iMediaSetup::endAfterBye,           "IDLE"},
        {eREINVITE_REQUEST,       always,  &iMediaSetup::keepReinvite,          stay},
        {eREINVITE_CANCEL,        always,  &iMediaSetup::keepReinviteCancel,    stay},
        {eREFER,                  always,  &iMediaSetup::keepRefer,             stay},
        {eREPLACES,               always,  &iMediaSetup::keepReplaces,          stay},
        {eACK,                    always,  &iMediaSetup::noteAck,               stay},
        {eREINVITE_ACK,           always,  &iMediaSetup::clearReinvitePending,  stay},
        {eREINVITE_ACK_WITH_SDP,  always,  &iMediaSetup::declineEvent,          stay},
    };
    // clang-format on
    static_assert(allReachable(kRows));
    return kRows;
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::iMediaSetup::processEvent_i(const VoipEvent& in_event,
                                                                          std::string& out_strStateName)
{
    return StateTable::walk(*this, in_event, out_strStateName);
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::iMediaSetup::followMedia(const VoipEvent& in_event,
                                                                       std::string& out_strStateName)
{
    if (!this->relayMediaOpEvent(in_event, this->m_pSM->getSipLeg(), out_strStateName))
    {
        QLOG_ERROR(this->getLogger(), "Error processing media event");
        this->hangUp(true, out_strStateName, "Could not send the BYE!");
    }
    return true;
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::iMediaSetup::keepReinvite(const VoipEvent& in_event,
                                                                        std::string& out_strStateName)
{
    QLOG_DEBUG(this->getLogger(), "Reinvite while in media setup. Queuing event for later");
    return this->declineEvent(in_event, out_strStateName);
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::iMediaSetup::keepReinviteCancel(const VoipEvent& in_event,
                                                                              std::string& out_strStateName)
{
    QLOG_DEBUG(this->getLogger(), "Reinvite cancel while in media setup. Queuing event for later");
    return this->declineEvent(in_event, out_strStateName);
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::iMediaSetup::keepRefer(const VoipEvent& in_event,
                                                                     std::string& out_strStateName)
{
    QLOG_DEBUG(this->getLogger(), "REFER while in media setup. Queuing event for later");
    return this->declineEvent(in_event, out_strStateName);
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::iMediaSetup::keepReplaces(const VoipEvent& in_event,
                                                                        std::string& out_strStateName)
{
    QLOG_DEBUG(this->getLogger(), "INVITE w/Replaces header whilein media setup. Queuing event for later");
    return this->declineEvent(in_event, out_strStateName);
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::iMediaSetup::noteAck(const VoipEvent& /*in_event*/,
                                                                   std::string& /*out_strStateName*/)
{
    QLOG_DEBUG(this->getLogger(),
               "ACK received in iMediaSetup: assuming final ACK of Invite w/Replaces transaction");
    return true;
}

// --------------------------------------------------------------------------------------------------
// connected

template <class CallIfPtr, class CallType, class Machine>
void Connected<CallIfPtr, CallType, Machine>::iConnected::entryAction(const VoipEvent& /*in_event*/,
                                                                      std::string& out_strStateName)
{
    out_strStateName = getName();
    static_cast<void>(this->internal_assert(__FILE__, __LINE__));
}

template <class CallIfPtr, class CallType, class Machine>
auto Connected<CallIfPtr, CallType, Machine>::iConnected::rows() -> std::span<const Row>
{
    using namespace EventType;
    using namespace StateTable;
    // clang-format off
    static constexpr Row kRows[] = {
        // event                  guard    action                              next
        {eAPI_KILL,               always,  &iConnected::killCall,              "IDLE"},
        {eAPI_STOP,               always,  &iConnected::hangUpForEngine,       byAction, "DISCONNECTING"},
        {eAPI_HANGUP,             always,  &iConnected::hangUpForEngine,       byAction, "DISCONNECTING"},
        {eREINVITE_REQUEST,       always,  &iConnected::answerReinvite,        byAction, "CONNECTED::iMediaSetup|DISCONNECTING"},
        {e200_OK,                 always,  &iConnected::processResponse,       byAction, "IDLE"},
        {eSIP_RESPONSE,           always,  &iConnected::processResponse,       byAction, "IDLE"},
        {e100_TRYING,             always,  &iConnected::processResponse,       byAction, "IDLE"},
        {e180_RINGING,            always,  &iConnected::processResponse,       byAction, "IDLE"},
        {e183_SESSION_PROGRESS,   always,  &iConnected::processResponse,       byAction, "IDLE"},
        {eREINVITE_ACK,           always,  &iConnected::clearReinvitePending,  stay},
        {eREINVITE_ACK_WITH_SDP,  always,  &iConnected::takeReinviteAnswer,    byAction, "CONNECTED::iMediaSetup|DISCONNECTING"},
        {eBYE,                    always,  &iConnected::endAfterBye,           "IDLE"},
        {eREFER,                  always,  nothing,                            "CONNECTED::iTransfering"},
        {eREPLACES,               always,  &iConnected::answerReplaces,        byAction, "CONNECTED::iMediaSetup"},
        {eACK,                    always,  &iConnected::noteAck,               stay},
    };
    // clang-format on
    static_assert(allReachable(kRows));
    return kRows;
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::iConnected::processEvent_i(const VoipEvent& in_event,
                                                                         std::string& out_strStateName)
{
    return StateTable::walk(*this, in_event, out_strStateName);
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::iConnected::answerReinvite(const VoipEvent& in_event,
                                                                         std::string& out_strStateName)
{
    const auto* pEvent = dynamic_cast<const ReinviteReqEvent<CallType, Machine>*>(&in_event);
    if (!QUORVEX_ASSERT_TEXT(this->getLogger(), pEvent != nullptr, "pEvent != 0"))
    {
        return false;
    }
    SipLeg& sipLeg = this->getSipLeg();
    VoipMedia& media = this->getMedia();
    const auto respond = [&](unsigned int in_uiCode) {
        return sipLeg.respondToReinvite(
            pEvent->getCall(), pEvent->getDialog(), pEvent->getInvite(), in_uiCode);
    };
    if (!media.setSdpOffer(pEvent->getInvite()))
    {
        QLOG_ERROR(this->getLogger(), "Can't set SDP offer.");
        this->hangUp(false, out_strStateName, "Could not send the BYE!");
        return true;
    }
    if (!media.allCapacitiesReceived())
    {
        QLOG_WARN(this->getLogger(), "Not supported: reinvite requiring new media streams");
        static_cast<void>(respond(488));
        return true;
    }
    if (!sipLeg.validateReInvite(pEvent->getInvite()))
    {
        QLOG_WARN(this->getLogger(), "Unacceptable SDP received in RE-INVITE");
        static_cast<void>(respond(488));
        return true;
    }
    QLOG_DEBUG(this->getLogger(), "SDP accepted");
    if (!respond(200))
    {
        // Cancelled meanwhile, or there is nothing to answer with: all stays as it was.
        static_cast<void>(respond(500));
        return true;
    }
    QLOG_DEBUG(this->getLogger(), "after pSipLeg->respondToReinvite");
    this->m_outer.m_bReinvitePending = true;
    if (media.isAllStarted())
    {
        QLOG_DEBUG(this->getLogger(), "RE-INVITE accepted, but no change");
        return true;
    }
    QLOG_DEBUG(this->getLogger(), "Reinvite accepted, restarting the media");
    out_strStateName = "CONNECTED::iMediaSetup";
    return true;
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::iConnected::takeReinviteAnswer(const VoipEvent& in_event,
                                                                             std::string& out_strStateName)
{
    const auto* pEvent = dynamic_cast<const ReinviteAckWithSDPEvent<CallType>*>(&in_event);
    if (!QUORVEX_ASSERT_TEXT(this->getLogger(), pEvent != nullptr, "pEvent != 0"))
    {
        return false;
    }
    this->m_outer.m_bReinvitePending = false;
    VoipMedia& media = this->getMedia();
    if (!media.setSdpAnswer(pEvent->getAck()))
    {
        QLOG_WARN(this->getLogger(),
                  "Hanging-up following unacceptable SDP received in ACK ending Re-INVITE");
        this->hangUp(false, out_strStateName, "Could not send the BYE!");
        return true;
    }
    if (!media.isAllStarted())
    {
        QLOG_DEBUG(this->getLogger(), "Reinvite ACK with SDP, (re)starting the media");
        out_strStateName = "CONNECTED::iMediaSetup";
    }
    return true;
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::iConnected::answerReplaces(const VoipEvent& in_event,
                                                                         std::string& out_strStateName)
{
    const auto* pEvent = dynamic_cast<const ReplacesEvent<CallType>*>(&in_event);
    if (!QUORVEX_ASSERT_TEXT(this->getLogger(), pEvent != nullptr, "pEvent != 0"))
    {
        return false;
    }
    SipLeg& sipLeg = this->getSipLeg();
    VoipMedia& media = this->getMedia();
    const auto respond = [&](unsigned int in_uiCode)
    {
        return sipLeg.respondToInviteReplaces(pEvent->getCall(),
                                              pEvent->getReplacedDialog(),
                                              pEvent->getNewDialog(),
                                              pEvent->getInvite(),
                                              in_uiCode);
    };
    if (!media.setSdpOffer(pEvent->getInvite()))
    {
        QLOG_ERROR(this->getLogger(), "iConnected::eREPLACES: Can't set SDP offer.");
        static_cast<void>(respond(500));
        return true;
    }
    if (!media.allCapacitiesReceived())
    {
        QLOG_WARN(this->getLogger(), "Not supported: Invite w/Replaces requiring new media streams");
        static_cast<void>(respond(488));
        return true;
    }
    if (!sipLeg.validateReInvite(pEvent->getInvite()))
    {
        QLOG_WARN(this->getLogger(), "Unacceptable SDP received in Invite w/Replaces");
        static_cast<void>(respond(488));
        return true;
    }
    if (!respond(200))
    {
        // The leg has kept the old dialog and its media.
        return true;
    }
    if (!QUORVEX_ASSERT_TEXT(this->getLogger(), !media.isAllStarted(), "!pSipLeg->getMedia().isAllStarted()"))
    {
        return false;
    }
    QLOG_DEBUG(this->getLogger(), "Reinvite accepted, restarting the media");
    out_strStateName = "CONNECTED::iMediaSetup";
    return true;
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::iConnected::noteAck(const VoipEvent& /*in_event*/,
                                                                  std::string& /*out_strStateName*/)
{
    QLOG_DEBUG(this->getLogger(),
               "ACK received in iConnected: assuming final ACK of Invite w/Replaces transaction");
    return true;
}

template class Connected<CountedObjPtr<CallInInterface>, DsHandle<DsSipIncomingCall>, InStateMachine>::
    iMediaSetup;
template class Connected<CountedObjPtr<CallInInterface>, DsHandle<DsSipIncomingCall>, InStateMachine>::
    iConnected;
template class Connected<CountedObjPtr<CallOutInterface>, DsHandle<DsSipOutgoingCall>, OutStateMachine>::
    iMediaSetup;
template class Connected<CountedObjPtr<CallOutInterface>, DsHandle<DsSipOutgoingCall>, OutStateMachine>::
    iConnected;

}  // namespace Quorvex
