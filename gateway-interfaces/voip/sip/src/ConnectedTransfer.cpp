#include <ace/Time_Value.h>

#include "ConnectedState.h"
#include "LegInfo.h"
#include "SipEvents.h"
#include "SipLeg.h"
#include "VoipMedia.h"
#include "calleng/CallLegInfo.h"
#include "infra/TraceScope.h"
#include "quorvex/CallInterface.h"
#include "sip/Sip.h"

// The sub-states of an established call whose far end has asked, by REFER, for a transfer.

namespace Quorvex
{

namespace
{

constexpr const char* kMediaError = "Error processing media event. ";
constexpr const char* kNoBye = "Could not send the BYE!!!";

// Who is to be transferred where, as a REFER says it.
struct Parties
{
    std::string m_strReferToURI;
    std::string m_strReferredByURI;
    std::string m_strReferredByDisplayName;
    std::string m_strToURI;
    std::string m_strFromURI;
    std::string m_strToDisplayName;
    std::string m_strFromDisplayName;
};

void fillIn(CallLegInfo& io_legInfo, const Parties& in_parties, int in_iTimeoutMs)
{
    setUriParameters(io_legInfo, "sip.in.from.uri", in_parties.m_strFromURI, in_iTimeoutMs, "\"From\" URI ");
    io_legInfo.setParameter("sip.in.from.displayName", in_parties.m_strFromDisplayName);
    setUriParameters(io_legInfo, "sip.in.to.uri", in_parties.m_strToURI, in_iTimeoutMs, "\"To\" URI ");
    io_legInfo.setParameter("sip.in.to.displayName", in_parties.m_strToDisplayName);
    setUriParameters(io_legInfo,
                     "sip.in.referTo",
                     URL::decode(in_parties.m_strReferToURI),
                     in_iTimeoutMs,
                     "\"Refer-To\" URI ");
    io_legInfo.setParameter("sip.in.referredBy.uri", in_parties.m_strReferredByURI);
    io_legInfo.setParameter("sip.in.referredBy.displayName", in_parties.m_strReferredByDisplayName);
}

}  // namespace

// -----------------------------------------------------------------------------------------------
// transferring

template <class CallIfPtr, class CallType, class Machine>
void Connected<CallIfPtr, CallType, Machine>::iTransfering::entryAction(const VoipEvent& in_event,
                                                                        std::string& out_strStateName)
{
    TRACE_SCOPE(this->getLogger(), "iTransfering::entryAction");
    out_strStateName = getName();
    m_bTransferFailed = false;
    if (!this->internal_assert(__FILE__, __LINE__))
    {
        return;
    }
    const auto* pEvent = dynamic_cast<const ReferEvent<CallType>*>(&in_event);
    if (!QUORVEX_ASSERT_TEXT(this->getLogger(), pEvent != nullptr, "pEvent != 0"))
    {
        out_strStateName = "CONNECTED::iConnected";
        return;
    }
    SipLeg& sipLeg = this->getSipLeg();
    Parties parties;
    const unsigned int uiCode = sipLeg.validateRefer(pEvent->getRequest(),
                                                     parties.m_strReferToURI,
                                                     parties.m_strReferredByURI,
                                                     parties.m_strReferredByDisplayName,
                                                     parties.m_strToURI,
                                                     parties.m_strFromURI,
                                                     parties.m_strToDisplayName,
                                                     parties.m_strFromDisplayName);
    if (!sipLeg.respondToReferRequest(uiCode, pEvent->getTransaction(), pEvent->getRequest()) ||
        uiCode != 202)
    {
        out_strStateName = "CONNECTED::iConnected";
        return;
    }
    if (!this->getMedia().isAllOnHold())
    {
        QLOG_DEBUG(
            this->getLogger(),
            "iTransfering::entryAction REFER received without the media previously put on hold: putting the  "
            "streams on hold ourself");
        this->getMedia().hold();
    }
    CallLegInfo legInfo;
    fillIn(legInfo, parties, sipLeg.getNameResolutionTimeoutMs());
    sipLeg.fillInLegInfoFromUnknownHeaders(pEvent->getRequest(), legInfo);
    QLOG_DEBUG(this->getLogger(), "Transfer request done with following LegInfo:" << legInfo);
    const CallIfPtr pCallIf = this->m_pSM->getCallIf();
    if (!pCallIf.isNull() && pCallIf->transfer(legInfo))
    {
        static_cast<void>(sipLeg.sendNotify(100U));
        return;
    }
    QLOG_ERROR(this->getLogger(), "iTransfering: call to CallInIf::transfer failed");
    static_cast<void>(sipLeg.sendNotify(500U));
}

template <class CallIfPtr, class CallType, class Machine>
auto Connected<CallIfPtr, CallType, Machine>::iTransfering::rows() -> std::span<const Row>
{
    using namespace EventType;
    using namespace StateTable;
    // clang-format off
    static constexpr Row kRows[] = {
        // event                  guard    action                                     next
        {eAPI_KILL,               always,  &iTransfering::killCall,                   "IDLE"},
        {eAPI_STOP,               always,  &iTransfering::hangUpForEngineInTransfer,  byAction, "DISCONNECTING"},
        {eAPI_HANGUP,             always,  &iTransfering::hangUpForEngineInTransfer,  byAction, "DISCONNECTING"},
        {eAPI_TRANSFER_ACCEPTED,  always,  &iTransfering::notifyRinging,              stay},
        {eAPI_TRANSFER_SUCCESS,   always,  &iTransfering::notifySuccess,              "CONNECTED::iTransfered"},
        {eAPI_TRANSFER_FAILURE,   always,  &iTransfering::notifyFailure,              byAction, "CONNECTED::iConnected|CONNECTED::iMediaSetup"},
        {eBYE,                    always,  &iTransfering::endAfterBye,                "IDLE"},
        {eREINVITE_REQUEST,       always,  &iTransfering::refuseReinvite,             stay},
        {eMEDIA_OP_STATUS,        always,  &iTransfering::followMedia,                byAction, "CONNECTED::iConnected|CONNECTED::iMediaSetup|DISCONNECTING"},
        {eREINVITE_ACK,           always,  &iTransfering::clearReinvitePending,       stay},
        {e200_OK,                 always,  &iTransfering::processResponse,            byAction, "IDLE"},
        {eSIP_RESPONSE,           always,  &iTransfering::processResponse,            byAction, "IDLE"},
        {e100_TRYING,             always,  &iTransfering::processResponse,            byAction, "IDLE"},
        {e180_RINGING,            always,  &iTransfering::processResponse,            byAction, "IDLE"},
        {e183_SESSION_PROGRESS,   always,  &iTransfering::processResponse,            byAction, "IDLE"},
        {eREINVITE_CANCEL,        always,  nothing,                                   stay},
        {eAPI_MEDIA_START_CMD,    always,  nothing,                                   stay},
    };
    // clang-format on
    static_assert(allReachable(kRows));
    return kRows;
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::iTransfering::processEvent_i(const VoipEvent& in_event,
                                                                           std::string& out_strStateName)
{
    return StateTable::walk(*this, in_event, out_strStateName);
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::iTransfering::notifyRinging(const VoipEvent& /*in_event*/,
                                                                          std::string& /*out_strStateName*/)
{
    static_cast<void>(this->getSipLeg().sendNotify(180U));
    return true;
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::iTransfering::notifySuccess(const VoipEvent& /*in_event*/,
                                                                          std::string& /*out_strStateName*/)
{
    static_cast<void>(this->getSipLeg().sendNotify(200U));
    return true;
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::iTransfering::notifyFailure(const VoipEvent& in_event,
                                                                          std::string& out_strStateName)
{
    const auto* pEvent = dynamic_cast<const TransferFailureEvent*>(&in_event);
    if (!QUORVEX_ASSERT_TEXT(this->getLogger(), pEvent != nullptr, "pEvent != 0"))
    {
        return false;
    }
    static_cast<void>(this->getSipLeg().sendNotify(pEvent->getTransferFailureType()));
    m_bTransferFailed = true;
    getTargetStateAfterFailure(out_strStateName);
    return true;
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::iTransfering::refuseReinvite(const VoipEvent& in_event,
                                                                           std::string& /*out_strStateName*/)
{
    const auto* pEvent = dynamic_cast<const ReinviteReqEvent<CallType, Machine>*>(&in_event);
    if (!QUORVEX_ASSERT_TEXT(this->getLogger(), pEvent != nullptr, "pEvent != 0"))
    {
        return false;
    }
    static_cast<void>(this->getSipLeg().respondToReinvite(
        pEvent->getCall(), pEvent->getDialog(), pEvent->getInvite(), 491));
    return true;
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::iTransfering::followMedia(const VoipEvent& in_event,
                                                                        std::string& out_strStateName)
{
    if (!this->relayMediaOpEvent(in_event, this->m_pSM->getSipLeg()))
    {
        // The hang-up stands, even when the transfer has failed before.
        QLOG_ERROR(this->getLogger(), kMediaError);
        this->hangUp(true, out_strStateName, kNoBye);
        return true;
    }
    if (m_bTransferFailed)
    {
        getTargetStateAfterFailure(out_strStateName);
    }
    return true;
}

template <class CallIfPtr, class CallType, class Machine>
void Connected<CallIfPtr, CallType, Machine>::iTransfering::getTargetStateAfterFailure(
    std::string& out_strStateName) const
{
    if (!this->getMedia().isAllOnHold())
    {
        QLOG_DEBUG(this->getLogger(), "Media not on hold yet, still need to wait");
        return;
    }
    out_strStateName = this->getMedia().isAllStarted() ? "CONNECTED::iConnected" : "CONNECTED::iMediaSetup";
}

// ------------------------------------------------------------------------------------------------
// transferred

template <class CallIfPtr, class CallType, class Machine>
void Connected<CallIfPtr, CallType, Machine>::iTransfered::entryAction(const VoipEvent& /*in_event*/,
                                                                       std::string& out_strStateName)
{
    out_strStateName = getName();
    m_bResume = false;
}

template <class CallIfPtr, class CallType, class Machine>
auto Connected<CallIfPtr, CallType, Machine>::iTransfered::rows() -> std::span<const Row>
{
    using namespace EventType;
    using namespace StateTable;
    // clang-format off
    static constexpr Row kRows[] = {
        // event              guard    action                                    next
        {eAPI_KILL,           always,  &iTransfered::killCall,                   "IDLE"},
        {eAPI_STOP,           always,  &iTransfered::hangUpForEngineInTransfer,  byAction, "DISCONNECTING"},
        {eAPI_HANGUP,         always,  &iTransfered::hangUpForEngineInTransfer,  byAction, "DISCONNECTING"},
        {eBYE,                always,  &iTransfered::endAfterBye,                "IDLE"},
        {eREINVITE_REQUEST,   always,  &iTransfered::refuseReinvite,             stay},
        {eAPI_MEDIA_START_CMD, always, &iTransfered::resumeMedia,                byAction, "CONNECTED::iMediaSetup"},
        {eMEDIA_OP_STATUS,    always,  &iTransfered::followMedia,                byAction, "CONNECTED::iMediaSetup|DISCONNECTING"},
        {eREINVITE_ACK,       always,  &iTransfered::clearReinvitePending,       stay},
        {eREINVITE_CANCEL,    always,  nothing,                                  stay},
    };
    // clang-format on
    static_assert(allReachable(kRows));
    return kRows;
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::iTransfered::processEvent_i(const VoipEvent& in_event,
                                                                          std::string& out_strStateName)
{
    return StateTable::walk(*this, in_event, out_strStateName);
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::iTransfered::refuseReinvite(const VoipEvent& in_event,
                                                                          std::string& /*out_strStateName*/)
{
    const auto* pEvent = dynamic_cast<const ReinviteReqEvent<CallType, Machine>*>(&in_event);
    if (!QUORVEX_ASSERT_TEXT(this->getLogger(), pEvent != nullptr, "pEvent != 0"))
    {
        return false;
    }
    QLOG_WARN(this->getLogger(),
              "Received RE-INVITE after succesful transfer. Cannot change media session once transfer is "
              "completed.");
    static_cast<void>(this->getSipLeg().respondToReinvite(
        pEvent->getCall(), pEvent->getDialog(), pEvent->getInvite(), 488));
    return true;
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::iTransfered::followMedia(const VoipEvent& in_event,
                                                                       std::string& out_strStateName)
{
    if (!this->relayMediaOpEvent(in_event, this->m_pSM->getSipLeg()))
    {
        QLOG_ERROR(this->getLogger(), kMediaError);
        this->hangUp(true, out_strStateName, kNoBye);
        return true;
    }
    return !m_bResume || resumeMedia(in_event, out_strStateName);
}

template <class CallIfPtr, class CallType, class Machine>
bool Connected<CallIfPtr, CallType, Machine>::iTransfered::resumeMedia(const VoipEvent& /*in_event*/,
                                                                       std::string& out_strStateName)
{
    m_bResume = true;
    if (this->getMedia().isAllOnHold())
    {
        out_strStateName = "CONNECTED::iMediaSetup";
        return true;
    }
    QLOG_DEBUG(this->getLogger(), "Media not on hold yet, still need to wait");
    return true;
}

template class Connected<CountedObjPtr<CallInInterface>, DsHandle<DsSipIncomingCall>, InStateMachine>::
    iTransfering;
template class Connected<CountedObjPtr<CallInInterface>, DsHandle<DsSipIncomingCall>, InStateMachine>::
    iTransfered;
template class Connected<CountedObjPtr<CallOutInterface>, DsHandle<DsSipOutgoingCall>, OutStateMachine>::
    iTransfering;
template class Connected<CountedObjPtr<CallOutInterface>, DsHandle<DsSipOutgoingCall>, OutStateMachine>::
    iTransfered;

}  // namespace Quorvex
