// From a callback of the SIP stack to the end of what the call's machine does with it, on the task thread:
// what every message of a call pays on its way, and whether that grows with the calls that are up.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "InSipLegInterfaceProxy.h"
#include "NetIfFixture.h"
#include "infra/Logger.h"
#include "sipstack/DsSipIncomingCall.h"

namespace Quorvex::Test
{
namespace
{

using Clock = std::chrono::steady_clock;

double microseconds(Clock::duration in_duration)
{
    return std::chrono::duration<double, std::micro>(in_duration).count();
}

/// The moment at which the task thread came past.
class Passing
{
public:
    void pass()
    {
        const std::lock_guard lock(m_mutex);
        m_passed = Clock::now();
        m_bPassed = true;
        m_changed.notify_one();
    }
    Clock::time_point wait()
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_bPassed; });
        m_bPassed = false;
        return m_passed;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    Clock::time_point m_passed;
    bool m_bPassed = false;
};

/// One callback at a time, each for another call; both threads sleep in between. The time of an iteration is
/// the callback's latency, not counting the way back.
void callbackToMachine(benchmark::State& io_state)
{
    Logging::setRootLevel(eERROR_LEVEL);
    RunningNetIf running;
    const auto hCall = running.probe().newInCall();
    std::vector<DsHandle<InSipLegInterfaceProxy>> vCalls;
    for (int i = 0; i < io_state.range(0); ++i)
    {
        vCalls.push_back(running.probe().newInProxy("call-" + std::to_string(i)));
    }
    running.probe().run([] {});

    Passing passing;
    std::vector<double> vLatencies;
    std::size_t uiNext = 0;
    for (auto _ : io_state)
    {
        const auto begin = Clock::now();
        vCalls[uiNext]->onSessionRefreshTime(hCall);
        running.probe().post([&passing] { passing.pass(); });
        const auto latency = passing.wait() - begin;
        io_state.SetIterationTime(std::chrono::duration<double>(latency).count());
        vLatencies.push_back(microseconds(latency));
        uiNext = (uiNext + 1) % vCalls.size();
    }
    const auto quantile = [&](double in_share)
    {
        const auto at = vLatencies.begin() +
                        static_cast<std::ptrdiff_t>(in_share * static_cast<double>(vLatencies.size() - 1));
        std::nth_element(vLatencies.begin(), at, vLatencies.end());
        return *at;
    };
    io_state.counters["median_us"] = quantile(0.5);
    io_state.counters["p99_us"] = quantile(0.99);
    vCalls.clear();
    running.engine().deleteLegs();
}
BENCHMARK(callbackToMachine)->Arg(1)->Arg(1000)->ArgName("calls")->UseManualTime();

}  // namespace
}  // namespace Quorvex::Test
