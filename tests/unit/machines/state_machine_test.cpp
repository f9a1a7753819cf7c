#include <gtest/gtest.h>

#include "ScriptedMachine.h"
#include "quorvex/StateMachine.h"

namespace Quorvex::Test
{
namespace
{

const std::string kNone = "StateMachineNoTUndefStateName";

TEST(StateMachine, FollowsEntryChainsAndRunsExitBeforeEntry)
{
    ScriptedMachine machine;
    LogCapture log;
    machine.add("A").on("x", "B");
    machine.add("B").onEntry("C");
    machine.add("C").onEntry("D");
    machine.add("D");
    ASSERT_TRUE(machine.start());
    EXPECT_EQ(machine.diary(), (Diary{"A.entry(go)"}));
    EXPECT_TRUE(machine.feed("x"));
    EXPECT_EQ(
        machine.diary(),
        (Diary{
            "A.event(x)", "A.exit(B)", "B.entry(x)", "B.exit(C)", "C.entry(x)", "C.exit(D)", "D.entry(x)"}));
    EXPECT_EQ(machine.current(), "D");
    for (const char* szLine : {"--> A", "A --> B", "B --> C", "C --> D"})
    {
        EXPECT_TRUE(log.has(eDEBUG_LEVEL, szLine)) << szLine;
    }
}

TEST(StateMachine, StayingRunsNeitherExitNorEntry)
{
    ScriptedMachine machine;
    machine.add("A");
    ASSERT_TRUE(machine.start());
    machine.diary();
    EXPECT_TRUE(machine.feed("x"));
    EXPECT_EQ(machine.diary(), (Diary{"A.event(x)"}));
}

TEST(StateMachine, TheStateEnteredIsCurrentDuringTheExitAction)
{
    ScriptedMachine machine;
    std::string strSeen;
    machine.add("A").on("x", "B").m_onExit = [&] { strSeen = machine.current(); };
    machine.add("B");
    ASSERT_TRUE(machine.start());
    EXPECT_TRUE(machine.feed("x"));
    EXPECT_EQ(strSeen, "B");
}

TEST(StateMachine, AnActionThatNamesNoStateIsReportedAndStays)
{
    ScriptedMachine machine;
    LogCapture log;
    machine.add("A").onEntry("").on("x", "");
    ASSERT_TRUE(machine.start());
    EXPECT_TRUE(
        log.has(eWARN_LEVEL,
                "Software error ? Looks like you are not setting the out state name in A::entryAction. "
                "Ignoring event"));
    EXPECT_TRUE(machine.feed("x"));
    EXPECT_TRUE(
        log.has(eWARN_LEVEL,
                "Software error ? Looks like you are not setting the out state name in A::processEvent. "
                "Ignoring event"));
    EXPECT_EQ(machine.current(), "A");
}

TEST(StateMachine, AFailedEventChangesNothingWhateverStateItNamed)
{
    ScriptedMachine machine;
    LogCapture log;
    machine.add("A").on("x", "!");
    ASSERT_TRUE(machine.start());
    EXPECT_FALSE(machine.feed("x"));
    EXPECT_EQ(machine.current(), "A");
    EXPECT_TRUE(log.has(eERROR_LEVEL, "state->processEvent failed"));
    EXPECT_TRUE(machine.feed("y"));
}

TEST(StateMachine, AnUnknownStateLeavesTheMachineWithoutOneUntilItStartsAgain)
{
    ScriptedMachine machine;
    LogCapture log;
    machine.add("A").on("x", "nowhere").on("y", "B");
    machine.add("B").onEntry("elsewhere");
    ASSERT_TRUE(machine.start());
    EXPECT_FALSE(machine.feed("x"));
    EXPECT_TRUE(log.has(eERROR_LEVEL, "unable to transition to nowhere"));
    EXPECT_EQ(machine.current(), kNone);
    EXPECT_FALSE(machine.isInFinalState());
    machine.diary();
    EXPECT_FALSE(machine.feed("y"));
    EXPECT_FALSE(machine.feed("y"));
    EXPECT_TRUE(log.asserted("m_currentStateIter != m_stateHash.end()"));
    EXPECT_EQ(machine.diary(), Diary());
    ASSERT_TRUE(machine.start());
    EXPECT_FALSE(machine.feed("y")) << "the entry action named an unknown state";
    EXPECT_EQ(machine.current(), kNone);
}

TEST(StateMachine, NothingLeadsOutOfAFinalState)
{
    ScriptedMachine machine;
    machine.add("A").on("end", "F").on("silent", "S");
    machine.addFinal("F").on("x", "A");
    machine.addFinalState("S");
    ASSERT_TRUE(machine.start());
    EXPECT_FALSE(machine.isInFinalState());
    EXPECT_TRUE(machine.feed("end"));
    machine.diary();
    EXPECT_TRUE(machine.feed("x"));
    EXPECT_EQ(machine.diary(), (Diary{"F.event(x)"})) << "the event is given to the state";
    EXPECT_EQ(machine.current(), "F");
    EXPECT_TRUE(machine.isInFinalState());

    ASSERT_TRUE(machine.start());
    EXPECT_TRUE(machine.feed("silent"));
    EXPECT_TRUE(machine.isInFinalState());
    EXPECT_TRUE(machine.feed("x")) << "a final state without an object takes every event";
    EXPECT_EQ(machine.current(), "S");
}

TEST(StateMachine, RegistrationRefusesWhatWouldBreakTheTable)
{
    ScriptedMachine machine;
    LogCapture log;
    machine.add("A");
    machine.add("B");
    Diary diary;
    const StatePtr pState(new PlainState(diary, "other"));
    EXPECT_FALSE(machine.addState("B", pState));
    EXPECT_TRUE(log.has(eERROR_LEVEL, "Duplicate state name: B"));
    EXPECT_TRUE(log.asserted("insertionResult.second"));
    EXPECT_FALSE(machine.addState("A", pState)) << "the initial state's name";
    EXPECT_TRUE(log.asserted("strStateName != getInitialStateName()"));
    EXPECT_FALSE(machine.addFinalState("A"));

    ASSERT_TRUE(machine.start());
    EXPECT_FALSE(machine.removeState("A")) << "initial and current";
    EXPECT_FALSE(machine.removeState("unknown"));
    EXPECT_TRUE(machine.removeState("B"));
    EXPECT_FALSE(machine.removeState("B"));
    EXPECT_EQ(machine.current(), "A");
}

TEST(StateMachine, GrowingTheTableKeepsTheCurrentState)
{
    ScriptedMachine machine;
    machine.add("A");
    ASSERT_TRUE(machine.start());
    for (int i = 0; i < 200; ++i)
    {
        machine.add("S" + std::to_string(i));
        ASSERT_EQ(machine.current(), "A");
    }
    EXPECT_TRUE(machine.feed("x"));
    EXPECT_FALSE(machine.addState("S7", StatePtr()));
    EXPECT_EQ(machine.current(), "A");
    EXPECT_TRUE(machine.removeState("S7"));
    EXPECT_EQ(machine.current(), "A");
}

TEST(StateMachine, TheInitialStateCanBeMovedToAnotherState)
{
    ScriptedMachine machine;
    machine.add("A");
    machine.add("B").on("x", "A");
    ASSERT_TRUE(machine.start());
    machine.setInitialStateName("B");
    EXPECT_EQ(machine.current(), kNone);
    ASSERT_TRUE(machine.start());
    EXPECT_EQ(machine.current(), "B");
    EXPECT_TRUE(machine.feed("x")) << "A is a normal state now";
    EXPECT_EQ(machine.current(), "A");
    EXPECT_FALSE(machine.removeState("B"));
}

TEST(StateMachine, WithoutAnInitialStateItDoesNotStart)
{
    ScriptedMachine machine;
    LogCapture log;
    EXPECT_FALSE(machine.start());
    machine.setInitialStateName("A");
    machine.setInitialState(StatePtr());
    EXPECT_FALSE(machine.start());
    EXPECT_TRUE(log.asserted("! m_currentStateIter->second.m_pState.isNull()"));
}

TEST(StateMachine, ResetEmptiesTheMachine)
{
    ScriptedMachine machine;
    machine.add("A");
    ASSERT_TRUE(machine.start());
    machine.reset();
    EXPECT_EQ(machine.current(), kNone);
    EXPECT_EQ(machine.beginState(), machine.endState());
    EXPECT_STREQ(machine.getInitialStateName(), "");
    EXPECT_FALSE(machine.feed("x"));
    machine.add("B");
    EXPECT_TRUE(machine.start());
}

TEST(StateMachine, AnEventFromInsideAnActionIsReported)
{
    ScriptedMachine machine;
    LogCapture log;
    auto& state = machine.add("A");
    ASSERT_TRUE(machine.start());
    state.m_onEvent = [&]
    {
        state.m_onEvent = nullptr;
        machine.feed("inner");
    };
    EXPECT_TRUE(machine.feed("outer"));
    EXPECT_TRUE(log.asserted("recursive"));
    EXPECT_TRUE(log.asserted("scratch member"));
    const auto uiErrors = log.count(eERROR_LEVEL);
    EXPECT_TRUE(machine.feed("later"));
    EXPECT_EQ(log.count(eERROR_LEVEL), uiErrors) << "the marks are gone with the event";
}

TEST(StateMachine, AnActionMayTakeTheTableAway)
{
    ScriptedMachine machine;
    machine.add("A").m_onEvent = [&] { machine.reset(); };
    ASSERT_TRUE(machine.start());
    EXPECT_FALSE(machine.feed("x"));
    EXPECT_EQ(machine.current(), kNone);
}

}  // namespace
}  // namespace Quorvex::Test
