#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "infra/Assertion.h"
#include "infra/CountedObjPtr.h"
#include "infra/Logger.h"
#include "infra/NamedState.h"
#include "infra/RecursivityGuard.h"
#include "infra/ScratchMember.h"
#include "infra/SharedName.h"

namespace Quorvex
{

/// One state of a machine. Actions never switch the machine: each writes the name of the state to be in next
/// into the out state name (its own name to stay), and the machine does the rest.
template <class Event>
class StateInterface
{
public:
    StateInterface() = default;
    StateInterface(const StateInterface&) = delete;
    StateInterface& operator=(const StateInterface&) = delete;
    virtual ~StateInterface() = default;

    /// Run when the machine enters the state.
    virtual void entryAction(const Event& in_event, std::string& out_strStateName) = 0;

    /// Handles one event. False when the state failed to; the machine then stays and the out state name is
    /// ignored.
    virtual bool processEvent(const Event& in_event, std::string& out_strStateName) = 0;

    /// Run when the machine leaves the state, with the name of the one that is entered.
    virtual void onStateExit(const Event& /*in_event*/, const std::string& /*in_strNewStateName*/) {}
};

/// A state with a name, resting in itself when it is entered.
template <class Event>
class NamedState : public StateInterface<Event>, public virtual NamedStateNoT
{
public:
    void entryAction(const Event& /*in_event*/, std::string& out_strStateName) override
    {
        out_strStateName = getName();
    }
};

/// Whatever takes events.
template <class Event>
class EventProcessor
{
public:
    EventProcessor() = default;
    EventProcessor(const EventProcessor&) = delete;
    EventProcessor& operator=(const EventProcessor&) = delete;
    virtual ~EventProcessor() = default;

    /// Handles one event at once; false when that failed.
    virtual bool processEvent(const Event& in_event) = 0;
};

/// What every machine has, whatever its events.
class StateMachineNoT
{
public:
    /// Never the name of a state: what the out state name holds before an action is run, and what
    /// getCurrentStateName() returns when there is no current state.
    static const char* getUndefStateName() { return "StateMachineNoTUndefStateName"; }

protected:
    bool m_bProcessing = false;
};

/// A machine of named states. Set the initial state name, register the states, go to the initial state once,
/// then feed events. One thread at a time, and no event from inside an action: such a re-entry is reported.
///
/// `State` derives from NamedState<Event>. No operation throws by itself.
template <class Event, class State, class LoggerType = CallLogger>
class StateMachine : public StateMachineNoT,
                     public virtual EventProcessor<Event>,
                     public virtual ObjectWithLogger<LoggerType>
{
public:
    enum StateType
    {
        INITIAL_STATE = 0,
        NORMAL_STATE = 1,
        FINAL_STATE = 2
    };

    struct StateRecord
    {
        StateType m_stateType;
        CountedObjPtr<State> m_pState;  ///< null only for a final state without behaviour
    };

    using StatePtr = CountedObjPtr<State>;
    using ObjectWithLogger<LoggerType>::getLogger;

    /// The states in the order of their registration, by their names. A dozen states is what a machine has,
    /// and each held call has several machines: a row takes the least room and is searched the fastest.
    using StateRow = std::vector<std::pair<SharedName, StateRecord>>;
    using StateMachineConstIterator = typename StateRow::const_iterator;

    StateMachine() : StateMachine(LoggerType("quorvex.StateMachine")) {}
    explicit StateMachine(const LoggerType& in_logger)
        : ObjectWithLogger<LoggerType>(in_logger), m_currentStateIter(m_stateHash.end())
    {
    }

    /// Makes the name the initial state's; a state already registered under it becomes the initial one, the
    /// former initial state a normal one. There is no current state afterwards.
    virtual void setInitialStateName(const char* in_szName)
    {
        m_currentStateIter = findState(m_initialStateName.getText());
        if (m_currentStateIter != m_stateHash.end())
        {
            static_cast<void>(
                QUORVEX_ASSERT(getLogger(), m_currentStateIter->second.m_stateType == INITIAL_STATE));
            m_currentStateIter->second.m_stateType = NORMAL_STATE;
        }
        m_initialStateName = SharedName(in_szName);
        m_currentStateIter = findState(m_initialStateName.getText());
        if (m_currentStateIter != m_stateHash.end())
        {
            m_currentStateIter->second.m_stateType = INITIAL_STATE;
        }
        m_currentStateIter = m_stateHash.end();
    }

    /// Registers the state under the initial state name, in place of what was there. No current state
    /// afterwards.
    void setInitialState(const StatePtr& in_pState)
    {
        static_cast<void>(QUORVEX_ASSERT_TEXT(getLogger(),
                                              m_initialStateName.getText() != getUndefStateName(),
                                              "m_strStateName != getUndefStateName()"));
        const StateRecord record{INITIAL_STATE, in_pState};
        const auto iter = findState(m_initialStateName.getText());
        if (iter != m_stateHash.end())
        {
            iter->second = record;
        }
        else
        {
            append(m_initialStateName, record);
        }
        m_currentStateIter = m_stateHash.end();
    }

    /// False, with a log line, when the name is taken or is the initial state's.
    bool addState(const char* in_szName, const StatePtr& in_pState)
    {
        return addState(in_szName, in_pState, NORMAL_STATE);
    }

    /// As addState; the state may be null: it then accepts every event.
    bool addFinalState(const char* in_szName, const StatePtr& in_pState = StatePtr())
    {
        return addState(in_szName, in_pState, FINAL_STATE);
    }

    /// False when the state is the initial one, the current one, or unknown.
    bool removeState(const char* in_szName)
    {
        const std::string strStateName(in_szName);
        if (!QUORVEX_ASSERT(getLogger(), strStateName != getInitialStateName()))
        {
            return false;
        }
        const auto iter = findState(strStateName);
        if (iter == m_stateHash.end() || iter == m_currentStateIter)
        {
            return false;
        }
        const std::string strCurrentName(getCurrentStateName());
        m_stateHash.erase(iter);
        m_currentStateIter = findState(strCurrentName);
        return true;
    }

    /// Back to the condition of a machine that was just built.
    void reset()
    {
        m_stateHash.clear();
        m_currentStateIter = m_stateHash.end();
        m_strStateName = getUndefStateName();
        setInitialStateName("");
        m_currentStateIter = m_stateHash.end();
    }

    /// Enters the initial state (and what its entry action names) with the event, from wherever the machine
    /// is; the exit action of the state it was in is not run. False when there is no initial state.
    bool goToInitialState(const Event& in_event)
    {
        m_currentStateIter = findState(m_initialStateName.getText());
        if (!QUORVEX_ASSERT(getLogger(), m_currentStateIter != m_stateHash.end()))
        {
            return false;
        }
        static_cast<void>(
            QUORVEX_ASSERT(getLogger(), m_currentStateIter->second.m_stateType == INITIAL_STATE));
        if (!QUORVEX_ASSERT_TEXT(getLogger(),
                                 !m_currentStateIter->second.m_pState.isNull(),
                                 "! m_currentStateIter->second.m_pState.isNull()"))
        {
            return false;
        }
        QLOG_DEBUG(getLogger(), "--> " << m_initialStateName.getText());
        return entryAction(in_event);
    }

    /// Gives the event to the current state and follows the transitions that it names. False when there is no
    /// current state, the state failed, or it named a state that does not exist (the machine is then without
    /// a current state until goToInitialState()).
    bool processEvent(const Event& in_event) override
    {
        const RecursivityGuard recursivityGuard(m_bProcessing);
        if (!QUORVEX_ASSERT(getLogger(), m_currentStateIter != m_stateHash.end()))
        {
            return false;
        }
        const StatePtr pState = m_currentStateIter->second.m_pState;
        const StateType stateType = m_currentStateIter->second.m_stateType;
        if (pState.isNull())
        {
            return QUORVEX_ASSERT_TEXT(getLogger(),
                                       stateType == FINAL_STATE,
                                       "m_currentStateIter->second.m_stateType == FINAL_STATE");
        }
        {
            const ScratchMemberGuard scratchGuard(m_bStateNameInUse);
            m_strStateName.assign(undefStateName());
            if (!pState->processEvent(in_event, m_strStateName))
            {
                QLOG_ERROR(getLogger(), "state->processEvent failed");
                return false;
            }
            if (!completeStateName("::processEvent"))
            {
                return false;
            }
            if (stateType == FINAL_STATE || m_strStateName == m_currentStateIter->first.getText())
            {
                return true;
            }
            QLOG_DEBUG(getLogger(), m_currentStateIter->first.getText() << " --> " << m_strStateName);
            m_currentStateIter = findState(m_strStateName);
            if (m_currentStateIter == m_stateHash.end())
            {
                QLOG_ERROR(getLogger(), "unable to transition to " << m_strStateName);
                return false;
            }
            pState->onStateExit(in_event, m_strStateName);
        }
        return entryAction(in_event);
    }

    const char* getCurrentStateName() const
    {
        return hasCurrentState() ? m_currentStateIter->first.getText().c_str() : getUndefStateName();
    }

    bool isInFinalState() const
    {
        return hasCurrentState() && m_currentStateIter->second.m_stateType == FINAL_STATE;
    }

    const char* getInitialStateName() const { return m_initialStateName.getText().c_str(); }

    StateMachineConstIterator beginState() const { return m_stateHash.begin(); }
    StateMachineConstIterator endState() const { return m_stateHash.end(); }
    /// endState() when there is no current state.
    StateMachineConstIterator currentState() const { return m_currentStateIter; }

protected:
    bool addState(const char* in_szName, const StatePtr& in_pState, StateType in_stateType)
    {
        const std::string strStateName(in_szName);
        if (!QUORVEX_ASSERT(getLogger(), strStateName != getInitialStateName()))
        {
            return false;
        }
        if (!QUORVEX_ASSERT(getLogger(), in_stateType != INITIAL_STATE))
        {
            return false;
        }
        const std::string strCurrentName(getCurrentStateName());
        const bool bInserted = findState(strStateName) == m_stateHash.end();
        if (!bInserted)
        {
            QLOG_ERROR(getLogger(), "Duplicate state name: " << strStateName);
            return QUORVEX_ASSERT_TEXT(getLogger(), bInserted, "insertionResult.second");
        }
        append(SharedName(strStateName), StateRecord{in_stateType, in_pState});
        if (strCurrentName == undefStateName())
        {
            m_currentStateIter = m_stateHash.end();
            return true;
        }
        m_currentStateIter = findState(strCurrentName);
        return QUORVEX_ASSERT(getLogger(), m_currentStateIter != m_stateHash.end());
    }

    /// Runs the entry action of the current state, and goes on to the states that entry actions name until
    /// one rests.
    bool entryAction(const Event& in_event)
    {
        for (;;)
        {
            const StatePtr pState = m_currentStateIter->second.m_pState;
            if (pState.isNull())
            {
                static_cast<void>(
                    QUORVEX_ASSERT(getLogger(), m_currentStateIter->second.m_stateType == FINAL_STATE));
                return true;
            }
            const ScratchMemberGuard scratchGuard(m_bStateNameInUse);
            m_strStateName.assign(undefStateName());
            pState->entryAction(in_event, m_strStateName);
            if (!completeStateName("::entryAction"))
            {
                return false;
            }
            if (m_strStateName == m_currentStateIter->first.getText())
            {
                return true;
            }
            QLOG_DEBUG(getLogger(), m_currentStateIter->first.getText() << " --> " << m_strStateName);
            m_currentStateIter = findState(m_strStateName);
            if (!QUORVEX_ASSERT(getLogger(), m_currentStateIter != m_stateHash.end()))
            {
                return false;
            }
            pState->onStateExit(in_event, m_strStateName);
        }
    }

private:
    static std::string_view undefStateName() { return getUndefStateName(); }

    bool hasCurrentState() const
    {
        return StateMachineConstIterator(m_currentStateIter) != m_stateHash.end();
    }

    typename StateRow::iterator findState(std::string_view in_name)
    {
        return std::find_if(m_stateHash.begin(),
                            m_stateHash.end(),
                            [in_name](const auto& in_entry) { return in_entry.first.getText() == in_name; });
    }

    // Without spare room: machines are made once and used for one call after another.
    void append(const SharedName& in_name, const StateRecord& in_record)
    {
        m_stateHash.reserve(m_stateHash.size() + 1);
        m_stateHash.emplace_back(in_name, in_record);
    }

    // After an action: a name left undefined means staying. False when the action took the table away under
    // our feet.
    bool completeStateName(const char* in_szAction)
    {
        if (!QUORVEX_ASSERT(getLogger(), m_currentStateIter != m_stateHash.end()))
        {
            return false;
        }
        if (m_strStateName == undefStateName()) [[unlikely]]
        {
            QLOG_WARN(getLogger(),
                      "Software error ? Looks like you are not setting the out state name in "
                          << m_currentStateIter->first.getText() << in_szAction << ". Ignoring event");
            m_strStateName = m_currentStateIter->first.getText();
        }
        return true;
    }

    // The out state name of the action that runs: kept, so that no event allocates.
    std::string m_strStateName = getUndefStateName();
    bool m_bStateNameInUse = false;
    SharedName m_initialStateName{""};
    // A row (see StateRow); the name is known from the reports of assertions.
    StateRow m_stateHash;
    typename StateRow::iterator m_currentStateIter;
};

}  // namespace Quorvex
