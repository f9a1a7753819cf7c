#pragma once

#include <memory>

#include "sipstack/base/DialogOwner.h"
#include "sipstack/base/Sofia.h"

namespace Quorvex
{

class SipAgent;

/// What the stack keeps of any call, inbound or outbound. SIP stack thread.
class CallCore : public DialogOwner, public std::enable_shared_from_this<CallCore>
{
public:
    explicit CallCore(SipAgent& in_agent);
    virtual ~CallCore();
    CallCore(const CallCore&) = delete;
    CallCore& operator=(const CallCore&) = delete;

    /// Ends the call in order, as its user's hangup() would; the stack is stopping.
    virtual void shutdown() = 0;
    /// Ends the call at once, without waiting for anybody.
    virtual void abort() = 0;

protected:
    SipAgent& m_agent;
    const std::weak_ptr<SipAgent> m_pAgent;
};

}  // namespace Quorvex
