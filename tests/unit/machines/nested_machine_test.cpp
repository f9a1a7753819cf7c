#include <gtest/gtest.h>

#include "ScriptedMachine.h"
#include "quorvex/InternalMachineStateImpl.h"

namespace Quorvex::Test
{
namespace
{

/// An outer state that contains a machine.
class OuterState : public ScriptedState,
                   public NoTimeoutState<Event>,
                   public InternalMachineStateImpl<Event, ScriptedMachine>
{
    using Impl = InternalMachineStateImpl<Event, ScriptedMachine>;

public:
    OuterState(Diary& io_diary, const std::string& in_strName)
        : ScriptedState(io_diary, in_strName), Impl(CallLogger("test.nested"))
    {
    }
    void entryAction(const Event& in_event, std::string& out_strStateName) override
    {
        Impl::entryAction(in_event, out_strStateName);
    }
    bool processEvent(const Event& in_event, std::string& out_strStateName) override
    {
        return Impl::processEvent(in_event, out_strStateName);
    }
    ScriptedMachine& nested() { return m_stateMachine; }
};

class NestedMachine : public ::testing::Test
{
protected:
    NestedMachine() : m_outer(*new OuterState(m_diary, "OUTER"))
    {
        m_machine.setInitialStateName("START");
        m_machine.setInitialState(StatePtr(&(new PlainState(m_diary, "START"))->on("x", "OUTER")));
        m_machine.addState("OUTER", StatePtr(&m_outer));
        m_machine.addState("NEXT", StatePtr(&(new PlainState(m_diary, "NEXT"))->on("back", "OUTER")));
    }
    bool feed(const std::string& in_strEvent) { return m_machine.feed(in_strEvent); }

    Diary m_diary;
    ScriptedMachine m_machine;
    OuterState& m_outer;
};

TEST_F(NestedMachine, ReachingAnInnerFinalStateMovesTheOuterMachineWithinTheSameEvent)
{
    LogCapture log;
    m_outer.nested().add("i1").on("finish", "NEXT");
    m_outer.nested().addFinalState("NEXT");
    ASSERT_TRUE(m_machine.goToInitialState(Event("go")));
    ASSERT_TRUE(feed("x"));
    EXPECT_STREQ(m_machine.getCurrentStateName(), "OUTER");
    m_diary.clear();
    EXPECT_TRUE(feed("finish"));
    EXPECT_STREQ(m_machine.getCurrentStateName(), "NEXT");
    EXPECT_EQ(m_diary, (Diary{"OUTER.exit(NEXT)", "NEXT.entry(finish)"}));
    EXPECT_TRUE(log.has(eDEBUG_LEVEL, "InternalMachineStateImpl reached a final state : NEXT"));
}

TEST_F(NestedMachine, EnteringAgainRestartsTheInnerMachine)
{
    ScriptedMachine& nested = m_outer.nested();
    nested.add("i1").on("wait", "?").on("finish", "NEXT").on("time", "timed");
    nested.addTimed("timed", ACE_Time_Value(5)).on("finish", "NEXT");
    nested.addFinalState("NEXT");
    ASSERT_TRUE(nested.initialize(&nested.timers(), &nested));
    ASSERT_TRUE(m_machine.goToInitialState(Event("go")));
    ASSERT_TRUE(feed("x"));
    ASSERT_TRUE(feed("time"));
    ASSERT_EQ(nested.timers().size(), 1U);
    ASSERT_TRUE(m_machine.goToInitialState(Event("go")));
    ASSERT_TRUE(feed("x"));
    EXPECT_EQ(nested.timers().size(), 0U) << "the inner timer of the earlier visit";
    EXPECT_STREQ(nested.getCurrentStateName(), "i1");

    ASSERT_TRUE(feed("wait"));
    EXPECT_EQ(nested.getEventQueueSize(), 1U) << "declined events stay in the inner machine's queue";
    EXPECT_EQ(m_machine.getEventQueueSize(), 0U);
    ASSERT_TRUE(feed("finish"));
    ASSERT_TRUE(feed("back"));
    EXPECT_EQ(nested.getEventQueueSize(), 0U);
    EXPECT_STREQ(m_machine.getCurrentStateName(), "OUTER");
}

TEST_F(NestedMachine, AnInnerEntryChainThatEndsFinalPassesThroughTheOuterState)
{
    m_outer.nested().add("i1").onEntry("NEXT");
    m_outer.nested().addFinalState("NEXT");
    ASSERT_TRUE(m_machine.goToInitialState(Event("go")));
    EXPECT_TRUE(feed("x"));
    EXPECT_STREQ(m_machine.getCurrentStateName(), "NEXT");
}

TEST_F(NestedMachine, AnInnerFailureFailsTheOuterEvent)
{
    LogCapture log;
    m_outer.nested().add("i1").on("bad", "!");
    ASSERT_TRUE(m_machine.goToInitialState(Event("go")));
    ASSERT_TRUE(feed("x"));
    EXPECT_FALSE(feed("bad"));
    EXPECT_STREQ(m_machine.getCurrentStateName(), "OUTER");
    EXPECT_TRUE(log.has(eERROR_LEVEL, "state->processEvent failed"));
    EXPECT_TRUE(feed("good"));
}

TEST_F(NestedMachine, AnInnerMachineThatCannotStartIsReportedAndTheOuterStateIsEntered)
{
    LogCapture log;
    ASSERT_TRUE(m_machine.goToInitialState(Event("go")));
    EXPECT_TRUE(feed("x"));
    EXPECT_STREQ(m_machine.getCurrentStateName(), "OUTER");
    EXPECT_TRUE(log.asserted("m_stateMachine.goToInitialState(in_event)"));
}

}  // namespace
}  // namespace Quorvex::Test
