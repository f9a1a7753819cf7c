#pragma once

#include <memory>

#include "sipstack/DsHandle.h"
#include "sipstack/base/Sofia.h"

namespace Quorvex
{

class DsSipRequest;
class DsSipResponse;
class DsSipServerTransaction;
class SipAgent;

/// A request that waits for an answer of the layer's user. SIP stack thread, except where noted.
class ServerTransactionCore final : public std::enable_shared_from_this<ServerTransactionCore>
{
public:
    ServerTransactionCore(SipAgent& in_agent, nta_incoming_t* in_pIrq, bool in_bNotify);
    ~ServerTransactionCore();
    ServerTransactionCore(const ServerTransactionCore&) = delete;
    ServerTransactionCore& operator=(const ServerTransactionCore&) = delete;

    /// Makes the pair of core and handle for a request.
    static DsHandle<DsSipServerTransaction> create(SipAgent& in_agent,
                                                   nta_incoming_t* in_pIrq,
                                                   const DsHandle<DsSipRequest>& in_hRequest);

    /// Any thread: the answer is sent on the SIP stack thread. False when the stack is gone.
    bool postResponse(const DsHandle<DsSipResponse>& in_hResponse);
    void postDropped();

    /// Answers in place of a user who has not; the stack is stopping.
    void close();

private:
    void send(const DsHandle<DsSipResponse>& in_hResponse);

    std::weak_ptr<SipAgent> m_pAgent;
    nta_incoming_t* m_pIrq;
    const bool m_bNotify;
};

}  // namespace Quorvex
