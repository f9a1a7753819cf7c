#pragma once

namespace Quorvex
{

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
};

}  // namespace Quorvex
