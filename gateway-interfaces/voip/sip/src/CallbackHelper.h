#pragma once

#include <string>

#include "VoipEvent.h"

namespace Quorvex
{

class SipLeg;

/// For states that deal with what the media engine reports: hands it to the leg's media.
class CallbackHelper
{
public:
    CallbackHelper() = default;
    CallbackHelper(const CallbackHelper&) = delete;
    CallbackHelper& operator=(const CallbackHelper&) = delete;
    virtual ~CallbackHelper() = default;

    /// The outcome of an endpoint operation. False, logged and not handed on, when the operation failed.
    virtual bool relayMediaOpEvent(const VoipEvent& in_event, SipLeg* in_pSipLeg);

    /// A capacity, which the media take over from the event. False, logged, when the engine had none.
    virtual bool relayCapacityMediaEvent(const VoipEvent& in_event, SipLeg* in_pSipLeg);
};

/// For a state that waits until all streams have started.
class StartAllCallbackHelper : public CallbackHelper
{
public:
    using CallbackHelper::relayMediaOpEvent;

    /// All streams have started: names the next state.
    virtual void finalExecution(std::string& out_strStateName, SipLeg* in_pSipLeg) = 0;

    virtual bool relayMediaOpEvent(const VoipEvent& in_event,
                                   SipLeg* in_pSipLeg,
                                   std::string& out_strStateName);
};

/// For a state that waits until all capacities are there.
class GetAllCapacitiesCallbackHelper : public CallbackHelper
{
public:
    using CallbackHelper::relayCapacityMediaEvent;

    /// All capacities are there: names the next state.
    virtual void finalExecution(std::string& out_strStateName, SipLeg* in_pSipLeg) = 0;

    virtual bool relayCapacityMediaEvent(const VoipEvent& in_event,
                                         SipLeg* in_pSipLeg,
                                         std::string& out_strStateName);
};

/// Answers the far end's BYE. CallType as in SipEvents.h.
template <class CallType>
class ByeHelper
{
public:
    /// False when the event is no BYE of that direction, or the answer could not be sent.
    static bool respondToBye(const VoipEvent& in_event, SipLeg* in_pSipLeg);
};

}  // namespace Quorvex
