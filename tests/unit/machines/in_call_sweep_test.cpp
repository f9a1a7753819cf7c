// Every event in every state of an inbound call.

#include <iterator>
#include <string>
#include <vector>

#include "EventSweep.h"
#include "InCallStage.h"

namespace Quorvex::Test
{
namespace
{

using namespace EventType;

const std::string kIdle = "IDLE";
const std::string kDisconnecting = "DISCONNECTING";
const std::string kPending = "DISCONNECTING PENDING CONNECTION";

const std::vector<StateCase> kOwnStates = {
    {"INITIAL",                          {{eAPI_KILL, kIdle}}                                      },
    {"INVITING_OUT",
     {{eAPI_STOP, kIdle},
      {eAPI_KILL, kIdle},
      {eAPI_HANGUP, kIdle},
      {eAPI_INVITE_ACCEPTED, "ACCEPTING"},
      {eAPI_INVITE_REJECTED, kIdle},
      {eAPI_REMOTE_CONN_FAILED, kIdle},
      {eAPI_REMOTE_CONNECTED, "ANSWERING"},
      {eCANCEL, kIdle},
      {eBYE, kIdle},
      {eTERMINATED_UPON_TIMEOUT, kIdle},
      {eMEDIA_SET_CAPACITY, kIdle},
      {eMEDIA_OP_STATUS, kIdle}}                                                                   },
    {"ACCEPTING",
     {{eAPI_STOP, kIdle},
      {eAPI_KILL, kIdle},
      {eAPI_HANGUP, kIdle},
      {eAPI_REMOTE_CONN_FAILED, kIdle},
      {eAPI_REMOTE_CONNECTED, "ANSWERING"},
      {eBYE, kIdle},
      {eTERMINATED_UPON_TIMEOUT, kIdle},
      {eCANCEL, kIdle},
      {eMEDIA_OP_STATUS, kIdle}}                                                                   },
    {"ANSWERING",
     {{eAPI_KILL, kIdle},
      {eAPI_STOP, kPending},
      {eAPI_HANGUP, kPending},
      {eACK, "CONNECTED::iMediaSetup"},
      {eBYE, kIdle},
      {eTERMINATED_UPON_TIMEOUT, kIdle},
      {eCANCEL, kIdle},
      {eMEDIA_OP_STATUS, kIdle}}                                                                   },
    {"DISCONNECTING PENDING CONNECTION",
     {{eAPI_KILL, kIdle}, {eACK, kDisconnecting}, {eBYE, kIdle}, {eTERMINATED_UPON_TIMEOUT, kIdle}}},
    {"PROGRESSING_WITH_SDP_OFFER",
     {{ePRACK, kDisconnecting},
      {eTERMINATED_UPON_TIMEOUT, kIdle},
      {eCANCEL, kIdle},
      {eAPI_KILL, kIdle},
      {eAPI_STOP, kPending},
      {eAPI_HANGUP, kPending}}                                                                     },
    {"EARLY_DIALOG",
     {{eAPI_INVITE_ACCEPTED, "ACCEPTING"},
      {eAPI_INVITE_REJECTED, kIdle},
      {eAPI_REMOTE_CONN_FAILED, kIdle},
      {eAPI_REMOTE_CONNECTED, "ANSWERING"},
      {eTERMINATED_UPON_TIMEOUT, kIdle},
      {eCANCEL, kIdle},
      {eAPI_KILL, kIdle},
      {eAPI_STOP, kPending},
      {eAPI_HANGUP, kPending}}                                                                     },
};

class InCallSweep : public EventSweep
{
};

TEST_P(InCallSweep, OnlyWhatTheTableNamesMovesTheCall)
{
    expectOnlyTheTablesMoves<InCallStage>();
}

TEST_P(InCallSweep, AnEventOfTheWrongClassDoesNoHarm)
{
    expectNoHarmOfWrongClasses<InCallStage>();
}

class InCallStop : public EventSweep
{
};

TEST_P(InCallStop, EndsTheCallAndWaitsForItsEnd)
{
    expectStopWaitsForTheEnd<InCallStage>();
}

TEST_P(InCallStop, KillEndsItAtOnce)
{
    expectKillEndsAtOnce<InCallStage>();
}

INSTANTIATE_TEST_SUITE_P(Own, InCallSweep, testing::ValuesIn(kOwnStates), nameOfCase);
INSTANTIATE_TEST_SUITE_P(Shared, InCallSweep, testing::ValuesIn(sharedStates()), nameOfCase);
// In the first one there is no call yet.
INSTANTIATE_TEST_SUITE_P(Own,
                         InCallStop,
                         testing::ValuesIn(std::next(kOwnStates.begin()), kOwnStates.end()),
                         nameOfCase);
INSTANTIATE_TEST_SUITE_P(Shared, InCallStop, testing::ValuesIn(sharedStates()), nameOfCase);

}  // namespace
}  // namespace Quorvex::Test
