#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Metrics.h"
#include "infra/Logger.h"

namespace Quorvex
{

/// Times a round trip through each of the gateway's loops, again and again on a thread of its own, and
/// reports one that stands still: an ERROR with the name of its thread, once, and an INFO when it runs again.
class LoopWatchdog : public MetricsSource
{
public:
    using Done = std::function<void()>;
    /// Has a loop call the function on its thread, later, and returns at once. False when the loop does not
    /// run.
    using Ping = std::function<bool(Done)>;

    /// How often it asks, and how long an answer may take.
    explicit LoopWatchdog(std::chrono::milliseconds in_interval = std::chrono::seconds(1),
                          std::chrono::milliseconds in_limit = std::chrono::seconds(5));
    ~LoopWatchdog() override;

    /// A loop ("sip") and the name of its thread in thread lists. Before start().
    void watch(const std::string& in_strLoop, const std::string& in_strThread, Ping in_ping);
    void start();
    /// When it returns, nothing is asked any more; answers may still come. Repeatable.
    void stop();

    /// Which loops stand still now, in one sentence; empty when none does. Any thread, also when asking one
    /// of them has blocked the watchdog itself. Not while watch() is called.
    std::string getStalled() const;

    void collect(MetricsPage& io_page) override;

private:
    using Clock = std::chrono::steady_clock;

    /// Shared with the answers, which may come after the watchdog's end.
    struct Answers
    {
        std::atomic<bool> m_bAwaited{false};
        std::atomic<Clock::time_point> m_asked{Clock::time_point()};
        std::atomic<double> m_fRoundTripS{0};
    };

    struct Loop
    {
        std::string m_strName;
        std::string m_strThread;
        Ping m_ping;
        std::shared_ptr<Answers> m_pAnswers = std::make_shared<Answers>();
        // Whether it has been reported.
        bool m_bReported = false;
    };

    void run();
    void look(Loop& io_loop) const;
    // How long an answer has been waited for when that is too long, else 0 s.
    double getStalledS(const Loop& in_loop) const;

    const std::chrono::milliseconds m_interval;
    const std::chrono::milliseconds m_limit;
    const Logger m_logger;
    std::vector<std::unique_ptr<Loop>> m_vLoops;
    std::mutex m_mutex;
    std::condition_variable m_stopped;
    bool m_bRunning = false;
    std::thread m_thread;
};

}  // namespace Quorvex
