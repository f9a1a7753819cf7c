// Session timers (RFC 4028): who refreshes, with what, and what happens when nobody does. Intervals of a few
// seconds.

#include <gtest/gtest.h>

#include "RawPeer.h"
#include "TestAgent.h"

namespace Quorvex
{
namespace
{

using namespace std::chrono_literals;

DsSipStackConfig withSessions(unsigned int in_uiInterval)
{
    DsSipStackConfig config = TestAgent::defaults();
    config.m_uiMinSES = 2;
    config.m_uiSessionExpiresS = in_uiInterval;
    return config;
}

class SessionTimerTest : public testing::Test
{
protected:
    explicit SessionTimerTest(unsigned int in_uiInterval = 0)
        : m_agent(withSessions(in_uiInterval)), m_peer(m_agent.port())
    {
    }

    Reports& reports() { return m_agent.reports(); }
    std::string target() const { return "sip:far@127.0.0.1:" + std::to_string(m_peer.port()); }

    // An answered call whose INVITE had these header lines; the 200.
    std::string establish(const std::string& in_strHeaders)
    {
        m_peer.m_strExtra = in_strHeaders;
        m_peer.sendRequest("INVITE", kSdp);
        const Report called = reports().expect("called");
        called.m_hIn->answer(TestAgent::response(200, called.request(), kSdp));
        const std::string ok = m_peer.expect("SIP/2.0 200");
        m_peer.learn(ok);
        m_peer.sendRequest("ACK");
        m_call = reports().expect("callConfirmed");
        return ok;
    }

    void hangup()
    {
        m_call.m_hIn->hangup();
        m_peer.respond(m_peer.expect("BYE"), "200 OK");
        reports().expect("terminated");
        m_call = Report();
    }

    void expectEnd()
    {
        EXPECT_TRUE(reports().empty());
        m_agent.expectEmpty();
    }

    TestAgent m_agent;
    RawPeer m_peer;
    Report m_call;
};

TEST_F(SessionTimerTest, IntervalBelowTheLeastIsRefused)
{
    m_peer.m_strExtra = "Supported: timer\r\nSession-Expires: 1\r\n";
    m_peer.sendRequest("INVITE", kSdp);
    EXPECT_EQ(RawPeer::header(m_peer.expect("SIP/2.0 422"), "Min-SE"), "2");
    expectEnd();
}

TEST_F(SessionTimerTest, WithoutATimerThereIsNone)
{
    EXPECT_TRUE(RawPeer::header(establish("Supported: timer\r\n"), "Session-Expires").empty());
    hangup();
    expectEnd();
}

TEST_F(SessionTimerTest, FarEndThatRefreshesKeepsTheCallAndOneThatStopsLosesIt)
{
    const std::string ok = establish("Supported: timer\r\nSession-Expires: 2\r\n");
    EXPECT_EQ(RawPeer::header(ok, "Session-Expires"), "2;refresher=uac");
    EXPECT_EQ(RawPeer::header(ok, "Require"), "timer");
    for (int i = 0; i < 2; ++i)
    {
        m_peer.expectNone("BYE", 900ms);
        m_peer.m_strExtra = "Supported: timer\r\nSession-Expires: 2;refresher=uac\r\n";
        m_peer.sendRequest("INVITE", kSdp);
        const Report request = reports().expect("reinviteRequest");
        request.m_hIn->respondToReinvite(TestAgent::response(200, request.request(), kSdp));
        EXPECT_EQ(RawPeer::header(m_peer.expect("SIP/2.0 200"), "Session-Expires"), "2;refresher=uac");
        m_peer.sendRequest("ACK");
        reports().expect("reinviteAck");
    }
    m_call = Report();
    reports().expect("onSessionTimeOut");
    EXPECT_TRUE(reports().expect("terminated").m_hMessage.isNil());
    m_peer.respond(m_peer.expect("BYE"), "200 OK");
    expectEnd();
}

TEST_F(SessionTimerTest, OurRefreshIsAReinviteWithTheLastSdp)
{
    EXPECT_EQ(RawPeer::header(establish("Supported: timer\r\nSession-Expires: 2;refresher=uas\r\n"),
                              "Session-Expires"),
              "2;refresher=uas");
    for (int i = 0; i < 2; ++i)
    {
        reports().expect("onSessionRefreshTime");
        const std::string invite = m_peer.expectNew("INVITE");
        EXPECT_EQ(RawPeer::header(invite, "Session-Expires"), "2;refresher=uac");
        EXPECT_EQ(RawPeer::body(invite), kSdp);
        EXPECT_FALSE(RawPeer::header(invite, "Contact").empty());
        m_peer.respond(invite, "200 OK", "Require: timer\r\nSession-Expires: 2;refresher=uac\r\n", kSdp);
        m_peer.expect("ACK");
    }
    hangup();
    expectEnd();
}

TEST_F(SessionTimerTest, OurRefreshIsAnUpdateWhereTheFarEndKnowsIt)
{
    establish("Supported: timer\r\nAllow: INVITE, ACK, BYE, UPDATE\r\nSession-Expires: 6;refresher=uas\r\n");
    reports().expect("onSessionRefreshTime");
    const std::string update = m_peer.expect("UPDATE");
    EXPECT_TRUE(RawPeer::body(update).empty());
    m_peer.respond(update, "200 OK", "Session-Expires: 6;refresher=uac\r\n");
    reports().expect("onSessionRefreshTime");
    m_call = Report();
    m_peer.respond(m_peer.expectNew("UPDATE"), "481 Gone");
    EXPECT_TRUE(reports().expect("terminated").m_hMessage.isNil());
    m_peer.respond(m_peer.expect("BYE"), "481 Gone");
    expectEnd();
}

class AskingSessionTimerTest : public SessionTimerTest
{
protected:
    AskingSessionTimerTest() : SessionTimerTest(2) {}
};

TEST_F(AskingSessionTimerTest, RefusedIntervalIsRaisedOnce)
{
    {
        const auto call = m_agent.call(target());
        const std::string first = m_peer.expect("INVITE");
        EXPECT_EQ(RawPeer::header(first, "Session-Expires"), "2");
        m_peer.respond(first, "422 Session Interval Too Small", "Min-SE: 3\r\n");
        const std::string second = m_peer.expectNew("INVITE");
        EXPECT_EQ(RawPeer::header(second, "Session-Expires"), "3");
        m_peer.respond(
            second,
            "200 OK",
            "Contact: <" + target() + ">\r\nRequire: timer\r\nSession-Expires: 3;refresher=uas\r\n",
            kSdp);
        reports().expect("succeeded").m_hDialog->ack();
        m_peer.expect("ACK");
        // They do not refresh.
        reports().expect("onSessionTimeOut");
        EXPECT_TRUE(reports().expect("dialogTerminated").m_hMessage.isNil());
        m_peer.respond(m_peer.expect("BYE"), "200 OK");
        reports().expect("terminated");
    }
    expectEnd();
}

TEST_F(AskingSessionTimerTest, FarEndWithoutTimersIsRefreshedByUs)
{
    {
        const auto call = m_agent.call(
            target(), [](DsSipInviteMessage& io_invite) { io_invite.setBody(kSdp, "application/sdp"); });
        m_peer.respond(m_peer.expect("INVITE"), "200 OK", "Contact: <" + target() + ">\r\n", kSdp);
        reports().expect("succeeded").m_hDialog->ack();
        m_peer.expect("ACK");
        reports().expect("onSessionRefreshTime");
        m_peer.respond(m_peer.expectNew("INVITE"), "200 OK", "", kSdp);
        m_peer.expect("ACK");
        call->hangup();
        m_peer.respond(m_peer.expect("BYE"), "200 OK");
        reports().expect("dialogTerminated");
        reports().expect("terminated");
    }
    expectEnd();
}

}  // namespace
}  // namespace Quorvex
