#pragma once

#include <ace/Time_Value.h>

#include <chrono>
#include <iosfwd>
#include <memory>
#include <string>

#include "VoipEvent.h"
#include "VoipNamedState.h"
#include "infra/Handle.h"
#include "infra/LimitedObjPtr.h"
#include "infra/Logger.h"
#include "infra/ROConfiguration.h"
#include "quorvex/StateMachineWithEventQueue.h"

namespace Quorvex
{

class CallInInterface;
class CallOutInterface;
class DsVoipGatewayNetIf;
class SipLeg;

/// "quorvex.voip.VoipStateMachine": of the helpers, and of what is missing in a machine.
const Logger& getVoipStateMachineLogger();

/// The machine of one call, whatever its direction: who it is, and its SIP side. Task thread.
class VoipStateMachineNoT
{
public:
    VoipStateMachineNoT();
    VoipStateMachineNoT(const VoipStateMachineNoT&) = delete;
    VoipStateMachineNoT& operator=(const VoipStateMachineNoT&) = delete;
    virtual ~VoipStateMachineNoT();

    /// The call is over: gives up the SIP leg. Repeatable.
    virtual void done();

    /// Both must outlive the call.
    void configure(const Handle<ROConfiguration>& in_hConfig, LimitedObjPtr<DsVoipGatewayNetIf> in_pNetIf);

    /// Of the machine; the same for all calls that it carries.
    const char* getUUID() const { return m_strUUID.c_str(); }
    /// Of the call; empty until setCallId().
    const char* getCallId() const { return m_strCallId.c_str(); }

    /// Null while there is none. Owned by the machine.
    SipLeg* getSipLeg() const { return m_pSipLeg.get(); }
    /// Takes ownership, and deletes the leg held before.
    void setSipLeg(SipLeg* in_pSipLeg);

    /// Null until configure().
    const Handle<ROConfiguration>& getConfig() const { return m_hConfig; }
    /// Only after configure().
    DsVoipGatewayNetIf& getVoipGatewayNetIf() const { return *m_pVoipGatewayNetIf; }

    /// Whether the network interface counts it in the record of its call.
    bool sharesCallData() const { return m_bSharesCallData; }
    void setSharesCallData(bool in_bShares) { m_bSharesCallData = in_bShares; }

    /// Writes whole SIP messages, at DEBUG, to "quorvex.sip.message".
    const CallLogger& getMsgLogger() const { return m_msgLogger; }

protected:
    ConnectionFailureType m_connectionFailure;
    const std::string m_strUUID;
    std::string m_strCallId;
    std::unique_ptr<SipLeg> m_pSipLeg;
    Handle<ROConfiguration> m_hConfig;
    LimitedObjPtr<DsVoipGatewayNetIf> m_pVoipGatewayNetIf;
    CallLogger m_msgLogger;

private:
    bool m_bSharesCallData = false;
};

/// The machine of one call whose call-engine interface is CallIfPtr. It is made once and used for one call
/// after another: configure(), setCallId(), initialize() of the derived class, events until it rests in
/// "IDLE", where done() has reported it to the network interface.
template <class CallIfPtr>
class VoipStateMachine : public StateMachineWithEventQueue<VoipEvent, VoipNamedState<CallIfPtr>, CallLogger>,
                         public VoipStateMachineNoT,
                         public virtual OutputStreamable
{
    using Base = StateMachineWithEventQueue<VoipEvent, VoipNamedState<CallIfPtr>, CallLogger>;

public:
    explicit VoipStateMachine(const CallLogger& in_logger);
    ~VoipStateMachine() override;

    /// Ends the call in good order, or at once. The result of the event.
    virtual bool stop();
    virtual bool kill();

    /// Begins a call: from now on every log line names it.
    void setCallId(const char* in_szCallId);

    /// Logs the event (and a SIP message that it carries, in full), then handles it.
    bool processEvent(const VoipEvent& in_event) override;
    /// Handles the expiry of a state's timer as an event.
    bool processTimeout(const ACE_Time_Value& in_expiryTime, TimeoutData* in_pData) override;

    /// The call is over: lets go of the call engine and the SIP leg, and reports the machine to the network
    /// interface. Once for each call.
    void done() override;

    /// A description for diagnosis, in one line.
    std::ostream& write(std::ostream& out_stream) const override;

    /// Null before the call and after its end.
    CallIfPtr getCallIf() const { return m_pCallIf; }

protected:
    CallIfPtr m_pCallIf;

private:
    bool m_bDone = false;
    std::chrono::steady_clock::time_point m_initTime;
};

}  // namespace Quorvex
