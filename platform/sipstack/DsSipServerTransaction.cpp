#include "sipstack/DsSipServerTransaction.h"

#include "sipstack/DsException.h"
#include "sipstack/DsSipRequest.h"
#include "sipstack/DsSipResponse.h"
#include "sipstack/base/ServerTransactionCore.h"

namespace Quorvex
{

DsSipServerTransaction::DsSipServerTransaction(const DsHandle<DsSipRequest>& in_hRequest,
                                               std::shared_ptr<ServerTransactionCore> in_pCore)
    : m_hRequest(in_hRequest), m_pCore(std::move(in_pCore))
{
}

DsSipServerTransaction::~DsSipServerTransaction()
{
    if (!m_bFinalSent.load())
    {
        m_pCore->postDropped();
    }
}

void DsSipServerTransaction::sendResponse(const DsHandle<DsSipResponse>& in_hResponse,
                                          const DsInetAddress& in_address)
{
    if (in_hResponse.isNil())
    {
        throw DsException("no response to send");
    }
    if (in_address.isValid())
    {
        throw DsException("a response goes the way of its request; no other address can be chosen");
    }
    if (in_hResponse->getStatusCode() >= 200 ? m_bFinalSent.exchange(true) : m_bFinalSent.load())
    {
        throw DsException("the request has its final response already");
    }
    if (!m_pCore->postResponse(in_hResponse))
    {
        throw DsException("the SIP stack is not running");
    }
}

}  // namespace Quorvex
