#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "infra/Assertion.h"
#include "tests/unit/thread/TestTask.h"
#include "thread/TimeoutState.h"
#include "thread/TimerQueue.h"

namespace Quorvex::Test
{

using testing::ElementsAre;

namespace
{

ACE_Time_Value ms(long in_ms)
{
    return ACE_Time_Value(in_ms / 1000, (in_ms % 1000) * 1000);
}

struct NumberedData final : TimeoutData
{
    explicit NumberedData(int in_iNumber) : m_iNumber(in_iNumber) {}
    int m_iNumber;
};

class Recorder final : public TimeoutProcessor
{
public:
    bool processTimeout(const ACE_Time_Value& /*in_expiryTime*/, TimeoutData* in_pData) override
    {
        m_vNumbers.push_back(static_cast<NumberedData*>(in_pData)->m_iNumber);
        if (m_onTimeout)
        {
            m_onTimeout();
        }
        return true;
    }
    std::vector<int> m_vNumbers;
    std::function<void()> m_onTimeout;
};

TimerQueue::Clock::time_point in(std::chrono::milliseconds in_time)
{
    return TimerQueue::Clock::now() + in_time;
}

TEST(TimerQueue, ExpiresEarliestFirstAndEqualOnesInOrder)
{
    TimerQueue timers;
    Recorder recorder;
    NumberedData one(1);
    NumberedData two(2);
    NumberedData three(3);
    NumberedData four(4);
    EXPECT_TRUE(timers.empty());
    timers.scheduleTimer(&recorder, &one, ms(300));
    timers.scheduleTimer(&recorder, &two, ms(-5));
    timers.scheduleTimer(&recorder, &three, ms(100));
    timers.scheduleTimer(&recorder, &four, ACE_Time_Value::max_time);
    EXPECT_EQ(timers.scheduleTimer(nullptr, &one, ms(1)), TimerScheduler::NO_TIMER);
    EXPECT_EQ(timers.expire(in(std::chrono::milliseconds(200))), 2U);
    EXPECT_THAT(recorder.m_vNumbers, ElementsAre(2, 3));
    EXPECT_EQ(timers.expire(in(std::chrono::hours(24))), 1U);
    EXPECT_EQ(timers.size(), 1U);
    EXPECT_GT(timers.nextExpiry(), in(std::chrono::hours(24 * 365)));
}

TEST(TimerQueue, ProcessorMayCancelAndSchedule)
{
    TimerQueue timers;
    Recorder recorder;
    NumberedData one(1);
    NumberedData two(2);
    NumberedData three(3);
    timers.scheduleTimer(&recorder, &one, ms(1));
    const TimerScheduler::TimerId id = timers.scheduleTimer(&recorder, &two, ms(2));
    recorder.m_onTimeout = [&]
    {
        timers.cancelTimer(id);                          // due in the same round
        timers.scheduleTimer(&recorder, &three, ms(0));  // for the next one
    };
    EXPECT_EQ(timers.expire(in(std::chrono::seconds(1))), 1U);
    EXPECT_THAT(recorder.m_vNumbers, ElementsAre(1));
    EXPECT_FALSE(timers.cancelTimer(id));
    EXPECT_EQ(timers.expire(in(std::chrono::seconds(1))), 1U);
    EXPECT_THAT(recorder.m_vNumbers, ElementsAre(1, 3));
}

TEST(TimerQueue, MemoryFollowsTheLiveTimers)
{
    // The way of a busy gateway: nearly every timer is cancelled long before it is due.
    TimerQueue timers;
    Recorder recorder;
    NumberedData data(1);
    std::vector<TimerScheduler::TimerId> vIds;
    for (int i = 0; i < 100000; ++i)
    {
        vIds.push_back(timers.scheduleTimer(&recorder, &data, ms(60000 + i % 977)));
        if (vIds.size() > 100)
        {
            ASSERT_TRUE(timers.cancelTimer(vIds[vIds.size() - 101]));
        }
    }
    EXPECT_EQ(timers.size(), 100U);
    EXPECT_EQ(timers.expire(in(std::chrono::hours(1))), 100U);
    EXPECT_TRUE(timers.empty());
}

class State final : public TimeoutStateNoT
{
public:
    using TimeoutStateNoT::TimeoutStateNoT;
    const char* getName() const override { return "STATE"; }
    bool processTimeout_i(std::string& out_strStateName) override
    {
        out_strStateName = "NEXT";
        return true;
    }
};

class EventMaker final : public TimeoutProcessor
{
public:
    bool processTimeout(const ACE_Time_Value& in_expiryTime, TimeoutData* in_pData) override
    {
        m_vEvents.emplace_back(in_expiryTime, in_pData);
        return true;
    }
    std::vector<TimeoutEvent> m_vEvents;
};

class TimeoutStateTest : public testing::Test
{
protected:
    void expireAll() { m_timers.expire(in(std::chrono::hours(1))); }
    TimerQueue m_timers;
    EventMaker m_processor;
};

TEST_F(TimeoutStateTest, KnowsItsOwnExpiryOnce)
{
    State state(ms(20));
    State other(ms(20));
    const std::uint64_t uiFailures = Assertion::failureCount();
    EXPECT_FALSE(state.scheduleTimer());
    EXPECT_EQ(Assertion::failureCount(), uiFailures + 1);
    for (State* pState : {&state, &other})
    {
        pState->initialize(&m_timers, &m_processor);
        EXPECT_TRUE(pState->scheduleTimer());
    }
    EXPECT_EQ(state.getTimeout(), ms(20));
    expireAll();
    ASSERT_EQ(m_processor.m_vEvents.size(), 2U);
    const TimeoutEvent& event = m_processor.m_vEvents[0];
    EXPECT_TRUE(state.isOurTimeout(event));
    EXPECT_FALSE(other.isOurTimeout(event));
    std::string strName;
    EXPECT_TRUE(state.processOurTimeoutEvent(event, strName));
    EXPECT_EQ(strName, "NEXT");
    EXPECT_FALSE(state.isTimerRunning());
    EXPECT_FALSE(state.isOurTimeout(event));
}

TEST_F(TimeoutStateTest, ExpiryThatANewerTimerHasOvertakenIsStale)
{
    State state(ms(20));
    state.initialize(&m_timers, &m_processor);
    state.scheduleTimer();
    expireAll();
    ASSERT_EQ(m_processor.m_vEvents.size(), 1U);
    state.scheduleTimer();  // the state was left and entered again before the event came to it
    EXPECT_FALSE(state.isOurTimeout(m_processor.m_vEvents[0]));
    expireAll();
    ASSERT_EQ(m_processor.m_vEvents.size(), 2U);
    EXPECT_TRUE(state.isOurTimeout(m_processor.m_vEvents[1]));
    state.cancelTimer();
    state.cancelTimer();
    EXPECT_FALSE(state.isOurTimeout(m_processor.m_vEvents[1]));
}

TEST_F(TimeoutStateTest, DestroyedStateLeavesNoTimer)
{
    auto pState = std::make_unique<State>(ms(20));
    pState->initialize(&m_timers, &m_processor);
    pState->scheduleTimer();
    pState->scheduleTimer();
    EXPECT_EQ(m_timers.size(), 1U);
    pState.reset();
    EXPECT_TRUE(m_timers.empty());
}

/// A task whose timers are used for real.
class TimerTask final : public UserDefHandlerTaskManager
{
public:
    TimerTask() : UserDefHandlerTaskManager("timers") {}
    ~TimerTask() override
    {
        stop();
        waitUntilDone();
    }
};

class OnTaskThread final : public TimeoutProcessor
{
public:
    explicit OnTaskThread(UserDefHandlerTaskManager& in_task) : m_task(in_task) {}
    bool processTimeout(const ACE_Time_Value& /*in_expiryTime*/, TimeoutData* /*in_pData*/) override
    {
        m_expired.set_value({m_task.isTaskThread(), std::chrono::steady_clock::now()});
        return true;
    }
    UserDefHandlerTaskManager& m_task;
    std::promise<std::pair<bool, std::chrono::steady_clock::time_point>> m_expired;
};

TEST(TaskTimers, ExpireOnTheTaskThreadWhetherItSleepsOrWorks)
{
    TimerTask task;
    ASSERT_TRUE(task.start());
    for (const bool bBusy : {false, true})
    {
        OnTaskThread processor(task);
        std::atomic<bool> bEnd{false};
        std::function<int()> again = [&]
        {
            if (!bEnd)
            {
                task.enqueue(new Function_MO(again), "busy");
            }
            return 0;
        };
        const auto begin = std::chrono::steady_clock::now();
        ASSERT_TRUE(
            runOn(task, [&] { task.getTimerScheduler().scheduleTimer(&processor, nullptr, ms(30)); }));
        if (bBusy)
        {
            task.enqueue(new Function_MO(again), "busy");
        }
        auto expired = processor.m_expired.get_future();
        ASSERT_EQ(expired.wait_for(std::chrono::seconds(10)), std::future_status::ready);
        bEnd = true;
        const auto [bOnThread, when] = expired.get();
        EXPECT_TRUE(bOnThread);
        EXPECT_GE(when - begin, std::chrono::milliseconds(30));
        ASSERT_TRUE(runOn(task, [] {}));
    }
}

TEST(TaskTimers, SleepingThreadTakesNoProcessorTime)
{
    TimerTask task;
    ASSERT_TRUE(task.start());
    const auto usage = []
    {
        rusage used{};
        ::getrusage(RUSAGE_THREAD, &used);
        return used.ru_nvcsw + used.ru_nivcsw;
    };
    OnTaskThread processor(task);
    long before = 0;
    long after = 0;
    ASSERT_TRUE(runOn(task,
                      [&]
                      {
                          before = usage();
                          task.getTimerScheduler().scheduleTimer(&processor, nullptr, ms(200));
                      }));
    ASSERT_EQ(processor.m_expired.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    ASSERT_TRUE(runOn(task, [&] { after = usage(); }));
    // One sleep until the expiry, one until the last function, and whatever the machine adds.
    EXPECT_LE(after - before, 20);
}

}  // namespace
}  // namespace Quorvex::Test
