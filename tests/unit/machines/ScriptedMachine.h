#pragma once

#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "infra/Assertion.h"
#include "infra/Object.h"
#include "quorvex/InternalMachineStateImpl.h"
#include "thread/TimerQueue.h"

namespace Quorvex::Test
{

/// An event with a name.
class Event : public virtual OutputStreamable, public virtual Cloneable
{
public:
    explicit Event(std::string in_strName) : m_strName(std::move(in_strName)) {}
    const std::string& getName() const { return m_strName; }
    std::ostream& write(std::ostream& out_stream) const override
    {
        return out_stream << "event " << m_strName;
    }
    Cloneable* clone() const override { return new Event(*this); }

private:
    std::string m_strName;
};

class Expiry : public Event, public TimeoutEvent
{
public:
    Expiry(const ACE_Time_Value& in_time, TimeoutData* in_pData)
        : Event("timeout"), TimeoutEvent(in_time, in_pData)
    {
    }
    std::ostream& write(std::ostream& out_stream) const override { return TimeoutEvent::write(out_stream); }
    Cloneable* clone() const override { return new Expiry(*this); }
};

/// What the states did, in order: "A.entry(go)", "A.event(x)", "A.exit(B)".
using Diary = std::vector<std::string>;

/// A state that does what it was told to do at each event: names the next state, "" leaves the out state name
/// untouched, "!" fails, "?" declines, "*" stays. Without an entry it stays.
class ScriptedState : public virtual TimeoutStateInterface<Event>,
                      public StateMachineWithEventQueueNamedState<Event>
{
public:
    ScriptedState(Diary& io_diary, std::string in_strName)
        : m_diary(io_diary), m_strName(std::move(in_strName))
    {
    }

    const char* getName() const override { return m_strName.c_str(); }

    ScriptedState& on(const std::string& in_strEvent, const std::string& in_strDo)
    {
        m_script[in_strEvent] = in_strDo;
        return *this;
    }
    ScriptedState& onEntry(const std::string& in_strDo) { return on("entry", in_strDo); }

    bool processEvent_i(const Event& in_event, std::string& out_strStateName) override
    {
        m_diary.push_back(m_strName + ".event(" + in_event.getName() + ")");
        return act(in_event.getName(), out_strStateName);
    }
    bool processOtherTimeout_i(const Event& in_event, std::string& out_strStateName) override
    {
        m_diary.push_back(m_strName + ".otherTimeout");
        return TimeoutStateInterface<Event>::processOtherTimeout_i(in_event, out_strStateName);
    }
    void onStateExit(const Event& /*in_event*/, const std::string& in_strNewStateName) override
    {
        m_diary.push_back(m_strName + ".exit(" + in_strNewStateName + ")");
        if (m_onExit)
        {
            m_onExit();
        }
    }

    std::function<void()> m_onExit;
    std::function<void()> m_onEvent;

protected:
    void enter(const Event& in_event, std::string& out_strStateName)
    {
        m_diary.push_back(m_strName + ".entry(" + in_event.getName() + ")");
        static_cast<void>(act("entry", out_strStateName));
    }
    bool act(const std::string& in_strEvent, std::string& out_strStateName)
    {
        const auto iter = m_script.find(in_strEvent);
        const std::string strDo = iter == m_script.end() ? "*" : iter->second;
        if (m_onEvent && in_strEvent != "entry")
        {
            m_onEvent();
        }
        if (strDo == "?")
        {
            m_pNotifiable->unprocessedEvent();
        }
        if (strDo == "*" || strDo == "?")
        {
            out_strStateName = m_strName;
        }
        else if (!strDo.empty())
        {
            out_strStateName = strDo;
        }
        return strDo != "!";
    }

private:
    Diary& m_diary;
    const std::string m_strName;
    std::map<std::string, std::string> m_script;
};

class PlainState : public ScriptedState, public NoTimeoutState<Event>
{
public:
    using ScriptedState::ScriptedState;
    void entryAction(const Event& in_event, std::string& out_strStateName) override
    {
        enter(in_event, out_strStateName);
    }
};

/// On its own expiry it does what on("own timeout") says.
class TimedState : public ScriptedState, public TimeoutState<Event>
{
public:
    TimedState(Diary& io_diary, const std::string& in_strName, const ACE_Time_Value& in_timeout)
        : ScriptedState(io_diary, in_strName), TimeoutState<Event>(in_timeout), m_diary(io_diary)
    {
    }
    void entryAction_i(const Event& in_event, std::string& out_strStateName) override
    {
        enter(in_event, out_strStateName);
    }
    bool processTimeout_i(std::string& out_strStateName) override
    {
        m_diary.push_back(std::string(getName()) + ".ownTimeout");
        return act("own timeout", out_strStateName);
    }

private:
    Diary& m_diary;
};

using Machine = StateMachineWithEventQueue<Event, ScriptedState>;
using StatePtr = CountedObjPtr<ScriptedState>;

/// Stands before the machine, so that the timers outlive its states.
struct TimerOwner
{
    TimerQueue m_timers;
};

/// A machine with a diary, on a clock that the test moves. The first state added is the initial one.
class ScriptedMachine : private TimerOwner, public Machine
{
public:
    ScriptedMachine() : ScriptedMachine(CallLogger("test.machine")) {}
    explicit ScriptedMachine(const CallLogger& in_logger)
        : ObjectWithLogger<CallLogger>(in_logger), Machine(in_logger)
    {
    }

    PlainState& add(const std::string& in_strName)
    {
        auto* pState = new PlainState(m_diary, in_strName);
        install(in_strName, StatePtr(pState), false);
        return *pState;
    }
    PlainState& addFinal(const std::string& in_strName)
    {
        auto* pState = new PlainState(m_diary, in_strName);
        install(in_strName, StatePtr(pState), true);
        return *pState;
    }
    TimedState& addTimed(const std::string& in_strName, const ACE_Time_Value& in_timeout)
    {
        auto* pState = new TimedState(m_diary, in_strName, in_timeout);
        install(in_strName, StatePtr(pState), false);
        return *pState;
    }

    bool start(const std::string& in_strEvent = "go") { return goToInitialState(Event(in_strEvent)); }
    bool startTimed() { return initialize(&m_timers, this) && start(); }
    bool feed(const std::string& in_strEvent) { return processEvent(Event(in_strEvent)); }
    bool processTimeout(const ACE_Time_Value& in_time, TimeoutData* in_pData) override
    {
        return processEvent(Expiry(in_time, in_pData));
    }
    /// Moves the clock on from now; returns how many timers expired.
    std::size_t advance(std::chrono::milliseconds in_by)
    {
        return m_timers.expire(TimerQueue::Clock::now() + in_by);
    }
    TimerQueue& timers() { return m_timers; }
    /// What happened since it was asked last.
    Diary diary() { return std::exchange(m_diary, Diary()); }
    std::string current() const { return getCurrentStateName(); }

protected:
    Diary m_diary;

private:
    void install(const std::string& in_strName, const StatePtr& in_pState, bool in_bFinal)
    {
        if (beginState() == endState())
        {
            setInitialStateName(in_strName.c_str());
            setInitialState(in_pState);
        }
        else if (in_bFinal)
        {
            addFinalState(in_strName.c_str(), in_pState);
        }
        else
        {
            addState(in_strName.c_str(), in_pState);
        }
    }
};

/// Collects what is logged while it lives.
class LogCapture
{
public:
    explicit LogCapture(int in_iLevel = eDEBUG_LEVEL)
    {
        Logging::setLevel("test", in_iLevel);
        Logging::setCapture(&LogCapture::take, this);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
    ~LogCapture()
    {
        Logging::setCapture(nullptr, nullptr);
        Logging::clearLevels();
    }

    bool has(int in_iLevel, const std::string& in_strText) const
    {
        for (const auto& [iLevel, strText] : m_vRecords)
        {
            if (iLevel == in_iLevel && strText == in_strText)
            {
                return true;
            }
        }
        return false;
    }
    std::size_t count(int in_iLevel) const
    {
        std::size_t uiCount = 0;
        for (const auto& record : m_vRecords)
        {
            uiCount += record.first == in_iLevel ? 1 : 0;
        }
        return uiCount;
    }
    /// Whether a failed condition with that text was reported.
    bool asserted(const std::string& in_strCondition) const
    {
        for (const auto& [iLevel, strText] : m_vRecords)
        {
            if (iLevel == eERROR_LEVEL && strText.find(in_strCondition) != std::string::npos)
            {
                return true;
            }
        }
        return false;
    }

private:
    static void take(void* io_pContext,
                     int in_iLevel,
                     const std::string& /*logger*/,
                     const std::string& in_strText)
    {
        static_cast<LogCapture*>(io_pContext)->m_vRecords.emplace_back(in_iLevel, in_strText);
    }
    std::vector<std::pair<int, std::string>> m_vRecords;
};

}  // namespace Quorvex::Test
