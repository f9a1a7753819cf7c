#pragma once

#include <cstddef>
#include <ostream>
#include <vector>

#include "infra/Object.h"
#include "quorvex/TimeoutStateMachine.h"

namespace Quorvex
{

/// Is told by a state that it cannot handle the event yet.
class UnprocessedEventNotifiable
{
public:
    UnprocessedEventNotifiable() = default;
    UnprocessedEventNotifiable(const UnprocessedEventNotifiable&) = delete;
    UnprocessedEventNotifiable& operator=(const UnprocessedEventNotifiable&) = delete;
    virtual ~UnprocessedEventNotifiable() = default;

    /// Called from inside the state's processEvent: the event is kept and offered again later.
    virtual void unprocessedEvent() = 0;
};

/// A state that knows the queue of its machine.
class StateMachineWithEventQueueState
{
public:
    /// The machine does this when the state is registered; it outlives the state's last event.
    void setNotifiable(LimitedObjPtr<UnprocessedEventNotifiable> in_pNotifiable)
    {
        m_pNotifiable = in_pNotifiable;
    }

protected:
    LimitedObjPtr<UnprocessedEventNotifiable> m_pNotifiable;
};

template <class Event>
class StateMachineWithEventQueueNamedState : public StateMachineWithEventQueueState,
                                             public virtual NamedState<Event>
{
};

/// A machine that keeps the events which its states decline, and offers them again, in the order of their
/// arrival, after each event that is handled. `State` derives from StateMachineWithEventQueueState; `Event`
/// is Cloneable.
template <class Event,
          class State,
          class LoggerType = CallLogger,
          class Machine = TimeoutStateMachine<Event, State, LoggerType>>
class StateMachineWithEventQueue : public Machine, public UnprocessedEventNotifiable
{
    using Core = StateMachine<Event, State, LoggerType>;

public:
    using EventPtr = CountedObjPtr<Event>;
    using StatePtr = typename Core::StatePtr;
    using Core::getLogger;

    StateMachineWithEventQueue() : StateMachineWithEventQueue(LoggerType("quorvex.StateMachine")) {}
    explicit StateMachineWithEventQueue(const LoggerType& in_logger)
        : ObjectWithLogger<LoggerType>(in_logger), Machine(in_logger)
    {
    }

    /// Appends a clone of the event. False, and the event is lost, when the clone is no `Event`.
    virtual bool queueEvent(const Event& in_event)
    {
        Cloneable* pClone = in_event.clone();
        auto* pEvent = dynamic_cast<Event*>(pClone);
        if (!QUORVEX_ASSERT_TEXT(getLogger(), pEvent != nullptr, "pEvent != 0"))
        {
            delete pClone;
            return false;
        }
        m_vQueue.push_back(EventPtr(pEvent));
        return true;
    }

    /// Removes and returns the first event; null when there is none.
    virtual EventPtr dequeueEvent()
    {
        if (getEventQueueSize() == 0)
        {
            return EventPtr();
        }
        EventPtr pEvent = std::move(m_vQueue[m_uiHead]);
        if (++m_uiHead == m_vQueue.size())
        {
            m_vQueue.clear();
            m_uiHead = 0;
        }
        return pEvent;
    }

    void emptyEventQueue()
    {
        while (!dequeueEvent().isNull())
        {
        }
    }

    unsigned int getEventQueueSize() const { return static_cast<unsigned int>(m_vQueue.size() - m_uiHead); }

    /// The queued event at that place, the first being 0, which must be below getEventQueueSize().
    const EventPtr& getQueuedEvent(unsigned int in_uiIndex) const { return m_vQueue[m_uiHead + in_uiIndex]; }

    /// One line for each queued event.
    std::ostream& writeEventQueue(std::ostream& out_stream) const
    {
        for (unsigned int uiIndex = 0; uiIndex < getEventQueueSize(); ++uiIndex)
        {
            out_stream << uiIndex << (uiIndex == 0 ? "(head) : " : "       : ") << *getQueuedEvent(uiIndex)
                       << '\n';
        }
        return out_stream;
    }

    void unprocessedEvent() override { m_bProcessed = false; }

    /// Processes the event. Declined outside a final state, it is queued; handled, the queue is offered again
    /// from its front until an event is declined once more or fails.
    bool processEvent(const Event& in_event) override
    {
        m_bProcessed = true;
        if (!Core::processEvent(in_event))
        {
            return false;
        }
        if (!m_bProcessed && !this->isInFinalState())
        {
            return queueEvent(in_event);
        }
        while (getEventQueueSize() != 0)
        {
            const EventPtr pEvent = getQueuedEvent(0);
            m_bProcessed = true;
            const bool bResult = Core::processEvent(*pEvent);
            if (this->isInFinalState())
            {
                m_bProcessed = true;
            }
            if (!bResult)
            {
                return false;
            }
            if (!m_bProcessed)
            {
                return true;
            }
            // An action may have emptied the queue.
            if (getEventQueueSize() != 0 && getQueuedEvent(0) == pEvent)
            {
                static_cast<void>(dequeueEvent());
            }
        }
        return true;
    }

    /// As TimeoutStateMachine::goToInitialState, with an empty queue.
    bool goToInitialState(const Event& in_event)
    {
        emptyEventQueue();
        return Machine::goToInitialState(in_event);
    }

    bool addState(const char* in_szName, const StatePtr& in_pState)
    {
        installNotifiable(in_pState);
        return Core::addState(in_szName, in_pState);
    }

    bool addFinalState(const char* in_szName, const StatePtr& in_pState = StatePtr())
    {
        installNotifiable(in_pState);
        return Core::addFinalState(in_szName, in_pState);
    }

    void setInitialState(const StatePtr& in_pState)
    {
        installNotifiable(in_pState);
        Core::setInitialState(in_pState);
    }

private:
    void installNotifiable(const StatePtr& in_pState)
    {
        if (!in_pState.isNull())
        {
            in_pState->setNotifiable(this);
        }
    }

    // First in, first out: the events from m_uiHead on. A machine hardly ever queues any, so an empty queue
    // costs no memory.
    std::vector<EventPtr> m_vQueue;
    std::size_t m_uiHead = 0;
    bool m_bProcessed = true;
};

}  // namespace Quorvex
