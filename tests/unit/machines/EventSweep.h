#pragma once

#include <gtest/gtest.h>

#include <cctype>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "NetIfFixture.h"
#include "SipEvents.h"
#include "infra/Logger.h"

// Every event in every state of a call: what moves it, and that nothing else does.

namespace Quorvex::Test
{

using EventPtr = std::unique_ptr<VoipEvent>;

inline DsHandle<DsSipResponse> response(unsigned int in_uiCode)
{
    return makeDs<DsSipResponse>(in_uiCode, "reason");
}

// An event of the class that belongs to the type. Media operations fail, capacities are missing, SIP objects
// are nil: the least favourable of each.
template <class Machine>
EventPtr typical(EventType::eTYPE in_type)
{
    using namespace EventType;
    using CallType = typename Machine::CallType;
    const CallType hCall;
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
            return std::make_unique<SessionTimeOutEvent<CallType>>(hCall);
        case eSESSION_REFRESH_TIME:
            return std::make_unique<SessionRefreshEvent<CallType>>(hCall);
        case eBYE:
            return std::make_unique<BYERequestEvent<CallType>>(hCall, hDialog, nullptr);
        case eREFER:
            return std::make_unique<ReferEvent<CallType>>(hCall, hDialog, hTransaction, nullptr);
        case eNOTIFY:
            return std::make_unique<NotifyEvent<CallType>>(hCall, hDialog, hTransaction, nullptr);
        case eREINVITE_REQUEST:
            return std::make_unique<ReinviteReqEvent<CallType, Machine>>(hCall, hDialog, nullptr);
        case eREINVITE_RESPONSE:
            return std::make_unique<ReinviteResponseEvent<CallType>>(hCall, hDialog, response(200));
        case eREINVITE_CANCEL:
            return std::make_unique<ReinviteCancelEvent<CallType>>(hCall, hDialog, nullptr);
        case eREINVITE_ACK:
        case eACK:
            return std::make_unique<CallConfirmedEvent<CallType>>(in_type, hCall, nullptr);
        case eREINVITE_ACK_WITH_SDP:
            return std::make_unique<ReinviteAckWithSDPEvent<CallType>>(hCall, nullptr);
        case eREPLACES:
            return std::make_unique<ReplacesEvent<CallType>>(hCall, hDialog, hDialog, nullptr);
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
            return std::make_unique<PrackEvent<CallType>>(hCall, nullptr);
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

using Moves = std::map<EventType::eTYPE, std::string>;

// What the typical events move. Everything that is not listed leaves the state as it is.
struct StateCase
{
    const char* m_szState = nullptr;
    Moves m_moves;
};

/// The states that the machines of both directions have: from CONNECTED on.
std::vector<StateCase> sharedStates();

/// The state as the name of a test.
inline std::string nameOfCase(const testing::TestParamInfo<StateCase>& in_info)
{
    std::string strName;
    for (const char* sz = in_info.param.m_szState; *sz != '\0'; ++sz)
    {
        strName += std::isalnum(static_cast<unsigned char>(*sz)) != 0 ? *sz : '_';
    }
    return strName;
}

class EventSweep : public testing::TestWithParam<StateCase>
{
protected:
    void SetUp() override { Logging::setRootLevel(eOFF_LEVEL); }
    void TearDown() override { Logging::setRootLevel(eINFO_LEVEL); }

    /// Gives a call in that state one event after the other, a new call whenever the last one is no longer as
    /// it was; checks after each.
    template <class Stage, class MakeEvent, class Check>
    void sweep(MakeEvent in_makeEvent, Check in_check)
    {
        const std::string strState = GetParam().m_szState;
        Stage stage;
        bool bFresh = false;
        for (unsigned int i = 0; i <= EventType::eINVALID; ++i)
        {
            const auto type = static_cast<EventType::eTYPE>(i);
            const EventPtr pEvent = in_makeEvent(type);
            if (pEvent == nullptr)
            {
                continue;
            }
            SCOPED_TRACE(strState + " <- " + std::to_string(i) + " " + pEvent->getName());
            if (!bFresh)
            {
                ASSERT_NO_FATAL_FAILURE(stage.bringTo(strState));
                stage.answerMedia(false);
            }
            static_cast<void>(stage.feed(*pEvent));
            in_check(type, stage.stateAfterEvent());
            // What was declined or changed inside must not colour the next event.
            bFresh = stage.state() == strState && stage.queueSize() == 0 && type != EventType::eAPI_STOP;
        }
    }

    template <class Stage>
    void expectOnlyTheTablesMoves()
    {
        const StateCase& testCase = GetParam();
        sweep<Stage>(
            [&](EventType::eTYPE in_type)
            {
                // A machine that waits for its INVITE takes whatever comes as one: real ones come in other
                // tests.
                const bool bOffered =
                    in_type != EventType::eINVITE || testCase.m_szState != std::string("INITIAL");
                return bOffered ? typical<typename Stage::Machine>(in_type) : EventPtr();
            },
            [&](EventType::eTYPE in_type, const std::string& in_strState)
            {
                const auto found = testCase.m_moves.find(in_type);
                EXPECT_EQ(in_strState, found == testCase.m_moves.end() ? testCase.m_szState : found->second);
            });
    }

    template <class Stage>
    void expectNoHarmOfWrongClasses()
    {
        sweep<Stage>([](EventType::eTYPE in_type) { return std::make_unique<VoipEvent>(in_type); },
                     [](EventType::eTYPE, const std::string& in_strState)
                     { EXPECT_NE(in_strState, "StateMachineNoTUndefStateName"); });
    }

    /// The network interface is told to stop: the call ends as it can in that state, and the network
    /// interface waits for its end.
    template <class Stage>
    void expectStopWaitsForTheEnd()
    {
        {
            Stage stage;
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

    /// The network interface is killed: the call ends at once, before the far end has said a word.
    template <class Stage>
    void expectKillEndsAtOnce()
    {
        {
            Stage stage;
            ASSERT_NO_FATAL_FAILURE(stage.bringTo(GetParam().m_szState));
            stage.answerMedia(false);
            stage.running().netIf().kill();
            stage.letGo();
            EXPECT_TRUE(stage.waitForTold("gone"));
            EXPECT_TRUE(stage.followStop(true));
            EXPECT_TRUE(stage.running().netIf().waitUntilDone());
        }
        expectAccountsEmpty();
    }
};

}  // namespace Quorvex::Test
