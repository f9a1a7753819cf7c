#pragma once

#include <string>
#include <utility>

#include "infra/TraceScope.h"
#include "quorvex/StateMachineWithEventQueue.h"

namespace Quorvex
{

/// A state that contains a machine of its own: restarted when the state is entered, left when that machine
/// reaches a final state, whose name is the name of the outer state to go to.
template <class Event, class Machine, class LoggerType = CallLogger>
class InternalMachineStateImpl : public virtual NamedState<Event>
{
public:
    /// The nested machine is built with the outer machine's logger and whatever else it takes.
    template <class... Args>
    explicit InternalMachineStateImpl(const LoggerType& in_logger, Args&&... in_args)
        : m_stateMachine(in_logger, std::forward<Args>(in_args)...)
    {
        TRACE_SCOPE(m_stateMachine.getLogger(), "InternalMachineStateImpl ctor");
    }
    ~InternalMachineStateImpl() override
    {
        TRACE_SCOPE(m_stateMachine.getLogger(), "InternalMachineStateImpl dtor");
    }

    /// Names the outer state: the one that bears the name of the nested machine's final state, else this one.
    virtual void computeOutStateName(std::string& out_strStateName)
    {
        if (m_stateMachine.isInFinalState())
        {
            out_strStateName = m_stateMachine.getCurrentStateName();
            QLOG_DEBUG(m_stateMachine.getLogger(),
                       "InternalMachineStateImpl reached a final state : " << out_strStateName);
        }
        else
        {
            out_strStateName = this->getName();
        }
    }

    void entryAction(const Event& in_event, std::string& out_strStateName) override
    {
        TRACE_SCOPE(m_stateMachine.getLogger(), "InternalMachineStateImpl::entryAction");
        // Empties the nested queue and cancels the nested timer first.
        static_cast<void>(
            QUORVEX_ASSERT(m_stateMachine.getLogger(), m_stateMachine.goToInitialState(in_event)));
        computeOutStateName(out_strStateName);
    }

    bool processEvent(const Event& in_event, std::string& out_strStateName) override
    {
        TRACE_SCOPE(m_stateMachine.getLogger(), "InternalMachineStateImpl::processEvent");
        if (!m_stateMachine.isInFinalState() && !m_stateMachine.processEvent(in_event))
        {
            return QUORVEX_ASSERT_TEXT(m_stateMachine.getLogger(), false, "0");
        }
        computeOutStateName(out_strStateName);
        return true;
    }

protected:
    Machine m_stateMachine;
};

}  // namespace Quorvex
