#include "EngineLoop.h"

#include "infra/ThreadName.h"

namespace Quorvex
{

EngineLoop::~EngineLoop()
{
    stop();
}

void EngineLoop::start()
{
    const std::lock_guard guard(m_mutex);
    m_bRunning = true;
    m_thread = std::thread([this] { run(); });
}

void EngineLoop::stop()
{
    {
        const std::lock_guard guard(m_mutex);
        m_bRunning = false;
    }
    m_pBell->ring();
    if (m_thread.joinable())
    {
        m_thread.join();
    }
}

bool EngineLoop::post(Job in_job)
{
    {
        const std::lock_guard guard(m_mutex);
        if (!m_bRunning)
        {
            return false;
        }
        m_jobs.push_back(std::move(in_job));
        if (m_jobs.size() > 1)
        {
            return true;  // the loop has been woken for the first one
        }
    }
    Bell::ringWithBatch(m_pBell);
    return true;
}

EngineLoop::TimerId EngineLoop::schedule(unsigned int in_uiMs, Job in_job)
{
    const TimerId id = m_nextTimer++;
    const auto time = Clock::now() + std::chrono::milliseconds(in_uiMs);
    m_timers.emplace(std::make_pair(time, id), std::move(in_job));
    m_timerTimes.emplace(id, time);
    return id;
}

void EngineLoop::cancel(TimerId& io_id)
{
    const auto it = m_timerTimes.find(io_id);
    if (it != m_timerTimes.end())
    {
        m_timers.erase({it->second, io_id});
        m_timerTimes.erase(it);
    }
    io_id = kNoTimer;
}

void EngineLoop::run()
{
    nameThisThread("call-engine");
    const Bell::Batch bells;
    std::deque<Job> jobs;
    std::unique_lock lock(m_mutex);
    while (m_bRunning || !m_jobs.empty())
    {
        if (m_jobs.empty())
        {
            lock.unlock();
            m_pBell->wait(m_timers.empty() ? nullptr : &m_timers.begin()->first.first);
            lock.lock();
        }
        jobs.swap(m_jobs);
        lock.unlock();
        // A long batch must not keep the others waiting.
        constexpr unsigned kMostBeforeRing = 16;
        unsigned uiSinceRing = 0;
        for (Job& job : jobs)
        {
            job();
            if (++uiSinceRing % kMostBeforeRing == 0)
            {
                Bell::Batch::ring();
            }
        }
        jobs.clear();
        while (!m_timers.empty() && m_timers.begin()->first.first <= Clock::now())
        {
            auto node = m_timers.extract(m_timers.begin());
            m_timerTimes.erase(node.key().second);
            node.mapped()();
        }
        Bell::Batch::ring();
        lock.lock();
    }
    lock.unlock();
    m_timers.clear();
    m_timerTimes.clear();
}

}  // namespace Quorvex
