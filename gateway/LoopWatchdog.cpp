#include "LoopWatchdog.h"

#include <utility>

#include "infra/ThreadName.h"

namespace Quorvex
{

namespace
{

double secondsSince(std::chrono::steady_clock::time_point in_time)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - in_time).count();
}

}  // namespace

LoopWatchdog::LoopWatchdog(std::chrono::milliseconds in_interval, std::chrono::milliseconds in_limit)
    : m_interval(in_interval), m_limit(in_limit), m_logger("quorvex.gateway.LoopWatchdog")
{
}

LoopWatchdog::~LoopWatchdog()
{
    stop();
}

void LoopWatchdog::watch(const std::string& in_strLoop, const std::string& in_strThread, Ping in_ping)
{
    auto pLoop = std::make_unique<Loop>();
    pLoop->m_strName = in_strLoop;
    pLoop->m_strThread = in_strThread;
    pLoop->m_ping = std::move(in_ping);
    m_vLoops.push_back(std::move(pLoop));
}

void LoopWatchdog::start()
{
    const std::lock_guard guard(m_mutex);
    m_bRunning = true;
    m_thread = std::thread([this] { run(); });
}

void LoopWatchdog::stop()
{
    {
        const std::lock_guard guard(m_mutex);
        m_bRunning = false;
    }
    m_stopped.notify_all();
    if (m_thread.joinable())
    {
        m_thread.join();
    }
}

void LoopWatchdog::run()
{
    nameThisThread("watchdog");
    std::unique_lock lock(m_mutex);
    while (m_bRunning)
    {
        lock.unlock();
        for (const auto& pLoop : m_vLoops)
        {
            look(*pLoop);
        }
        lock.lock();
        m_stopped.wait_for(lock, m_interval, [this] { return !m_bRunning; });
    }
}

void LoopWatchdog::look(Loop& io_loop) const
{
    if (io_loop.m_pAnswers->m_bAwaited.load())
    {
        const double fSeconds = getStalledS(io_loop);
        if (fSeconds > 0 && !std::exchange(io_loop.m_bReported, true))
        {
            QLOG_ERROR(m_logger,
                       "the " << io_loop.m_strName << " loop stands still: thread \"" << io_loop.m_strThread
                              << "\" has not answered for " << fSeconds << " s");
        }
        return;
    }
    if (std::exchange(io_loop.m_bReported, false))
    {
        QLOG_INFO(m_logger,
                  "the " << io_loop.m_strName << " loop runs again, after "
                         << io_loop.m_pAnswers->m_fRoundTripS.load() << " s");
    }
    const Clock::time_point asked = Clock::now();
    io_loop.m_pAnswers->m_asked = asked;
    io_loop.m_pAnswers->m_bAwaited = true;
    const bool bAsked = io_loop.m_ping(
        [pAnswers = io_loop.m_pAnswers, asked]
        {
            pAnswers->m_fRoundTripS = secondsSince(asked);
            pAnswers->m_bAwaited = false;
        });
    if (!bAsked)
    {
        io_loop.m_pAnswers->m_bAwaited = false;
    }
}

double LoopWatchdog::getStalledS(const Loop& in_loop) const
{
    const Answers& answers = *in_loop.m_pAnswers;
    const double fSeconds = answers.m_bAwaited.load() ? secondsSince(answers.m_asked.load()) : 0.0;
    return fSeconds > std::chrono::duration<double>(m_limit).count() ? fSeconds : 0.0;
}

std::string LoopWatchdog::getStalled() const
{
    std::string text;
    for (const auto& pLoop : m_vLoops)
    {
        if (getStalledS(*pLoop) > 0)
        {
            text += (text.empty() ? "The gateway does not serve: the " : ", the ") + pLoop->m_strName +
                    " loop stands still (thread \"" + pLoop->m_strThread + "\")";
        }
    }
    return text.empty() ? text : text + ".";
}

void LoopWatchdog::collect(MetricsPage& io_page)
{
    io_page.family("quorvex_loop_round_trip_seconds", "gauge", "The last round trip through a loop.");
    for (const auto& pLoop : m_vLoops)
    {
        io_page.sample(pLoop->m_pAnswers->m_fRoundTripS.load(),
                       {
                           {"loop", pLoop->m_strName}
        });
    }
    io_page.family("quorvex_loop_stalled", "gauge", "Whether a loop stands still.");
    for (const auto& pLoop : m_vLoops)
    {
        io_page.sample(getStalledS(*pLoop) > 0 ? 1.0 : 0.0,
                       {
                           {"loop", pLoop->m_strName}
        });
    }
}

}  // namespace Quorvex
