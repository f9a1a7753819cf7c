#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "sipstack/base/ReceiveBacklog.h"
#include "sipstack/base/Sofia.h"

namespace Quorvex
{

/// Turns new calls away while there is too much to do, at the least cost: a 503 without a transaction (RFC
/// 3261 8.2.7). A transaction for each would keep its 503 and its timers until an ACK comes that waits behind
/// the flood, and the refusals alone would use up the thread. SIP stack thread.
class OverloadRefusal
{
public:
    /// Opens for the listen ports of an agent. `in_overloaded` may be empty: then the backlog alone decides.
    void open(const DsSipStackConfig& in_config, nta_agent_t* in_pAgent);

    /// Whether there was too much to do when refuses() looked at the last new call.
    bool isOverloaded() const { return m_bOverloaded; }
    /// True when the message was a new call and has been refused, or the ACK of such a refusal: it is to be
    /// forgotten. Does so only for UDP with one listen port for the caller's kind of address (IPv4, IPv6),
    /// whose socket the answer leaves from: which of several a message came to is not told this early.
    /// Elsewhere the agent refuses.
    bool refuses(msg_t* in_pMsg, const sip_t* in_pSip);
    /// How many messages were forgotten so; of them refused calls. Any thread.
    std::uint64_t getForgotten() const { return m_ulForgotten; }
    std::uint64_t getRefused() const { return m_ulRefused; }

private:
    bool sendRefusal(msg_t* in_pMsg, const sip_t* in_pSip) const;

    ReceiveBacklog m_backlog;
    std::function<bool()> m_overloaded;
    nta_agent_t* m_pAgent = nullptr;
    bool m_bOverloaded = false;
    std::string m_strEnd;  // the header lines that are the same for all
    std::atomic<std::uint64_t> m_ulForgotten{0};
    std::atomic<std::uint64_t> m_ulRefused{0};
};

}  // namespace Quorvex
