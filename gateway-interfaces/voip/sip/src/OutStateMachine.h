#pragma once

#include <memory>
#include <optional>
#include <string>

#include "CallbackHelper.h"
#include "SipRedirection.h"
#include "VoipNamedState.h"
#include "VoipStateMachine.h"
#include "calleng/CallInfo.h"
#include "infra/CountedObjPtr.h"
#include "quorvex/CallInterface.h"
#include "sipstack/DsSipOutgoingCall.h"

namespace Quorvex
{

class OutSipLeg;
class RedirectEvent;

/// The machine of an outbound call: places it as the call engine asks, and tells the engine how it goes. Task
/// thread.
///
///   INITIAL (media) -> INVITING (INVITE sent) -> REMOTE_RINGING -> WAIT_FOR_CPA_RESULT (2xx, ACK sent)
///     -> CONNECTED -> DISCONNECTING -> IDLE
///   given up before the answer: CANCEL -> IDLE; refused, redirected, timed out: IDLE
class OutStateMachine : public VoipStateMachine<CountedObjPtr<CallOutInterface>>
{
public:
    using CallIfPtr = CountedObjPtr<CallOutInterface>;
    using CallType = DsHandle<DsSipOutgoingCall>;

    class InitialState;
    class InvitingState;
    class CancelState;

    OutStateMachine();
    ~OutStateMachine() override;

    /// Makes the machine ready for a call, after setCallId() and configure(). Takes ownership of the call
    /// interface, which must not be null.
    bool initialize(CallOutInterface* in_pCallIf, DsVoipGatewayNetIf& in_netIf);
    /// The same with the scheduler of the machine's timers named.
    bool initialize(CallOutInterface* in_pCallIf, TimerScheduler& in_timers);

    /// What the call engine asked for; null but while the INVITE is unanswered. What redirections need to
    /// know.
    const CallInfo* getCallInfo() const { return m_pCallInfo.get(); }
    void setCallInfo(const CallInfo* in_pCallInfo)
    {
        m_pCallInfo.reset(in_pCallInfo == nullptr ? nullptr : in_pCallInfo->clone());
    }

    /// Whether SDP in a provisional response starts the media ("quorvex.sip.out.acceptEarlyMedia").
    bool acceptsEarlyMedia() const { return m_bAcceptEarlyMedia; }

    /// What the leg's parameters say of provisional responses: a 180 means nothing; a 183 means ringing.
    void setProvisionalRules(bool in_bIgnore180, bool in_bAccept183)
    {
        m_bIgnore180 = in_bIgnore180;
        m_bAccept183 = in_bAccept183;
    }
    bool ignores180() const { return m_bIgnore180; }
    bool accepts183() const { return m_bAccept183; }

    /// Notes what the record of the call needs, then handles the event.
    bool processEvent(const VoipEvent& in_event) override;

    /// No way leads to the far end; for the record of the call.
    void noteUnreachable() { m_ending = m_ending.value_or(CallOutInterface::Ending::UNREACHABLE); }

    /// Tells the call engine how the INVITE was answered and who ended the leg, then ends the call.
    /// Repeatable.
    void done() override;

protected:
    virtual OutSipLeg* newOutSipLeg();

private:
    std::unique_ptr<CallInfo> m_pCallInfo;
    unsigned int m_uiFinalStatus = 0;
    std::optional<CallOutInterface::Ending> m_ending;
    bool m_bAcceptEarlyMedia = true;
    bool m_bIgnore180 = false;
    bool m_bAccept183 = false;
};

/// What the states of outbound calls share. Actions are named for what the far end or the call engine
/// notices.
class VoipOutNamedState : public VoipNamedState<CountedObjPtr<CallOutInterface>>
{
public:
    explicit VoipOutNamedState(OutStateMachine& in_machine);

    bool internal_assert(const char* in_szFile, int in_iLine) const override;

protected:
    OutStateMachine& getMachine() const;
    // Only after internal_assert().
    OutSipLeg& getOutSipLeg() const;
    CallOutInterface& getCallOut() const { return *m_pSM->getCallIf(); }

    // Guards, by the class of the response's status.
    bool isProvisional(const VoipEvent& in_event) const;
    bool isSuccess(const VoipEvent& in_event) const;
    bool isFailure(const VoipEvent& in_event) const;

    /// A provisional response, perhaps with SDP: ringing, early media, or nothing.
    bool process1XXResponse(const VoipEvent& in_event, std::string& out_strStateName);
    /// The answer: acknowledged, then on with the call, or ended when its SDP cannot be used.
    bool process2XXResponseToInvite(const VoipEvent& in_event, std::string& out_strStateName);
    /// A 3xx: offers its targets to the call engine and ends this attempt. False when the response, or what
    /// is known of the call, does not allow it; the state then stays.
    bool processRedirectEvent(const RedirectEvent& in_event, std::string& out_strStateName);
    // What was tried before, when this leg is a redirection itself; null, asserted, when nothing is known.
    SipRedirectionTargetData::Ptr obtainTargetData(const CallInfo& in_callInfo);
    /// The failure with the status code of the event's response as its detail.
    ConnectionFailureType GetSipConnectionFailureType(const VoipEvent& in_event,
                                                      ConnectionFailureEnum in_failure) const;

    // Actions.
    bool redirect(const VoipEvent& in_event, std::string& out_strStateName);
    bool followProvisional(const VoipEvent& in_event, std::string& out_strStateName);
    bool killCall(const VoipEvent& in_event, std::string& out_strStateName);
    bool declineEvent(const VoipEvent& in_event, std::string& out_strStateName);
    bool failRefused(const VoipEvent& in_event, std::string& out_strStateName);
    template <ConnectionFailureEnum Failure>
    bool failConnect(const VoipEvent& in_event, std::string& /*out_strStateName*/)
    {
        getCallOut().connectFailed(GetSipConnectionFailureType(in_event, Failure));
        return true;
    }
    template <ConnectionFailureEnum Failure>
    bool failCall(const VoipEvent& in_event, std::string& /*out_strStateName*/)
    {
        getCallOut().callFailed(GetSipConnectionFailureType(in_event, Failure));
        return true;
    }

    void warnUnasked487() const;
    void noteTimeout() const;

private:
    bool acknowledge2XX(const VoipEvent& in_event);
};

}  // namespace Quorvex
