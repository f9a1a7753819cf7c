#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "infra/Bell.h"

struct su_root_s;  // the base library's su_root_t

namespace Quorvex
{

class StackThread;

/// A one-shot timer of the SIP stack thread; used on that thread only, and stopped before it is destroyed
/// elsewhere.
class StackTimer
{
public:
    StackTimer() = default;
    StackTimer(const StackTimer&) = delete;
    StackTimer& operator=(const StackTimer&) = delete;
    ~StackTimer() { stop(); }

    /// Runs the function once after the time; replaces what was scheduled before.
    void start(StackThread& in_thread, std::uint64_t in_ulMs, std::function<void()> in_function);
    void stop();
    bool isRunning() const { return m_pThread != nullptr; }

private:
    friend class StackThread;
    // Of a timer that runs. It stands in the queue: there are many timers, and few that run.
    struct Entry
    {
        StackTimer* m_pTimer;
        std::function<void()> m_function;
    };
    using Queue = std::multimap<std::int64_t, Entry>;

    StackThread* m_pThread = nullptr;  // null when not scheduled
    Queue::iterator m_position;
};

/// The thread that runs the SIP base library: its event loop, driven step by step so that it sleeps when
/// there is nothing to do, one queue of jobs from other threads, taken in batches, and the layer's own
/// timers.
class StackThread
{
public:
    using Clock = std::chrono::steady_clock;

    StackThread() = default;
    StackThread(const StackThread&) = delete;
    StackThread& operator=(const StackThread&) = delete;
    ~StackThread();

    /// Starts the thread and runs `in_init` on it with the base library's root; false, with the thread gone,
    /// when that gives false. `in_exit` runs on it when it ends.
    bool start(const std::function<bool(su_root_s*)>& in_init, std::function<void()> in_exit);

    /// Ends the thread; jobs posted before are carried out. Not from the thread itself. Repeatable.
    void join();

    /// Any thread. False when the thread does not run (any more): the job is dropped.
    bool post(std::function<void()> in_job);

    bool isCurrent() const { return std::this_thread::get_id() == m_id.load(std::memory_order_relaxed); }

private:
    friend class StackTimer;

    void run(const std::function<bool(su_root_s*)>& in_init, const std::function<void()>& in_exit);
    void loop(su_root_s* in_pRoot);
    void runJobs();
    void runTimers();
    std::int64_t msToNextTimer() const;
    static std::int64_t nowNs();

    std::thread m_thread;
    std::atomic<std::thread::id> m_id{};
    const std::shared_ptr<EventBell> m_pBell = std::make_shared<EventBell>();

    std::mutex m_mutex;  // guards the three below
    std::vector<std::function<void()>> m_vJobs;
    bool m_bOpen = false;
    bool m_bEnd = false;
    std::atomic<bool> m_bAsleep{false};

    std::vector<std::function<void()>> m_vBatch;  // this thread only, as the rest
    StackTimer::Queue m_timers;
};

}  // namespace Quorvex
