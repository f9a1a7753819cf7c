#include "sipstack/base/ClientRequest.h"

namespace Quorvex
{

ClientRequest::~ClientRequest()
{
    abandon();
}

bool ClientRequest::take(nta_outgoing_t* in_pOrq)
{
    m_pOrq = in_pOrq;
    return in_pOrq != nullptr;
}

void ClientRequest::abandon()
{
    if (m_pOrq != nullptr)
    {
        nta_outgoing_destroy(m_pOrq);
        m_pOrq = nullptr;
    }
}

void ClientRequest::onOutgoing(nta_outgoing_t* in_pOrq, const sip_t* in_pSip)
{
    if (m_pOrq == nullptr)
    {
        m_pOrq = in_pOrq;  // an answer from inside the making of the transaction
    }
    // The callback may destroy this object.
    const Callback callback = m_callback;
    callback(in_pSip);
}

}  // namespace Quorvex
