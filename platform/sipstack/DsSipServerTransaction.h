#pragma once

#include <atomic>
#include <memory>

#include "infra/MemAccount.h"
#include "sipstack/DsHandle.h"
#include "sipstack/DsInetAddress.h"
#include "sipstack/DsObject.h"

namespace Quorvex
{

class DsSipRequest;
class DsSipResponse;
class ServerTransactionCore;

/// A request received in a dialog that the user of the layer answers. When the last handle goes without a
/// final response having been sent, the layer answers: 481 for a NOTIFY, 500 otherwise.
class DsSipServerTransaction final : public DsObject
{
public:
    QUORVEX_MEM_ACCOUNT("DsSipServerTransaction");

    /// Sends a response, any number of provisional ones and one final. It goes the way of the request's Via;
    /// a different address is not supported (throws). Throws after the final response.
    void sendResponse(const DsHandle<DsSipResponse>& in_hResponse,
                      const DsInetAddress& in_address = DsInetAddress());

    const DsHandle<DsSipRequest>& getRequest() const { return m_hRequest; }

protected:
    ~DsSipServerTransaction() override;

private:
    friend class ServerTransactionCore;
    DsSipServerTransaction(const DsHandle<DsSipRequest>& in_hRequest,
                           std::shared_ptr<ServerTransactionCore> in_pCore);

    const DsHandle<DsSipRequest> m_hRequest;
    const std::shared_ptr<ServerTransactionCore> m_pCore;
    std::atomic<bool> m_bFinalSent{false};
};

}  // namespace Quorvex
