#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "calleng/CallLegInfo.h"
#include "infra/Parameter.h"
#include "infra/ParameterTrie.h"

namespace Quorvex
{

/// One leg of a running call, as it was at one moment.
struct LegView
{
    std::string m_strId;
    /// "in" or "out".
    std::string m_strDirection;
    /// "arrived", "ringing", "answered", "ending".
    std::string m_strState;
    std::string m_strFrom;
    std::string m_strTo;
    std::chrono::milliseconds m_age{0};
    /// What call-progress analysis has heard; empty without one, and until it has.
    std::string m_strCpa = {};
};

/// One running call, as it was at one moment; the direction and the parties are those of its first leg.
struct CallView
{
    std::string m_strId;
    std::string m_strDirection;
    std::string m_strState;
    std::string m_strFrom;
    std::string m_strTo;
    std::chrono::milliseconds m_age{0};
    std::vector<LegView> m_vLegs;
};

/// How a command ended.
struct CommandResult
{
    enum Kind
    {
        DONE,
        NO_SUCH_CALL,
        BAD_REQUEST,  ///< the command cannot be: m_strText says why
        WRONG_STATE,  ///< not now: m_strText says why
        UNAVAILABLE,  ///< the gateway is stopping, or did not take the command in time
        NOT_SUPPORTED
    };
    Kind m_kind = DONE;
    /// One clear sentence for a failure; the call's identifier for a placed call.
    std::string m_strText;
};

/// What operators may ask of the running gateway. Every operation may be called on any thread; commands are
/// queued to the call engine's thread and wait for its answer for a bounded time.
class CallControl
{
public:
    CallControl() = default;
    CallControl(const CallControl&) = delete;
    CallControl& operator=(const CallControl&) = delete;
    virtual ~CallControl() = default;

    /// Whether new calls are taken: false while starting, draining and stopping.
    virtual bool takesCalls() const = 0;
    /// What keeps the gateway from serving the calls that it takes, in one sentence; empty when nothing does.
    virtual std::string getTrouble() const = 0;
    /// The network interface's own description of itself, as text.
    virtual std::string describe() = 0;
    virtual std::vector<CallView> getCalls() = 0;

    /// Places a call: the outbound leg's parameters, and the options of a service route ("service",
    /// "ringing", ...) for what the answered call gets.
    virtual CommandResult placeCall(const CallLegInfo& in_leg, const ParameterTrie& in_options) = 0;
    virtual CommandResult hangUp(const std::string& in_strId) = 0;
    virtual CommandResult sendInfo(const std::string& in_strId,
                                   const std::vector<Parameter>& in_vParameters) = 0;
    /// Places a new leg, connects the caller to it and releases the old one.
    virtual CommandResult transfer(const std::string& in_strId, const CallLegInfo& in_leg) = 0;
    /// No new calls in either direction; the gateway ends with the last call.
    virtual CommandResult drain() = 0;
};

}  // namespace Quorvex
