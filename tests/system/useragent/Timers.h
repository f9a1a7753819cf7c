#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

namespace Quorvex
{

/// Runs jobs later, on a thread of its own; those that are not due at its end are dropped.
class Timers
{
public:
    Timers();
    ~Timers();
    Timers(const Timers&) = delete;
    Timers& operator=(const Timers&) = delete;

    void after(unsigned int in_uiMs, std::function<void()> in_job);
    /// Drops what is not due yet.
    void clear();

private:
    void run();

    std::mutex m_mutex;
    std::condition_variable m_condition;
    std::multimap<std::chrono::steady_clock::time_point, std::function<void()>> m_jobs;
    bool m_bEnd = false;
    std::thread m_thread;
};

}  // namespace Quorvex
