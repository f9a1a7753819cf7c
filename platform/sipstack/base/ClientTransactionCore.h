#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "sipstack/DsHandle.h"
#include "sipstack/DsSipClientTransaction.h"
#include "sipstack/base/Challenges.h"
#include "sipstack/base/ClientRequest.h"

namespace Quorvex
{

class SipAgent;

/// The stack's side of a request outside any dialog. SIP stack thread, except where noted.
class ClientTransactionCore final : public std::enable_shared_from_this<ClientTransactionCore>
{
public:
    ClientTransactionCore(SipAgent& in_agent,
                          DsHandle<DsSipRequest> in_hRequest,
                          DsSipClientTransaction::Callback in_callback);
    ~ClientTransactionCore();
    ClientTransactionCore(const ClientTransactionCore&) = delete;
    ClientTransactionCore& operator=(const ClientTransactionCore&) = delete;

    void begin();
    /// Any thread: nobody wants the answer any more. Waits for a callback under way, unless it is called from
    /// it.
    void forget();
    /// The stack is stopping: the answer is none.
    void close() { finish(DsHandle<DsSipResponse>()); }

private:
    void send();
    void onResponse(const sip_t* in_pSip);
    void finish(const DsHandle<DsSipResponse>& in_hResponse);

    SipAgent& m_agent;
    const std::weak_ptr<SipAgent> m_pAgent;
    const DsHandle<DsSipRequest> m_hRequest;
    std::recursive_mutex m_mutex;  // guards the callback, and is held while it runs
    DsSipClientTransaction::Callback m_callback;
    std::unique_ptr<ClientRequest> m_pRequest;
    Challenges m_challenges;
    std::vector<std::string> m_vRoutes;  // the first is in use, the others are still to be tried
    std::string m_strCallId;
    std::string m_strFrom;
    std::uint32_t m_uiCSeq = 1;
    bool m_bDone = false;
};

}  // namespace Quorvex
