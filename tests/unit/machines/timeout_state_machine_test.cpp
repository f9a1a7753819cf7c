#include <gtest/gtest.h>

#include "ScriptedMachine.h"
#include "quorvex/TimeoutStateMachine.h"

namespace Quorvex::Test
{
namespace
{

using namespace std::chrono_literals;

TEST(TimeoutStateMachine, ExpiryReachesTheStateThatRests)
{
    ScriptedMachine machine;
    machine.add("A").on("x", "T");
    machine.addTimed("T", ACE_Time_Value(1)).on("own timeout", "A");
    ASSERT_TRUE(machine.startTimed());
    EXPECT_EQ(machine.timers().size(), 0U);
    ASSERT_TRUE(machine.feed("x"));
    EXPECT_EQ(machine.timers().size(), 1U);
    machine.diary();
    EXPECT_EQ(machine.advance(900ms), 0U);
    EXPECT_EQ(machine.advance(1100ms), 1U);
    EXPECT_EQ(machine.diary(), (Diary{"T.ownTimeout", "T.exit(A)", "A.entry(timeout)"}));
    EXPECT_EQ(machine.timers().size(), 0U);
}

TEST(TimeoutStateMachine, StayingKeepsTheTimerAndLeavingEndsIt)
{
    ScriptedMachine machine;
    machine.addTimed("T", ACE_Time_Value(1)).on("leave", "A").on("fail", "!");
    machine.add("A");
    ASSERT_TRUE(machine.startTimed());
    EXPECT_TRUE(machine.feed("stay"));
    EXPECT_EQ(machine.timers().size(), 1U);
    EXPECT_TRUE(machine.feed("leave"));
    EXPECT_EQ(machine.timers().size(), 0U);
    EXPECT_EQ(machine.advance(10s), 0U);
}

TEST(TimeoutStateMachine, AnEntryThatGoesOnStartsNoTimer)
{
    ScriptedMachine machine;
    machine.addTimed("T", ACE_Time_Value(1)).onEntry("A");
    machine.add("A");
    ASSERT_TRUE(machine.startTimed());
    EXPECT_EQ(machine.current(), "A");
    EXPECT_EQ(machine.timers().size(), 0U);
}

TEST(TimeoutStateMachine, StaleExpiriesChangeNothing)
{
    ScriptedMachine machine;
    auto& timed = machine.addTimed("T", ACE_Time_Value(1));
    timed.on("leave", "A");
    machine.add("A").on("back", "T");
    ASSERT_TRUE(machine.startTimed());
    const Expiry stale(ACE_Time_Value(1), &timed);
    ASSERT_TRUE(machine.feed("leave"));
    machine.diary();
    EXPECT_TRUE(machine.processEvent(stale));
    EXPECT_EQ(machine.diary(), (Diary{"A.otherTimeout"})) << "of a state that was left";
    ASSERT_TRUE(machine.feed("back"));
    machine.diary();
    EXPECT_TRUE(machine.processEvent(stale));
    EXPECT_EQ(machine.diary(), (Diary{"T.otherTimeout"})) << "of an earlier visit";
    EXPECT_EQ(machine.timers().size(), 1U);
    EXPECT_TRUE(machine.processEvent(Expiry(ACE_Time_Value(1), nullptr)));
    EXPECT_EQ(machine.current(), "T");
}

TEST(TimeoutStateMachine, RestartingEndsTheCurrentTimer)
{
    ScriptedMachine machine;
    machine.add("A").on("x", "T");
    machine.addTimed("T", ACE_Time_Value(1));
    ASSERT_TRUE(machine.startTimed());
    ASSERT_TRUE(machine.feed("x"));
    ASSERT_EQ(machine.timers().size(), 1U);
    EXPECT_TRUE(machine.start());
    EXPECT_EQ(machine.current(), "A");
    EXPECT_EQ(machine.timers().size(), 0U);
}

TEST(TimeoutStateMachine, NeedsASchedulerAndAProcessor)
{
    ScriptedMachine machine;
    auto& timed = machine.addTimed("T", ACE_Time_Value(1));
    EXPECT_FALSE(machine.initialize(nullptr, &machine));
    EXPECT_FALSE(machine.initialize(&machine.timers(), nullptr));
    EXPECT_TRUE(timed.getTimerScheduler().isNull());
    EXPECT_TRUE(machine.initialize(&machine.timers(), &machine));
    EXPECT_EQ(timed.getTimerScheduler().get(), &machine.timers());
}

TEST(TimeoutStateMachine, TheLongestTimeNeverComes)
{
    ScriptedMachine machine;
    machine.addTimed("T", ACE_Time_Value::max_time).on("own timeout", "A");
    machine.add("A");
    ASSERT_TRUE(machine.startTimed());
    EXPECT_EQ(machine.advance(24h * 365), 0U);
    EXPECT_EQ(machine.current(), "T");
}

}  // namespace
}  // namespace Quorvex::Test
