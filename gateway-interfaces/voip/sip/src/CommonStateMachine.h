#pragma once

#include <ace/Time_Value.h>

#include <span>
#include <string>

#include "CallbackHelper.h"
#include "StateTable.h"
#include "VoipNamedState.h"

namespace Quorvex
{

/// "quorvex.voip.CommonStateMachine".
const Logger& getCommonStateMachineLogger();

/// IDLE, final: the call is over and the machine reports itself done.
template <class CallIfPtr>
class Idle final : public VoipNamedState<CallIfPtr>, public NoTimeoutState<VoipEvent>
{
public:
    Idle(ObjectWithLogger<CallLogger>& in_logger, VoipStateMachine<CallIfPtr>* in_pSM)
        : VoipNamedState<CallIfPtr>(in_logger, in_pSM)
    {
    }
    const char* getName() const override { return "IDLE"; }
    void entryAction(const VoipEvent& in_event, std::string& out_strStateName) override;
    bool processEvent_i(const VoipEvent& in_event, std::string& out_strStateName) override;
};

/// DISCONNECTING: our BYE has been sent and its answer is waited for, as long as
/// "quorvex.sip.state.Disconnecting.timeoutMs" says (without it: until the SIP stack gives up).
template <class CallIfPtr, class CallType>
class Disconnecting final : public VoipNamedState<CallIfPtr>, public TimeoutState<VoipEvent>
{
public:
    using Row = StateTable::Row<Disconnecting>;

    Disconnecting(ObjectWithLogger<CallLogger>& in_logger, VoipStateMachine<CallIfPtr>* in_pSM)
        : VoipNamedState<CallIfPtr>(in_logger, in_pSM), TimeoutState<VoipEvent>(ACE_Time_Value::max_time)
    {
    }
    const char* getName() const override { return "DISCONNECTING"; }
    ACE_Time_Value getTimeout() const override { return m_timeout; }
    void entryAction_i(const VoipEvent& in_event, std::string& out_strStateName) override;
    bool processEvent_i(const VoipEvent& in_event, std::string& out_strStateName) override;
    bool processTimeout_i(std::string& out_strStateName) override;
    static std::span<const Row> rows();

private:
    bool isProvisional(const VoipEvent& in_event) const;
    bool isSuccess(const VoipEvent& in_event) const;
    bool isFailure(const VoipEvent& in_event) const;

    bool answerBye(const VoipEvent& in_event, std::string& out_strStateName);
    bool noteFailure(const VoipEvent& in_event, std::string& out_strStateName);
    bool noteNoAnswer(const VoipEvent& in_event, std::string& out_strStateName);

    ACE_Time_Value m_timeout = ACE_Time_Value::max_time;
};

}  // namespace Quorvex
