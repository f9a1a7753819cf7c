#include "thread/TimerQueue.h"

#include <algorithm>

namespace Quorvex
{

namespace
{
ACE_Time_Value toTimeValue(TimerQueue::Clock::time_point in_time)
{
    const auto us = std::chrono::duration_cast<std::chrono::microseconds>(in_time.time_since_epoch()).count();
    return ACE_Time_Value(static_cast<time_t>(us / 1000000), static_cast<suseconds_t>(us % 1000000));
}

TimerQueue::Clock::duration toDelay(const ACE_Time_Value& in_delay)
{
    // Ten years are for ever, and far from the clock's end.
    constexpr time_t kLongestS = 10L * 365 * 86400;
    if (in_delay <= ACE_Time_Value::zero)
    {
        return TimerQueue::Clock::duration::zero();
    }
    return std::chrono::seconds(std::min(in_delay.sec(), kLongestS)) +
           std::chrono::microseconds(in_delay.usec());
}
}  // namespace

bool TimerQueue::later(const Entry& in_a, const Entry& in_b)
{
    // Equal expiries fire in the order in which they were scheduled.
    return in_a.m_expiry != in_b.m_expiry ? in_a.m_expiry > in_b.m_expiry : in_a.m_id > in_b.m_id;
}

TimerScheduler::TimerId TimerQueue::scheduleTimer(LimitedObjPtr<TimeoutProcessor> in_pProcessor,
                                                  TimeoutData* in_pData,
                                                  const ACE_Time_Value& in_delay)
{
    if (in_pProcessor.isNull())
    {
        return NO_TIMER;
    }
    const TimerId id = ++m_lastId;
    m_timers.emplace(id, Timer{in_pProcessor, in_pData});
    m_heap.push_back(Entry{Clock::now() + toDelay(in_delay), id});
    std::push_heap(m_heap.begin(), m_heap.end(), later);
    return id;
}

bool TimerQueue::cancelTimer(TimerId in_timerId)
{
    if (m_timers.erase(in_timerId) == 0)
    {
        return false;
    }
    constexpr std::size_t kFewHusks = 64;
    if (m_heap.size() > 2 * m_timers.size() + kFewHusks)
    {
        sweep();
    }
    return true;
}

ACE_Time_Value TimerQueue::now() const
{
    return toTimeValue(Clock::now());
}

std::size_t TimerQueue::expire(Clock::time_point in_now)
{
    std::size_t expired = 0;
    // What the processors schedule from now on waits for the next round, however short its delay.
    const TimerId lastId = m_lastId;
    std::vector<Entry> vNew;
    for (dropHusks(); !m_heap.empty() && m_heap.front().m_expiry <= in_now; dropHusks())
    {
        const Entry entry = m_heap.front();
        popFront();
        if (entry.m_id > lastId)
        {
            vNew.push_back(entry);
            continue;
        }
        const auto found = m_timers.find(entry.m_id);
        const Timer timer = found->second;
        m_timers.erase(found);
        timer.m_pProcessor->processTimeout(toTimeValue(entry.m_expiry), timer.m_pData);
        ++expired;
    }
    for (const Entry& entry : vNew)
    {
        m_heap.push_back(entry);
        std::push_heap(m_heap.begin(), m_heap.end(), later);
    }
    return expired;
}

TimerQueue::Clock::time_point TimerQueue::nextExpiry()
{
    dropHusks();
    return m_heap.empty() ? Clock::time_point::max() : m_heap.front().m_expiry;
}

void TimerQueue::popFront()
{
    std::pop_heap(m_heap.begin(), m_heap.end(), later);
    m_heap.pop_back();
}

void TimerQueue::dropHusks()
{
    while (!m_heap.empty() && m_timers.count(m_heap.front().m_id) == 0)
    {
        popFront();
    }
}

void TimerQueue::sweep()
{
    m_heap.erase(std::remove_if(m_heap.begin(),
                                m_heap.end(),
                                [this](const Entry& in_entry) { return m_timers.count(in_entry.m_id) == 0; }),
                 m_heap.end());
    std::make_heap(m_heap.begin(), m_heap.end(), later);
}

}  // namespace Quorvex
