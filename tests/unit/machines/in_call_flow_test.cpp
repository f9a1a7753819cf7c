// What the caller and the call engine see of an inbound call, for each decision that either can take.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "InCallStage.h"
#include "SipEvents.h"

namespace Quorvex::Test
{
namespace
{

using namespace EventType;
using Told = std::vector<std::string>;

bool hasSdp(const std::string& in_strMessage)
{
    return in_strMessage.find("\r\n\r\nv=0") != std::string::npos;
}

class InCallFlow : public testing::Test
{
protected:
    void TearDown() override
    {
        m_stage.letGo();
        EXPECT_TRUE(m_stage.running().stop());
        // What a media engine says after the last call's end goes with the queue.
        m_pStage.reset();
        expectAccountsEmpty();
    }

    // Ends an established call from the caller's side.
    void byeFromCaller()
    {
        m_stage.send("BYE");
        EXPECT_TRUE(m_stage.gets("200"));
        EXPECT_TRUE(m_stage.waitForTold("disconnected"));
    }
    // Waits for our BYE and answers it.
    void byeFromUs()
    {
        const std::string strBye = m_stage.receive("BYE");
        ASSERT_FALSE(strBye.empty());
        m_stage.answer(strBye, "200 OK");
        EXPECT_TRUE(m_stage.waitFor("IDLE"));
    }
    void hangUp()
    {
        EXPECT_TRUE(m_stage.feed(eAPI_HANGUP));
        byeFromUs();
    }

private:
    std::unique_ptr<InCallStage> m_pStage = std::make_unique<InCallStage>();

protected:
    InCallStage& m_stage = *m_pStage;
};

TEST_F(InCallFlow, RefusalsCarryTheStatusAndResultOfTheirReason)
{
    const struct
    {
        const char* m_szWhat;
        const char* m_szState;
        std::function<bool(InCallStage&)> m_do;
        const char* m_szStatus;
        const char* m_szResult;
    } kCases[] = {
        {"stopped while invited",
         "INVITING_OUT", [](InCallStage& io_stage) { return io_stage.feed(eAPI_STOP); },
         "503", "Unavailable"  },
        {"hung up while invited",
         "INVITING_OUT", [](InCallStage& io_stage) { return io_stage.feed(eAPI_HANGUP); },
         "403", "HangUp"       },
        {"invitation rejected",
         "INVITING_OUT", [](InCallStage& io_stage) { return io_stage.feed(InviteRejectedEvent(eINVALID_NUMBER_FAILURE)); },
         "404", "InvalidNumber"},
        {"connected to a busy tone",
         "INVITING_OUT", [](InCallStage& io_stage) { return io_stage.feed(RemoteConnEvent(Call::eCONNECTION_BUSY)); },
         "486", "Busy"         },
        {"no capacity",
         "INVITING_OUT", [](InCallStage& io_stage)
         { return io_stage.feed(VoipSetCapacityMediaEvent(0, MediaEndpoint::RX_DIRECTION, nullptr)); },
         "500", "Failure"      },
        {"killed while ringing",
         "ACCEPTING",    [](InCallStage& io_stage) { return io_stage.feed(eAPI_KILL); },
         "503", "Unavailable"  },
        {"hung up while ringing",
         "ACCEPTING",    [](InCallStage& io_stage) { return io_stage.feed(eAPI_HANGUP); },
         "403", "HangUp"       },
        {"nobody answered",
         "ACCEPTING",    [](InCallStage& io_stage) { return io_stage.feed(RemoteConnFailedEvent(eNO_ANSWER_FAILURE)); },
         "480", "NoAnswer"     },
        {"connected to a reorder tone while ringing",
         "ACCEPTING",    [](InCallStage& io_stage) { return io_stage.feed(RemoteConnEvent(Call::eCONNECTION_REORDER)); },
         "503", "Reorder"      },
        {"rejected after early media",
         "EARLY_DIALOG", [](InCallStage& io_stage) { return io_stage.feed(InviteRejectedEvent(eBUSY_FAILURE)); },
         "486", "Busy"         },
    };
    for (const auto& testCase : kCases)
    {
        SCOPED_TRACE(testCase.m_szWhat);
        ASSERT_NO_FATAL_FAILURE(m_stage.bringTo(testCase.m_szState));
        EXPECT_TRUE(testCase.m_do(m_stage));
        EXPECT_EQ(m_stage.stateAfterEvent(), "IDLE");
        EXPECT_TRUE(m_stage.gets(testCase.m_szStatus, "CPD-Result", testCase.m_szResult));
        m_stage.send("ACK");
        EXPECT_TRUE(m_stage.waitForTold("gone"));
    }
}

TEST_F(InCallFlow, AMachineStoppedBeforeItsInviteNeverAsksTheEngine)
{
    m_stage.acquireWithoutInvite();
    EXPECT_TRUE(m_stage.feed(eAPI_STOP));
    EXPECT_EQ(m_stage.stateAfterEvent(), "INITIAL");
    // A call that no stack stands behind; making it takes a machine too.
    DsHandle<DsSipIncomingCall> hCall = m_stage.running().probe().newInCall();
    TaskObjectVector<InStateMachine> container;
    EXPECT_TRUE(m_stage.feed(InCalledEvent(hCall, hCall->getInvite(), container, 0)));
    EXPECT_EQ(m_stage.stateAfterEvent(), "IDLE");
    EXPECT_TRUE(m_stage.running().engine().waitForTold("gone"));
    m_stage.running().probe().run(
        [this]
        {
            for (const auto& [strUUID, pMachine] : m_stage.running().probe().activeIn())
            {
                EXPECT_TRUE(pMachine->kill());
                EXPECT_STREQ(pMachine->getCurrentStateName(), "IDLE") << "also without a leg";
            }
        });
    EXPECT_TRUE(m_stage.running().engine().waitForTold("gone", 2));
    EXPECT_EQ(m_stage.running().engine().count("invite"), 0U);
}

TEST_F(InCallFlow, AnOfferThatNothingSupportsIsRefusedOnceTheCapacitiesAreKnown)
{
    m_stage.invite({InCallStage::kUnusableSdp, "", true, false});
    EXPECT_TRUE(m_stage.gets("488", "CPD-Result", "Failure"));
    m_stage.send("ACK");
    EXPECT_TRUE(m_stage.waitForTold("gone"));
}

TEST_F(InCallFlow, AcceptanceWaitsForTheCapacities)
{
    m_stage.invite({InCallStage::kOffer, "", false, true});
    EXPECT_TRUE(m_stage.feed(InviteAcceptedEvent(eRING_WITHOUT_EARLY_MEDIA)));
    EXPECT_TRUE(m_stage.feed(RemoteConnEvent(Call::eCONNECTION_NONE)));
    EXPECT_EQ(m_stage.stateAfterEvent(), "INVITING_OUT");
    EXPECT_EQ(m_stage.queueSize(), 2U);
    auto* pCapacity = new MediaEndpointCapacity;
    pCapacity->set(MediaEndpointCapacity::IPV4_ADDRESS, "127.0.0.1");
    pCapacity->set(MediaEndpointCapacity::UDP_PORT, 30000U);
    pCapacity->set(MediaEndpointCapacity::PAYLOAD_TYPE, std::vector<unsigned>{0, 8});
    pCapacity->set(MediaEndpointCapacity::RFC2833_SUPPORT, false);
    EXPECT_TRUE(m_stage.feed(VoipSetCapacityMediaEvent(0, MediaEndpoint::RX_DIRECTION, pCapacity)));
    EXPECT_EQ(m_stage.stateAfterEvent(), "ANSWERING") << "both were offered again, in their order";
    EXPECT_TRUE(m_stage.gets("180"));
    EXPECT_TRUE(m_stage.gets("200"));
    m_stage.send("ACK");
    EXPECT_TRUE(m_stage.waitFor("CONNECTED::iMediaSetup"));
    EXPECT_TRUE(m_stage.feed(eAPI_HANGUP));
    byeFromUs();
}

TEST_F(InCallFlow, RingingAndEarlyMediaAsTheEngineAsks)
{
    m_stage.bringTo("INVITING_OUT");
    EXPECT_TRUE(m_stage.feed(InviteAcceptedEvent(eRING_WITH_EARLY_MEDIA)));
    EXPECT_TRUE(hasSdp(m_stage.receive("180")));
    EXPECT_TRUE(m_stage.running().media().waitForRequests("start", 2));
    EXPECT_TRUE(m_stage.feed(eAPI_MEDIA_START_CMD));
    EXPECT_TRUE(hasSdp(m_stage.receive("183")));
    EXPECT_TRUE(m_stage.feed(RemoteConnEvent(Call::eCONNECTION_VOICE)));
    EXPECT_TRUE(m_stage.gets("200", "CPD-Result", "Voice"));
    m_stage.send("ACK");
    EXPECT_TRUE(m_stage.waitFor("CONNECTED::iConnected"));
    byeFromCaller();

    m_stage.bringTo("INVITING_OUT");
    EXPECT_TRUE(m_stage.feed(eAPI_MEDIA_START_CMD));
    EXPECT_TRUE(hasSdp(m_stage.receive("183"))) << "early media before the acceptance";
    EXPECT_TRUE(m_stage.feed(InviteAcceptedEvent(eRING_WITHOUT_EARLY_MEDIA)));
    const std::string strRinging = m_stage.receive("180");
    EXPECT_FALSE(strRinging.empty());
    EXPECT_FALSE(hasSdp(strRinging));
    m_stage.send("CANCEL");
    EXPECT_TRUE(m_stage.gets("487"));
    m_stage.send("ACK");
    EXPECT_TRUE(m_stage.waitForTold("gone"));
    EXPECT_EQ(m_stage.told(), (Told{"disconnected", "gone"})) << "told once";
}

TEST_F(InCallFlow, LateOfferIsAnsweredInTheAck)
{
    m_stage.invite({"", "", true, true});
    EXPECT_TRUE(m_stage.feed(eAPI_MEDIA_START_CMD));
    const std::string strProgress = m_stage.receive("183");
    EXPECT_FALSE(strProgress.empty());
    EXPECT_FALSE(hasSdp(strProgress)) << "no 100rel: a 183 without an offer";
    EXPECT_EQ(m_stage.state(), "INVITING_OUT");
    EXPECT_TRUE(m_stage.feed(InviteAcceptedEvent(eRING_WITH_EARLY_MEDIA)));
    EXPECT_FALSE(hasSdp(m_stage.receive("180")));
    EXPECT_TRUE(m_stage.feed(RemoteConnEvent(Call::eCONNECTION_NONE)));
    EXPECT_TRUE(hasSdp(m_stage.receive("200")));
    m_stage.send("ACK", InCallStage::kOffer);
    EXPECT_TRUE(m_stage.waitFor("CONNECTED::iConnected"));
    hangUp();

    m_stage.invite({"", "", true, true});
    EXPECT_TRUE(m_stage.feed(RemoteConnEvent(Call::eCONNECTION_NONE)));
    EXPECT_TRUE(m_stage.gets("200"));
    m_stage.send("ACK", InCallStage::kUnusableSdp);
    byeFromUs();
}

TEST_F(InCallFlow, OfferInAReliableResponseIsAnsweredInThePrack)
{
    m_stage.bringTo("PROGRESSING_WITH_SDP_OFFER");
    EXPECT_TRUE(hasSdp(m_stage.lastResponse()));
    EXPECT_EQ(SipTestPeer::header(m_stage.lastResponse(), "Require"), "100rel");
    EXPECT_TRUE(m_stage.feed(InviteAcceptedEvent(eRING_WITHOUT_EARLY_MEDIA)));
    EXPECT_EQ(m_stage.queueSize(), 1U) << "until the early dialog stands";
    m_stage.send("PRACK",
                 InCallStage::kOffer,
                 "RAck: " + SipTestPeer::header(m_stage.lastResponse(), "RSeq") + " 1 INVITE\r\n");
    EXPECT_TRUE(m_stage.gets("200", "CSeq", "2 PRACK"));
    EXPECT_TRUE(m_stage.waitFor("ACCEPTING"));
    EXPECT_TRUE(m_stage.feed(RemoteConnEvent(Call::eCONNECTION_NONE)));
    EXPECT_TRUE(m_stage.gets("200", "CSeq", "1 INVITE"));
    m_stage.send("ACK");
    EXPECT_TRUE(m_stage.waitFor("CONNECTED::iConnected"));
    byeFromCaller();
}

TEST_F(InCallFlow, HungUpBeforeTheAckItSendsByeAfterIt)
{
    m_stage.bringTo("ANSWERING");
    EXPECT_TRUE(m_stage.feed(eAPI_HANGUP));
    EXPECT_EQ(m_stage.stateAfterEvent(), "DISCONNECTING PENDING CONNECTION");
    m_stage.send("ACK");
    EXPECT_TRUE(m_stage.waitFor("DISCONNECTING"));
    byeFromUs();
}

TEST_F(InCallFlow, AnUnansweredByeEndsByTheStatesTimer)
{
    m_stage.bringTo("DISCONNECTING");
    EXPECT_FALSE(m_stage.receive("BYE").empty());
    EXPECT_TRUE(m_stage.waitFor("IDLE"));
    EXPECT_TRUE(m_stage.waitForTold("gone"));
}

TEST_F(InCallFlow, AByeAnsweredWith481EndsTheCall)
{
    m_stage.bringTo("DISCONNECTING");
    const std::string strBye = m_stage.receive("BYE");
    m_stage.answer(strBye, "481 Call/Transaction Does Not Exist");
    EXPECT_TRUE(m_stage.waitFor("IDLE"));
}

TEST_F(InCallFlow, ReinvitesAreAnsweredAndTheMediaFollow)
{
    m_stage.bringTo("CONNECTED::iConnected");
    m_stage.send("INVITE", InCallStage::kOffer);
    EXPECT_TRUE(hasSdp(m_stage.receive("200")));
    m_stage.send("ACK");
    EXPECT_TRUE(m_stage.waitFor("CONNECTED::iConnected"));

    std::string strHold = InCallStage::kOffer;
    strHold.replace(strHold.find("sendrecv"), 8, "inactive");
    m_stage.send("INVITE", strHold);
    const std::string strHeld = m_stage.receive("200");
    EXPECT_NE(strHeld.find("a=inactive"), std::string::npos);
    m_stage.send("ACK");
    EXPECT_TRUE(m_stage.running().media().waitForRequests("stop", 2));
    EXPECT_TRUE(m_stage.waitFor("CONNECTED::iConnected"));

    m_stage.send("INVITE", InCallStage::kUnusableSdp);
    EXPECT_TRUE(m_stage.gets("488"));
    m_stage.send("ACK");
    EXPECT_EQ(m_stage.state(), "CONNECTED::iConnected") << "a refused offer changes nothing";

    m_stage.send("INVITE", InCallStage::kOffer + "m=audio 40010 RTP/AVP 0\r\na=rtpmap:0 PCMU/8000\r\n");
    EXPECT_TRUE(m_stage.gets("488")) << "a further stream";
    m_stage.send("ACK");

    m_stage.send("INVITE", InCallStage::kOffer);
    const std::string strResumed = m_stage.receive("200");
    EXPECT_NE(strResumed.find("a=sendrecv"), std::string::npos);
    m_stage.send("ACK");
    EXPECT_TRUE(m_stage.running().media().waitForRequests("start", 4));
    EXPECT_TRUE(m_stage.waitFor("CONNECTED::iConnected"));

    m_stage.send("INVITE");
    EXPECT_TRUE(hasSdp(m_stage.receive("200"))) << "an offer of ours";
    m_stage.send("ACK", InCallStage::kOffer);
    EXPECT_TRUE(m_stage.waitFor("CONNECTED::iConnected"));
    byeFromCaller();
}

TEST_F(InCallFlow, AReinviteDuringMediaSetUpIsAnsweredAfterIt)
{
    m_stage.bringTo("CONNECTED::iMediaSetup");
    m_stage.send("INVITE", InCallStage::kOffer);
    const auto started = [](MediaEndpointCallback& io_callback)
    {
        for (const auto direction : {MediaEndpoint::RX_DIRECTION, MediaEndpoint::TX_DIRECTION})
        {
            io_callback.configureStatus(direction, MediaEndpointCallback::SUCCESS_STATUS);
            io_callback.startStatus(direction, MediaEndpointCallback::SUCCESS_STATUS);
        }
    };
    EXPECT_FALSE(m_stage.receive("100").empty());
    m_stage.answerMedia(true);
    m_stage.running().media().report(1, started);
    EXPECT_TRUE(hasSdp(m_stage.receive("200")));
    m_stage.send("ACK");
    EXPECT_TRUE(m_stage.waitFor("CONNECTED::iConnected"));
    byeFromCaller();
}

TEST_F(InCallFlow, RequestsThatWaitedAreAnsweredWhenTheCallEnds)
{
    m_stage.bringTo("CONNECTED::iMediaSetup");
    m_stage.send("REFER", "", "Refer-To: <sip:other@127.0.0.1>\r\n");
    EXPECT_TRUE(m_stage.waitForSubQueue(1));
    EXPECT_TRUE(m_stage.feed(eTERMINATED_UPON_TIMEOUT));
    EXPECT_EQ(m_stage.stateAfterEvent(), "IDLE");
    EXPECT_TRUE(m_stage.gets("500")) << "the REFER's transaction is let go";
}

TEST_F(InCallFlow, TransfersReportTheirProgressToTheFarEnd)
{
    m_stage.bringTo("CONNECTED::iConnected");
    m_stage.send("REFER", "", "Refer-To: <sip:other@127.0.0.1>\r\nReferred-By: <sip:boss@127.0.0.1>\r\n");
    EXPECT_TRUE(m_stage.gets("202"));
    const auto notified = [this](const std::string& in_strFragment, const std::string& in_strState)
    {
        const std::string strNotify = m_stage.receive("NOTIFY");
        ASSERT_FALSE(strNotify.empty());
        EXPECT_NE(strNotify.find("\r\n\r\nSIP/2.0 " + in_strFragment), std::string::npos) << strNotify;
        EXPECT_EQ(SipTestPeer::header(strNotify, "Subscription-State").substr(0, in_strState.size()),
                  in_strState);
        m_stage.answer(strNotify, "200 OK");
    };
    notified("100", "active");
    EXPECT_TRUE(m_stage.waitFor("CONNECTED::iTransfering"));
    m_stage.send("INVITE", InCallStage::kOffer);
    EXPECT_TRUE(m_stage.gets("491"));
    m_stage.send("ACK");
    EXPECT_TRUE(m_stage.feed(TransferAcceptedEvent(eRING_WITHOUT_EARLY_MEDIA)));
    notified("180", "active");
    EXPECT_TRUE(m_stage.feed(TransferFailureEvent(eBUSY_FAILURE)));
    notified("486", "terminated");
    EXPECT_TRUE(m_stage.waitFor("CONNECTED::iConnected")) << "the call survives a failed transfer";

    m_stage.send("REFER", "", "Refer-To: <sip:other@127.0.0.1>\r\n");
    EXPECT_TRUE(m_stage.gets("202"));
    notified("100", "active");
    EXPECT_TRUE(m_stage.feed(eAPI_TRANSFER_SUCCESS));
    notified("200", "terminated");
    EXPECT_EQ(m_stage.stateAfterEvent(), "CONNECTED::iTransfered");
    m_stage.send("INVITE", InCallStage::kOffer);
    EXPECT_TRUE(m_stage.gets("488"));
    m_stage.send("ACK");
    hangUp();
}

TEST_F(InCallFlow, AReferThatNamesNothingLeavesTheCallAsItWas)
{
    m_stage.bringTo("CONNECTED::iConnected");
    m_stage.send("REFER");
    EXPECT_TRUE(m_stage.gets("400"));
    EXPECT_TRUE(m_stage.waitFor("CONNECTED::iConnected"));
    EXPECT_EQ(m_stage.told(), Told());
    byeFromCaller();
}

TEST_F(InCallFlow, InATransferTheHangUpWins)
{
    m_stage.bringTo("CONNECTED::iTransfering");
    m_stage.answerMedia(false);
    EXPECT_TRUE(m_stage.feed(VoipOpStatusMediaEvent(
        0, MediaEndpoint::RX_DIRECTION, MediaOpType::eSTOP, MediaEndpointCallback::RESOURCE_STATUS)));
    EXPECT_EQ(m_stage.stateAfterEvent(), "DISCONNECTING");
    EXPECT_TRUE(m_stage.waitForTold("disconnected"));
    byeFromUs();
}

TEST_F(InCallFlow, InfoGoesBothWays)
{
    m_stage.bringTo("ANSWERING");
    EXPECT_TRUE(m_stage.feed(SendInfoMsgEvent({Parameter("X-Early", "1"), Parameter("body", "early")})));
    EXPECT_EQ(m_stage.queueSize(), 1U) << "until the call is connected";
    m_stage.send("ACK");
    const std::string strInfo = m_stage.receive("INFO");
    EXPECT_EQ(SipTestPeer::header(strInfo, "X-Early"), "1");
    EXPECT_NE(strInfo.find("\r\n\r\nearly"), std::string::npos);
    m_stage.answer(strInfo, "200 OK");
    m_stage.send("INFO", "", "X-Thing: 7\r\n");
    EXPECT_TRUE(m_stage.gets("200"));
    EXPECT_TRUE(m_stage.waitForTold("info"));
    EXPECT_FALSE(m_stage.feed(SendInfoMsgEvent({Parameter("X-Number", 5)}))) << "only texts can be sent";
    byeFromCaller();
}

TEST_F(InCallFlow, AFailedMediaStartEndsTheCallWithBye)
{
    m_stage.bringTo("CONNECTED::iMediaSetup");
    m_stage.running().media().report(
        1,
        [](MediaEndpointCallback& io_callback)
        { io_callback.startStatus(MediaEndpoint::RX_DIRECTION, MediaEndpointCallback::RESOURCE_STATUS); });
    EXPECT_TRUE(m_stage.waitForTold("disconnected"));
    byeFromUs();
    EXPECT_EQ(m_stage.told(), (Told{"disconnected", "gone"}));
}

TEST_F(InCallFlow, StopEndsEveryCallInOrder)
{
    m_stage.bringTo("CONNECTED::iConnected");
    EXPECT_TRUE(m_stage.running().netIf().stop());
    const std::string strBye = m_stage.receive("BYE");
    ASSERT_FALSE(strBye.empty());
    m_stage.answer(strBye, "200 OK");
    EXPECT_TRUE(m_stage.running().probe().waitForState(Task::STOPPED_STATE));
    EXPECT_TRUE(m_stage.running().netIf().start());
    EXPECT_TRUE(m_stage.running().probe().waitForState(Task::RUNNING_STATE));
}

}  // namespace
}  // namespace Quorvex::Test
