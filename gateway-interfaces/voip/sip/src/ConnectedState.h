#pragma once

#include <span>
#include <string>

#include "CallbackHelper.h"
#include "StateTable.h"
#include "VoipNamedState.h"
#include "VoipStateMachine.h"
#include "quorvex/InternalMachineStateImpl.h"

namespace Quorvex
{

/// A state of a call that contains a machine of states of the same call.
template <class CallIfPtr>
using VoipInternalMachineStateImpl =
    InternalMachineStateImpl<VoipEvent, VoipStateMachine<CallIfPtr>, CallLogger>;

/// CONNECTED: the call is established. Its nested machine starts the media and then handles re-INVITE, INVITE
/// with Replaces and REFER; what ends the call ends the nested machine in "DISCONNECTING" or "IDLE", and so
/// this state.
///
///   iInitial -> iMediaSetup -> iConnected <-> iMediaSetup (new offer or answer)
///               iConnected -> iTransfering (REFER) -> iTransfered, or back when the transfer failed
///               iTransfered -> iMediaSetup when the call engine goes on with the far end
template <class CallIfPtr, class CallType, class Machine>
class Connected final : public VoipNamedState<CallIfPtr>,
                        public NoTimeoutState<VoipEvent>,
                        public VoipInternalMachineStateImpl<CallIfPtr>
{
    using Nested = VoipInternalMachineStateImpl<CallIfPtr>;

public:
    using Row = StateTable::Row<Connected>;

    class ConnectedSubState;
    class iInitial;
    class iMediaSetup;
    class iConnected;
    class iTransfering;
    class iTransfered;

    Connected(ObjectWithLogger<CallLogger>& in_logger, VoipStateMachine<CallIfPtr>* in_pSM);

    const char* getName() const override { return "CONNECTED"; }
    void entryAction(const VoipEvent& in_event, std::string& out_strStateName) override;
    void onStateExit(const VoipEvent& in_event, const std::string& in_strNewStateName) override;
    bool processEvent(const VoipEvent& in_event, std::string& out_strStateName) override;
    bool processEvent_i(const VoipEvent& in_event, std::string& out_strStateName) override;
    static std::span<const Row> rows();

    /// For tests and diagnosis.
    const char* getSubStateName() const { return this->m_stateMachine.getCurrentStateName(); }
    unsigned int getNumWaiting() const { return this->m_stateMachine.getEventQueueSize(); }

private:
    bool sendInfo(const VoipEvent& in_event, std::string& out_strStateName);
    bool endAfterTimeout(const VoipEvent& in_event, std::string& out_strStateName);
    bool relayInfo(const VoipEvent& in_event, std::string& out_strStateName);

    // A re-INVITE was answered with 200 and its ACK has not come: the only time in which responses make
    // sense.
    bool m_bReinvitePending = false;
};

/// What the sub-states share. Actions are named for what the far end or the call engine notices.
template <class CallIfPtr, class CallType, class Machine>
class Connected<CallIfPtr, CallType, Machine>::ConnectedSubState : public VoipNamedState<CallIfPtr>,
                                                                   public NoTimeoutState<VoipEvent>
{
public:
    ConnectedSubState(Connected& in_outer, ObjectWithLogger<CallLogger>& in_logger)
        : VoipNamedState<CallIfPtr>(in_logger, in_outer.m_pSM), m_outer(in_outer)
    {
    }

protected:
    // Ends the call with a BYE; the next state is DISCONNECTING, whether or not the BYE could be sent.
    void hangUp(bool in_bTellCallEngine, std::string& out_strStateName, const char* in_szError);

    bool killCall(const VoipEvent& in_event, std::string& out_strStateName);
    bool hangUpForEngine(const VoipEvent& in_event, std::string& out_strStateName);
    bool hangUpForEngineInTransfer(const VoipEvent& in_event, std::string& out_strStateName);
    bool endAfterBye(const VoipEvent& in_event, std::string& out_strStateName);
    bool processResponse(const VoipEvent& in_event, std::string& out_strStateName);
    bool clearReinvitePending(const VoipEvent& in_event, std::string& out_strStateName);
    bool declineEvent(const VoipEvent& in_event, std::string& out_strStateName);

    Connected& m_outer;

private:
    void processByeResponse(const VoipEvent& in_event, unsigned int in_uiCode, std::string& out_strStateName);
};

/// CONNECTED::iInitial: goes on at once.
template <class CallIfPtr, class CallType, class Machine>
class Connected<CallIfPtr, CallType, Machine>::iInitial final : public ConnectedSubState
{
public:
    using ConnectedSubState::ConnectedSubState;
    const char* getName() const override { return "CONNECTED::iInitial"; }
    void entryAction(const VoipEvent& in_event, std::string& out_strStateName) override;
    bool processEvent_i(const VoipEvent& in_event, std::string& out_strStateName) override;
};

/// CONNECTED::iMediaSetup: the media are being started, or started anew.
template <class CallIfPtr, class CallType, class Machine>
class Connected<CallIfPtr, CallType, Machine>::iMediaSetup final : public ConnectedSubState,
                                                                   public StartAllCallbackHelper
{
public:
    using Row = StateTable::Row<iMediaSetup>;
    using ConnectedSubState::ConnectedSubState;
    const char* getName() const override { return "CONNECTED::iMediaSetup"; }
    void entryAction(const VoipEvent& in_event, std::string& out_strStateName) override;
    bool processEvent_i(const VoipEvent& in_event, std::string& out_strStateName) override;
    void finalExecution(std::string& out_strStateName, SipLeg* in_pSipLeg) override;
    static std::span<const Row> rows();

private:
    bool followMedia(const VoipEvent& in_event, std::string& out_strStateName);
    bool keepReinvite(const VoipEvent& in_event, std::string& out_strStateName);
    bool keepReinviteCancel(const VoipEvent& in_event, std::string& out_strStateName);
    bool keepRefer(const VoipEvent& in_event, std::string& out_strStateName);
    bool keepReplaces(const VoipEvent& in_event, std::string& out_strStateName);
    bool noteAck(const VoipEvent& in_event, std::string& out_strStateName);
};

/// CONNECTED::iConnected: both parties hear each other.
template <class CallIfPtr, class CallType, class Machine>
class Connected<CallIfPtr, CallType, Machine>::iConnected final : public ConnectedSubState
{
public:
    using Row = StateTable::Row<iConnected>;
    using ConnectedSubState::ConnectedSubState;
    const char* getName() const override { return "CONNECTED::iConnected"; }
    void entryAction(const VoipEvent& in_event, std::string& out_strStateName) override;
    bool processEvent_i(const VoipEvent& in_event, std::string& out_strStateName) override;
    static std::span<const Row> rows();

private:
    bool answerReinvite(const VoipEvent& in_event, std::string& out_strStateName);
    bool takeReinviteAnswer(const VoipEvent& in_event, std::string& out_strStateName);
    bool answerReplaces(const VoipEvent& in_event, std::string& out_strStateName);
    bool noteAck(const VoipEvent& in_event, std::string& out_strStateName);
};

/// CONNECTED::iTransfering: the far end has asked for a transfer and the call engine has not decided.
template <class CallIfPtr, class CallType, class Machine>
class Connected<CallIfPtr, CallType, Machine>::iTransfering final : public ConnectedSubState,
                                                                    public CallbackHelper
{
public:
    using Row = StateTable::Row<iTransfering>;
    using ConnectedSubState::ConnectedSubState;
    const char* getName() const override { return "CONNECTED::iTransfering"; }
    void entryAction(const VoipEvent& in_event, std::string& out_strStateName) override;
    bool processEvent_i(const VoipEvent& in_event, std::string& out_strStateName) override;
    static std::span<const Row> rows();

private:
    bool notifyRinging(const VoipEvent& in_event, std::string& out_strStateName);
    bool notifySuccess(const VoipEvent& in_event, std::string& out_strStateName);
    bool notifyFailure(const VoipEvent& in_event, std::string& out_strStateName);
    bool refuseReinvite(const VoipEvent& in_event, std::string& out_strStateName);
    bool followMedia(const VoipEvent& in_event, std::string& out_strStateName);
    void getTargetStateAfterFailure(std::string& out_strStateName) const;

    bool m_bTransferFailed = false;
};

/// CONNECTED::iTransfered: the transfer succeeded; the call stays up until either side hangs up, silent
/// unless the call engine gives the far end its media back because it is the one who talks to the new party.
template <class CallIfPtr, class CallType, class Machine>
class Connected<CallIfPtr, CallType, Machine>::iTransfered final : public ConnectedSubState,
                                                                   public CallbackHelper
{
public:
    using Row = StateTable::Row<iTransfered>;
    using ConnectedSubState::ConnectedSubState;
    const char* getName() const override { return "CONNECTED::iTransfered"; }
    void entryAction(const VoipEvent& in_event, std::string& out_strStateName) override;
    bool processEvent_i(const VoipEvent& in_event, std::string& out_strStateName) override;
    static std::span<const Row> rows();

private:
    bool refuseReinvite(const VoipEvent& in_event, std::string& out_strStateName);
    bool followMedia(const VoipEvent& in_event, std::string& out_strStateName);
    bool resumeMedia(const VoipEvent& in_event, std::string& out_strStateName);

    bool m_bResume = false;
};

}  // namespace Quorvex
