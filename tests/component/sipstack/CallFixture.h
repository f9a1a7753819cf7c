#pragma once

#include <gtest/gtest.h>

#include "RawPeer.h"
#include "TestAgent.h"

namespace Quorvex
{

/// A peer on the wire that calls a stack.
class CallFixture : public testing::Test
{
protected:
    explicit CallFixture(const DsSipStackConfig& in_config = TestAgent::defaults())
        : m_agent(in_config), m_peer(m_agent.port())
    {
    }

    Reports& reports() { return m_agent.reports(); }

    Report invite()
    {
        m_peer.sendRequest("INVITE", kSdp);
        return reports().expect("called");
    }

    /// An answered and confirmed call.
    Report establish()
    {
        const Report called = invite();
        called.m_hIn->answer(TestAgent::response(200, called.request(), kSdp));
        m_peer.learn(m_peer.expect("SIP/2.0 200"));
        m_peer.sendRequest("ACK");
        return reports().expect("callConfirmed");
    }

    /// Ends the call from the wire's side.
    void bye()
    {
        m_peer.sendRequest("BYE");
        const Report report = reports().expect("terminated");
        report.m_hIn->respondToBye(TestAgent::response(200, report.request()));
        m_peer.expect("SIP/2.0 200");
    }

    void expectEnd()
    {
        EXPECT_TRUE(reports().empty());
        m_agent.expectEmpty();
    }

    TestAgent m_agent;
    RawPeer m_peer;
};

}  // namespace Quorvex
