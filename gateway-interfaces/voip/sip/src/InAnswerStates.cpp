#include "InSipLeg.h"
#include "InStates.h"
#include "SipEvents.h"
#include "VoipMedia.h"
#include "infra/Assertion.h"
#include "infra/TraceScope.h"

// The states between our 200 and its ACK.

namespace Quorvex
{

// -----------------------------------------------------------------------------------------------------
// ANSWERING

void Answering::entryAction(const VoipEvent& /*in_event*/, std::string& out_strStateName)
{
    TRACE_SCOPE(getLogger(), "Answering::entryAction");
    out_strStateName = getName();
    if (!internal_assert(__FILE__, __LINE__))
    {
        return;
    }
    if (!getInSipLeg().send200Ok(getMachine().getRemoteConnectionType()))
    {
        QLOG_DEBUG(getLogger(), "failed to send the 200 Ok. Terminating call");
        tellCallEngine();
        out_strStateName = "IDLE";
    }
    getMachine().getRemoteConnectionType().invalidate();
}

std::span<const Answering::Row> Answering::rows()
{
    using namespace EventType;
    using namespace StateTable;
    // clang-format off
    static constexpr Row kRows[] = {
        // event                    guard                          action                        next
        {eAPI_KILL,                 always,                        &Answering::killCall,         "IDLE"},
        {eAPI_STOP,                 always,                        nothing,      "DISCONNECTING PENDING CONNECTION"},
        {eAPI_HANGUP,               always,                        nothing,      "DISCONNECTING PENDING CONNECTION"},
        {eACK,                      &Answering::remoteMadeAnOffer, &Answering::noteAck,          "CONNECTED"},
        {eACK,                      always,                        &Answering::takeAnswerInAck,  byAction, "CONNECTED|DISCONNECTING"},
        {eBYE,                      always,                        &Answering::endAfterBye,      "IDLE"},
        {eTERMINATED_UPON_TIMEOUT,  always,                        &Answering::endWithoutAck,    "IDLE"},
        {eCANCEL,                   always,                        &Answering::endAfterCancel,   "IDLE"},
        {eMEDIA_OP_STATUS,          always,                        &Answering::followMedia,      byAction, "IDLE"},
        {eAPI_SEND_INFO_MSG,        always,                        &Answering::keepInfo,         stay},
    };
    // clang-format on
    static_assert(allReachable(kRows));
    return kRows;
}

bool Answering::processEvent_i(const VoipEvent& in_event, std::string& out_strStateName)
{
    return StateTable::walk(*this, in_event, out_strStateName);
}

bool Answering::noteAck(const VoipEvent& /*in_event*/, std::string& /*out_strStateName*/)
{
    QLOG_DEBUG(getLogger(), "Ack recd after successful offer/answer negociation");
    return true;
}

bool Answering::takeAnswerInAck(const VoipEvent& in_event, std::string& out_strStateName)
{
    QLOG_DEBUG(getLogger(), "Ack after SDP offer but no answer yet.Checking for SDP answer");
    const auto* pEvent = dynamic_cast<const CallConfirmedEvent<InStateMachine::CallType>*>(&in_event);
    if (!QUORVEX_ASSERT_TEXT(getLogger(), pEvent != nullptr, "pEvent!=0"))
    {
        return false;
    }
    if (getMedia().setSdpAnswer(pEvent->getAck()))
    {
        QLOG_DEBUG(getLogger(), "Valid SDP answer in ack");
        out_strStateName = "CONNECTED";
        return true;
    }
    QLOG_WARN(getLogger(), "Hanging-up following unacceptable SDP received in ACK");
    if (!getInSipLeg().hangup())
    {
        QLOG_WARN(getLogger(), "Could not send the BYE!");
        return true;
    }
    out_strStateName = "DISCONNECTING";
    return true;
}

bool Answering::endWithoutAck(const VoipEvent& /*in_event*/, std::string& /*out_strStateName*/)
{
    QLOG_WARN(getLogger(), "Timed out waiting for ACK in state " << getName());
    tellCallEngine();
    return true;
}

bool Answering::keepInfo(const VoipEvent& in_event, std::string& out_strStateName)
{
    QLOG_DEBUG(getLogger(),
               "Received eAPI_SEND_INFO_MSG in Answering state, delaying the event until being connected");
    return declineEvent(in_event, out_strStateName);
}

bool Answering::followMedia(const VoipEvent& in_event, std::string& out_strStateName)
{
    if (!relayMediaOpEvent(in_event, m_pSM->getSipLeg()))
    {
        endAfterMediaError(in_event, "Error processing media event", out_strStateName);
    }
    return true;
}

// ------------------------------------------------------------------------------ DISCONNECTING PENDING
// CONNECTION

void DisconnectingPendingConnection::entryAction(const VoipEvent& in_event, std::string& out_strStateName)
{
    out_strStateName = getName();
    if (!internal_assert(__FILE__, __LINE__) || getInSipLeg().getFinalStatus() != 0)
    {
        return;
    }
    // An INVITE that is not answered gets no ACK: refused, its transaction ends, and this state with it.
    static_cast<void>(in_event.getType() == EventType::eAPI_STOP ? rejectStopped(in_event, out_strStateName)
                                                                 : getInSipLeg().hangup());
}

std::span<const DisconnectingPendingConnection::Row> DisconnectingPendingConnection::rows()
{
    using namespace EventType;
    using namespace StateTable;
    // clang-format off
    static constexpr Row kRows[] = {
        // event                    guard    action                                        next
        {eAPI_KILL,                 always,  &DisconnectingPendingConnection::killCall,    "IDLE"},
        {eACK,                      always,  &DisconnectingPendingConnection::hangUpNow,   byAction, "DISCONNECTING"},
        {eBYE,                      always,  &DisconnectingPendingConnection::answerBye,   "IDLE"},
        {eTERMINATED_UPON_TIMEOUT,  always,  &DisconnectingPendingConnection::noteTimeout, "IDLE"},
        {eAPI_STOP,                 always,  nothing,                                      stay},
        {eAPI_HANGUP,               always,  nothing,                                      stay},
    };
    // clang-format on
    static_assert(allReachable(kRows));
    return kRows;
}

bool DisconnectingPendingConnection::processEvent_i(const VoipEvent& in_event, std::string& out_strStateName)
{
    return StateTable::walk(*this, in_event, out_strStateName);
}

bool DisconnectingPendingConnection::hangUpNow(const VoipEvent& /*in_event*/, std::string& out_strStateName)
{
    if (!getInSipLeg().hangup())
    {
        QLOG_WARN(getLogger(), "Could not send the BYE!!!");
        return true;
    }
    out_strStateName = "DISCONNECTING";
    return true;
}

bool DisconnectingPendingConnection::answerBye(const VoipEvent& in_event, std::string& /*out_strStateName*/)
{
    static_cast<void>(ByeHelper<InStateMachine::CallType>::respondToBye(in_event, m_pSM->getSipLeg()));
    return true;
}

bool DisconnectingPendingConnection::noteTimeout(const VoipEvent& /*in_event*/,
                                                 std::string& /*out_strStateName*/)
{
    QLOG_WARN(getLogger(), "Got a request-timed out in state " << getName());
    return true;
}

}  // namespace Quorvex
