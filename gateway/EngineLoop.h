#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "infra/Bell.h"

namespace Quorvex
{

/// The call engine's thread: a queue of jobs and one-shot timers. It sleeps until there is work.
class EngineLoop
{
public:
    using Job = std::function<void()>;
    using TimerId = std::uint64_t;
    static constexpr TimerId kNoTimer = 0;

    EngineLoop() = default;
    EngineLoop(const EngineLoop&) = delete;
    EngineLoop& operator=(const EngineLoop&) = delete;
    ~EngineLoop();

    void start();
    /// Runs what is queued, drops the timers and ends the thread. Not from the loop's own thread. Repeatable.
    void stop();

    /// Queues a job; any thread, never blocks. False, with the job dropped, when the loop does not run.
    bool post(Job in_job);

    /// Runs a job after the time, unless it is cancelled before. On the loop's thread only.
    TimerId schedule(unsigned int in_uiMs, Job in_job);
    void cancel(TimerId& io_id);

    /// Jobs that wait; any thread.
    std::size_t getQueueLength() const
    {
        const std::lock_guard lock(m_mutex);
        return m_jobs.size();
    }

    bool isLoopThread() const { return std::this_thread::get_id() == m_thread.get_id(); }

private:
    using Clock = std::chrono::steady_clock;

    void run();

    std::thread m_thread;
    mutable std::mutex m_mutex;
    const std::shared_ptr<FutexBell> m_pBell = std::make_shared<FutexBell>();
    std::deque<Job> m_jobs;
    bool m_bRunning = false;
    // The loop's own: no lock.
    std::map<std::pair<Clock::time_point, TimerId>, Job> m_timers;
    std::map<TimerId, Clock::time_point> m_timerTimes;
    TimerId m_nextTimer = 1;
};

}  // namespace Quorvex
