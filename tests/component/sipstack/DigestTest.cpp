// Challenges: calls and requests outside calls are sent again with credentials, once for each nonce.

#include <gtest/gtest.h>

#include <future>

#include "RawPeer.h"
#include "TestAgent.h"
#include "sipstack/DsException.h"
#include "sipstack/DsSipClientTransaction.h"

namespace Quorvex
{
namespace
{

const char* const kChallenge = "WWW-Authenticate: Digest realm=\"far\", nonce=\"n1\", qop=\"auth\"\r\n";

DsSipStackConfig withCredentials()
{
    DsSipStackConfig config = TestAgent::defaults();
    config.m_vCredentials = {
        {"far", "gw", "secret"}
    };
    return config;
}

class DigestTest : public testing::Test
{
protected:
    DigestTest() : m_agent(withCredentials()), m_peer(m_agent.port()) {}

    std::string target() const { return "sip:far@127.0.0.1:" + std::to_string(m_peer.port()); }

    DsHandle<DsSipRequest> registration() const
    {
        const auto request = DsSipRequest::create("REGISTER", target());
        request->addHeader("From", "<sip:gw@far>");
        request->addHeader("To", "<sip:gw@far>");
        request->addHeader("Contact", "<sip:gw@127.0.0.1:" + std::to_string(m_agent.port()) + ">");
        request->addHeader("Expires", "60");
        return request;
    }

    TestAgent m_agent;
    RawPeer m_peer;
};

TEST_F(DigestTest, ChallengedInviteIsSentAgainInTheSameCall)
{
    {
        const auto call = m_agent.call(target());
        const std::string first = m_peer.expect("INVITE");
        m_peer.respond(first, "401 Unauthorized", kChallenge);
        m_peer.expect("ACK");
        const std::string second = m_peer.expect("INVITE");
        EXPECT_EQ(RawPeer::header(second, "Call-ID"), RawPeer::header(first, "Call-ID"));
        EXPECT_EQ(RawPeer::header(second, "From"), RawPeer::header(first, "From"));
        EXPECT_EQ(RawPeer::header(second, "CSeq"), "2 INVITE");
        EXPECT_NE(RawPeer::header(second, "Authorization").find("username=\"gw\""), std::string::npos);
        m_peer.respond(second, "200 OK", "Contact: <" + target() + ">\r\n");
        m_agent.reports().expect("succeeded").m_hDialog->ack();
        // RFC 3261 13.2.2.4: the ACK has the INVITE's credentials.
        const std::string ack = m_peer.expect("ACK");
        EXPECT_EQ(RawPeer::header(ack, "CSeq"), "2 ACK");
        EXPECT_EQ(RawPeer::header(ack, "Authorization"), RawPeer::header(second, "Authorization"));
        call->hangup();
        const std::string bye = m_peer.expect("BYE");
        EXPECT_EQ(RawPeer::header(bye, "CSeq"), "3 BYE");
        m_peer.respond(bye,
                       "407 Proxy Authentication Required",
                       "Proxy-Authenticate: Digest realm=\"far\", nonce=\"n2\"\r\n");
        const std::string again = m_peer.expect("BYE");
        EXPECT_FALSE(RawPeer::header(again, "Proxy-Authorization").empty());
        m_peer.respond(again, "200 OK");
        EXPECT_EQ(m_agent.reports().expect("dialogTerminated").response()->getStatusCode(), 200U);
        m_agent.reports().expect("terminated");
    }
    m_agent.expectEmpty();
}

TEST_F(DigestTest, RefusedCredentialsEndTheCall)
{
    {
        const auto call = m_agent.call(target());
        m_peer.respond(m_peer.expect("INVITE"), "401 Unauthorized", kChallenge);
        m_peer.respond(m_peer.expect("INVITE"), "401 Unauthorized", kChallenge);
        EXPECT_EQ(m_agent.reports().expect("failedToConnect").response()->getStatusCode(), 401U);
        EXPECT_TRUE(m_agent.reports().expect("dialogTerminated").m_hMessage.isNil());
        m_agent.reports().expect("terminated");
    }
    m_agent.expectEmpty();
}

TEST_F(DigestTest, RegisterIsAnsweredAfterItsChallenge)
{
    std::promise<DsHandle<DsSipResponse>> promise;
    const auto transaction = DsSipClientTransaction::send(
        registration(),
        [&](const DsHandle<DsSipResponse>& in_hResponse) { promise.set_value(in_hResponse); },
        &m_agent.stack());
    const std::string first = m_peer.expect("REGISTER");
    m_peer.respond(first, "401 Unauthorized", kChallenge);
    const std::string second = m_peer.expect("REGISTER");
    EXPECT_EQ(RawPeer::header(second, "Call-ID"), RawPeer::header(first, "Call-ID"));
    EXPECT_EQ(RawPeer::header(second, "CSeq"), "2 REGISTER");
    EXPECT_FALSE(RawPeer::header(second, "Authorization").empty());
    m_peer.respond(second, "200 OK", "X-Far: yes\r\n");
    auto answer = promise.get_future();
    ASSERT_EQ(answer.wait_for(std::chrono::seconds(5)), std::future_status::ready);
    const auto response = answer.get();
    ASSERT_FALSE(response.isNil());
    EXPECT_EQ(response->getHeaderValue("X-Far"), "yes");
}

TEST_F(DigestTest, RequestWithoutAnAnswerAndAnAbandonedOne)
{
    std::promise<bool> promise;
    const auto transaction = DsSipClientTransaction::send(
        registration(),
        [&](const DsHandle<DsSipResponse>& in_hResponse) { promise.set_value(in_hResponse.isNil()); },
        &m_agent.stack());
    DsSipClientTransaction::send(
        registration(),
        [](const DsHandle<DsSipResponse>&) { ADD_FAILURE() << "reported after it was dropped"; },
        &m_agent.stack())
        .reset();
    auto none = promise.get_future();
    ASSERT_EQ(none.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_TRUE(none.get());
    m_agent.stack().ping(1000);
    EXPECT_EQ(m_agent.stack().getStatistics().m_ulClientTransactions, 0U);
}

}  // namespace
}  // namespace Quorvex
