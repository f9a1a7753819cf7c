#pragma once

namespace Quorvex
{

class TimeoutStateNoT;

/// What gives a state of a machine its identity.
class NamedStateNoT
{
public:
    NamedStateNoT() = default;
    NamedStateNoT(const NamedStateNoT&) = default;
    NamedStateNoT& operator=(const NamedStateNoT&) = default;
    virtual ~NamedStateNoT() = default;

    /// The state's fixed name, a literal: the one under which it is registered in its machine.
    virtual const char* getName() const = 0;

    /// The state's timer side, null for a state without a time-out: spares a machine a cast for each state.
    virtual TimeoutStateNoT* asTimeoutState() { return nullptr; }
};

}  // namespace Quorvex
