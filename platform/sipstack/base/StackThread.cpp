#include "sipstack/base/StackThread.h"

#include <future>
#include <utility>

#include "infra/Logger.h"
#include "infra/ThreadName.h"
#include "infra/ThreadPriority.h"
#include "sipstack/base/Sofia.h"

namespace Quorvex
{

namespace
{

StaticLogger s_logger("quorvex.sip.Stack");

constexpr std::size_t kMostKeptJobs = 1024;
constexpr std::int64_t kForeverMs = 3600000;
// Who comes late to the sockets under load refuses calls that there is time for. Behind the sound.
constexpr int kNice = -8;

int clearBell(su_root_magic_t*, su_wait_t*, su_wakeup_arg_t* in_pBell)
{
    return reinterpret_cast<EventBell*>(in_pBell)->clear() ? 0 : -1;
}

}  // namespace

void StackTimer::start(StackThread& in_thread, std::uint64_t in_ulMs, std::function<void()> in_function)
{
    stop();
    m_pThread = &in_thread;
    m_position =
        in_thread.m_timers.emplace(StackThread::nowNs() + static_cast<std::int64_t>(in_ulMs) * 1000000,
                                   Entry{this, std::move(in_function)});
}

void StackTimer::stop()
{
    if (m_pThread != nullptr)
    {
        StackThread* const pThread = std::exchange(m_pThread, nullptr);
        pThread->m_timers.erase(m_position);
    }
}

StackThread::~StackThread()
{
    join();
}

std::int64_t StackThread::nowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count();
}

bool StackThread::start(const std::function<bool(su_root_t*)>& in_init, std::function<void()> in_exit)
{
    if (m_pBell->getDescriptor() < 0)
    {
        return false;
    }
    std::promise<bool> started;
    auto result = started.get_future();
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_bOpen = true;
        m_bEnd = false;
    }
    m_thread = std::thread(
        [this, &started, &in_init, exit = std::move(in_exit)]
        {
            bool reported = false;
            run(
                [&](su_root_t* in_pRoot)
                {
                    const bool ok = in_init(in_pRoot);
                    reported = true;
                    started.set_value(ok);
                    return ok;
                },
                exit);
            if (!reported)
            {
                started.set_value(false);
            }
        });
    if (!result.get())
    {
        join();
        return false;
    }
    return true;
}

void StackThread::join()
{
    if (m_thread.joinable())
    {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_bEnd = true;
        }
        m_pBell->ring();
        m_thread.join();
    }
}

bool StackThread::post(std::function<void()> in_job)
{
    bool bWake = false;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_bOpen)
        {
            return false;
        }
        m_vJobs.push_back(std::move(in_job));
        bWake = m_bAsleep.exchange(false);
    }
    if (bWake)
    {
        Bell::ringWithBatch(m_pBell);
    }
    return true;
}

void StackThread::run(const std::function<bool(su_root_t*)>& in_init, const std::function<void()>& in_exit)
{
    m_id.store(std::this_thread::get_id());
    nameThisThread("sip-stack");
    if (!setThisThreadsNice(kNice))
    {
        QLOG_INFO(s_logger, "the SIP stack's thread runs at normal priority: the system allows no other one");
    }
    su_root_t* const root = su_root_create(nullptr);
    if (root == nullptr)
    {
        QLOG_ERROR(s_logger, "cannot create the event loop of the SIP stack");
        return;
    }
    su_wait_t wait[1] = {SU_WAIT_INIT};
    su_wait_create(wait, m_pBell->getDescriptor(), SU_WAIT_IN);
    const int registration =
        su_root_register(root, wait, clearBell, reinterpret_cast<su_wakeup_arg_t*>(m_pBell.get()), 0);
    if (registration > 0 && in_init(root))
    {
        loop(root);
        in_exit();
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_bOpen = false;
        }
        runJobs();
    }
    else
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_bOpen = false;
    }
    su_root_deregister(root, registration);
    su_root_destroy(root);
    m_id.store(std::thread::id());
}

void StackThread::loop(su_root_t* in_pRoot)
{
    const Bell::Batch bells;
    for (;;)
    {
        runTimers();
        runJobs();
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            if (m_bEnd && m_vJobs.empty())
            {
                return;
            }
            m_bAsleep.store(m_vJobs.empty());
        }
        Bell::Batch::ring();
        su_root_step(in_pRoot, static_cast<su_duration_t>(m_bAsleep.load() ? msToNextTimer() : 0));
        m_bAsleep.store(false);
    }
}

void StackThread::runJobs()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_vBatch.swap(m_vJobs);
    }
    for (auto& job : m_vBatch)
    {
        try
        {
            job();
        }
        catch (const std::exception& exception)
        {
            QLOG_ERROR(s_logger, "exception in a SIP job: " << exception.what());
        }
        catch (...)
        {
            QLOG_ERROR(s_logger, "exception of an unknown kind in a SIP job");
        }
    }
    m_vBatch.clear();
    // What a rush needed is not kept for ever.
    if (m_vBatch.capacity() > kMostKeptJobs)
    {
        m_vBatch.shrink_to_fit();
    }
}

void StackThread::runTimers()
{
    if (m_timers.empty())
    {
        return;
    }
    const std::int64_t now = nowNs();
    while (!m_timers.empty() && m_timers.begin()->first <= now)
    {
        // The function may destroy the timer, or start it again.
        const auto entry = m_timers.extract(m_timers.begin());
        entry.mapped().m_pTimer->m_pThread = nullptr;
        entry.mapped().m_function();
    }
}

std::int64_t StackThread::msToNextTimer() const
{
    if (m_timers.empty())
    {
        return kForeverMs;
    }
    const std::int64_t ns = m_timers.begin()->first - nowNs();
    return ns <= 0 ? 0 : std::min<std::int64_t>((ns + 999999) / 1000000, kForeverMs);
}

}  // namespace Quorvex
