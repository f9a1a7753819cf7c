#include "OutSipLeg.h"
#include "OutStates.h"
#include "SipEvents.h"
#include "VoipMedia.h"
#include "calleng/Call.h"
#include "infra/Assertion.h"
#include "infra/TraceScope.h"
#include "media/MediaNotificationEvent.h"
#include "sip/Sip.h"

// The states of an outbound call from the ringing to the connection, and that of a call given up before.

namespace Quorvex
{

// -----------------------------------------------------------------------------------------------
// REMOTE_RINGING

std::span<const RemoteRinging::Row> RemoteRinging::rows()
{
    using namespace EventType;
    using namespace StateTable;
    using S = RemoteRinging;
    // clang-format off
    static constexpr Row kRows[] = {
        // event                    guard              action                                  next
        {eAPI_KILL,                 always,            &S::killCall,                           "IDLE"},
        {eAPI_STOP,                 always,            nothing,                                "CANCEL"},
        {eAPI_HANGUP,               always,            nothing,                                "CANCEL"},
        {e100_TRYING,               always,            nothing,                                stay},
        {e180_RINGING,              always,            &S::noteRepeated180,                    stay},
        {e183_SESSION_PROGRESS,     always,            &S::followProvisional,                  byAction, "IDLE"},
        {e200_OK,                   always,            &S::process2XXResponseToInvite,         byAction, "WAIT_FOR_CPA_RESULT|IDLE"},
        {eSIP_RESPONSE,             &S::isProvisional, nothing,                                stay},
        {eSIP_RESPONSE,             &S::isSuccess,     &S::process2XXResponseToInvite,         byAction, "WAIT_FOR_CPA_RESULT|IDLE"},
        {eSIP_RESPONSE,             &S::isFailure,     &S::failRefused,                        "IDLE"},
        {e487_REQUEST_CANCELLED,    always,            &S::failUnasked487,                     "IDLE"},
        {eREMOTE_BUSY,              always,            &S::failCall<eBUSY_FAILURE>,            "IDLE"},
        {eINVALID_NUMBER,           always,            &S::failCall<eINVALID_NUMBER_FAILURE>,  "IDLE"},
        {eNO_ANSWER,                always,            &S::failCall<eNO_ANSWER_FAILURE>,       "IDLE"},
        {eTERMINATED_UPON_TIMEOUT,  always,            &S::failTimedOut,                       "IDLE"},
        {eMEDIA_OP_STATUS,          always,            &S::followMedia,                        byAction, "CANCEL"},
        {e3XX_REDIRECTION,          always,            &S::redirect,                           byAction, "IDLE"},
    };
    // clang-format on
    static_assert(allReachable(kRows));
    return kRows;
}

bool RemoteRinging::processEvent_i(const VoipEvent& in_event, std::string& out_strStateName)
{
    return StateTable::walk(*this, in_event, out_strStateName);
}

void RemoteRinging::onStateExit(const VoipEvent& /*in_event*/, const std::string& /*in_strNewStateName*/)
{
    getMachine().setCallInfo(nullptr);
}

bool RemoteRinging::noteRepeated180(const VoipEvent& in_event, std::string& /*out_strStateName*/)
{
    static const StaticLogger s_logger(Sip::getUAInteropLogger().getName() + std::string(".Multiple180"));
    QLOG_INFO(s_logger,
              "Received multiple " << in_event
                                   << ". Provisional "
                                      "response should not be retransmitted by sender.");
    return true;
}

bool RemoteRinging::failUnasked487(const VoipEvent& in_event, std::string& out_strStateName)
{
    warnUnasked487();
    return failCall<eOTHER_FAILURE>(in_event, out_strStateName);
}

bool RemoteRinging::failTimedOut(const VoipEvent& /*in_event*/, std::string& /*out_strStateName*/)
{
    noteTimeout();
    getCallOut().callFailed(ConnectionFailureType(eNO_ANSWER_FAILURE));
    return true;
}

bool RemoteRinging::followMedia(const VoipEvent& in_event, std::string& out_strStateName)
{
    if (!relayMediaOpEvent(in_event, m_pSM->getSipLeg()))
    {
        QLOG_ERROR(getLogger(), "Error processing media event.");
        getCallOut().connectFailed(ConnectionFailureType(eOTHER_FAILURE));
        out_strStateName = "CANCEL";
    }
    return true;
}

// ------------------------------------------------------------------------------------------
// WAIT_FOR_CPA_RESULT

Call::ConnectionType WaitForCPAResult::readConnectionType(const VoipEvent& in_event) const
{
    const auto* pEvent = in_event.asSipResponseEvent();
    if (!isSuccess(in_event) || pEvent == nullptr)
    {
        return Call::eCONNECTION_NONE;
    }
    const auto hHeader =
        pEvent->getResponse()->getHeader(SipLeg::getCPDResultHeaderName()).dynamicCast<DsSipUnknownHeader>();
    if (hHeader.isNil())
    {
        return Call::eCONNECTION_NONE;
    }
    const Fallible<Call::ConnectionType> result = Call::parseCPDResult(hHeader->getValue());
    if (!result.valid())
    {
        QLOG_WARN(getLogger(),
                  "WaitForCPAResult::entryAction"
                      << " : received a success response with an invalid " << SipLeg::getCPDResultHeaderName()
                      << " header : " << hHeader->getValue() << ". Ignoring");
    }
    return result.valueOr(Call::eCONNECTION_NONE);
}

void WaitForCPAResult::entryAction(const VoipEvent& in_event, std::string& out_strStateName)
{
    TRACE_SCOPE(getLogger(), "WaitForCPAResult::entryAction");
    out_strStateName = getName();
    if (!internal_assert(__FILE__, __LINE__))
    {
        return;
    }
    VoipMedia& media = getMedia();
    Call::ConnectionType type = Call::eCONNECTION_NONE;
    if (!media.isCPAEnabled())
    {
        QLOG_DEBUG(getLogger(), "CPA not required, going in connected right away");
        type = readConnectionType(in_event);
        QLOG_DEBUG(getLogger(), "Connection type = " << Call::getCPDResultString(type));
    }
    else
    {
        QLOG_DEBUG(getLogger(), "CPA required, starting the media");
        if (!media.isAllStarted())
        {
            media.startAll(true);
            return;
        }
        // Nothing would ever analyse what was started without it.
        static_cast<void>(QUORVEX_ASSERT_TEXT(getLogger(), false, "false"));
    }
    getCallOut().connected(type);
    out_strStateName = "CONNECTED";
}

std::span<const WaitForCPAResult::Row> WaitForCPAResult::rows()
{
    using namespace EventType;
    using namespace StateTable;
    using S = WaitForCPAResult;
    // clang-format off
    static constexpr Row kRows[] = {
        // event              guard    action               next
        {eAPI_KILL,           always,  &S::killAnswered,    "IDLE"},
        {eAPI_STOP,           always,  &S::endHungUp,       "DISCONNECTING"},
        {eAPI_HANGUP,         always,  &S::endHungUp,       "DISCONNECTING"},
        {eBYE,                always,  &S::endAfterBye,     "IDLE"},
        {eREFER,              always,  &S::declineEvent,    stay},
        {eREINVITE_REQUEST,   always,  &S::declineEvent,    stay},
        {eREINVITE_CANCEL,    always,  &S::declineEvent,    stay},
        {eREPLACES,           always,  &S::declineEvent,    stay},
        {eMEDIA_OP_STATUS,    always,  &S::followMedia,     byAction, "DISCONNECTING"},
        {eMEDIA_NOTIFICATION, always,  &S::followAnalysis,  byAction, "CONNECTED|DISCONNECTING"},
    };
    // clang-format on
    static_assert(allReachable(kRows));
    return kRows;
}

bool WaitForCPAResult::processEvent_i(const VoipEvent& in_event, std::string& out_strStateName)
{
    return StateTable::walk(*this, in_event, out_strStateName);
}

bool WaitForCPAResult::killAnswered(const VoipEvent& /*in_event*/, std::string& /*out_strStateName*/)
{
    static_cast<void>(getOutSipLeg().hangup());
    getCallOut().callFailed(ConnectionFailureType(eUNAVAILABLE_FAILURE));
    getMedia().stopAll();
    return true;
}

bool WaitForCPAResult::endHungUp(const VoipEvent& /*in_event*/, std::string& /*out_strStateName*/)
{
    static_cast<void>(getOutSipLeg().hangup());
    return true;
}

bool WaitForCPAResult::endAfterBye(const VoipEvent& in_event, std::string& /*out_strStateName*/)
{
    // Answered or not, the call is over.
    static_cast<void>(ByeHelper<OutStateMachine::CallType>::respondToBye(in_event, m_pSM->getSipLeg()));
    getCallOut().connected(Call::eCONNECTION_HUNG_UP_IN_ANALYSIS);
    tellCallEngine();
    getMedia().stopAll();
    return true;
}

bool WaitForCPAResult::followMedia(const VoipEvent& in_event, std::string& out_strStateName)
{
    if (!relayMediaOpEvent(in_event, m_pSM->getSipLeg()))
    {
        QLOG_ERROR(getLogger(), "Error processing media event");
        static_cast<void>(getOutSipLeg().hangup());
        getCallOut().callFailed(ConnectionFailureType(eOTHER_FAILURE));
        out_strStateName = "DISCONNECTING";
    }
    return true;
}

bool WaitForCPAResult::followAnalysis(const VoipEvent& in_event, std::string& out_strStateName)
{
    const auto* pEvent = dynamic_cast<const VoipNotificationMediaEvent*>(&in_event);
    if (!QUORVEX_ASSERT_TEXT(getLogger(),
                             pEvent != nullptr,
                             "QUORVEX_DYNCAST_ASSERT(const VoipNotificationMediaEvent, &in_event)"))
    {
        return false;
    }
    const MediaNotificationEvent* const pNotification = pEvent->getNotification();
    if (!QUORVEX_ASSERT_TEXT(getLogger(), pNotification != nullptr, "!pNotification.isNull()"))
    {
        return false;
    }
    QLOG_DEBUG(getLogger(), "Handle media notification " << *pNotification);
    if (const auto* pSuccess = dynamic_cast<const CPASuccessNotificationEvent*>(pNotification))
    {
        QLOG_TRACE(getLogger(), "CPA Success");
        getCallOut().connected(static_cast<Call::ConnectionType>(pSuccess->getConnectionType()));
        out_strStateName = "CONNECTED";
    }
    else if (const auto* pFailure = dynamic_cast<const CPAFailureNotificationEvent*>(pNotification))
    {
        QLOG_TRACE(getLogger(), "CPA Failure");
        getCallOut().callFailed(
            ConnectionFailureType(static_cast<ConnectionFailureEnum>(pFailure->getFailureCode())));
        static_cast<void>(getOutSipLeg().hangup());
        out_strStateName = "DISCONNECTING";
    }
    return true;
}

// --------------------------------------------------------------------------------------------------------
// CANCEL

void OutStateMachine::CancelState::entryAction(const VoipEvent& /*in_event*/, std::string& out_strStateName)
{
    TRACE_SCOPE(getLogger(), "CancelState::entryAction");
    out_strStateName = getName();
    if (!internal_assert(__FILE__, __LINE__))
    {
        return;
    }
    static_cast<void>(getOutSipLeg().hangup());
    getMedia().stopAll();
}

auto OutStateMachine::CancelState::rows() -> std::span<const Row>
{
    using namespace EventType;
    using namespace StateTable;
    using S = CancelState;
    // Whatever the INVITE was refused with, and however often: its end is reported besides.
    // clang-format off
    static constexpr Row kRows[] = {
        // event                    guard              action                       next
        {eAPI_KILL,                 always,            nothing,                     "IDLE"},
        {e487_REQUEST_CANCELLED,    always,            nothing,                     "IDLE"},
        {eTERMINATED_UPON_TIMEOUT,  always,            nothing,                     "IDLE"},
        {eREMOTE_BUSY,              always,            nothing,                     "IDLE"},
        {eNO_ANSWER,                always,            nothing,                     "IDLE"},
        {e481_CALLEG_DOESNOTEXIST,  always,            &S::noteUnknownTransaction,  "IDLE"},
        {eSIP_RESPONSE,             &S::isFailure,     nothing,                     "IDLE"},
        {eSIP_RESPONSE,             &S::isProvisional, nothing,                     stay},
        {eSIP_RESPONSE,             &S::isSuccess,     &S::endAnswered,             "IDLE"},
        {e200_OK,                   always,            &S::endAnswered,             "IDLE"},
        {eAPI_STOP,                 always,            nothing,                     stay},
        {eAPI_HANGUP,               always,            nothing,                     stay},
        {e100_TRYING,               always,            nothing,                     stay},
        {e180_RINGING,              always,            nothing,                     stay},
        {eINVALID_NUMBER,           always,            nothing,                     stay},
        {eMEDIA_OP_STATUS,          always,            nothing,                     stay},
        {e3XX_REDIRECTION,          always,            nothing,                     stay},
    };
    // clang-format on
    static_assert(allReachable(kRows));
    return kRows;
}

bool OutStateMachine::CancelState::processEvent_i(const VoipEvent& in_event, std::string& out_strStateName)
{
    TRACE_SCOPE(getLogger(), "CancelState::_iprocessEvent");
    return StateTable::walk(*this, in_event, out_strStateName);
}

bool OutStateMachine::CancelState::noteUnknownTransaction(const VoipEvent& /*in_event*/,
                                                          std::string& /*out_strStateName*/)
{
    QLOG_WARN(getLogger(),
              "Received a 481 Transaction does not exist in response to a CANCEL. Maybe the server went down "
              "before the CANCEL");
    return true;
}

bool OutStateMachine::CancelState::endAnswered(const VoipEvent& /*in_event*/,
                                               std::string& /*out_strStateName*/)
{
    // The answer came before the CANCEL: now with ACK and BYE.
    static_cast<void>(getOutSipLeg().hangup());
    return true;
}

}  // namespace Quorvex
