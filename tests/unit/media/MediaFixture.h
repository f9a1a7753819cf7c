#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "RtpMediaEngine.h"
#include "RtpPacket.h"
#include "SocketAddress.h"
#include "infra/ROConfiguration.h"
#include "media/MediaEndpointCallback.h"
#include "media/MediaEndpointCapacity.h"
#include "media/MediaEndpointConfig.h"
#include "media/MediaNotificationEvent.h"

namespace Quorvex::Test
{

using namespace std::chrono_literals;

/// How long a test waits for what must come.
constexpr auto DEADLINE = 5000ms;

/// What an endpoint reported, as text: "capacity", "failure", "configure RX SUCCESS", "notify DTMF digit=1,
/// ...".
class Reports
{
public:
    void add(const std::string& in_strReport)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_reports.push_back(in_strReport);
        m_changed.notify_all();
    }
    /// The next report, "" when none comes.
    std::string next(std::chrono::milliseconds in_timeout = DEADLINE)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (!m_changed.wait_for(lock, in_timeout, [this] { return !m_reports.empty(); }))
        {
            return {};
        }
        std::string strReport = m_reports.front();
        m_reports.pop_front();
        return strReport;
    }
    bool waitReleased()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, DEADLINE, [this] { return m_bReleased; });
    }
    void release()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_bReleased = true;
        m_changed.notify_all();
    }
    std::unique_ptr<MediaEndpointCapacity> m_pCapacity;

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::string> m_reports;
    bool m_bReleased = false;
};

class TestCallback final : public MediaEndpointCallback
{
public:
    explicit TestCallback(std::shared_ptr<Reports> in_pReports) : m_pReports(std::move(in_pReports)) {}
    ~TestCallback() override { m_pReports->release(); }

    bool setCapacity(MediaEndpoint::Direction, MediaEndpointCapacity* in_pCapacity) override
    {
        m_pReports->m_pCapacity.reset(in_pCapacity);
        m_pReports->add("capacity");
        return true;
    }
    bool getCapacityFailure(MediaEndpoint::Direction) override
    {
        m_pReports->add("failure");
        return true;
    }
    bool configureStatus(MediaEndpoint::Direction in_direction, EptOpStatus in_status) override
    {
        return add("configure", in_direction, in_status);
    }
    bool startStatus(MediaEndpoint::Direction in_direction, EptOpStatus in_status) override
    {
        return add("start", in_direction, in_status);
    }
    bool stopStatus(MediaEndpoint::Direction in_direction, EptOpStatus in_status) override
    {
        return add("stop", in_direction, in_status);
    }
    bool notifyEvent(MediaNotificationEvent* in_pEvent) override;

private:
    bool add(const char* in_szOperation, MediaEndpoint::Direction in_direction, EptOpStatus in_status)
    {
        m_pReports->add(std::string(in_szOperation) + " " + MediaEndpoint::getDirectionString(in_direction) +
                        " " + getOpStatusString(in_status));
        return true;
    }

    const std::shared_ptr<Reports> m_pReports;
};

/// A party with a socket on 127.0.0.1, speaking RTP.
class Peer
{
public:
    Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    ~Peer();

    unsigned getPort() const { return m_uiPort; }
    void setRemote(unsigned in_uiPort);

    struct Packet
    {
        RtpPacket m_header;
        std::vector<std::uint8_t> m_vPayload;
    };

    void sendRaw(const std::vector<std::uint8_t>& in_vData);
    void sendPacket(const RtpPacket& in_header, const std::vector<std::uint8_t>& in_vPayload);
    /// Sends one packet and advances the sequence number, and the timestamp by its size.
    void send(const std::vector<std::uint8_t>& in_vPayload, unsigned in_uiPayloadType = 0);
    void sendEvent(unsigned in_uiPayloadType,
                   unsigned in_uiCode,
                   bool in_bEnd,
                   unsigned in_uiDuration,
                   std::uint32_t in_ui32Timestamp,
                   bool in_bMarker = false);
    /// False when nothing comes in time. What is no RTP fails the test.
    bool receive(Packet& out_packet, std::chrono::milliseconds in_timeout = DEADLINE);
    /// The payloads of the next packets joined; shorter when not enough come.
    std::vector<std::uint8_t> receiveSound(std::size_t in_uiBytes,
                                           std::chrono::milliseconds in_timeout = DEADLINE);

    RtpPacket m_next;

private:
    int m_iSocket;
    unsigned m_uiPort = 0;
    SocketAddress m_remote;
};

/// One endpoint of the engine under test with the party at its far end.
struct Leg
{
    std::shared_ptr<Reports> m_pReports = std::make_shared<Reports>();
    std::unique_ptr<MediaEndpoint> m_pEndpoint;
    Peer m_peer;
    unsigned m_uiPort = 0;

    struct Options
    {
        unsigned m_uiPayloadType = 0;
        unsigned m_uiPacketSizeMs = 20;
        /// 0: none.
        unsigned m_uiEventPayloadType = 101;
        bool m_bRx = true;
        bool m_bTx = true;
        /// Of the far end, when it is not the peer's own port.
        unsigned m_uiSignalledPort = 0;
        bool m_bCpa = false;
        bool m_bRecord = false;
        std::string m_strRecordingId;
    };
};

/// A running engine on loopback. Memory accounts are checked when a test ends.
class MediaFixture : public testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    /// Starts the engine; keys are set before it.
    void startEngine(const std::vector<std::pair<std::string, ParameterValue>>& in_vKeys = {});
    void stopEngine();

    /// An endpoint with its capacity in hand.
    std::unique_ptr<Leg> makeLeg(const std::string& in_strCallId,
                                 MediaEndpointSpec* in_pSpec = new SndRecvEndpointSpec(),
                                 const std::string& in_strEptId = std::string());
    /// Configures and starts the directions.
    void startLeg(Leg& io_leg, const Leg::Options& in_options);
    std::unique_ptr<Leg> makeStartedLeg(const std::string& in_strCallId)
    {
        return makeStartedLeg(in_strCallId, {});
    }
    std::unique_ptr<Leg> makeStartedLeg(const std::string& in_strCallId, const Leg::Options& in_options);

    /// A free range of that many pairs.
    static std::string freeRange(unsigned in_uiPairs);

    std::unique_ptr<RtpMediaEngine> m_pEngine;
};

/// A payload whose bytes tell where it stands in the sound: nothing that is equal by chance.
std::vector<std::uint8_t> makeSound(unsigned in_uiSeed, std::size_t in_uiBytes);

}  // namespace Quorvex::Test
