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
