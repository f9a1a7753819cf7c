#include "OutStateMachine.h"

#include "CommonStateMachine.h"
#include "DsVoipGatewayNetIf.h"
#include "infra/Assertion.h"

namespace Quorvex
{

OutStateMachine::OutStateMachine()
    : ObjectWithLogger<CallLogger>(CallLogger("quorvex.voip.StateMachine.Out")), VoipStateMachine(getLogger())
{
    setInitialStateName("INITIAL");
    setInitialState(StatePtr(new OutInitial(*this)));
    addFinalState("IDLE", StatePtr(new Idle<CallIfPtr>(*this, this)));
}

OutStateMachine::~OutStateMachine() = default;

bool OutStateMachine::initialize(CallOutInterface* in_pCallIf, DsVoipGatewayNetIf& in_netIf)
{
    return initialize(in_pCallIf, in_netIf.getTimerScheduler());
}

bool OutStateMachine::initialize(CallOutInterface* in_pCallIf, TimerScheduler& in_timers)
{
    QLOG_TRACE(getLogger(), "OutStateMachine::initialize");
    if (!QUORVEX_ASSERT_TEXT(getLogger(), in_pCallIf != nullptr, "in_pCallIf != 0"))
    {
        return false;
    }
    m_pCallIf = CallIfPtr(in_pCallIf);
    TimeoutStateMachine::initialize(&in_timers, this);
    return goToInitialState(VoipEvent(EventType::eINVALID));
}

OutInitial::OutInitial(OutStateMachine& in_machine) : VoipNamedState(in_machine, &in_machine)
{
}

std::span<const OutInitial::Row> OutInitial::rows()
{
    using namespace EventType;
    using namespace StateTable;
    // clang-format off
    static constexpr Row kRows[] = {
        // event      guard    action                      next
        {eAPI_STOP,   always,  nothing,                    "IDLE"},
        {eAPI_KILL,   always,  nothing,                    "IDLE"},
        {eAPI_HANGUP, always,  nothing,                    "IDLE"},
        {eAPI_INVITE, always,  &OutInitial::refuseInvite,  "IDLE"},
    };
    // clang-format on
    static_assert(allReachable(kRows));
    return kRows;
}

bool OutInitial::processEvent_i(const VoipEvent& in_event, std::string& out_strStateName)
{
    out_strStateName = getName();
    if (const Row* pRow = StateTable::find(*this, rows(), in_event))
    {
        return StateTable::run(*this, *pRow, in_event, out_strStateName);
    }
    logUnexpectedEvent(in_event);
    return true;
}

bool OutInitial::refuseInvite(const VoipEvent& /*in_event*/, std::string& /*out_strStateName*/)
{
    QLOG_ERROR(getLogger(), "outbound calls are not available in this build");
    m_pSM->getCallIf()->connectFailed(ConnectionFailureType(eMEDIA_FAILURE));
    return true;
}

}  // namespace Quorvex
