#pragma once

#include "sipstack/DsHandle.h"
#include "sipstack/DsObject.h"

namespace Quorvex
{

class DsSipIncomingCall;
class DsSipInviteMessage;

/// Given to the stack at its start: decides about every INVITE that begins a call.
class DsSipNewCallinterface : public DsObject
{
public:
    /// A new INVITE has arrived; called on the SIP stack thread, must not block. The result is a new
    /// DsSipIncomingCall made for this INVITE, or a nil handle to refuse it (the layer answers 500). The
    /// stack then calls called() of that call's interface.
    virtual DsHandle<DsSipIncomingCall> newCall(const DsHandle<DsSipInviteMessage>& in_hInvite) = 0;
};

}  // namespace Quorvex
