#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "Callee.h"
#include "NetIfFixture.h"
#include "calleng/CallInfo.h"
#include "infra/Assertion.h"

namespace Quorvex::Test
{

/// Calls that the network interface places to callees on the loopback.
class OutboundTest : public testing::Test
{
protected:
    using Told = std::vector<std::string>;
    using Parameters = std::initializer_list<std::pair<const char*, ParameterValue>>;

    OutboundTest()
    {
        m_running.engine().setScript(
            [](ScriptedCall& io_call, const std::string& in_strWhat)
            {
                if (in_strWhat == "gone")
                {
                    io_call.deleteLeg();
                }
            });
    }

    /// Every call has ended, and left nothing behind.
    void TearDown() override
    {
        EXPECT_TRUE(m_running.probe().waitUntilEmpty());
        EXPECT_TRUE(m_running.stop());
        EXPECT_EQ(Assertion::failureCount(), m_uiAssertions);
        expectAccountsEmpty();
    }

    static CallLegInfo makeLeg(const std::string& in_strUri, Parameters in_more = {})
    {
        CallLegInfo leg;
        leg.setParameter("sip.out.requestUri", in_strUri);
        leg.setParameter("media.rtp.audio", "sendrecv");
        for (const auto& [szKey, value] : in_more)
        {
            leg.setParameter(szKey, value);
        }
        return leg;
    }

    /// Places a call; the object stays the engine's, for use on its thread.
    ScriptedCall*& place(const std::string& in_strCallId, const CallLegInfo& in_leg)
    {
        CallInfo info;
        info.addLeg(in_leg);
        return place(in_strCallId, info);
    }
    ScriptedCall*& place(const std::string& in_strCallId, const CallInfo& in_info)
    {
        engine().placeCall(m_running.netIf(),
                           in_strCallId,
                           [this, info = in_info](ScriptedCall& io_call)
                           {
                               m_pCall = &io_call;
                               EXPECT_TRUE(io_call.getOutLeg()->invite(info));
                           });
        return m_pCall;
    }
    /// Lets the engine hang up the call placed last.
    void hangup()
    {
        engine().run([this] { EXPECT_TRUE(m_pCall->getLeg()->hangup()); });
    }

    /// What the engine is told about a call up to the end of it.
    Told awaitEnd(const std::string& in_strCallId)
    {
        EXPECT_TRUE(engine().waitForTold("gone", ++m_uiEnded));
        return engine().getTold(in_strCallId);
    }

    ScriptedCallEngine& engine() { return m_running.engine(); }

    std::uint64_t m_uiAssertions = Assertion::failureCount();
    RunningNetIf m_running;
    ScriptedCall* m_pCall = nullptr;
    std::size_t m_uiEnded = 0;
};

}  // namespace Quorvex::Test
