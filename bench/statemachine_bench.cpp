// What an event costs before any state does something with it, and what tracing and accounting add to every
// operation.

#include <benchmark/benchmark.h>

#include <array>
#include <ostream>
#include <string>

#include "infra/MemAccount.h"
#include "infra/TraceScope.h"
#include "quorvex/StateMachineWithEventQueue.h"

namespace Quorvex
{
namespace
{

class Event : public virtual OutputStreamable, public virtual Cloneable
{
public:
    std::ostream& write(std::ostream& out_stream) const override { return out_stream << "event"; }
    Cloneable* clone() const override { return new Event(*this); }
    // As the call events do it: by their type, without a cast.
    const TimeoutEvent* asTimeoutEvent() const { return nullptr; }
};

class State : public StateMachineWithEventQueueNamedState<Event>, public NoTimeoutState<Event>
{
public:
    State(const char* in_szName, const char* in_szNext) : m_szName(in_szName), m_szNext(in_szNext) {}
    const char* getName() const override { return m_szName; }
    bool processEvent_i(const Event& /*in_event*/, std::string& out_strStateName) override
    {
        out_strStateName = m_szNext;
        return true;
    }

private:
    const char* m_szName;
    const char* m_szNext;
};

// Five states in a ring: every event is a transition.
class Ring : public StateMachineWithEventQueue<Event, State>
{
    static constexpr std::array kNames = {"INITIAL", "INVITING_OUT", "ACCEPTING", "ANSWERING", "CONNECTED"};

public:
    explicit Ring(const CallLogger& in_logger)
        : ObjectWithLogger<CallLogger>(in_logger), StateMachineWithEventQueue<Event, State>(in_logger)
    {
        setInitialStateName(kNames[0]);
        setInitialState(StatePtr(new State(kNames[0], kNames[1])));
        for (std::size_t i = 1; i < kNames.size(); ++i)
        {
            addState(kNames[i], StatePtr(new State(kNames[i], kNames[(i + 1) % kNames.size()])));
        }
        goToInitialState(Event());
    }
    bool processTimeout(const ACE_Time_Value& /*time*/, TimeoutData* /*data*/) override { return true; }
};

void eventWithTransition(benchmark::State& io_state)
{
    Logging::setRootLevel(eINFO_LEVEL);
    Ring ring(CallLogger("bench.machine"));
    const Event event;
    for (auto _ : io_state)
    {
        benchmark::DoNotOptimize(ring.processEvent(event));
    }
}
BENCHMARK(eventWithTransition);

void disabledTraceScope(benchmark::State& io_state)
{
    Logging::setRootLevel(eINFO_LEVEL);
    const CallLogger logger("bench.trace");
    for (auto _ : io_state)
    {
        TRACE_SCOPE(logger, "disabledTraceScope");
        benchmark::ClobberMemory();
    }
}
BENCHMARK(disabledTraceScope);

struct Accounted
{
    QUORVEX_MEM_ACCOUNT("bench.Accounted");
    std::array<char, 96> m_payload;
};

void allocationThroughAccount(benchmark::State& io_state)
{
    for (auto _ : io_state)
    {
        auto* pObject = new Accounted;
        benchmark::DoNotOptimize(pObject);
        delete pObject;
    }
}
BENCHMARK(allocationThroughAccount);

void plainAllocation(benchmark::State& io_state)
{
    struct Plain
    {
        std::array<char, 96> m_payload;
    };
    for (auto _ : io_state)
    {
        auto* pObject = new Plain;
        benchmark::DoNotOptimize(pObject);
        delete pObject;
    }
}
BENCHMARK(plainAllocation);

}  // namespace
}  // namespace Quorvex
