#include <gtest/gtest.h>

#include <sstream>

#include "ScriptedMachine.h"
#include "quorvex/StateMachineWithEventQueue.h"

namespace Quorvex::Test
{
namespace
{

std::string queueOf(const ScriptedMachine& in_machine)
{
    std::ostringstream text;
    in_machine.writeEventQueue(text);
    return text.str();
}

TEST(EventQueue, ADeclinedEventIsOfferedAfterTheNextHandledOne)
{
    ScriptedMachine machine;
    machine.add("A").on("early", "?").on("go on", "B");
    machine.add("B").on("early", "C");
    machine.add("C");
    ASSERT_TRUE(machine.start());
    EXPECT_TRUE(machine.feed("early"));
    EXPECT_EQ(machine.getEventQueueSize(), 1U);
    EXPECT_TRUE(machine.feed("go on"));
    EXPECT_EQ(machine.current(), "C");
    EXPECT_EQ(machine.getEventQueueSize(), 0U);
}

TEST(EventQueue, DecliningAgainStopsTheReplayAndKeepsTheOrder)
{
    ScriptedMachine machine;
    machine.add("A").on("1", "?").on("2", "?").on("go on", "B");
    machine.add("B").on("1", "?").on("go on", "C");
    machine.add("C");
    ASSERT_TRUE(machine.start());
    machine.feed("1");
    machine.feed("2");
    EXPECT_EQ(queueOf(machine), "0(head) : event 1\n1       : event 2\n");
    machine.diary();
    EXPECT_TRUE(machine.feed("go on"));
    EXPECT_EQ(machine.diary(), (Diary{"A.event(go on)", "A.exit(B)", "B.entry(go on)", "B.event(1)"}))
        << "2 waits behind 1";
    EXPECT_EQ(queueOf(machine), "0(head) : event 1\n1       : event 2\n");
    EXPECT_TRUE(machine.feed("go on"));
    EXPECT_EQ(machine.diary(),
              (Diary{"B.event(go on)", "B.exit(C)", "C.entry(go on)", "C.event(1)", "C.event(2)"}));
    EXPECT_EQ(queueOf(machine), "");
}

TEST(EventQueue, ADeclinedEventIsNotReplayedAtOnce)
{
    ScriptedMachine machine;
    machine.add("A").on("1", "?").on("2", "?");
    ASSERT_TRUE(machine.start());
    machine.feed("1");
    machine.diary();
    machine.feed("2");
    EXPECT_EQ(machine.diary(), (Diary{"A.event(2)"}));
    EXPECT_EQ(machine.getEventQueueSize(), 2U);
}

TEST(EventQueue, FinalStatesDropWhatTheyDecline)
{
    ScriptedMachine machine;
    machine.add("A").on("1", "?").on("2", "?").on("end", "F");
    machine.addFinal("F").on("1", "?").on("2", "?").on("late", "?");
    ASSERT_TRUE(machine.start());
    machine.feed("1");
    machine.feed("2");
    EXPECT_TRUE(machine.feed("end"));
    EXPECT_EQ(machine.getEventQueueSize(), 0U) << "replayed into the final state and consumed";
    EXPECT_TRUE(machine.feed("late"));
    EXPECT_EQ(machine.getEventQueueSize(), 0U);
}

TEST(EventQueue, AFailedReplayKeepsTheEvent)
{
    ScriptedMachine machine;
    machine.add("A").on("1", "?").on("go on", "B");
    auto& stateB = machine.add("B").on("1", "!");
    ASSERT_TRUE(machine.start());
    machine.feed("1");
    EXPECT_FALSE(machine.feed("go on"));
    EXPECT_EQ(machine.getEventQueueSize(), 1U);
    stateB.on("1", "*");
    EXPECT_TRUE(machine.feed("2"));
    EXPECT_EQ(machine.getEventQueueSize(), 0U) << "offered again after the next handled event";
}

TEST(EventQueue, AFailedEventIsNeitherQueuedNorFollowedByAReplay)
{
    ScriptedMachine machine;
    machine.add("A").on("1", "?").on("bad", "!");
    ASSERT_TRUE(machine.start());
    machine.feed("1");
    machine.diary();
    EXPECT_FALSE(machine.feed("bad"));
    EXPECT_EQ(machine.diary(), (Diary{"A.event(bad)"}));
    EXPECT_EQ(machine.getEventQueueSize(), 1U);
}

TEST(EventQueue, RestartingAndActionsMayEmptyTheQueue)
{
    ScriptedMachine machine;
    auto& stateA = machine.add("A").on("1", "?").on("2", "?");
    ASSERT_TRUE(machine.start());
    machine.feed("1");
    EXPECT_TRUE(machine.start());
    EXPECT_EQ(machine.getEventQueueSize(), 0U);

    machine.feed("1");
    machine.feed("2");
    stateA.on("1", "*").m_onEvent = [&] { machine.emptyEventQueue(); };
    EXPECT_TRUE(machine.feed("x"));
    EXPECT_EQ(machine.getEventQueueSize(), 0U);
    EXPECT_TRUE(machine.dequeueEvent().isNull());
}

class UnclonableEvent : public Event
{
public:
    using Event::Event;
    class Other : public Cloneable
    {
    public:
        Cloneable* clone() const override { return new Other; }
    };
    Cloneable* clone() const override { return new Other; }
};

TEST(EventQueue, AnEventWhoseCloneIsSomethingElseIsLostAndReported)
{
    ScriptedMachine machine;
    LogCapture log;
    machine.add("A").on("1", "?");
    ASSERT_TRUE(machine.start());
    EXPECT_FALSE(machine.processEvent(UnclonableEvent("1")));
    EXPECT_TRUE(log.asserted("pEvent != 0"));
    EXPECT_EQ(machine.getEventQueueSize(), 0U);
}

}  // namespace
}  // namespace Quorvex::Test
