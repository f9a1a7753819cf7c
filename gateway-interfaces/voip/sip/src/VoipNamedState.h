#pragma once

#include <string>

#include "VoipEvent.h"
#include "infra/Logger.h"
#include "quorvex/StateMachineWithEventQueue.h"

namespace Quorvex
{

class SipLeg;
class VoipMedia;
template <class CallIfPtr>
class VoipStateMachine;

/// What all states of a call have in common. Task thread.
class VoipNamedStateNoT : public StateMachineWithEventQueueNamedState<VoipEvent>,
                          public virtual TimeoutStateInterface<VoipEvent>
{
public:
    /// Says, at WARN, that the state has no use for the event.
    void logUnexpectedEvent(const VoipEvent& in_event) const;

    const CallLogger& getLogger() const { return m_logger.getLogger(); }

protected:
    /// The state logs under that logger, which outlives it.
    explicit VoipNamedStateNoT(ObjectWithLogger<CallLogger>& in_logger) : m_logger(in_logger) {}

    /// Declines the event: it is kept and offered again after the next one that is handled. False, with an
    /// assertion, when the state belongs to no machine.
    bool decline();

private:
    ObjectWithLogger<CallLogger>& m_logger;
};

/// A state of a call whose call-engine interface is CallIfPtr (a counted pointer to CallInInterface or
/// CallOutInterface).
template <class CallIfPtr>
class VoipNamedState : public VoipNamedStateNoT
{
public:
    /// Whether the machine and its SIP leg are there; reports what is missing under that file and line. To be
    /// asked before either is used.
    virtual bool internal_assert(const char* in_szFile, int in_iLine) const;

protected:
    VoipNamedState(ObjectWithLogger<CallLogger>& in_logger, VoipStateMachine<CallIfPtr>* in_pSM);

    // Of the machine; only after internal_assert().
    SipLeg& getSipLeg() const;
    VoipMedia& getMedia() const;

    /// Tells the call engine that the SIP side of the call is gone.
    void tellCallEngine() const;

    VoipStateMachine<CallIfPtr>* m_pSM;
};

}  // namespace Quorvex
