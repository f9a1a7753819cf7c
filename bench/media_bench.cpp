// The media engine: CPU time and delay of a relayed packet on loopback sockets, and how good call-progress
// analysis is; rtpengine relays the same calls in the same run.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <map>
#include <memory>
#include <thread>
#include <vector>

#include "CpaScenarios.h"
#include "RelayLoad.h"
#include "RtpMediaEngine.h"
#include "RtpengineProcess.h"
#include "SpandspProgressTones.h"
#include "infra/Logger.h"
#include "infra/ROConfiguration.h"
#include "media/MediaEndpointCallback.h"
#include "media/MediaEndpointCapacity.h"
#include "media/MediaEndpointConfig.h"
#include "media/MediaNotificationEvent.h"

namespace
{

using namespace Quorvex;
using namespace Quorvex::Bench;
using Clock = std::chrono::steady_clock;

class Callback final : public MediaEndpointCallback
{
public:
    Callback(std::atomic<unsigned>& out_uiPort, std::atomic<unsigned>& out_uiStarted)
        : m_uiPort(out_uiPort), m_uiStarted(out_uiStarted)
    {
    }
    bool setCapacity(MediaEndpoint::Direction, MediaEndpointCapacity* in_pCapacity) override
    {
        const std::unique_ptr<MediaEndpointCapacity> pCapacity(in_pCapacity);
        unsigned uiPort = 0;
        pCapacity->getUnsigned(MediaEndpointCapacity::UDP_PORT, uiPort);
        m_uiPort = uiPort;
        return true;
    }
    bool getCapacityFailure(MediaEndpoint::Direction) override { return false; }
    bool configureStatus(MediaEndpoint::Direction, EptOpStatus) override { return true; }
    bool startStatus(MediaEndpoint::Direction, EptOpStatus) override
    {
        ++m_uiStarted;
        return true;
    }
    bool stopStatus(MediaEndpoint::Direction, EptOpStatus) override { return true; }
    bool notifyEvent(MediaNotificationEvent* in_pEvent) override
    {
        delete in_pEvent;
        return true;
    }

private:
    std::atomic<unsigned>& m_uiPort;
    std::atomic<unsigned>& m_uiStarted;
};

/// A party with its endpoint in the engine.
struct EngineLeg
{
    std::atomic<unsigned> m_uiPort{0};
    std::atomic<unsigned> m_uiStarted{0};
    std::unique_ptr<MediaEndpoint> m_pEndpoint;

    EngineLeg(RtpMediaEngine& io_engine, const std::string& in_strCallId, const RelayParty& in_party)
    {
        m_pEndpoint.reset(io_engine.createEndpoint(
            new Callback(m_uiPort, m_uiStarted), in_strCallId, new SndRecvEndpointSpec()));
        for (const auto direction : {MediaEndpoint::RX_DIRECTION, MediaEndpoint::TX_DIRECTION})
        {
            MediaEndpointConfig config(direction);
            config.set(MediaEndpointCapacity::IPV4_ADDRESS, "127.0.0.1");
            config.set(MediaEndpointCapacity::UDP_PORT, in_party.getPort());
            config.set(MediaEndpointCapacity::PAYLOAD_TYPE, 0U);
            config.set(MediaEndpointCapacity::PAYLOAD_SIZE, 20U);
            config.set(MediaEndpointCapacity::RFC2833_SUPPORT, true);
            config.set(MediaEndpointCapacity::RFC2833_PAYLOAD_TYPE, 101U);
            m_pEndpoint->configure(direction, config);
            m_pEndpoint->start(direction);
        }
        while (m_uiStarted != 2)
        {
            std::this_thread::yield();
        }
        in_party.connectTo(m_uiPort);
    }
};

double cpuSeconds(clockid_t in_clock)
{
    timespec time{};
    ::clock_gettime(in_clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

/// Of every thread but this one, which is the engine's.
double engineCpuSeconds()
{
    return cpuSeconds(CLOCK_PROCESS_CPUTIME_ID) - cpuSeconds(CLOCK_THREAD_CPUTIME_ID);
}

using Parties = std::vector<std::unique_ptr<RelayParty>>;

Parties makeParties(unsigned in_uiCount)
{
    Parties vParties;
    for (unsigned i = 0; i < in_uiCount; ++i)
    {
        vParties.push_back(std::make_unique<RelayParty>());
    }
    return vParties;
}

bool bridgeByRtpengine(RtpengineProcess& io_process, const Parties& in_vParties)
{
    if (!io_process.start(24576, 32767))
    {
        return false;
    }
    for (std::size_t i = 0; i < in_vParties.size(); i += 2)
    {
        unsigned uiTowardsA = 0;
        unsigned uiTowardsB = 0;
        if (!io_process.bridge("call" + std::to_string(i / 2),
                               in_vParties[i]->getPort(),
                               in_vParties[i + 1]->getPort(),
                               uiTowardsA,
                               uiTowardsB))
        {
            return false;
        }
        in_vParties[i]->connectTo(uiTowardsA);
        in_vParties[i + 1]->connectTo(uiTowardsB);
    }
    return true;
}

/// So many two-party calls, both parties sending every 20 ms, evenly spread; each second of ours is followed
/// by one of rtpengine, so that both have the same machine.
void BM_relay(benchmark::State& io_state)
{
    Logging::setRootLevel(eWARN_LEVEL);
    const auto uiCalls = static_cast<unsigned>(io_state.range(0));
    auto pConfig = std::make_unique<MapConfiguration>();
    pConfig->set("quorvex.rtp.portRange", "16384-24575");
    RtpMediaEngine engine;
    if (!engine.configure(TSHandle<ROConfiguration>(pConfig.release())) || !engine.start())
    {
        io_state.SkipWithError("the engine does not start");
        return;
    }
    Parties vParties = makeParties(2 * uiCalls);
    std::vector<std::unique_ptr<EngineLeg>> vLegs;
    const std::size_t uiMemory = ::mallinfo2().uordblks;
    for (unsigned i = 0; i < 2 * uiCalls; ++i)
    {
        vLegs.push_back(std::make_unique<EngineLeg>(engine, "call" + std::to_string(i / 2), *vParties[i]));
    }
    io_state.counters["bytes_per_call"] =
        static_cast<double>(::mallinfo2().uordblks - uiMemory) / static_cast<double>(uiCalls);
    RtpengineProcess rtpengine;
    Parties vOthers = makeParties(2 * uiCalls);
    const bool bCompared = bridgeByRtpengine(rtpengine, vOthers);

    RelayResult ours;
    RelayResult theirs;
    for (auto _ : io_state)
    {
        const auto start = Clock::now();
        const double fBefore = engineCpuSeconds();
        sendForASecond(vParties, ours);
        ours.m_fCpuSeconds += engineCpuSeconds() - fBefore;
        io_state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
        if (bCompared)
        {
            const double fTheirs = rtpengine.getCpuSeconds();
            sendForASecond(vOthers, theirs);
            theirs.m_fCpuSeconds += rtpengine.getCpuSeconds() - fTheirs;
        }
    }
    const auto print = [&io_state](const std::string& in_strName, RelayResult& io_result)
    {
        io_state.counters[in_strName + "cpu_us_per_packet"] = io_result.getCpuPerPacketUs();
        io_state.counters[in_strName + "lost_per_million"] = io_result.getLostPerMillion();
        io_state.counters[in_strName + "delay_p50_us"] = io_result.getDelayUs(0.5);
        io_state.counters[in_strName + "delay_p99_us"] = io_result.getDelayUs(0.99);
    };
    print("", ours);
    if (bCompared)
    {
        print("rtpengine_", theirs);
        io_state.counters["cpu_ratio"] = ours.getCpuPerPacketUs() / theirs.getCpuPerPacketUs();
    }
    else
    {
        io_state.SetLabel("rtpengine is not installed or does not start: no comparison");
    }
    vLegs.clear();
}
BENCHMARK(BM_relay)->Arg(10)->Arg(100)->Arg(500)->Iterations(3)->UseManualTime()->Unit(
    benchmark::kMillisecond);

/// What an unanswered look at one 20 ms frame costs.
void BM_callProgressFrame(benchmark::State& io_state)
{
    const SampleVector samples(160, 0);
    CpaDetector detector(4'000'000'000U);
    for (auto _ : io_state)
    {
        benchmark::DoNotOptimize(detector.process(samples.data(), samples.size()));
    }
}
BENCHMARK(BM_callProgressFrame);

using Confusion = std::map<CpaDetector::Result, std::map<CpaDetector::Result, unsigned>>;

double printConfusion(const char* in_szTitle, Confusion& in_table)
{
    unsigned uiTotal = 0;
    unsigned uiRight = 0;
    std::printf("%-10s", in_szTitle);
    for (int i = CpaDetector::VOICE; i <= CpaDetector::NOTHING; ++i)
    {
        std::printf("%10s", CpaDetector::getResultString(static_cast<CpaDetector::Result>(i)));
    }
    std::printf("   (rows: what it was, columns: what was said)\n");
    for (auto& [expected, row] : in_table)
    {
        std::printf("%-10s", CpaDetector::getResultString(expected));
        for (int i = CpaDetector::VOICE; i <= CpaDetector::NOTHING; ++i)
        {
            const auto said = static_cast<CpaDetector::Result>(i);
            std::printf("%10u", row[said]);
            uiTotal += row[said];
            uiRight += said == expected ? row[said] : 0;
        }
        std::printf("\n");
    }
    return 100.0 * uiRight / uiTotal;
}

/// Prints which results generated sound leads to, at several levels, off its frequencies and in noise; beside
/// it what spandsp's detectors of supervisory and of fax tones make of the same tones.
void BM_callProgressConfusion(benchmark::State& io_state)
{
    Confusion ours;
    Confusion spandsp;
    std::map<std::string, std::pair<unsigned, unsigned>> wrong;
    for (auto _ : io_state)
    {
        for (const double fDbm0 : {-10.0, -20.0, -28.0, -35.0})
        {
            for (const double fFactor : {0.985, 1.0, 1.015})
            {
                for (const double fSignalToNoise : {60.0, 25.0, 15.0})
                {
                    for (const Test::CpaScenario& scenario : Test::makeCpaScenarios(fDbm0, 4, fFactor))
                    {
                        const SampleVector sound = Test::makeCpaSound(scenario, fDbm0 - fSignalToNoise);
                        const CpaDetector::Result expected = scenario.m_expected;
                        const CpaDetector::Result result = Test::analyseCpa(sound);
                        ++ours[expected][result];
                        wrong[scenario.m_szName].first += result != expected ? 1 : 0;
                        if (expected != CpaDetector::VOICE && expected != CpaDetector::MACHINE)
                        {
                            const CpaDetector::Result theirs = detectWithSpandsp(sound);
                            ++spandsp[expected][theirs];
                            wrong[scenario.m_szName].second += theirs != expected ? 1 : 0;
                        }
                    }
                }
            }
        }
    }
    io_state.counters["right_percent"] = printConfusion("engine", ours);
    io_state.counters["spandsp_right_percent"] = printConfusion("spandsp", spandsp);
    for (const auto& [strName, counts] : wrong)
    {
        if (counts.first + counts.second > 0)
        {
            std::printf("%-40s wrong: engine %u, spandsp %u\n", strName.c_str(), counts.first, counts.second);
        }
    }
}
BENCHMARK(BM_callProgressConfusion)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
