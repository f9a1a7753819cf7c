#pragma once

#include <span>

#include "CallbackHelper.h"
#include "InStateMachine.h"
#include "calleng/CallInfo.h"

// The states that only inbound calls have; those that all calls have are in CommonStateMachine.h and
// ConnectedState.h.

namespace Quorvex
{

/// INITIAL: no INVITE yet.
class InInitial final : public VoipInNamedState, public NoTimeoutState<VoipEvent>
{
public:
    using Row = StateTable::Row<InInitial>;
    using VoipInNamedState::VoipInNamedState;
    const char* getName() const override { return "INITIAL"; }
    void entryAction(const VoipEvent& in_event, std::string& out_strStateName) override;
    bool processEvent_i(const VoipEvent& in_event, std::string& out_strStateName) override;
    static std::span<const Row> rows();

private:
    bool isStopped(const VoipEvent& in_event) const;
    bool noteStop(const VoipEvent& in_event, std::string& out_strStateName);
    bool takeCall(const VoipEvent& in_event, std::string& out_strStateName);
    bool rejectCall(const VoipEvent& in_event, std::string& out_strStateName);

    bool m_bStopped = false;
};

/// INVITING_OUT: the call engine has been offered the call; the media engine is being asked what it can do.
class InvitingOut final : public VoipInNamedState,
                          public NoTimeoutState<VoipEvent>,
                          public GetAllCapacitiesCallbackHelper
{
public:
    using Row = StateTable::Row<InvitingOut>;
    explicit InvitingOut(InStateMachine& in_machine);
    const char* getName() const override { return "INVITING_OUT"; }
    void entryAction(const VoipEvent& in_event, std::string& out_strStateName) override;
    bool processEvent_i(const VoipEvent& in_event, std::string& out_strStateName) override;
    /// Lets go of the INVITE and of what was told of it: the machine may rest in its pool for long.
    void onStateExit(const VoipEvent& in_event, const std::string& in_strNewStateName) override;
    /// Checks the far end's offer against what the media engine can do; refuses the call when nothing is
    /// left.
    void finalExecution(std::string& out_strStateName, SipLeg* in_pSipLeg) override;
    static std::span<const Row> rows();

private:
    bool missesCapacities(const VoipEvent& in_event) const;
    bool knows100rel(const VoipEvent& in_event) const;

    bool noteCapacities(const VoipEvent& in_event, std::string& out_strStateName);
    bool waitForCapacities(const VoipEvent& in_event, std::string& out_strStateName);
    bool connectWithCapacities(const VoipEvent& in_event, std::string& out_strStateName);
    bool takeCapacity(const VoipEvent& in_event, std::string& out_strStateName);
    bool delayEarlyMedia(const VoipEvent& in_event, std::string& out_strStateName);
    bool sendValidEarlyMedia(const VoipEvent& in_event, std::string& out_strStateName);
    bool sendPlainProgress(const VoipEvent& in_event, std::string& out_strStateName);
    bool followMedia(const VoipEvent& in_event, std::string& out_strStateName);

    const CallLegInfo& fillLegInfo(const DsHandle<DsSipInviteMessage>& in_hInvite);
    void logInvitation(const CallLegInfo& in_legInfo);

    DsHandle<DsSipInviteMessage> m_hInvite;
    CallLogger m_cdrLogger;
    CallInfo m_callInfo;
};

/// ACCEPTING: the caller hears ringing, the call engine is deciding.
class Accepting final : public VoipInNamedState, public NoTimeoutState<VoipEvent>, public CallbackHelper
{
public:
    using Row = StateTable::Row<Accepting>;
    using VoipInNamedState::VoipInNamedState;
    const char* getName() const override { return "ACCEPTING"; }
    void entryAction(const VoipEvent& in_event, std::string& out_strStateName) override;
    bool processEvent_i(const VoipEvent& in_event, std::string& out_strStateName) override;
    static std::span<const Row> rows();

private:
    bool warnNoOffer(const VoipEvent& in_event, std::string& out_strStateName);
    bool followMedia(const VoipEvent& in_event, std::string& out_strStateName);
};

/// ANSWERING: our 200 has been sent and its ACK is waited for.
class Answering final : public VoipInNamedState, public NoTimeoutState<VoipEvent>, public CallbackHelper
{
public:
    using Row = StateTable::Row<Answering>;
    using VoipInNamedState::VoipInNamedState;
    const char* getName() const override { return "ANSWERING"; }
    void entryAction(const VoipEvent& in_event, std::string& out_strStateName) override;
    bool processEvent_i(const VoipEvent& in_event, std::string& out_strStateName) override;
    static std::span<const Row> rows();

private:
    bool noteAck(const VoipEvent& in_event, std::string& out_strStateName);
    bool takeAnswerInAck(const VoipEvent& in_event, std::string& out_strStateName);
    bool endWithoutAck(const VoipEvent& in_event, std::string& out_strStateName);
    bool keepInfo(const VoipEvent& in_event, std::string& out_strStateName);
    bool followMedia(const VoipEvent& in_event, std::string& out_strStateName);
};

/// PROGRESSING_WITH_SDP_OFFER: a reliable 183 with our offer has been sent and its PRACK is waited for.
class ProgressingWithSDPOffer final : public VoipInNamedState, public NoTimeoutState<VoipEvent>
{
public:
    using Row = StateTable::Row<ProgressingWithSDPOffer>;
    using VoipInNamedState::VoipInNamedState;
    const char* getName() const override { return "PROGRESSING_WITH_SDP_OFFER"; }
    void entryAction(const VoipEvent& in_event, std::string& out_strStateName) override;
    bool processEvent_i(const VoipEvent& in_event, std::string& out_strStateName) override;
    static std::span<const Row> rows();

private:
    bool takeAnswerInPrack(const VoipEvent& in_event, std::string& out_strStateName);
    bool endWithoutPrack(const VoipEvent& in_event, std::string& out_strStateName);

    /// The call engine has said how the call goes on, which cannot be heard here.
    bool m_bVerdictUnheard = false;
};

/// EARLY_DIALOG: offer and answer have been exchanged before the call is accepted.
class InEarlyDialog final : public VoipInNamedState, public NoTimeoutState<VoipEvent>
{
public:
    using Row = StateTable::Row<InEarlyDialog>;
    using VoipInNamedState::VoipInNamedState;
    const char* getName() const override { return "EARLY_DIALOG"; }
    bool processEvent_i(const VoipEvent& in_event, std::string& out_strStateName) override;
    static std::span<const Row> rows();

private:
    bool accept(const VoipEvent& in_event, std::string& out_strStateName);
    bool connect(const VoipEvent& in_event, std::string& out_strStateName);
    bool endTimedOut(const VoipEvent& in_event, std::string& out_strStateName);
};

/// DISCONNECTING PENDING CONNECTION: hung up while our 200, or an early dialog, is outstanding; the BYE
/// follows the ACK.
class DisconnectingPendingConnection final : public VoipInNamedState, public NoTimeoutState<VoipEvent>
{
public:
    using Row = StateTable::Row<DisconnectingPendingConnection>;
    using VoipInNamedState::VoipInNamedState;
    const char* getName() const override { return "DISCONNECTING PENDING CONNECTION"; }
    void entryAction(const VoipEvent& in_event, std::string& out_strStateName) override;
    bool processEvent_i(const VoipEvent& in_event, std::string& out_strStateName) override;
    static std::span<const Row> rows();

private:
    bool hangUpNow(const VoipEvent& in_event, std::string& out_strStateName);
    bool answerBye(const VoipEvent& in_event, std::string& out_strStateName);
    bool noteTimeout(const VoipEvent& in_event, std::string& out_strStateName);
};

}  // namespace Quorvex
