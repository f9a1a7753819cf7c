#include "sipstack/base/ServerTransactionCore.h"

#include "sipstack/DsSipRequest.h"
#include "sipstack/DsSipResponse.h"
#include "sipstack/DsSipServerTransaction.h"
#include "sipstack/base/MessageBridge.h"
#include "sipstack/base/SipAgent.h"

namespace Quorvex
{

ServerTransactionCore::ServerTransactionCore(SipAgent& in_agent, nta_incoming_t* in_pIrq, bool in_bNotify)
    : m_pAgent(in_agent.weak_from_this()), m_pIrq(in_pIrq), m_bNotify(in_bNotify)
{
}

ServerTransactionCore::~ServerTransactionCore() = default;

DsHandle<DsSipServerTransaction> ServerTransactionCore::create(SipAgent& in_agent,
                                                               nta_incoming_t* in_pIrq,
                                                               const DsHandle<DsSipRequest>& in_hRequest)
{
    const sip_method_t method = nta_incoming_method(in_pIrq);
    auto core = std::make_shared<ServerTransactionCore>(in_agent, in_pIrq, method == sip_method_notify);
    in_agent.addServerTransaction(core);
    return DsHandle<DsSipServerTransaction>(new DsSipServerTransaction(in_hRequest, std::move(core)));
}

bool ServerTransactionCore::postResponse(const DsHandle<DsSipResponse>& in_hResponse)
{
    const auto agent = m_pAgent.lock();
    return agent && agent->post([self = shared_from_this(), in_hResponse] { self->send(in_hResponse); });
}

void ServerTransactionCore::postDropped()
{
    if (const auto agent = m_pAgent.lock())
    {
        agent->post([self = shared_from_this()] { self->close(); });
    }
}

void ServerTransactionCore::send(const DsHandle<DsSipResponse>& in_hResponse)
{
    if (m_pIrq == nullptr)
    {
        return;
    }
    const auto agent = m_pAgent.lock();
    MessageBridge::reply(m_pIrq, in_hResponse);
    if (in_hResponse->getStatusCode() >= 200)
    {
        nta_incoming_destroy(m_pIrq);
        m_pIrq = nullptr;
        agent->removeServerTransaction(*this);
    }
}

void ServerTransactionCore::close()
{
    if (m_pIrq == nullptr)
    {
        return;
    }
    const auto self = shared_from_this();
    if (m_bNotify)
    {
        nta_incoming_treply(m_pIrq, SIP_481_NO_TRANSACTION, TAG_END());
    }
    else
    {
        // It came at a bad time, as one that overtakes the ACK of its call (RFC 3261 21.5.1).
        nta_incoming_treply(m_pIrq, SIP_500_INTERNAL_SERVER_ERROR, SIPTAG_RETRY_AFTER_STR("1"), TAG_END());
    }
    nta_incoming_destroy(m_pIrq);
    m_pIrq = nullptr;
    if (const auto agent = m_pAgent.lock())
    {
        agent->removeServerTransaction(*this);
    }
}

}  // namespace Quorvex
