#include "Timers.h"

#include <utility>

namespace Quorvex
{

Timers::Timers() : m_thread([this] { run(); })
{
}

Timers::~Timers()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_bEnd = true;
    }
    m_condition.notify_all();
    m_thread.join();
}

void Timers::after(unsigned int in_uiMs, std::function<void()> in_job)
{
    const auto due = std::chrono::steady_clock::now() + std::chrono::milliseconds(in_uiMs);
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto place = m_jobs.emplace(due, std::move(in_job));
    if (place == m_jobs.begin())
    {
        m_condition.notify_all();
    }
}

void Timers::clear()
{
    std::multimap<std::chrono::steady_clock::time_point, std::function<void()>> dropped;
    const std::lock_guard<std::mutex> lock(m_mutex);
    dropped.swap(m_jobs);
}

void Timers::run()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_bEnd)
    {
        if (m_jobs.empty())
        {
            m_condition.wait(lock);
            continue;
        }
        const auto due = m_jobs.begin()->first;
        if (std::chrono::steady_clock::now() < due)
        {
            m_condition.wait_until(lock, due);
            continue;
        }
        const auto job = std::move(m_jobs.begin()->second);
        m_jobs.erase(m_jobs.begin());
        lock.unlock();
        job();
        lock.lock();
    }
}

}  // namespace Quorvex
