#include "thread/TimeoutState.h"

#include "infra/Assertion.h"

namespace Quorvex
{

TimeoutStateNoT::TimeoutStateNoT(const ACE_Time_Value& in_timeout) : m_timeout(in_timeout)
{
}

TimeoutStateNoT::~TimeoutStateNoT()
{
    cancelTimer();
}

void TimeoutStateNoT::initialize(LimitedObjPtr<TimerScheduler> in_pScheduler,
                                 LimitedObjPtr<TimeoutProcessor> in_pProcessor)
{
    cancelTimer();
    m_pScheduler = in_pScheduler;
    m_pProcessor = in_pProcessor;
}

ACE_Time_Value TimeoutStateNoT::getTimeout() const
{
    return m_timeout;
}

bool TimeoutStateNoT::scheduleTimer()
{
    static const StaticLogger s_logger("quorvex.thread.TimeoutState");
    if (!QUORVEX_ASSERT(s_logger, !m_pScheduler.isNull()))
    {
        return false;
    }
    cancelTimer();
    nextTimerGeneration();
    m_timerId = m_pScheduler->scheduleTimer(m_pProcessor, this, getTimeout());
    m_bRunning = m_timerId != TimerScheduler::NO_TIMER;
    return m_bRunning;
}

void TimeoutStateNoT::cancelTimer()
{
    if (m_bRunning)
    {
        m_bRunning = false;
        m_pScheduler->cancelTimer(m_timerId);
    }
}

bool TimeoutStateNoT::isOurTimeout(const TimeoutEvent& in_event) const
{
    return m_bRunning && in_event.getTimeoutData() == this &&
           in_event.getTimerGeneration() == getTimerGeneration();
}

bool TimeoutStateNoT::processOurTimeoutEvent(const TimeoutEvent& /*in_event*/, std::string& out_strStateName)
{
    m_bRunning = false;
    return processTimeout_i(out_strStateName);
}

}  // namespace Quorvex
