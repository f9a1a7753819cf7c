// Every event in every state of an inbound call: what moves the call, and that nothing else does.

#include <gtest/gtest.h>

#include <iterator>
#include <map>
#include <memory>
#include <string>

#include "InCallStage.h"
#include "SipEvents.h"

namespace Quorvex::Test
{
namespace
{

using namespace EventType;
using InCall = DsHandle<DsSipIncomingCall>;
using EventPtr = std::unique_ptr<VoipEvent>;

DsHandle<DsSipResponse> response(unsigned int in_uiCode)
{
    return makeDs<DsSipResponse>(in_uiCode, "reason");
}

// An event of the class that belongs to the type. Media operations fail, capacities are missing, SIP objects
// are nil: the least favourable of each.
EventPtr typical(eTYPE in_type)
{
    const InCall hCall;
    const DsHandle<DsSipDialog> hDialog;
    const DsHandle<DsSipServerTransaction> hTransaction;
    const auto rx = MediaEndpoint::RX_DIRECTION;
    const ConnectionFailureType failure(eBUSY_FAILURE);
    switch (in_type)
    {
        case eAPI_TRANSFER_ACCEPTED:
            return std::make_unique<TransferAcceptedEvent>(eRING_WITHOUT_EARLY_MEDIA);
        case eAPI_TRANSFER_FAILURE:
            return std::make_unique<TransferFailureEvent>(failure);
        case eAPI_SEND_INFO_MSG:
            return std::make_unique<SendInfoMsgEvent>(std::vector<Parameter>{Parameter("body", "x")});
        case e200_OK:
            return std::make_unique<SucceededEvent>(nullptr, hDialog, response(200));
        case e481_CALLEG_DOESNOTEXIST:
            return std::make_unique<SipResponseEvent>(in_type, response(481));
        case e487_REQUEST_CANCELLED:
            return std::make_unique<SipResponseEvent>(in_type, response(487));
        case eSESSION_TIMED_OUT:
            return std::make_unique<SessionTimeOutEvent<InCall>>(hCall);
        case eSESSION_REFRESH_TIME:
            return std::make_unique<SessionRefreshEvent<InCall>>(hCall);
        case eBYE:
            return std::make_unique<BYERequestEvent<InCall>>(hCall, hDialog, nullptr);
        case eREFER:
            return std::make_unique<ReferEvent<InCall>>(hCall, hDialog, hTransaction, nullptr);
        case eNOTIFY:
            return std::make_unique<NotifyEvent<InCall>>(hCall, hDialog, hTransaction, nullptr);
        case eREINVITE_REQUEST:
            return std::make_unique<ReinviteReqEvent<InCall, InStateMachine>>(hCall, hDialog, nullptr);
        case eREINVITE_RESPONSE:
            return std::make_unique<ReinviteResponseEvent<InCall>>(hCall, hDialog, response(200));
        case eREINVITE_CANCEL:
            return std::make_unique<ReinviteCancelEvent<InCall>>(hCall, hDialog, nullptr);
        case eREINVITE_ACK:
        case eACK:
            return std::make_unique<CallConfirmedEvent<InCall>>(in_type, hCall, nullptr);
        case eREINVITE_ACK_WITH_SDP:
            return std::make_unique<ReinviteAckWithSDPEvent<InCall>>(hCall, nullptr);
        case eREPLACES:
            return std::make_unique<ReplacesEvent<InCall>>(hCall, hDialog, hDialog, nullptr);
        case eINFO:
            return std::make_unique<RequestEvent>(in_type, nullptr);
        case eSIP_RESPONSE:
            return std::make_unique<SipResponseEvent>(response(200));
        case eAPI_INVITE:
            return std::make_unique<InviteEvent>(CallInfo());
        case e100_TRYING:
        case e180_RINGING:
        case e183_SESSION_PROGRESS:
            return std::make_unique<ProvisionalResponseEvent>(in_type, nullptr, hDialog, response(180));
        case eREMOTE_BUSY:
        case eINVALID_NUMBER:
        case eNO_ANSWER:
            return std::make_unique<FailedToConnectEvent>(in_type, nullptr, hDialog, response(486));
        case e3XX_REDIRECTION:
            return std::make_unique<RedirectEvent>(nullptr, hDialog, response(302));
        case eAPI_INVITE_ACCEPTED:
            return std::make_unique<InviteAcceptedEvent>(eRING_WITHOUT_EARLY_MEDIA);
        case eAPI_INVITE_REJECTED:
            return std::make_unique<InviteRejectedEvent>(failure);
        case eAPI_REMOTE_CONNECTED:
            return std::make_unique<RemoteConnEvent>(Call::eCONNECTION_NONE);
        case eAPI_REMOTE_CONN_FAILED:
            return std::make_unique<RemoteConnFailedEvent>(failure);
        case ePRACK:
            return std::make_unique<PrackEvent<InCall>>(hCall, nullptr);
        case eMEDIA_SET_CAPACITY:
            return std::make_unique<VoipSetCapacityMediaEvent>(0, rx, nullptr);
        case eMEDIA_OP_STATUS:
            return std::make_unique<VoipOpStatusMediaEvent>(
                0, rx, MediaOpType::eSTART, MediaEndpointCallback::RESOURCE_STATUS);
        case eMEDIA_NOTIFICATION:
            return std::make_unique<VoipNotificationMediaEvent>(0, new DtmfNotificationEvent('1', 80));
        case eTIMEOUT:
            return std::make_unique<VoipTimeoutEvent>(ACE_Time_Value(1), nullptr);
        default:
            return std::make_unique<VoipEvent>(in_type);
    }
}

using Moves = std::map<eTYPE, std::string>;

// What the typical events move. Everything that is not listed leaves the state as it is.
struct StateCase
{
    const char* m_szState;
    Moves m_moves;
};

const std::string kIdle = "IDLE";
const std::string kDisconnecting = "DISCONNECTING";
const std::string kPending = "DISCONNECTING PENDING CONNECTION";

const StateCase kStates[] = {
    {"INITIAL",                          {{eAPI_KILL, kIdle}}                                      },
    {"INVITING_OUT",
     {{eAPI_STOP, kIdle},
      {eAPI_KILL, kIdle},
      {eAPI_HANGUP, kIdle},
      {eAPI_INVITE_ACCEPTED, "ACCEPTING"},
      {eAPI_INVITE_REJECTED, kIdle},
      {eAPI_REMOTE_CONN_FAILED, kIdle},
      {eAPI_REMOTE_CONNECTED, "ANSWERING"},
      {eCANCEL, kIdle},
      {eBYE, kIdle},
      {eTERMINATED_UPON_TIMEOUT, kIdle},
      {eMEDIA_SET_CAPACITY, kIdle},
      {eMEDIA_OP_STATUS, kIdle}}                                                                   },
    {"ACCEPTING",
     {{eAPI_STOP, kIdle},
      {eAPI_KILL, kIdle},
      {eAPI_HANGUP, kIdle},
      {eAPI_REMOTE_CONN_FAILED, kIdle},
      {eAPI_REMOTE_CONNECTED, "ANSWERING"},
      {eBYE, kIdle},
      {eTERMINATED_UPON_TIMEOUT, kIdle},
      {eCANCEL, kIdle},
      {eMEDIA_OP_STATUS, kIdle}}                                                                   },
    {"ANSWERING",
     {{eAPI_KILL, kIdle},
      {eAPI_STOP, kPending},
      {eAPI_HANGUP, kPending},
      {eACK, "CONNECTED::iMediaSetup"},
      {eBYE, kIdle},
      {eTERMINATED_UPON_TIMEOUT, kIdle},
      {eCANCEL, kIdle},
      {eMEDIA_OP_STATUS, kIdle}}                                                                   },
    {"DISCONNECTING PENDING CONNECTION",
     {{eAPI_KILL, kIdle}, {eACK, kDisconnecting}, {eBYE, kIdle}, {eTERMINATED_UPON_TIMEOUT, kIdle}}},
    {"PROGRESSING_WITH_SDP_OFFER",
     {{ePRACK, kDisconnecting},
      {eTERMINATED_UPON_TIMEOUT, kIdle},
      {eCANCEL, kIdle},
      {eAPI_KILL, kIdle},
      {eAPI_STOP, kPending},
      {eAPI_HANGUP, kPending}}                                                                     },
    {"EARLY_DIALOG",
     {{eAPI_INVITE_ACCEPTED, "ACCEPTING"},
      {eAPI_INVITE_REJECTED, kIdle},
      {eAPI_REMOTE_CONN_FAILED, kIdle},
      {eAPI_REMOTE_CONNECTED, "ANSWERING"},
      {eTERMINATED_UPON_TIMEOUT, kIdle},
      {eCANCEL, kIdle},
      {eAPI_KILL, kIdle},
      {eAPI_STOP, kPending},
      {eAPI_HANGUP, kPending}}                                                                     },
    {"CONNECTED::iMediaSetup",
     {{eAPI_KILL, kIdle},
      {eAPI_STOP, kDisconnecting},
      {eAPI_HANGUP, kDisconnecting},
      {eMEDIA_OP_STATUS, kDisconnecting},
      {eBYE, kIdle},
      {eTERMINATED_UPON_TIMEOUT, kIdle}}                                                           },
    {"CONNECTED::iConnected",
     {{eAPI_KILL, kIdle},
      {eAPI_STOP, kDisconnecting},
      {eAPI_HANGUP, kDisconnecting},
      {eREINVITE_REQUEST, kDisconnecting},
      {eREINVITE_ACK_WITH_SDP, kDisconnecting},
      {eBYE, kIdle},
      {eTERMINATED_UPON_TIMEOUT, kIdle}}                                                           },
    {"CONNECTED::iTransfering",
     {{eAPI_KILL, kIdle},
      {eAPI_STOP, kDisconnecting},
      {eAPI_HANGUP, kDisconnecting},
      {eAPI_TRANSFER_SUCCESS, "CONNECTED::iTransfered"},
      {eAPI_TRANSFER_FAILURE, "CONNECTED::iMediaSetup"},
      {eBYE, kIdle},
      {eMEDIA_OP_STATUS, kDisconnecting},
      {eTERMINATED_UPON_TIMEOUT, kIdle}}                                                           },
    {"CONNECTED::iTransfered",
     {{eAPI_KILL, kIdle},
      {eAPI_STOP, kDisconnecting},
      {eAPI_HANGUP, kDisconnecting},
      {eAPI_MEDIA_START_CMD, "CONNECTED::iMediaSetup"},
      {eBYE, kIdle},
      {eMEDIA_OP_STATUS, kDisconnecting},
      {eTERMINATED_UPON_TIMEOUT, kIdle}}                                                           },
    {"DISCONNECTING",
     {{eAPI_KILL, kIdle},
      {eBYE, kIdle},
      {e200_OK, kIdle},
      {e481_CALLEG_DOESNOTEXIST, kIdle},
      {eSIP_RESPONSE, kIdle},
      {eTERMINATED_UPON_TIMEOUT, kIdle}}                                                           },
    {"IDLE",                             {}                                                        },
};

// A machine that waits for its INVITE takes whatever comes as one: only real ones, in the other tests.
bool isOffered(const std::string& in_strState, eTYPE in_type)
{
    return in_type != eINVITE || in_strState != "INITIAL";
}

class InCallSweep : public testing::TestWithParam<StateCase>
{
protected:
    void SetUp() override { Logging::setRootLevel(eOFF_LEVEL); }
    void TearDown() override { Logging::setRootLevel(eINFO_LEVEL); }
};

TEST_P(InCallSweep, OnlyWhatTheTableNamesMovesTheCall)
{
    const StateCase& testCase = GetParam();
    InCallStage stage;
    bool bFresh = false;
    for (unsigned int i = 0; i <= eINVALID; ++i)
    {
        const auto type = static_cast<eTYPE>(i);
        if (!isOffered(testCase.m_szState, type))
        {
            continue;
        }
        const EventPtr pEvent = typical(type);
        SCOPED_TRACE(std::string(testCase.m_szState) + " <- " + std::to_string(i) + " " + pEvent->getName());
        if (!bFresh)
        {
            ASSERT_NO_FATAL_FAILURE(stage.bringTo(testCase.m_szState));
            stage.answerMedia(false);
        }
        static_cast<void>(stage.feed(*pEvent));
        const auto found = testCase.m_moves.find(type);
        const std::string strExpected = found == testCase.m_moves.end() ? testCase.m_szState : found->second;
        const std::string strState = stage.stateAfterEvent();
        EXPECT_EQ(strState, strExpected);
        // What was declined or changed inside must not colour the next event.
        bFresh = stage.state() == testCase.m_szState && stage.queueSize() == 0 && type != eAPI_STOP;
    }
}

TEST_P(InCallSweep, AnEventOfTheWrongClassDoesNoHarm)
{
    const StateCase& testCase = GetParam();
    InCallStage stage;
    bool bFresh = false;
    for (unsigned int i = 0; i <= eINVALID; ++i)
    {
        const auto type = static_cast<eTYPE>(i);
        const VoipEvent event(type);
        SCOPED_TRACE(std::string(testCase.m_szState) + " <- " + std::to_string(i) + " " + event.getName());
        if (!bFresh)
        {
            ASSERT_NO_FATAL_FAILURE(stage.bringTo(testCase.m_szState));
            stage.answerMedia(false);
        }
        static_cast<void>(stage.feed(event));
        const std::string strState = stage.stateAfterEvent();
        EXPECT_NE(strState, "StateMachineNoTUndefStateName");
        bFresh = stage.state() == testCase.m_szState && stage.queueSize() == 0 && type != eAPI_STOP;
    }
}

class InCallStop : public InCallSweep
{
};

TEST_P(InCallStop, EndsTheCallAndWaitsForItsEnd)
{
    {
        InCallStage stage;
        ASSERT_NO_FATAL_FAILURE(stage.bringTo(GetParam().m_szState));
        stage.answerMedia(true);
        EXPECT_TRUE(stage.running().netIf().stop());
        stage.letGo();
        EXPECT_TRUE(stage.followStop());
        EXPECT_TRUE(stage.waitForTold("gone"));
        EXPECT_TRUE(stage.running().netIf().waitUntilDone());
    }
    // What a media engine says after the last call's end goes with the queue.
    expectAccountsEmpty();
}

std::string nameOfCase(const testing::TestParamInfo<StateCase>& in_info)
{
    std::string strName;
    for (const char* sz = in_info.param.m_szState; *sz != '\0'; ++sz)
    {
        strName += std::isalnum(static_cast<unsigned char>(*sz)) != 0 ? *sz : '_';
    }
    return strName;
}

INSTANTIATE_TEST_SUITE_P(AllStates, InCallSweep, testing::ValuesIn(kStates), nameOfCase);
// In the first one there is no call yet.
INSTANTIATE_TEST_SUITE_P(AllStates,
                         InCallStop,
                         testing::ValuesIn(std::next(std::begin(kStates)), std::end(kStates)),
                         nameOfCase);

}  // namespace
}  // namespace Quorvex::Test
