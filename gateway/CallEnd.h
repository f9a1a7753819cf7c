#pragma once

#include <string>
#include <vector>

#include "CallRecord.h"
#include "infra/Parameter.h"
#include "quorvex/CallTypes.h"
#include "quorvex/ConnectionFailureType.h"

namespace Quorvex
{

/// One end of a call, whichever way its leg was set up: the caller, or a party that a leg was placed to. On
/// the engine's thread. An end that is not there any more takes every operation and does nothing.
class CallEnd
{
public:
    CallEnd() = default;
    CallEnd(const CallEnd&) = delete;
    CallEnd& operator=(const CallEnd&) = delete;
    virtual ~CallEnd() = default;

    /// Ends it at whatever moment it is in.
    virtual void hangup(CallRecord::EndedBy in_endedBy) = 0;
    /// False when nothing could be queued.
    virtual bool sendInfo(const std::vector<Parameter>& in_vParameters) = 0;

    /// The outcome of the transfer that it asked for: the party is alerted; then one of the others.
    virtual void transferAccepted(RingType in_ringType) = 0;
    virtual void transferFailed(const ConnectionFailureType& in_failure) = 0;
    virtual void transferSucceeded() = 0;
    /// After a success: the end stays in the call, and its media run again.
    virtual void resume() = 0;

    /// Who it is, as a SIP URI; empty when that is not known.
    virtual std::string getUri() const = 0;
};

}  // namespace Quorvex
