// Machines acquired and released over and over, with every kind of proxy made and destroyed on its own
// thread.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "InStateMachine.h"
#include "NetIfFixture.h"
#include "OutStateMachine.h"
#include "infra/Assertion.h"
#include "sipstack/DsSipIncomingCall.h"
#include "sipstack/DsSipOutgoingCallinterface.h"

using namespace Quorvex;
using namespace Quorvex::Test;

namespace
{

constexpr unsigned kRounds = 100000;
constexpr unsigned kBindEvery = 10;  ///< every so manieth call gets proxies of the other kinds

/// Destroys things of one kind on a thread of its own, in an order of its own.
template <class Thing>
class Destroyer
{
public:
    explicit Destroyer(unsigned in_uiSeed) : m_random(in_uiSeed), m_thread([this] { svc(); }) {}
    Destroyer(const Destroyer&) = delete;
    Destroyer& operator=(const Destroyer&) = delete;
    ~Destroyer()
    {
        m_state.change([](State& io_state) { io_state.m_bEnd = true; });
        m_thread.join();
    }
    void take(Thing in_thing)
    {
        m_state.change([&](State& io_state) { io_state.m_vThings.push_back(std::move(in_thing)); });
    }

private:
    struct State
    {
        std::vector<Thing> m_vThings;
        bool m_bEnd = false;
    };

    void svc()
    {
        for (bool bEnd = false; !bEnd;)
        {
            std::vector<Thing> vThings;
            static_cast<void>(m_state.waitFor([](const State& in_state)
                                              { return !in_state.m_vThings.empty() || in_state.m_bEnd; }));
            m_state.change(
                [&](State& io_state)
                {
                    vThings.swap(io_state.m_vThings);
                    bEnd = io_state.m_bEnd;
                });
            std::shuffle(vThings.begin(), vThings.end(), m_random);
            vThings.clear();
        }
    }

    Awaited<State> m_state;
    std::mt19937 m_random;
    std::thread m_thread;
};

}  // namespace

TEST(ChurnTest, AcquiredAndReleasedByAllProxiesOnTheirThreadsNothingIsLeft)
{
    Logging::setRootLevel(eERROR_LEVEL);  // a machine that is killed in the middle is what this is about
    const auto failuresBefore = Assertion::failureCount();
    {
        RunningNetIf running;
        running.media().setAnswer([](const ScriptedMediaEngine::Request&, MediaEndpointCallback&) {});
        std::atomic<std::uint32_t> uiEndpoints{0};
        std::atomic<std::uint32_t> uiSipOut{0};
        {
            // The SIP stack lets go of inbound and outbound calls, the media manager of endpoints, each when
            // it likes; the call engine of its legs, below.
            Destroyer<DsHandle<DsSipIncomingCall>> sipIn(1);
            Destroyer<DsHandle<DsSipOutgoingCallinterface>> sipOut(2);
            Destroyer<std::unique_ptr<MediaEndpoint>> endpoints(3);

            // Each inbound leg lives until a later call comes; each outbound one is deleted with its
            // successor.
            running.engine().setScript(
                [&](ScriptedCall& io_call, const std::string& in_strWhat)
                {
                    if (in_strWhat == "newInCall")
                    {
                        static_cast<void>(io_call.getLeg()->hangup());
                        io_call.deleteLeg();
                    }
                });
            const auto bindOthers = [&](const auto& in_active, bool in_bOut)
            {
                // Whatever machine comes first: it gets one more proxy of the SIP stack's and one of the
                // media engine's.
                if (in_active.empty())
                {
                    return;
                }
                auto& machine = *in_active.begin()->second;
                if (auto* pEndpoint = running.netIf().getEndpoint(
                        machine.getCallId(), 0, &machine, Media::SENDRECV_MODE, false))
                {
                    ++uiEndpoints;
                    endpoints.take(std::unique_ptr<MediaEndpoint>(pEndpoint));
                }
                if (in_bOut)
                {
                    ++uiSipOut;
                    sipOut.take(DsHandle<DsSipOutgoingCallinterface>(
                        running.netIf().newSipOutgoingCallinterface(machine.getUUID())));
                }
            };
            std::thread sipThread(
                [&]
                {
                    for (unsigned ui = 0; ui < kRounds / 2; ++ui)
                    {
                        DsHandle<DsSipIncomingCall> hCall = running.probe().newInCall();
                        if (ui % kBindEvery == 0)
                        {
                            ASSERT_TRUE(
                                running.probe().run([&] { bindOthers(running.probe().activeIn(), false); }));
                        }
                        sipIn.take(std::move(hCall));
                    }
                });
            for (unsigned ui = 0; ui < kRounds / 2; ++ui)
            {
                ScriptedCall* pHeld = nullptr;
                const bool bBind = ui % kBindEvery == 0;
                running.engine().placeCall(running.netIf(),
                                           "out-" + std::to_string(ui % 7),
                                           [bBind, &pHeld](ScriptedCall& io_call)
                                           {
                                               if (bBind)
                                               {
                                                   pHeld = &io_call;
                                               }
                                               else
                                               {
                                                   io_call.deleteLeg();
                                               }
                                           });
                if (bBind)
                {
                    running.engine().run([] {});
                    ASSERT_TRUE(running.probe().run([&] { bindOthers(running.probe().activeOut(), true); }));
                    running.engine().post([pHeld] { pHeld->deleteLeg(); });
                }
            }
            sipThread.join();
        }
        running.engine().run([] {});
        running.engine().deleteLegs();
        ASSERT_TRUE(running.probe().waitUntilEmpty());
        const auto population = running.probe().getPopulation();
        EXPECT_EQ(population.m_outOfService, 0U);
        EXPECT_GT(population.m_freeIn, 0U);
        EXPECT_GT(population.m_freeOut, 0U);
        EXPECT_EQ(uiEndpoints, kRounds / kBindEvery);
        EXPECT_EQ(uiSipOut, kRounds / 2 / kBindEvery);
        EXPECT_EQ(running.engine().count("newInCall"), kRounds / 2);
        EXPECT_EQ(running.engine().count("gone"), 2 * (kRounds / 2));
        // No identifier is lost: as many are free as were ever out at a time, so the next one is a small
        // number.
        std::uint32_t uiID = 0;
        running.probe().run(
            [&]
            {
                uiID = running.probe().takeInID();
                running.probe().giveInIDBack(uiID);
            });
        EXPECT_LT(uiID, kRounds / 2);
        EXPECT_TRUE(running.stop());
    }
    EXPECT_EQ(Assertion::failureCount(), failuresBefore);
    expectAccountsEmpty();
    Logging::setRootLevel(eINFO_LEVEL);
}
