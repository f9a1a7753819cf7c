#pragma once

#include <ace/Time_Value.h>

#include <cstdint>

#include "infra/LimitedObjPtr.h"

namespace Quorvex
{

/// What a timer was scheduled for. Whoever schedules derives from it and finds itself in the expiry.
///
/// The generation counts the owner's timers, so that an expiry that was kept for later (queued, cloned) and
/// has been overtaken by a newer timer of the same owner can be told from it.
class TimeoutData
{
public:
    TimeoutData() = default;
    TimeoutData(const TimeoutData&) = delete;
    TimeoutData& operator=(const TimeoutData&) = delete;
    virtual ~TimeoutData() = default;

    std::uint32_t getTimerGeneration() const { return m_uiGeneration; }

protected:
    void nextTimerGeneration() { ++m_uiGeneration; }

private:
    std::uint32_t m_uiGeneration = 0;
};

/// Receives expiries.
class TimeoutProcessor
{
public:
    TimeoutProcessor() = default;
    TimeoutProcessor(const TimeoutProcessor&) = delete;
    TimeoutProcessor& operator=(const TimeoutProcessor&) = delete;
    virtual ~TimeoutProcessor() = default;

    /// Called on the task's thread when a timer expires, with the moment for which it was set (see
    /// TimerScheduler::now) and what it was scheduled with. May schedule and cancel timers. False: not
    /// handled.
    virtual bool processTimeout(const ACE_Time_Value& in_expiryTime, TimeoutData* in_pData) = 0;
};

/// One-shot timers, served on one thread; all operations belong to that thread. Processor and data must live
/// until the timer has expired or been cancelled.
class TimerScheduler
{
public:
    /// Names one scheduling; never used twice in the life of a scheduler.
    using TimerId = std::uint64_t;
    static constexpr TimerId NO_TIMER = 0;

    TimerScheduler() = default;
    TimerScheduler(const TimerScheduler&) = delete;
    TimerScheduler& operator=(const TimerScheduler&) = delete;
    virtual ~TimerScheduler() = default;

    /// Calls the processor once, as soon as the delay has passed (a negative one counts as zero) and never
    /// from inside this call. NO_TIMER when the processor is null.
    virtual TimerId scheduleTimer(LimitedObjPtr<TimeoutProcessor> in_pProcessor,
                                  TimeoutData* in_pData,
                                  const ACE_Time_Value& in_delay) = 0;

    /// After the return that timer does not expire any more. False when it already has, or never was.
    virtual bool cancelTimer(TimerId in_timerId) = 0;

    /// The scheduler's clock: runs evenly, is not set with the time of day, and starts somewhere.
    virtual ACE_Time_Value now() const = 0;
};

}  // namespace Quorvex
