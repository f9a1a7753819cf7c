// The registry: machines between acquire and release, what the machines of a call share, and the end of the
// task.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "InStateMachine.h"
#include "LogCapture.h"
#include "NetIfFixture.h"
#include "OutStateMachine.h"
#include "infra/Assertion.h"
#include "media/Media.h"
#include "media/MediaEndpoint.h"
#include "sipstack/DsSipIncomingCall.h"

using namespace Quorvex;
using namespace Quorvex::Test;

namespace
{

class RegistryTest : public testing::Test
{
protected:
    void SetUp() override { Logging::setRootLevel(eDEBUG_LEVEL); }
    void TearDown() override
    {
        Logging::setRootLevel(eINFO_LEVEL);
        expectAccountsEmpty();
    }
};

using DsCall = DsHandle<DsSipIncomingCall>;

}  // namespace

TEST_F(RegistryTest, MachineReturnsToItsPoolWithItsLastProxyAndIsUsedAgain)
{
    RunningNetIf running;
    const LogCapture log;
    InStateMachine* pFirst = nullptr;
    std::string strFirstCallId;
    for (int iRound = 0; iRound < 2; ++iRound)
    {
        DsCall hCall = running.probe().newInCall();
        ASSERT_FALSE(hCall.isNil());
        auto population = running.probe().getPopulation();
        EXPECT_EQ(population.m_activeIn, 1U);
        EXPECT_EQ(population.m_calls, 1U);
        EXPECT_EQ(population.m_freeIn, 0U);
        running.probe().run(
            [&]
            {
                InStateMachine* pMachine = running.probe().activeIn().begin()->second.get();
                EXPECT_STRNE(pMachine->getCallId(), strFirstCallId.c_str()) << "a call of its own";
                EXPECT_TRUE(pFirst == nullptr || pFirst == pMachine) << "the same machine again";
                pFirst = pMachine;
                strFirstCallId = pMachine->getCallId();
            });
        hCall = nullptr;
        EXPECT_EQ(running.probe().getPopulation().m_activeIn, 1U) << "the call engine still holds the leg";
        EXPECT_EQ(log.count("Pool did NOT take back InStateMachine ("), static_cast<std::size_t>(iRound + 1));

        running.engine().deleteLegs();
        population = running.probe().getPopulation();
        EXPECT_EQ(population.m_activeIn + population.m_calls + population.m_outOfService, 0U);
        EXPECT_EQ(population.m_freeIn, 1U);
    }
    // Never having come to its end, it was killed, which brings it there.
    EXPECT_EQ(log.count("Trying to release an outStateMachine that is not in a final state (", eWARN_LEVEL),
              2U);
    EXPECT_EQ(log.count("m_uiNumSMOutOfService>0"), 0U);
    EXPECT_EQ(running.engine().count("gone"), 2U);
    EXPECT_TRUE(running.stop());
}

TEST_F(RegistryTest, ReleaseOfWhatIsNotThereDoesNothing)
{
    RunningNetIf running;
    const auto failuresBefore = Assertion::failureCount();
    running.probe().run(
        [&]
        {
            EXPECT_EQ(running.probe().releaseIn(4711), eMO_DONE);
            EXPECT_EQ(running.probe().releaseOut(4711), eMO_DONE);
            const std::uint32_t uiID = running.probe().takeInID();
            EXPECT_EQ(running.probe().acquireIn(uiID, "call"), eMO_DONE);
            EXPECT_EQ(running.probe().releaseIn(uiID), eMO_DONE);
            EXPECT_EQ(running.probe().releaseIn(uiID), eMO_DONE) << "twice";
            running.probe().giveInIDBack(uiID);
            EXPECT_EQ(running.netIf().newSipOutgoingCallinterface("no such machine"), nullptr);
        });
    EXPECT_EQ(Assertion::failureCount() - failuresBefore, 1U) << "of the unknown machine";
    running.engine().deleteLegs();
    EXPECT_TRUE(running.probe().waitUntilEmpty());
}

TEST_F(RegistryTest, MachinesOfOneCallShareOneRecordAndOneEndpointIdentifier)
{
    RunningNetIf running;
    auto& probe = running.probe();
    const std::string strCallId = "shared";
    std::uint32_t uiID = 0;
    probe.run(
        [&]
        {
            uiID = probe.takeInID();
            ASSERT_EQ(probe.acquireIn(uiID, strCallId.c_str()), eMO_DONE);
        });
    running.engine().placeCall(running.netIf(), strCallId, nullptr);
    running.engine().run([] {});
    auto population = probe.getPopulation();
    EXPECT_EQ(population.m_activeIn, 1U);
    EXPECT_EQ(population.m_activeOut, 1U);
    EXPECT_EQ(population.m_calls, 1U);

    // (machine, mode, redirect-receive) in the order of the requests, and what the engine is asked for.
    struct Case
    {
        bool m_bIn;
        Media::StreamMode m_mode;
        bool m_bRedirect;
        const char* m_szOperation;
        MediaEndpointSpec::Type m_type;
        const char* m_szEptId;
    };
    const std::vector<Case> vCases = {
        {true,  Media::SENDONLY_MODE, false, "create",           MediaEndpointSpec::FORK_TX_TYPE,     "ept-1"},
        {true,  Media::RECVONLY_MODE, false, "createIdentified", MediaEndpointSpec::SND_RECV_TYPE,    "ept-1"},
        {false, Media::SENDRECV_MODE, false, "create",           MediaEndpointSpec::SND_RECV_TYPE,    ""     },
        {false, Media::SENDRECV_MODE, true,  "create",           MediaEndpointSpec::REDIRECT_RX_TYPE, "ept-1"},
        {true,  Media::SENDONLY_MODE, true,  "create",           MediaEndpointSpec::REDIRECT_RX_TYPE, "ept-1"},
    };
    running.media().setAnswer([](const ScriptedMediaEngine::Request&, MediaEndpointCallback&) {});
    std::vector<std::unique_ptr<MediaEndpoint>> vEndpoints;
    probe.run(
        [&]
        {
            const VoipStateMachineNoT* pIn = probe.activeIn().begin()->second.get();
            const VoipStateMachineNoT* pOut = probe.activeOut().begin()->second.get();
            for (const Case& testCase : vCases)
            {
                vEndpoints.emplace_back(running.netIf().getEndpoint(strCallId.c_str(),
                                                                    0,
                                                                    testCase.m_bIn ? pIn : pOut,
                                                                    testCase.m_mode,
                                                                    testCase.m_bRedirect));
                EXPECT_NE(vEndpoints.back(), nullptr);
            }
            EXPECT_EQ(running.netIf().getEndpoint("another call", 0, pIn, Media::SENDRECV_MODE, false),
                      nullptr);
        });
    const auto vRequests = running.media().getRequests();
    ASSERT_EQ(vRequests.size(), vCases.size());
    for (std::size_t i = 0; i < vCases.size(); ++i)
    {
        SCOPED_TRACE(i);
        EXPECT_EQ(vRequests[i].m_strOperation, vCases[i].m_szOperation);
        EXPECT_EQ(vRequests[i].m_specType, vCases[i].m_type);
        EXPECT_EQ(vRequests[i].m_strEptId, vCases[i].m_szEptId);
        EXPECT_EQ(vRequests[i].m_strCallId, strCallId);
    }

    // The inbound machine goes: the record stays, with its identifier, until the outbound one has gone too.
    // Endpoints' callbacks hold their machines.
    running.engine().deleteLegs();
    probe.run([&] { probe.releaseIn(uiID); });
    probe.giveInIDBack(uiID);
    population = probe.getPopulation();
    EXPECT_EQ(population.m_activeIn + population.m_activeOut, 2U);
    probe.run(
        [&]
        {
            vEndpoints.erase(vEndpoints.begin());
            vEndpoints.erase(vEndpoints.begin());
            vEndpoints.pop_back();
        });
    EXPECT_TRUE(running.media().waitForRequests("delete", 3));
    while (probe.getPopulation().m_activeIn != 0)
    {
        std::this_thread::yield();
    }
    population = probe.getPopulation();
    EXPECT_EQ(population.m_activeOut, 1U);
    EXPECT_EQ(population.m_calls, 1U);
    probe.run([&] { vEndpoints.clear(); });
    EXPECT_TRUE(probe.waitUntilEmpty());
    EXPECT_TRUE(running.stop());
}

TEST_F(RegistryTest, MachineThatCannotBeInitializedHasNoPartInItsCallsRecord)
{
    RunningNetIf running;
    auto& probe = running.probe();
    DsCall hCall = probe.newInCall();
    InStateMachine* pMachine = nullptr;
    probe.run([&] { pMachine = probe.activeIn().begin()->second.get(); });
    hCall = nullptr;
    running.engine().deleteLegs();
    ASSERT_EQ(probe.getPopulation().m_freeIn, 1U);

    const std::string strCallId = "shared";
    running.engine().placeCall(running.netIf(), strCallId, nullptr);
    running.engine().run([] {});
    running.engine().setScript(
        [](ScriptedCall& io_call, const std::string& in_strWhat)
        {
            if (in_strWhat == "newInCall")
            {
                io_call.deleteLeg();
            }
        });
    const LogCapture log;
    probe.run(
        [&]
        {
            pMachine->reset();  // without its states
            const std::uint32_t uiID = probe.takeInID();
            EXPECT_EQ(probe.acquireIn(uiID, strCallId.c_str()), eMO_FAILED);
            EXPECT_TRUE(probe.getIn(uiID).isNull());
            EXPECT_EQ(probe.getPopulation().m_activeIn, 1U) << "until the call engine's leg is released";
            probe.giveInIDBack(uiID);
        });
    EXPECT_EQ(log.count("Failed to initialize InStateMachine", eERROR_LEVEL), 1U);
    running.engine().run([] {});
    const auto population = probe.getPopulation();
    EXPECT_EQ(population.m_activeIn, 0U);
    EXPECT_EQ(population.m_activeOut, 1U);
    EXPECT_EQ(population.m_calls, 1U) << "the outbound machine's";
    running.engine().deleteLegs();
    EXPECT_TRUE(probe.waitUntilEmpty());
    EXPECT_EQ(log.count("foundCall != end()"), 0U);
}

TEST_F(RegistryTest, OutboundCallsAreRefusedUnlessItRuns)
{
    const auto expectRefused = [](RunningNetIf& io_running, std::size_t in_count)
    {
        io_running.engine().placeCall(io_running.netIf(),
                                      "refused",
                                      [](ScriptedCall& io_call)
                                      {
                                          static_cast<void>(io_call.getOutLeg()->invite(CallInfo()));
                                          io_call.deleteLeg();
                                      });
        EXPECT_TRUE(io_running.engine().waitForTold("connectFailed 8", in_count));
        EXPECT_EQ(io_running.probe().getPopulation().m_activeOut, 0U);
    };
    RunningNetIf running;
    // A call that does not end keeps the stop waiting.
    const DsCall hCall = running.probe().newInCall();
    const LogCapture log;
    ASSERT_TRUE(running.netIf().stop());
    ASSERT_TRUE(running.probe().waitForState(Task::STOPPING_STATE));
    expectRefused(running, 1);
    EXPECT_EQ(
        log.count("Out sip call rejected because the SIP provider is not in the RUNNING state", eWARN_LEVEL),
        1U);

    ASSERT_TRUE(running.netIf().kill());
    ASSERT_TRUE(running.netIf().waitUntilDone());
    expectRefused(running, 2);
    running.engine().deleteLegs();
}

TEST_F(RegistryTest, InboundCallsAreRefusedWhileStopping)
{
    RunningNetIf running;
    DsCall hHeld = running.probe().newInCall();
    ASSERT_TRUE(running.netIf().stop());
    ASSERT_TRUE(running.probe().waitForState(Task::STOPPING_STATE));
    const LogCapture log;
    DsCall hLate = running.probe().newInCall();
    EXPECT_EQ(running.probe().getPopulation().m_activeIn, 2U);
    EXPECT_EQ(log.count("in sip call rejected because not in the RUNNING state", eWARN_LEVEL), 1U);
    // The stop ends with the last of them, though neither has come to its end by itself.
    running.engine().deleteLegs();
    hLate = nullptr;
    EXPECT_EQ(running.probe().getPopulation().m_activeIn, 1U);
    EXPECT_EQ(running.netIf().getTaskState(), Task::STOPPING_STATE);
    hHeld = nullptr;
    EXPECT_TRUE(running.probe().waitForState(Task::STOPPED_STATE));
    EXPECT_EQ(log.count("All Voip State Machine are out-of-service, stop is completed"), 1U);
}

TEST_F(RegistryTest, KillDoesNotWaitForCallsAndTheTaskCanRunAgain)
{
    RunningNetIf running;
    const DsCall hCall = running.probe().newInCall();
    running.engine().placeCall(running.netIf(), "out", nullptr);
    running.engine().run([] {});
    ASSERT_EQ(running.probe().getPopulation().m_activeOut, 1U);
    ASSERT_TRUE(running.netIf().kill());
    ASSERT_TRUE(running.netIf().waitUntilDone());
    EXPECT_EQ(running.netIf().getPopulation().m_activeIn + running.netIf().getPopulation().m_activeOut, 0U);

    ASSERT_TRUE(running.netIf().start());
    ASSERT_TRUE(running.probe().waitForState(Task::RUNNING_STATE));
    // What the first run left behind ends without an effect on the second.
    const auto failuresBefore = Assertion::failureCount();
    running.engine().deleteLegs();
    const auto population = running.probe().getPopulation();
    EXPECT_EQ(population.m_activeIn + population.m_activeOut + population.m_outOfService, 0U);
    EXPECT_EQ(Assertion::failureCount(), failuresBefore);
    EXPECT_TRUE(running.stop());
}

TEST_F(RegistryTest, StackThatCannotStartStopsTheTask)
{
    RunningNetIf running;
    ASSERT_TRUE(running.stop());
    auto pConfiguration = makeConfiguration(0, mediaLibrary("plain"));
    pConfiguration->set("quorvex.sip.listen.0", "udp:192.0.2.1:5060");  // not an address of this machine
    ASSERT_TRUE(running.netIf().configure(toHandle(pConfiguration)));
    const LogCapture log;
    ASSERT_TRUE(running.netIf().start());
    EXPECT_TRUE(running.netIf().waitUntilDone());
    EXPECT_EQ(running.netIf().getTaskState(), Task::STOPPED_STATE);
    EXPECT_EQ(log.count("failed to initialize Sip stack", eERROR_LEVEL), 1U);
    EXPECT_EQ(log.count("Performing SIP stack shutdown"), 1U);
    EXPECT_EQ(running.media().getTaskState(), Task::STOPPED_STATE);
}

TEST_F(RegistryTest, CallEngineThatTakesNoCallOrIsNotThere)
{
    for (const bool bEngine : {true, false})
    {
        SCOPED_TRACE(bEngine);
        RunningNetIf running;
        running.engine().takeCalls(false);
        if (!bEngine)
        {
            ASSERT_TRUE(running.stop());
            running.netIf().setCallEngine(nullptr);
            ASSERT_TRUE(running.netIf().start());
            ASSERT_TRUE(running.probe().waitForState(Task::RUNNING_STATE));
        }
        DsCall hCall = running.probe().newInCall();
        EXPECT_EQ(running.probe().getPopulation().m_activeIn, 1U);
        hCall = nullptr;
        running.engine().deleteLegs();
        EXPECT_TRUE(running.probe().waitUntilEmpty());
        EXPECT_TRUE(running.stop());
    }
}
