#pragma once

#include <chrono>
#include <cstddef>
#include <unordered_map>
#include <vector>

#include "thread/TimerScheduler.h"

namespace Quorvex
{

/// The timers of one thread: a binary heap by expiry, O(log n) to schedule, O(1) to cancel. A cancelled
/// timer's entry stays in the heap as a husk; when husks outnumber timers the heap is swept, so memory
/// follows the live timers.
class TimerQueue final : public TimerScheduler
{
public:
    using Clock = std::chrono::steady_clock;

    TimerId scheduleTimer(LimitedObjPtr<TimeoutProcessor> in_pProcessor,
                          TimeoutData* in_pData,
                          const ACE_Time_Value& in_delay) override;
    bool cancelTimer(TimerId in_timerId) override;
    ACE_Time_Value now() const override;

    /// Calls the processors of all timers that are due at that moment, earliest first. A timer scheduled or
    /// cancelled by a processor is respected at once. Returns how many expired.
    std::size_t expire(Clock::time_point in_now);

    /// Whether any timer runs; then the next expiry.
    bool empty() const { return m_timers.empty(); }
    Clock::time_point nextExpiry();

    std::size_t size() const { return m_timers.size(); }

private:
    struct Timer
    {
        LimitedObjPtr<TimeoutProcessor> m_pProcessor;
        TimeoutData* m_pData = nullptr;
    };
    struct Entry
    {
        Clock::time_point m_expiry;
        TimerId m_id = 0;
    };
    static bool later(const Entry& in_a, const Entry& in_b);
    void popFront();
    void dropHusks();
    void sweep();

    std::vector<Entry> m_heap;
    std::unordered_map<TimerId, Timer> m_timers;
    TimerId m_lastId = NO_TIMER;
};

}  // namespace Quorvex
