#pragma once

#include <span>

#include "StateTable.h"
#include "VoipStateMachine.h"
#include "infra/CountedObjPtr.h"
#include "quorvex/CallInterface.h"
#include "quorvex/Fallible.h"
#include "sipstack/DsSipIncomingCall.h"
#include "sipstack/DsSipInviteMessage.h"

namespace Quorvex
{

class InSipLeg;

/// The machine of an inbound call: offers the INVITE to the call engine and answers the far end as the engine
/// decides. Task thread.
///
///   INITIAL -> INVITING_OUT (100) -> ACCEPTING (180) -> ANSWERING (200) -> CONNECTED -> DISCONNECTING ->
///   IDLE INVITING_OUT -> PROGRESSING_WITH_SDP_OFFER (reliable 183) -> EARLY_DIALOG -> ACCEPTING or ANSWERING
///   hung up before the ACK: DISCONNECTING PENDING CONNECTION; refused, cancelled, timed out: IDLE
class InStateMachine : public VoipStateMachine<CountedObjPtr<CallInInterface>>
{
public:
    using CallIfPtr = CountedObjPtr<CallInInterface>;
    using CallType = DsHandle<DsSipIncomingCall>;

    InStateMachine();
    ~InStateMachine() override;

    /// Makes the machine ready for a call, after setCallId() and configure(). The first argument is the
    /// machine itself. The call interface may be null: the call will be refused.
    bool initialize(const CountedObjPtr<InStateMachine>& in_pThis,
                    DsVoipGatewayNetIf& in_netIf,
                    const CallIfPtr& in_pCallIf);
    /// The same with the scheduler of the machine's timers named.
    bool initialize(TimerScheduler& in_timers, const CallIfPtr& in_pCallIf);

    /// Makes the leg that answers the INVITE.
    void createInSipLeg(const DsHandle<DsSipIncomingCall>& in_hCall,
                        const DsHandle<DsSipInviteMessage>& in_hInvite);

    /// Notes a time-out, then handles the event.
    bool processEvent(const VoipEvent& in_event) override;

    /// Tells the call engine how the INVITE was answered, then ends the call. Repeatable.
    void done() override;

    /// The call engine has been asked to take the call, and so told who calls whom.
    void noteOffered() { m_bOffered = true; }

    /// How the far end was connected, from the call engine's word until our 200 says it.
    Fallible<Call::ConnectionType>& getRemoteConnectionType() { return m_remoteConnectionType; }

protected:
    virtual InSipLeg* newInSipLeg(const DsHandle<DsSipIncomingCall>& in_hCall,
                                  const DsHandle<DsSipInviteMessage>& in_hInvite);

private:
    Fallible<Call::ConnectionType> m_remoteConnectionType;
    bool m_bTimedOut = false;
    bool m_bOffered = false;
    bool m_bFarEndEnded = false;
};

/// What the states of inbound calls share. Actions are named for what the caller or the call engine notices.
class VoipInNamedState : public VoipNamedState<CountedObjPtr<CallInInterface>>
{
public:
    explicit VoipInNamedState(InStateMachine& in_machine);

    bool internal_assert(const char* in_szFile, int in_iLine) const override;

protected:
    InStateMachine& getMachine() const;
    // Only after internal_assert().
    InSipLeg& getInSipLeg() const;

    // Guards.
    bool allCapacitiesReceived(const VoipEvent& in_event) const;
    bool remoteMadeAnOffer(const VoipEvent& in_event) const;

    // Actions.
    bool rejectStopped(const VoipEvent& in_event, std::string& out_strStateName);
    bool rejectHungUp(const VoipEvent& in_event, std::string& out_strStateName);
    bool rejectForEngine(const VoipEvent& in_event, std::string& out_strStateName);
    bool rejectFailedConnection(const VoipEvent& in_event, std::string& out_strStateName);
    bool answerOrReject(const VoipEvent& in_event, std::string& out_strStateName);
    bool endAfterBye(const VoipEvent& in_event, std::string& out_strStateName);
    bool endAfterCancel(const VoipEvent& in_event, std::string& out_strStateName);
    bool endInTransaction(const VoipEvent& in_event, std::string& out_strStateName);
    bool killCall(const VoipEvent& in_event, std::string& out_strStateName);
    bool declineEvent(const VoipEvent& in_event, std::string& out_strStateName);
    bool sendEarlyMedia(const VoipEvent& in_event, std::string& out_strStateName);

    /// Refuses the call with a status code and the "CPD-Result" that belongs to the connection type.
    void rejectWithResult(unsigned int in_uiCode, Call::ConnectionType in_type);
    /// Ends the call after a failed media operation.
    void endAfterMediaError(const VoipEvent& in_event, const char* in_szText, std::string& out_strStateName);
};

}  // namespace Quorvex
