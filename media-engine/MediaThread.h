#pragma once

#include <sys/epoll.h>

#include <array>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "CallGroup.h"
#include "CommandQueue.h"
#include "EngineConfig.h"
#include "PacketSender.h"
#include "PortPool.h"
#include "RtpEndpoint.h"
#include "TimerWheel.h"
#include "infra/LimitedObjPtr.h"
#include "infra/Logger.h"
#include "media/MediaStatistics.h"

namespace Quorvex
{

/// The loop that carries the sound: it sleeps until a packet, a command or the clock wants it. It owns the
/// endpoints and the groups. All operations belong to its own thread, save where noted.
class MediaThread
{
public:
    /// The queue is open already.
    MediaThread(const EngineConfig& in_config, CommandQueuePtr in_pQueue);
    MediaThread(const MediaThread&) = delete;
    MediaThread& operator=(const MediaThread&) = delete;
    ~MediaThread();

    /// Runs until requestStop(); then every endpoint is ended and the queue closed.
    void run();
    void requestStop() { m_bStop = true; }

    /// Before run(), or on the thread.
    void setObserver(LimitedObjPtr<MediaObserver> in_pObserver) { m_pObserver = in_pObserver; }
    bool hasObserver() const { return !m_pObserver.isNull(); }

    // What commands ask for.
    void createEndpoint(RtpEndpoint::Identity in_identity,
                        std::unique_ptr<MediaEndpointCallback> in_pCallback);
    /// Null when it has been closed.
    RtpEndpoint* findEndpoint(std::uint32_t in_uiId);
    void closeEndpoint(std::uint32_t in_uiId);
    void attachEcho(const std::string& in_strCallId);
    void attach(const std::string& in_strCallId, AudioRecipePtr in_pRecipe);
    void detach(const std::string& in_strCallId);
    void sendDigits(const std::string& in_strCallId,
                    const std::string& in_strDigits,
                    unsigned in_uiDurationMs);
    std::vector<StreamStatistics> getStatistics(const std::string& in_strCallId) const;
    MediaTotals getTotals() const;

    // What endpoints need.
    const EngineConfig& getConfig() const { return m_config; }
    PortPool& getPorts() { return m_ports; }
    PacketSender& getSender() { return m_sender; }
    std::uint32_t random() { return m_random(); }
    /// Calls the endpoint when the socket has something to read, until the socket is closed. The slot stays
    /// where it is until then.
    bool addSocket(int in_iSocket, SocketSlot& in_slot);
    /// Calls the endpoint's sendReport in 2.5 to 7.5 s (RFC 3550 section 6.2), and again as long as it says
    /// so.
    void scheduleReport(const RtpEndpoint& in_endpoint);
    /// Calls the endpoint's passAnalysisTime in a moment, and again as long as it says so.
    void scheduleAnalysis(const RtpEndpoint& in_endpoint);
    /// Plans the group anew once what runs now is done.
    void replanLater(CallGroup& in_group);
    RecordingWriter& getRecordings() { return m_recordings; }
    /// Of this host, for RTCP.
    const std::string& getSourceName() const { return m_strSourceName; }
    /// Nanoseconds of the steady clock.
    static std::int64_t now();
    /// Calls the endpoint's onClock every so many milliseconds (10, 20, ... 60), or not any more (0).
    void setClock(RtpEndpoint& in_endpoint, unsigned in_uiPeriodMs);
    void setEventClock(RtpEndpoint& in_endpoint, bool in_bOn);
    /// The reason is a value of errno.
    void countCapacityFailure(int in_iReason);
    void digitReceived(const RtpEndpoint& in_endpoint, char in_cDigit);
    void playEnded(const CallGroup& in_group);

private:
    static constexpr unsigned CLOCKS = 6;

    struct Clock
    {
        unsigned m_uiPeriodMs = 0;
        std::int64_t m_i64Next = 0;
        std::vector<RtpEndpoint*> m_vMembers;
    };

    CallGroup& groupOf(const std::string& in_strCallId);
    void dropGroupIfUnused(CallGroup& io_group);
    /// In nanoseconds, or -1 for none.
    std::int64_t nextDeadline() const;
    int wait(std::int64_t in_i64Deadline, epoll_event* out_events, int in_iCount);
    void receive(RtpEndpoint& io_endpoint, bool in_bRtcp, std::int64_t in_i64Now);
    void setReading(RtpEndpoint& io_endpoint, bool in_bOn);
    void runTimer(std::uint64_t in_ui64Entry, std::int64_t in_i64Now);
    void runCommands();
    void runReplans();
    void runClocks(std::int64_t in_i64Now);
    bool isDue(Clock& io_clock, std::int64_t in_i64Now);
    void closeAll();

    const EngineConfig m_config;
    const CommandQueuePtr m_pQueue;
    LimitedObjPtr<MediaObserver> m_pObserver;
    PortPool m_ports;
    PacketSender m_sender;
    std::mt19937 m_random{std::random_device{}()};
    int m_iEpoll;
    bool m_bStop = false;
    bool m_bPreciseWait = true;
    std::vector<std::unique_ptr<MediaCommand>> m_vCommands;
    std::unordered_map<std::uint32_t, std::unique_ptr<RtpEndpoint>> m_endpoints;
    std::unordered_map<std::string, std::unique_ptr<CallGroup>> m_groups;
    std::array<Clock, CLOCKS> m_clocks;
    Clock m_eventClock;
    TimerWheel m_wheel;
    const std::string m_strSourceName;
    std::vector<CallGroup*> m_vReplan;
    RecordingWriter m_recordings;

    std::uint64_t m_ui64PacketsReceived = 0;
    std::uint64_t m_ui64PacketsSent = 0;
    std::uint64_t m_ui64PacketsDropped = 0;
    std::uint64_t m_ui64CapacityFailures = 0;
    std::uint64_t m_ui64LateTicks = 0;
    // Of reports of one kind of failure, one in this time is logged.
    std::int64_t m_i64LastFailureLog = 0;

    std::array<std::uint8_t, PacketSender::MAX_PACKET> m_buffer{};
};

}  // namespace Quorvex
