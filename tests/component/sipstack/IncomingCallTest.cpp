// Calls that a far end on the wire places, seen from the layer's user: what is reported, what goes out, what
// is left.

#include <gtest/gtest.h>

#include <thread>

#include "CallFixture.h"
#include "sipstack/DsException.h"

namespace Quorvex
{
namespace
{

using namespace std::chrono_literals;

using IncomingCallTest = CallFixture;

TEST_F(IncomingCallTest, AnsweredCallEndedByTheCaller)
{
    {
        const Report called = invite();
        EXPECT_EQ(called.m_hMessage->getBody(), kSdp);
        EXPECT_EQ(called.m_hMessage->getSourceAddress().getPort(), m_peer.port());
        EXPECT_EQ(called.m_hMessage->getLocalAddress().getText(),
                  "127.0.0.1:" + std::to_string(m_agent.port()));
        EXPECT_EQ(called.m_hIn->getDialog()->getCallID(), m_peer.m_strCallId);

        called.m_hIn->answer(TestAgent::response(100, called.request()));
        EXPECT_TRUE(RawPeer::tagOf(RawPeer::header(m_peer.expect("SIP/2.0 100"), "To")).empty());
        called.m_hIn->answer(TestAgent::response(180, called.request()));
        const std::string ringing = m_peer.expect("SIP/2.0 180");
        const auto answer = TestAgent::response(200, called.request(), kSdp);
        answer->addHeader("X-Own", "kept as it is");
        called.m_hIn->answer(answer);
        const std::string ok = m_peer.expect("SIP/2.0 200 OK");
        EXPECT_EQ(RawPeer::header(ok, "To"), RawPeer::header(ringing, "To"));
        EXPECT_EQ(RawPeer::header(ok, "X-Own"), "kept as it is");
        EXPECT_EQ(RawPeer::header(ok, "Content-Type"), "application/sdp");
        EXPECT_EQ(RawPeer::header(ok, "Contact"),
                  "<sip:gateway@127.0.0.1:" + std::to_string(m_agent.port()) + ">");
        EXPECT_EQ(RawPeer::headers(ok, "Via").size(), 1U);
        EXPECT_EQ(RawPeer::body(ok), kSdp);
        m_peer.learn(ok);
        m_peer.sendRequest("ACK");
        reports().expect("callConfirmed");

        m_peer.sendRequest("BYE");
        const Report bye = reports().expect("terminated");
        ASSERT_FALSE(bye.request().isNil());
        EXPECT_EQ(bye.request()->getMethod(), "BYE");
        bye.m_hIn->respondToBye(TestAgent::response(200, bye.request()));
        m_peer.expect("SIP/2.0 200");
        m_agent.stack().ping(1000);
        // The call is over: what is asked for now is told so, and a hang-up is harmless.
        EXPECT_THROW(bye.m_hIn->answer(TestAgent::response(180, called.request())), DsException);
        EXPECT_THROW(bye.m_hIn->respondToBye(TestAgent::response(200, bye.request())), DsException);
        bye.m_hIn->hangup();
    }
    expectEnd();
}

TEST_F(IncomingCallTest, AnAckOfAnotherDialogConfirmsNothing)
{
    {
        const Report called = invite();
        called.m_hIn->answer(TestAgent::response(200, called.request()));
        const std::string ok = m_peer.expect("SIP/2.0 200");
        m_peer.learn(ok);
        const std::string fromTag = m_peer.m_strFromTag;
        const std::string toTag = m_peer.m_strToTag;
        for (const bool bInTransaction : {false, true})
        {
            m_peer.m_bAckInTransaction = bInTransaction;
            for (const char* szTag : {"another", ""})
            {
                m_peer.m_strToTag = szTag;
                m_peer.sendRequest("ACK");
            }
            m_peer.m_strToTag = toTag;
            m_peer.m_strFromTag = "another";
            m_peer.sendRequest("ACK");
            m_peer.m_strFromTag = fromTag;
        }
        // The answer is still without its ACK.
        m_peer.expect("SIP/2.0 200");
        EXPECT_TRUE(reports().empty());
        m_peer.sendRequest("ACK");
        reports().expect("callConfirmed").m_hIn->hangup();
        m_peer.respond(m_peer.expect("BYE"), "200 OK");
        reports().expect("terminated");
    }
    expectEnd();
}

TEST_F(IncomingCallTest, AByeThatOvertakesTheAckLeavesNothing)
{
    {
        const Report called = invite();
        called.m_hIn->answer(TestAgent::response(200, called.request()));
        m_peer.learn(m_peer.expect("SIP/2.0 200"));
        m_peer.sendRequest("BYE");
        const Report bye = reports().expect("terminated");
        bye.m_hIn->respondToBye(TestAgent::response(200, bye.request()));
        m_peer.sendRequest("ACK");
        while (m_peer.receive(200ms))
        {
            // What was sent before the ACK came.
        }
        m_peer.expectNone("SIP/2.0 200", 700ms);
    }
    expectEnd();
}

TEST_F(IncomingCallTest, MissingAckEndsTheCallWithBye)
{
    {
        const Report called = invite();
        called.m_hIn->answer(TestAgent::response(200, called.request()));
        const std::string bye = m_peer.expect("BYE", 10s);
        EXPECT_TRUE(reports().expect("terminated").m_hMessage.isNil());
        m_peer.respond(bye, "200 OK");
    }
    expectEnd();
}

// ---- requests that belong to no call
// ------------------------------------------------------------------------------

struct Stray
{
    const char* m_szName;
    const char* m_szMethod;
    const char* m_szExtra;
    bool m_bToTag;
    const char* m_szExpected;
};

class StrayTest : public IncomingCallTest, public testing::WithParamInterface<Stray>
{
};

TEST_P(StrayTest, IsAnsweredByTheLayer)
{
    m_peer.m_strToTag = GetParam().m_bToTag ? "nobody" : "";
    m_peer.m_strExtra = GetParam().m_szExtra;
    m_peer.sendRequest(GetParam().m_szMethod);
    m_peer.expect(GetParam().m_szExpected);
    expectEnd();
}

INSTANTIATE_TEST_SUITE_P(
    Strays,
    StrayTest,
    testing::Values(Stray{"ByeWithoutDialog", "BYE", "", true, "SIP/2.0 481"},
                    Stray{"InviteWithoutDialog", "INVITE", "", true, "SIP/2.0 481"},
                    Stray{"CancelOfNothing", "CANCEL", "", false, "SIP/2.0 481"},
                    Stray{"Info", "INFO", "", false, "SIP/2.0 481"},
                    Stray{"Notify", "NOTIFY", "", false, "SIP/2.0 481"},
                    Stray{"Prack", "PRACK", "", false, "SIP/2.0 481"},
                    Stray{"Update", "UPDATE", "", false, "SIP/2.0 481"},
                    Stray{"Message", "MESSAGE", "", false, "SIP/2.0 405"},
                    Stray{"Refer", "REFER", "", false, "SIP/2.0 405"},
                    Stray{"Unheard", "FROBNICATE", "", false, "SIP/2.0 405"},
                    Stray{"RequiresUnknown", "INVITE", "Require: 100rel, teleport\r\n", false, "SIP/2.0 420"},
                    Stray{"BadCSeq", "OPTIONS", "CSeq: x OPTIONS\r\n", false, "SIP/2.0 400"}),
    [](const auto& in_info) { return in_info.param.m_szName; });

TEST_F(IncomingCallTest, OptionsTellsTheCapabilitiesUntilTheStackDrains)
{
    m_peer.sendRequest("OPTIONS");
    const std::string ok = m_peer.expect("SIP/2.0 200");
    EXPECT_EQ(RawPeer::header(ok, "Allow"), "INVITE, ACK, BYE, CANCEL, NOTIFY, INFO, OPTIONS, REFER");
    EXPECT_EQ(RawPeer::header(ok, "Accept"), "application/sdp");
    EXPECT_EQ(RawPeer::header(ok, "Server"), "quorvex");
    m_agent.stack().drain();
    m_peer.sendRequest("OPTIONS");
    EXPECT_FALSE(RawPeer::header(m_peer.expect("SIP/2.0 503"), "Retry-After").empty());
    m_peer.sendRequest("INVITE", kSdp);
    m_peer.expect("SIP/2.0 503");
    expectEnd();
}

TEST_F(IncomingCallTest, InviteWithoutContactIsRefusedWithTheReason)
{
    std::string text = m_peer.request("INVITE", kSdp);
    const std::size_t at = text.find("Contact:");
    text.erase(at, text.find("\r\n", at) + 2 - at);
    m_peer.send(text);
    m_peer.expect("SIP/2.0 400 Missing Contact Header");
    expectEnd();
}

// RFC 2543: no branch with a cookie, no tag, and the From header is where the far end is.
TEST_F(IncomingCallTest, InviteOfTheOldStandardNeedsNoContact)
{
    const std::string me = "127.0.0.1:" + std::to_string(m_peer.port());
    const std::string headers = "Via: SIP/2.0/UDP " + me + "\r\nFrom: <sip:old@" + me + ">\r\nCall-ID: old-" +
                                std::to_string(m_peer.port()) + "\r\nTo: <sip:b@127.0.0.1>";
    m_peer.send("INVITE sip:b@127.0.0.1 SIP/2.0\r\n" + headers + "\r\nCSeq: 56 INVITE\r\n\r\n");
    {
        const Report called = reports().expect("called");
        called.m_hIn->answer(TestAgent::response(200, called.request(), kSdp));
        const std::string tag = RawPeer::tagOf(RawPeer::header(m_peer.expect("SIP/2.0 200"), "To"));
        m_peer.send("ACK sip:b@127.0.0.1 SIP/2.0\r\n" + headers + ";tag=" + tag + "\r\nCSeq: 56 ACK\r\n\r\n");
        reports().expect("callConfirmed");
        called.m_hIn->hangup();
        m_peer.respond(m_peer.expect("BYE sip:old@" + me + " SIP/2.0"), "200 OK");
        reports().expect("terminated");
    }
    expectEnd();
}

TEST_F(IncomingCallTest, MergedInviteIsRefused)
{
    const Report called = invite();
    m_peer.m_uiCSeq = m_peer.m_uiInviteCSeq;
    m_peer.sendRequest("INVITE", kSdp);
    m_peer.expect("SIP/2.0 482");
    called.m_hIn->hangup();
    reports().expect("terminated");
}

}  // namespace
}  // namespace Quorvex
