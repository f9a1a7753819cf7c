#pragma once

#include <span>
#include <string>

#include "OutStateMachine.h"
#include "StateTable.h"

// The states of an outbound call; each behaves as its table in rows() says.

namespace Quorvex
{

/// INITIAL: until the call engine has invited and the media engine has told its capacities.
class OutStateMachine::InitialState final : public VoipOutNamedState,
                                            public NoTimeoutState<VoipEvent>,
                                            public CallbackHelper
{
public:
    using Row = StateTable::Row<InitialState>;
    using VoipOutNamedState::VoipOutNamedState;
    const char* getName() const override { return "INITIAL"; }
    void entryAction(const VoipEvent& in_event, std::string& out_strStateName) override;
    bool processEvent_i(const VoipEvent& in_event, std::string& out_strStateName) override;
    static std::span<const Row> rows();

private:
    bool isStopped(const VoipEvent& in_event) const;
    bool isNew(const VoipEvent& in_event) const;
    bool missesCapacities(const VoipEvent& in_event) const;

    bool noteStop(const VoipEvent& in_event, std::string& out_strStateName);
    bool takeCapacity(const VoipEvent& in_event, std::string& out_strStateName);
    bool refuseStopped(const VoipEvent& in_event, std::string& out_strStateName);
    bool configureMedia(const VoipEvent& in_event, std::string& out_strStateName);
    bool waitForCapacities(const VoipEvent& in_event, std::string& out_strStateName);
    bool noteCapacities(const VoipEvent& in_event, std::string& out_strStateName);

    bool m_bStopped = false;
    bool m_bMediaConfigured = false;
};

/// INVITING: the INVITE has been sent, and the far end has at most said that it is trying.
class OutStateMachine::InvitingState final : public VoipOutNamedState,
                                             public NoTimeoutState<VoipEvent>,
                                             public CallbackHelper
{
public:
    using Row = StateTable::Row<InvitingState>;
    using VoipOutNamedState::VoipOutNamedState;
    const char* getName() const override { return "INVITING"; }
    void entryAction(const VoipEvent& in_event, std::string& out_strStateName) override;
    bool processEvent_i(const VoipEvent& in_event, std::string& out_strStateName) override;
    void onStateExit(const VoipEvent& in_event, const std::string& in_strNewStateName) override;
    static std::span<const Row> rows();

private:
    bool processProvisionalResponse(const VoipEvent& in_event, std::string& out_strStateName);
    bool failUnasked487(const VoipEvent& in_event, std::string& out_strStateName);
    bool failTimedOut(const VoipEvent& in_event, std::string& out_strStateName);
    bool followMedia(const VoipEvent& in_event, std::string& out_strStateName);

    bool m_bProgressReported = false;
};

/// REMOTE_RINGING: the called party is alerted.
class RemoteRinging final : public VoipOutNamedState, public NoTimeoutState<VoipEvent>, public CallbackHelper
{
public:
    using Row = StateTable::Row<RemoteRinging>;
    using VoipOutNamedState::VoipOutNamedState;
    const char* getName() const override { return "REMOTE_RINGING"; }
    bool processEvent_i(const VoipEvent& in_event, std::string& out_strStateName) override;
    void onStateExit(const VoipEvent& in_event, const std::string& in_strNewStateName) override;
    static std::span<const Row> rows();

private:
    bool noteRepeated180(const VoipEvent& in_event, std::string& out_strStateName);
    bool failUnasked487(const VoipEvent& in_event, std::string& out_strStateName);
    bool failTimedOut(const VoipEvent& in_event, std::string& out_strStateName);
    bool followMedia(const VoipEvent& in_event, std::string& out_strStateName);
};

/// WAIT_FOR_CPA_RESULT: the far end has answered; the call counts as connected when the analysis, if one was
/// asked for, says so.
class WaitForCPAResult final : public VoipOutNamedState,
                               public NoTimeoutState<VoipEvent>,
                               public CallbackHelper
{
public:
    using Row = StateTable::Row<WaitForCPAResult>;
    using VoipOutNamedState::VoipOutNamedState;
    const char* getName() const override { return "WAIT_FOR_CPA_RESULT"; }
    void entryAction(const VoipEvent& in_event, std::string& out_strStateName) override;
    bool processEvent_i(const VoipEvent& in_event, std::string& out_strStateName) override;
    static std::span<const Row> rows();

private:
    bool killAnswered(const VoipEvent& in_event, std::string& out_strStateName);
    bool endHungUp(const VoipEvent& in_event, std::string& out_strStateName);
    bool endAfterBye(const VoipEvent& in_event, std::string& out_strStateName);
    bool followMedia(const VoipEvent& in_event, std::string& out_strStateName);
    bool followAnalysis(const VoipEvent& in_event, std::string& out_strStateName);

    Call::ConnectionType readConnectionType(const VoipEvent& in_event) const;
};

/// CANCEL: given up before the answer; the far end's last word is waited for.
class OutStateMachine::CancelState final : public VoipOutNamedState, public NoTimeoutState<VoipEvent>
{
public:
    using Row = StateTable::Row<CancelState>;
    using VoipOutNamedState::VoipOutNamedState;
    const char* getName() const override { return "CANCEL"; }
    void entryAction(const VoipEvent& in_event, std::string& out_strStateName) override;
    bool processEvent_i(const VoipEvent& in_event, std::string& out_strStateName) override;
    static std::span<const Row> rows();

private:
    bool noteUnknownTransaction(const VoipEvent& in_event, std::string& out_strStateName);
    bool endAnswered(const VoipEvent& in_event, std::string& out_strStateName);
};

}  // namespace Quorvex
