#pragma once

#include <string>

#include "infra/LimitedObjPtr.h"
#include "quorvex/StateMachine.h"
#include "thread/TimeoutEvent.h"
#include "thread/TimeoutState.h"
#include "thread/TimerScheduler.h"

namespace Quorvex
{

/// The timer expiry inside an event, or null when the event is another. Events that can tell more cheaply
/// than by a cast across their bases have a member asTimeoutEvent().
template <class Event>
const TimeoutEvent* asTimeoutEvent(const Event& in_event)
{
    if constexpr (requires { in_event.asTimeoutEvent(); })
    {
        return in_event.asTimeoutEvent();
    }
    else
    {
        return dynamic_cast<const TimeoutEvent*>(&in_event);
    }
}

/// A state of a machine with timers, be it with or without a timer of its own.
template <class Event>
class TimeoutStateInterface : public virtual NamedState<Event>
{
public:
    /// Handles an event that is no timer expiry; as StateInterface::processEvent.
    virtual bool processEvent_i(const Event& in_event, std::string& out_strStateName) = 0;

    /// Handles the expiry of a timer that is not this state's: of a state left before, or of an earlier
    /// visit.
    virtual bool processOtherTimeout_i(const Event& /*in_event*/, std::string& out_strStateName)
    {
        out_strStateName = this->getName();
        return true;
    }
};

/// A state without a timer.
template <class Event>
class NoTimeoutState : public virtual TimeoutStateInterface<Event>
{
public:
    bool processEvent(const Event& in_event, std::string& out_strStateName) override
    {
        if (asTimeoutEvent(in_event) != nullptr)
        {
            return this->processOtherTimeout_i(in_event, out_strStateName);
        }
        return this->processEvent_i(in_event, out_strStateName);
    }
};

/// A state with a timer: it runs from the moment the machine comes to rest in the state until the state is
/// left through an ordinary event, or until it fires.
template <class Event>
class TimeoutState : public virtual TimeoutStateInterface<Event>, public TimeoutStateNoT
{
public:
    explicit TimeoutState(const ACE_Time_Value& in_timeout) : TimeoutStateNoT(in_timeout) {}

    /// The state's own entry action.
    virtual void entryAction_i(const Event& /*in_event*/, std::string& out_strStateName)
    {
        out_strStateName = this->getName();
    }

    void entryAction(const Event& in_event, std::string& out_strStateName) override
    {
        entryAction_i(in_event, out_strStateName);
        if (out_strStateName == this->getName())
        {
            static_cast<void>(this->scheduleTimer());
        }
    }

    bool processEvent(const Event& in_event, std::string& out_strStateName) override
    {
        const TimeoutEvent* pTimeoutEvent = asTimeoutEvent(in_event);
        if (pTimeoutEvent == nullptr)
        {
            const bool bProcessed = this->processEvent_i(in_event, out_strStateName);
            if (this->isTimerRunning() && out_strStateName != this->getName())
            {
                this->cancelTimer();
            }
            return bProcessed;
        }
        if (this->isOurTimeout(*pTimeoutEvent))
        {
            return this->processOurTimeoutEvent(*pTimeoutEvent, out_strStateName);
        }
        return this->processOtherTimeout_i(in_event, out_strStateName);
    }
};

/// A machine whose states may have timers. Register the states, initialize(), then go to the initial state.
template <class Event, class State, class LoggerType = CallLogger>
class TimeoutStateMachine : public StateMachine<Event, State, LoggerType>, public TimeoutProcessor
{
    using Base = StateMachine<Event, State, LoggerType>;

public:
    TimeoutStateMachine() : TimeoutStateMachine(LoggerType("quorvex.StateMachine")) {}
    explicit TimeoutStateMachine(const LoggerType& in_logger)
        : ObjectWithLogger<LoggerType>(in_logger), Base(in_logger)
    {
    }

    /// Tells every timed state registered so far where to schedule its timer and whom to tell of the expiry;
    /// both must outlive the machine's timers. False, and nothing done, when either is null.
    bool initialize(LimitedObjPtr<TimerScheduler> in_pScheduler,
                    LimitedObjPtr<TimeoutProcessor> in_pProcessor)
    {
        if (in_pScheduler.isNull() || in_pProcessor.isNull())
        {
            return false;
        }
        for (auto iter = this->beginState(); iter != this->endState(); ++iter)
        {
            TimeoutStateNoT* const pTimeoutState = timeoutStateOf(*iter);
            if (pTimeoutState != nullptr)
            {
                pTimeoutState->initialize(in_pScheduler, in_pProcessor);
            }
        }
        return true;
    }

    /// As StateMachine::goToInitialState; the current state's timer no longer runs then.
    bool goToInitialState(const Event& in_event)
    {
        cancelCurrentTimer();
        return Base::goToInitialState(in_event);
    }

protected:
    void cancelCurrentTimer()
    {
        const auto iter = this->currentState();
        if (iter == this->endState())
        {
            return;
        }
        TimeoutStateNoT* const pTimeoutState = timeoutStateOf(*iter);
        if (pTimeoutState != nullptr)
        {
            pTimeoutState->cancelTimer();
        }
    }

private:
    template <class Entry>
    static TimeoutStateNoT* timeoutStateOf(const Entry& in_entry)
    {
        State* const pState = in_entry.second.m_pState.get();
        return pState == nullptr ? nullptr : pState->asTimeoutState();
    }
};

}  // namespace Quorvex
