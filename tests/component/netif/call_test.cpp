// Whole calls over the loopback: a bare SIP peer on one side, the scripted engines on the other.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "LogCapture.h"
#include "NetIfFixture.h"

using namespace Quorvex;
using namespace Quorvex::Test;

namespace
{

class CallTest : public testing::Test
{
protected:
    void TearDown() override
    {
        Logging::setRootLevel(eINFO_LEVEL);
        expectAccountsEmpty();
    }

    /// Answers every call as a person would: rings, then answers.
    static void answer(ScriptedCall& io_call, const std::string& in_strWhat)
    {
        if (in_strWhat == "invite")
        {
            EXPECT_TRUE(io_call.getLeg()->inviteAccepted(eRING_WITHOUT_EARLY_MEDIA));
            EXPECT_TRUE(io_call.getLeg()->remoteConnected(Call::eCONNECTION_NONE));
        }
        if (in_strWhat == "gone")
        {
            io_call.deleteLeg();
        }
    }
};

}  // namespace

TEST_F(CallTest, AnsweredAndEndedByTheCaller)
{
    RunningNetIf running;
    running.engine().setScript(&CallTest::answer);
    SipTestPeer peer;
    SipTestCall call(peer, running.getPort(), "caller-ends");
    call.invite();
    EXPECT_FALSE(peer.receive("100").empty());
    EXPECT_FALSE(peer.receive("180").empty());
    const std::string strOk = peer.receive("200");
    ASSERT_FALSE(strOk.empty());
    EXPECT_NE(strOk.find("m=audio "), std::string::npos);
    call.ack(strOk);
    EXPECT_TRUE(running.media().waitForRequests("start", 2)) << "both directions";
    call.request("BYE");
    EXPECT_FALSE(peer.receive("200").empty());
    EXPECT_TRUE(running.engine().waitForTold("gone"));
    EXPECT_EQ(running.engine().getTold(),
              (std::vector<std::string>{"newInCall", "invite", "disconnected", "gone"}));
    EXPECT_TRUE(running.probe().waitUntilEmpty());
    EXPECT_TRUE(running.stop());
}

TEST_F(CallTest, EndedByTheCallEngine)
{
    RunningNetIf running;
    ScriptedCall* pCall = nullptr;
    running.engine().setScript(
        [&](ScriptedCall& io_call, const std::string& in_strWhat)
        {
            pCall = &io_call;
            answer(io_call, in_strWhat);
        });
    SipTestPeer peer;
    SipTestCall call(peer, running.getPort(), "engine-ends");
    call.invite();
    const std::string strOk = peer.receive("200");
    ASSERT_FALSE(strOk.empty());
    call.ack(strOk);
    ASSERT_TRUE(running.media().waitForRequests("start", 2));
    running.engine().run([&] { EXPECT_TRUE(pCall->getLeg()->hangup()); });
    const std::string strBye = peer.receive("BYE");
    ASSERT_FALSE(strBye.empty());
    call.respond(strBye, "200 OK");
    EXPECT_TRUE(running.engine().waitForTold("gone"));
    EXPECT_TRUE(running.probe().waitUntilEmpty());
    EXPECT_TRUE(running.stop());
}

TEST_F(CallTest, CancelledBeforeTheAnswer)
{
    RunningNetIf running;
    running.engine().setScript(
        [](ScriptedCall& io_call, const std::string& in_strWhat)
        {
            if (in_strWhat == "invite")
            {
                EXPECT_TRUE(io_call.getLeg()->inviteAccepted(eRING_WITHOUT_EARLY_MEDIA));
            }
            if (in_strWhat == "gone")
            {
                io_call.deleteLeg();
            }
        });
    SipTestPeer peer;
    SipTestCall call(peer, running.getPort(), "cancelled");
    call.invite();
    ASSERT_FALSE(peer.receive("180").empty());
    call.cancel();
    const std::string strTerminated = peer.receive("487");
    ASSERT_FALSE(strTerminated.empty());
    call.ack(strTerminated);
    EXPECT_TRUE(running.engine().waitForTold("gone"));
    EXPECT_EQ(running.engine().getTold(),
              (std::vector<std::string>{"newInCall", "invite", "disconnected", "gone"}));
    EXPECT_TRUE(running.probe().waitUntilEmpty());
    EXPECT_TRUE(running.stop());
}

TEST_F(CallTest, RefusedByTheCallEngineAtOnceOrByVerdict)
{
    struct Case
    {
        const char* m_szName;
        bool m_bAccept;
        ConnectionFailureEnum m_verdict;
        const char* m_szStatus;
    };
    const std::vector<Case> vCases = {
        {"invitation refused", false, eNO_FAILURE,             "500"},
        {"busy",               true,  eBUSY_FAILURE,           "486"},
        {"unknown number",     true,  eINVALID_NUMBER_FAILURE, "404"},
    };
    RunningNetIf running;
    SipTestPeer peer;
    std::size_t gone = 0;
    for (const Case& testCase : vCases)
    {
        SCOPED_TRACE(testCase.m_szName);
        running.engine().acceptInvitations(testCase.m_bAccept);
        running.engine().setScript(
            [&testCase](ScriptedCall& io_call, const std::string& in_strWhat)
            {
                if (in_strWhat == "invite" && testCase.m_bAccept)
                {
                    EXPECT_TRUE(io_call.getLeg()->inviteRejected(testCase.m_verdict));
                }
                if (in_strWhat == "gone")
                {
                    io_call.deleteLeg();
                }
            });
        SipTestCall call(peer, running.getPort(), "refused-" + std::to_string(gone));
        call.invite();
        const std::string strRefusal = peer.receive(testCase.m_szStatus);
        ASSERT_FALSE(strRefusal.empty());
        call.ack(strRefusal);
        EXPECT_TRUE(running.engine().waitForTold("gone", ++gone));
        EXPECT_TRUE(running.probe().waitUntilEmpty());
    }
    EXPECT_TRUE(running.stop());
}

TEST_F(CallTest, StopEndsCallsWithByeAndRefusesNewOnes)
{
    RunningNetIf running;
    running.engine().setScript(&CallTest::answer);
    SipTestPeer peer;
    SipTestPeer latePeer;
    SipTestCall call(peer, running.getPort(), "stopped");
    call.invite();
    const std::string strOk = peer.receive("200");
    ASSERT_FALSE(strOk.empty());
    call.ack(strOk);
    ASSERT_TRUE(running.media().waitForRequests("start", 2));
    ASSERT_TRUE(running.netIf().stop());
    const std::string strBye = peer.receive("BYE");
    ASSERT_FALSE(strBye.empty());
    // The BYE is unanswered yet: the task is stopping, and a new call is turned away.
    SipTestCall late(latePeer, running.getPort(), "late");
    late.invite();
    const std::string strRefusal = latePeer.receive("503");
    EXPECT_FALSE(strRefusal.empty());
    late.ack(strRefusal);
    call.respond(strBye, "200 OK");
    EXPECT_TRUE(running.netIf().waitUntilDone());
    // The call engine never heard of the late one.
    EXPECT_TRUE(running.engine().waitForTold("gone", 1));
    EXPECT_EQ(running.engine().count("newInCall"), 1U);
}

TEST_F(CallTest, KillEndsCallsAtOnce)
{
    RunningNetIf running;
    running.engine().setScript(&CallTest::answer);
    SipTestPeer peer;
    SipTestCall call(peer, running.getPort(), "killed");
    call.invite();
    const std::string strOk = peer.receive("200");
    ASSERT_FALSE(strOk.empty());
    call.ack(strOk);
    ASSERT_TRUE(running.media().waitForRequests("start", 2));
    ASSERT_TRUE(running.netIf().kill());
    EXPECT_FALSE(peer.receive("BYE").empty());
    EXPECT_TRUE(running.netIf().waitUntilDone());
    EXPECT_TRUE(running.engine().waitForTold("gone"));
}

TEST_F(CallTest, ManyCallsOneAfterAnotherUseFewMachines)
{
    RunningNetIf running;
    running.engine().setScript(&CallTest::answer);
    SipTestPeer peer;
    constexpr unsigned kCalls = 100;
    for (unsigned ui = 0; ui < kCalls; ++ui)
    {
        SipTestCall call(peer, running.getPort(), "many-" + std::to_string(ui));
        call.invite();
        const std::string strOk = peer.receive("200");
        ASSERT_FALSE(strOk.empty());
        call.ack(strOk);
        call.request("BYE");
        ASSERT_FALSE(peer.receive("200").empty());
        ASSERT_TRUE(running.engine().waitForTold("gone", ui + 1));
    }
    EXPECT_TRUE(running.probe().waitUntilEmpty());
    EXPECT_LE(running.probe().getPopulation().m_freeIn, 3U);
    EXPECT_TRUE(running.stop());
}
