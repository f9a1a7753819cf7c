#pragma once

#include "sipstack/base/SipAgent.h"
#include "sipstack/base/Sofia.h"

namespace Quorvex
{

/// An INVITE that waits for its host names to be looked up; nothing has been reported of it.
class PendingInvite final : public IncomingHandler
{
public:
    PendingInvite(SipAgent& in_agent, nta_incoming_t* in_pIrq) : m_agent(in_agent), m_pIrq(in_pIrq)
    {
        nta_incoming_bind(in_pIrq, &IncomingHandler::callback, this);
    }
    PendingInvite(const PendingInvite&) = delete;
    PendingInvite& operator=(const PendingInvite&) = delete;
    ~PendingInvite() { give(SIP_503_SERVICE_UNAVAILABLE); }

    void proceed()
    {
        nta_incoming_t* const irq = m_pIrq;
        m_pIrq = nullptr;
        nta_incoming_bind(irq, nullptr, nullptr);
        msg_t* const msg = nta_incoming_getrequest(irq);
        const int status = m_agent.beginCall(irq, sip_object(msg));
        msg_destroy(msg);
        if (status >= 200)
        {
            nta_incoming_treply(irq, status, nullptr, TAG_END());
            nta_incoming_destroy(irq);
        }
    }

private:
    void onIncoming(nta_incoming_t*, const sip_t* in_pSip) override
    {
        if (in_pSip != nullptr && in_pSip->sip_request->rq_method == sip_method_cancel)
        {
            give(SIP_487_REQUEST_CANCELLED);
            m_agent.removePending(*this);
        }
    }

    void give(int in_iStatus, const char* in_szPhrase)
    {
        if (m_pIrq != nullptr)
        {
            nta_incoming_treply(m_pIrq, in_iStatus, in_szPhrase, TAG_END());
            nta_incoming_destroy(m_pIrq);
            m_pIrq = nullptr;
        }
    }

    SipAgent& m_agent;
    nta_incoming_t* m_pIrq;
};

}  // namespace Quorvex
