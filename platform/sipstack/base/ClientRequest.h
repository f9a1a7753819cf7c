#pragma once

#include <functional>
#include <memory>

#include "sipstack/base/Sofia.h"

namespace Quorvex
{

/// A request that was sent and waits for its answer. SIP stack thread.
class ClientRequest final : public OutgoingHandler
{
public:
    /// Called for every response, provisional ones included; the last time for the final one. A response that
    /// the base library made itself (time-out, unreachable) is told by isInternal().
    using Callback = std::function<void(const sip_t* in_pSip)>;

    explicit ClientRequest(Callback in_callback) : m_callback(std::move(in_callback)) {}
    ClientRequest(const ClientRequest&) = delete;
    ClientRequest& operator=(const ClientRequest&) = delete;
    ~ClientRequest();

    void setCallback(Callback in_callback) { m_callback = std::move(in_callback); }

    /// Takes the transaction that was made with this as its handler; null means that it could not be made.
    bool take(nta_outgoing_t* in_pOrq);
    nta_outgoing_t* get() const { return m_pOrq; }

    /// The answer is of no interest any more; the transaction goes on by itself.
    void abandon();

    static bool isInternal(const sip_t* in_pSip)
    {
        return in_pSip == nullptr || nta_sip_is_internal(in_pSip) != 0;
    }

private:
    void onOutgoing(nta_outgoing_t* in_pOrq, const sip_t* in_pSip) override;

    Callback m_callback;
    nta_outgoing_t* m_pOrq = nullptr;
};

}  // namespace Quorvex
