// Every event in every state of an outbound call.

#include <string>
#include <vector>

#include "EventSweep.h"
#include "OutCallStage.h"

namespace Quorvex::Test
{
namespace
{

using namespace EventType;

const std::string kIdle = "IDLE";
const std::string kCancel = "CANCEL";
const std::string kDisconnecting = "DISCONNECTING";

// On its way; ringing moves it once.
Moves invited(bool in_bRingingMoves)
{
    Moves moves = {
        {eAPI_KILL,                kIdle  },
        {eAPI_STOP,                kCancel},
        {eAPI_HANGUP,              kCancel},
        {e200_OK,                  kIdle  },
        {eSIP_RESPONSE,            kIdle  },
        {e487_REQUEST_CANCELLED,   kIdle  },
        {eREMOTE_BUSY,             kIdle  },
        {eINVALID_NUMBER,          kIdle  },
        {eNO_ANSWER,               kIdle  },
        {eTERMINATED_UPON_TIMEOUT, kIdle  },
        {eMEDIA_OP_STATUS,         kCancel}
    };
    if (in_bRingingMoves)
    {
        moves[e180_RINGING] = "REMOTE_RINGING";
    }
    return moves;
}

// The 200 has no SDP, the re-direction names no target, the notification says nothing of the analysis.
const std::vector<StateCase> kOwnStates = {
    {"INITIAL",
     {{eAPI_KILL, kIdle}, {eAPI_HANGUP, kIdle}, {eMEDIA_SET_CAPACITY, kIdle}, {eAPI_INVITE, kIdle}}},
    {"INVITING",            invited(true)                                                          },
    {"REMOTE_RINGING",      invited(false)                                                         },
    {"WAIT_FOR_CPA_RESULT",
     {{eAPI_KILL, kIdle},
      {eAPI_STOP, kDisconnecting},
      {eAPI_HANGUP, kDisconnecting},
      {eBYE, kIdle},
      {eMEDIA_OP_STATUS, kDisconnecting}}                                                          },
    {"CANCEL",
     {{eAPI_KILL, kIdle},
      {e487_REQUEST_CANCELLED, kIdle},
      {eTERMINATED_UPON_TIMEOUT, kIdle},
      {eREMOTE_BUSY, kIdle},
      {eNO_ANSWER, kIdle},
      {e481_CALLEG_DOESNOTEXIST, kIdle},
      {eSIP_RESPONSE, kIdle},
      {e200_OK, kIdle}}                                                                            },
};

class OutCallSweep : public EventSweep
{
};

TEST_P(OutCallSweep, OnlyWhatTheTableNamesMovesTheCall)
{
    expectOnlyTheTablesMoves<OutCallStage>();
}

TEST_P(OutCallSweep, AnEventOfTheWrongClassDoesNoHarm)
{
    expectNoHarmOfWrongClasses<OutCallStage>();
}

class OutCallStop : public EventSweep
{
};

TEST_P(OutCallStop, EndsTheCallAndWaitsForItsEnd)
{
    expectStopWaitsForTheEnd<OutCallStage>();
}

TEST_P(OutCallStop, KillEndsItAtOnce)
{
    expectKillEndsAtOnce<OutCallStage>();
}

INSTANTIATE_TEST_SUITE_P(Own, OutCallSweep, testing::ValuesIn(kOwnStates), nameOfCase);
INSTANTIATE_TEST_SUITE_P(Shared, OutCallSweep, testing::ValuesIn(sharedStates()), nameOfCase);
INSTANTIATE_TEST_SUITE_P(Own, OutCallStop, testing::ValuesIn(kOwnStates), nameOfCase);
INSTANTIATE_TEST_SUITE_P(Shared, OutCallStop, testing::ValuesIn(sharedStates()), nameOfCase);

}  // namespace
}  // namespace Quorvex::Test
