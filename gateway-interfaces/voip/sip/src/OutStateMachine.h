#pragma once

#include <span>

#include "StateTable.h"
#include "VoipStateMachine.h"
#include "infra/CountedObjPtr.h"
#include "quorvex/CallInterface.h"

namespace Quorvex
{

/// The machine of an outbound call. Placing calls is not there yet: the machine tells the call engine so at
/// once, and is over. Task thread.
class OutStateMachine : public VoipStateMachine<CountedObjPtr<CallOutInterface>>
{
public:
    using CallIfPtr = CountedObjPtr<CallOutInterface>;

    OutStateMachine();
    ~OutStateMachine() override;

    /// Makes the machine ready for a call, after setCallId() and configure(). Takes ownership of the call
    /// interface, which must not be null.
    bool initialize(CallOutInterface* in_pCallIf, DsVoipGatewayNetIf& in_netIf);
    /// The same with the scheduler of the machine's timers named.
    bool initialize(CallOutInterface* in_pCallIf, TimerScheduler& in_timers);
};

/// INITIAL of an outbound call.
class OutInitial final : public VoipNamedState<CountedObjPtr<CallOutInterface>>,
                         public NoTimeoutState<VoipEvent>
{
public:
    using Row = StateTable::Row<OutInitial>;
    explicit OutInitial(OutStateMachine& in_machine);
    const char* getName() const override { return "INITIAL"; }
    bool processEvent_i(const VoipEvent& in_event, std::string& out_strStateName) override;
    static std::span<const Row> rows();

private:
    bool refuseInvite(const VoipEvent& in_event, std::string& out_strStateName);
};

}  // namespace Quorvex
