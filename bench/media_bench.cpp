// The media engine: CPU time and delay of a relayed packet on loopback sockets, and how good call-progress
// analysis is. The CPU time is that of the engine's thread: the process's, less that of the thread that sends
// and receives.

#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <thread>
#include <vector>

#include "CpaScenarios.h"
#include "RtpMediaEngine.h"
#include "RtpPacket.h"
#include "SocketAddress.h"
#include "infra/Logger.h"
#include "infra/ROConfiguration.h"
#include "media/MediaEndpointCallback.h"
#include "media/MediaEndpointCapacity.h"
#include "media/MediaEndpointConfig.h"
#include "media/MediaNotificationEvent.h"

namespace
{

using namespace Quorvex;
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

std::int64_t toNs(const timespec& in_time)
{
    return std::int64_t{in_time.tv_sec} * 1'000'000'000 + in_time.tv_nsec;
}

/// One party: its socket, and its endpoint in the engine.
struct Party
{
    int m_iSocket = -1;
    std::uint16_t m_ui16Sequence = 0;
    std::atomic<unsigned> m_uiPort{0};
    std::atomic<unsigned> m_uiStarted{0};
    std::unique_ptr<MediaEndpoint> m_pEndpoint;
    SocketAddress m_engine;

    Party(RtpMediaEngine& io_engine, const std::string& in_strCallId)
        : m_iSocket(::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t uiSize = sizeof address;
        ::bind(m_iSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
        ::getsockname(m_iSocket, reinterpret_cast<sockaddr*>(&address), &uiSize);
        const int iOn = 1;
        ::setsockopt(m_iSocket, SOL_SOCKET, SO_TIMESTAMPNS, &iOn, sizeof iOn);
        m_pEndpoint.reset(io_engine.createEndpoint(
            new Callback(m_uiPort, m_uiStarted), in_strCallId, new SndRecvEndpointSpec()));
        for (const auto direction : {MediaEndpoint::RX_DIRECTION, MediaEndpoint::TX_DIRECTION})
        {
            MediaEndpointConfig config(direction);
            config.set(MediaEndpointCapacity::IPV4_ADDRESS, "127.0.0.1");
            config.set(MediaEndpointCapacity::UDP_PORT, unsigned{ntohs(address.sin_port)});
            config.set(MediaEndpointCapacity::PAYLOAD_TYPE, 0U);
            config.set(MediaEndpointCapacity::PAYLOAD_SIZE, 20U);
            m_pEndpoint->configure(direction, config);
            m_pEndpoint->start(direction);
        }
        while (m_uiStarted != 2)
        {
            std::this_thread::yield();
        }
        static_cast<void>(SocketAddress::make("127.0.0.1", m_uiPort, m_engine));
        const sockaddr_in engine = m_engine.toSockaddr();
        ::connect(m_iSocket, reinterpret_cast<const sockaddr*>(&engine), sizeof engine);
    }
    Party(const Party&) = delete;
    Party& operator=(const Party&) = delete;
    ~Party() { ::close(m_iSocket); }

    /// The time of sending travels in the payload.
    void send()
    {
        std::array<std::uint8_t, 172> packet{};
        RtpPacket header;
        header.m_ui32Ssrc = m_uiPort;
        header.m_ui16Sequence = m_ui16Sequence++;
        header.m_ui32Timestamp = header.m_ui16Sequence * 160U;
        header.writeHeader(packet.data());
        timespec time{};
        ::clock_gettime(CLOCK_REALTIME, &time);
        const std::int64_t i64Now = toNs(time);
        std::memcpy(packet.data() + 12, &i64Now, sizeof i64Now);
        static_cast<void>(::send(m_iSocket, packet.data(), packet.size(), 0));
    }
    /// Takes what is there, with the delay from sending to arrival (by the system's own stamp) in
    /// microseconds.
    void drain(std::vector<float>& out_vDelays) const
    {
        std::array<std::uint8_t, 2048> packet;
        alignas(cmsghdr) std::array<char, 256> control;
        iovec vector{packet.data(), packet.size()};
        msghdr message{};
        message.msg_iov = &vector;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        while (::recvmsg(m_iSocket, &message, 0) == 172)
        {
            timespec arrived{};
            for (cmsghdr* pHeader = CMSG_FIRSTHDR(&message); pHeader != nullptr;
                 pHeader = CMSG_NXTHDR(&message, pHeader))
            {
                if (pHeader->cmsg_type == SCM_TIMESTAMPNS)
                {
                    std::memcpy(&arrived, CMSG_DATA(pHeader), sizeof arrived);
                }
            }
            std::int64_t i64Sent = 0;
            std::memcpy(&i64Sent, packet.data() + 12, sizeof i64Sent);
            const std::int64_t i64Delay = toNs(arrived) - i64Sent;
            // The silence from before both parties were there carries no time.
            if (i64Delay >= 0 && i64Delay < 10'000'000'000)
            {
                out_vDelays.push_back(static_cast<float>(i64Delay) / 1000);
            }
            message.msg_controllen = control.size();
        }
    }
};

double cpuSeconds(int in_iWho)
{
    rusage usage{};
    ::getrusage(in_iWho, &usage);
    const auto seconds = [](const timeval& in_time)
    { return static_cast<double>(in_time.tv_sec) + static_cast<double>(in_time.tv_usec) / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// So many two-party calls, both parties sending every 20 ms, evenly spread; a second for each iteration.
void BM_relay(benchmark::State& io_state)
{
    Logging::setRootLevel(eWARN_LEVEL);
    const auto uiCalls = static_cast<unsigned>(io_state.range(0));
    auto pConfig = std::make_unique<MapConfiguration>();
    pConfig->set("quorvex.rtp.portRange", "16384-32767");
    RtpMediaEngine engine;
    if (!engine.configure(TSHandle<ROConfiguration>(pConfig.release())) || !engine.start())
    {
        io_state.SkipWithError("the engine does not start");
        return;
    }
    std::vector<std::unique_ptr<Party>> vParties;
    for (unsigned i = 0; i < 2 * uiCalls; ++i)
    {
        vParties.push_back(std::make_unique<Party>(engine, "call" + std::to_string(i / 2)));
    }
    std::vector<float> vDelays;
    std::uint64_t ui64Sent = 0;
    double fCpu = 0;
    const auto uiSlices = std::min<std::size_t>(vParties.size(), 40);
    for (auto _ : io_state)
    {
        const auto start = Clock::now();
        const double fBefore = cpuSeconds(RUSAGE_SELF) - cpuSeconds(RUSAGE_THREAD);
        for (std::size_t tick = 0; tick < 50 * uiSlices; ++tick)
        {
            for (std::size_t i = tick % uiSlices; i < vParties.size(); i += uiSlices)
            {
                vParties[i]->send();
                ++ui64Sent;
            }
            std::this_thread::sleep_until(start + (tick + 1) * std::chrono::milliseconds(20) / uiSlices);
            for (std::size_t i = tick % uiSlices; i < vParties.size(); i += uiSlices)
            {
                vParties[i ^ 1U]->drain(vDelays);
            }
        }
        fCpu += cpuSeconds(RUSAGE_SELF) - cpuSeconds(RUSAGE_THREAD) - fBefore;
        io_state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    for (const auto& pParty : vParties)
    {
        pParty->drain(vDelays);
    }
    io_state.counters["cpu_us_per_packet"] = fCpu * 1e6 / static_cast<double>(ui64Sent);
    io_state.counters["lost_per_million"] =
        (static_cast<double>(ui64Sent) - static_cast<double>(vDelays.size())) * 1e6 /
        static_cast<double>(ui64Sent);
    std::sort(vDelays.begin(), vDelays.end());
    if (!vDelays.empty())
    {
        io_state.counters["delay_p50_us"] = vDelays[vDelays.size() / 2];
        io_state.counters["delay_p99_us"] = vDelays[vDelays.size() * 99 / 100];
    }
    vParties.clear();
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

/// Prints which results generated sound leads to, at several levels and in noise.
void BM_callProgressConfusion(benchmark::State& io_state)
{
    std::map<std::string, std::map<std::string, unsigned>> table;
    unsigned uiTotal = 0;
    unsigned uiRight = 0;
    for (auto _ : io_state)
    {
        for (const double fDbm0 : {-6.0, -12.0, -20.0, -28.0})
        {
            for (const double fSignalToNoise : {60.0, 30.0, 20.0, 15.0})
            {
                for (const Test::CpaScenario& scenario : Test::makeCpaScenarios(fDbm0, 10))
                {
                    const auto result = Test::analyseCpa(scenario.m_samples, fDbm0 - fSignalToNoise);
                    ++table[CpaDetector::getResultString(scenario.m_expected)]
                           [CpaDetector::getResultString(result)];
                    ++uiTotal;
                    uiRight += result == scenario.m_expected ? 1 : 0;
                }
            }
        }
    }
    std::printf("%-10s", "");
    for (int i = CpaDetector::VOICE; i <= CpaDetector::NOTHING; ++i)
    {
        std::printf("%10s", CpaDetector::getResultString(static_cast<CpaDetector::Result>(i)));
    }
    std::printf("   (rows: what it was, columns: what was said)\n");
    for (auto& [strExpected, row] : table)
    {
        std::printf("%-10s", strExpected.c_str());
        for (int i = CpaDetector::VOICE; i <= CpaDetector::NOTHING; ++i)
        {
            std::printf("%10u", row[CpaDetector::getResultString(static_cast<CpaDetector::Result>(i))]);
        }
        std::printf("\n");
    }
    io_state.counters["right_percent"] = 100.0 * uiRight / uiTotal;
}
BENCHMARK(BM_callProgressConfusion)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
