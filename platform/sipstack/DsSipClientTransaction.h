#pragma once

#include <functional>
#include <memory>
#include <string>

#include "sipstack/DsHandle.h"

namespace Quorvex
{

class ClientTransactionCore;
class DsSipRequest;
class DsSipResponse;
class DsSipStack;

/// A request outside any dialog (REGISTER, OPTIONS) and its responses. 401 and 407 are answered by the layer
/// with the stack's credentials, once per nonce, before the response is reported.
class DsSipClientTransaction
{
public:
    /// Called on the SIP stack thread for the final response, once; nil when none came (time-out,
    /// unreachable, the stack was stopped).
    using Callback = std::function<void(const DsHandle<DsSipResponse>& in_hResponse)>;

    /// Sends the request. Call-ID and CSeq go out as the message has them, or are the stack's.
    /// Throws a DsException when the request cannot be sent as it stands.
    /// @param in_pStack the stack to send with; null for DsSipStack::instance()
    static std::unique_ptr<DsSipClientTransaction> send(const DsHandle<DsSipRequest>& in_hRequest,
                                                        Callback in_callback,
                                                        DsSipStack* in_pStack = nullptr);

    /// Drops the callback: nothing is reported once the destructor has returned, unless it runs at that
    /// moment.
    ~DsSipClientTransaction();
    DsSipClientTransaction(const DsSipClientTransaction&) = delete;
    DsSipClientTransaction& operator=(const DsSipClientTransaction&) = delete;

private:
    explicit DsSipClientTransaction(std::shared_ptr<ClientTransactionCore> in_pCore);
    const std::shared_ptr<ClientTransactionCore> m_pCore;
};

}  // namespace Quorvex
