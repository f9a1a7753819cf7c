#pragma once

#include <ace/Time_Value.h>

#include <string>

#include "infra/NamedState.h"
#include "thread/TimeoutEvent.h"
#include "thread/TimerScheduler.h"

namespace Quorvex
{

/// The timer side of a state with a time-out, whatever events its machine runs on. One thread.
class TimeoutStateNoT : public virtual NamedStateNoT, public virtual TimeoutData
{
public:
    explicit TimeoutStateNoT(const ACE_Time_Value& in_timeout);
    /// Cancels the timer if it runs: a state may be destroyed at any moment.
    ~TimeoutStateNoT() override;

    /// Says where timers are scheduled and who is told of expiries. Both must outlive the state's last timer.
    virtual void initialize(LimitedObjPtr<TimerScheduler> in_pScheduler,
                            LimitedObjPtr<TimeoutProcessor> in_pProcessor);

    TimeoutStateNoT* asTimeoutState() final { return this; }

    /// How long the state may last.
    virtual ACE_Time_Value getTimeout() const;

    /// What the state does when its own timer has expired; names the next state as processEvent does.
    virtual bool processTimeout_i(std::string& out_strStateName) = 0;

    /// Starts the timer, anew if it runs. False, with an assertion, when the state was not initialised.
    bool scheduleTimer();

    /// Ends the timer if it runs; may be called at any time.
    void cancelTimer();

    bool isTimerRunning() const { return m_bRunning; }

    /// True for the expiry of the timer that this state scheduled last, once.
    bool isOurTimeout(const TimeoutEvent& in_event) const;

    /// To be called when isOurTimeout: the timer no longer runs, then processTimeout_i.
    bool processOurTimeoutEvent(const TimeoutEvent& in_event, std::string& out_strStateName);

    /// Null before initialize.
    LimitedObjPtr<TimerScheduler> getTimerScheduler() const { return m_pScheduler; }

private:
    ACE_Time_Value m_timeout;
    LimitedObjPtr<TimerScheduler> m_pScheduler;
    LimitedObjPtr<TimeoutProcessor> m_pProcessor;
    TimerScheduler::TimerId m_timerId = TimerScheduler::NO_TIMER;
    bool m_bRunning = false;
};

}  // namespace Quorvex
