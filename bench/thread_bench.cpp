#include <ace/Method_Request.h>
#include <benchmark/benchmark.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "thread/TimerQueue.h"
#include "thread/UserDefHandlerTaskManager.h"

namespace
{

using namespace Quorvex;

class BenchTask final : public UserDefHandlerTaskManager
{
public:
    BenchTask() : UserDefHandlerTaskManager("bench") { start(); }
    ~BenchTask() override
    {
        stop();
        waitUntilDone();
    }
};

/// What the far end of a round trip waits for.
class Signal
{
public:
    void set()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_bSet = true;
        m_changed.notify_one();
    }
    void wait()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return m_bSet; });
        m_bSet = false;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_bSet = false;
};

class Signal_MO final : public ACE_Method_Request
{
public:
    explicit Signal_MO(Signal* in_pSignal) : m_pSignal(in_pSignal) {}
    int call() override
    {
        if (m_pSignal != nullptr)
        {
            m_pSignal->set();
        }
        return 0;
    }

private:
    Signal* m_pSignal;
};

/// A method object offered, run and answered: both threads go to sleep in between.
void queueRoundTrip(benchmark::State& io_state)
{
    BenchTask task;
    Signal signal;
    for (auto _ : io_state)
    {
        task.enqueue(new Signal_MO(&signal), "bench");
        signal.wait();
    }
}
BENCHMARK(queueRoundTrip)->UseRealTime();

/// What waking two threads costs on this machine, without queue and method object: the floor of the above.
void bareRoundTrip(benchmark::State& io_state)
{
    Signal there;
    Signal back;
    bool bEnd = false;  // changes while the other thread waits for the signal
    std::thread answering(
        [&]
        {
            for (there.wait(); !bEnd; there.wait())
            {
                back.set();
            }
        });
    for (auto _ : io_state)
    {
        there.set();
        back.wait();
    }
    bEnd = true;
    there.set();
    answering.join();
}
BENCHMARK(bareRoundTrip)->UseRealTime();

/// Method objects as they come under load: many before each answer.
void queueThroughput(benchmark::State& io_state)
{
    constexpr int kBurst = 1000;
    BenchTask task;
    Signal signal;
    for (auto _ : io_state)
    {
        for (int i = 1; i < kBurst; ++i)
        {
            task.enqueue(new Signal_MO(nullptr), "bench");
        }
        task.enqueue(new Signal_MO(&signal), "bench");
        signal.wait();
    }
    io_state.SetItemsProcessed(io_state.iterations() * kBurst);
}
BENCHMARK(queueThroughput)->UseRealTime();

/// Scheduling and cancelling one timer among many.
void timerScheduleAndCancel(benchmark::State& io_state)
{
    class Nobody final : public TimeoutProcessor
    {
        bool processTimeout(const ACE_Time_Value& /*in_expiryTime*/, TimeoutData* /*in_pData*/) override
        {
            return true;
        }
    } nobody;
    TimerQueue timers;
    for (int i = 0; i < io_state.range(0); ++i)
    {
        timers.scheduleTimer(&nobody, nullptr, ACE_Time_Value(3600, i % 1000000));
    }
    for (auto _ : io_state)
    {
        timers.cancelTimer(timers.scheduleTimer(&nobody, nullptr, ACE_Time_Value(5)));
    }
}
BENCHMARK(timerScheduleAndCancel)->Arg(0)->Arg(10000);

}  // namespace
