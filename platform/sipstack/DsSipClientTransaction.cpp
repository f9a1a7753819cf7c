#include "sipstack/DsSipClientTransaction.h"

#include "sipstack/DsException.h"
#include "sipstack/DsSipRequest.h"
#include "sipstack/DsSipResponse.h"
#include "sipstack/DsSipStack.h"
#include "sipstack/base/ClientTransactionCore.h"
#include "sipstack/base/SipAgent.h"

namespace Quorvex
{

DsSipClientTransaction::DsSipClientTransaction(std::shared_ptr<ClientTransactionCore> in_pCore)
    : m_pCore(std::move(in_pCore))
{
}

DsSipClientTransaction::~DsSipClientTransaction()
{
    m_pCore->forget();
}

std::unique_ptr<DsSipClientTransaction> DsSipClientTransaction::send(
    const DsHandle<DsSipRequest>& in_hRequest, Callback in_callback, DsSipStack* in_pStack)
{
    if (in_hRequest.isNil() || !in_hRequest->hasHeader("From") || !in_hRequest->hasHeader("To"))
    {
        throw DsException("a request needs a From and a To header");
    }
    if (in_hRequest->getMethod() == "INVITE" || in_hRequest->getMethod() == "ACK" ||
        in_hRequest->getMethod() == "CANCEL")
    {
        throw DsException(in_hRequest->getMethod() + " belongs to a call");
    }
    DsSipStack* const stack = in_pStack != nullptr ? in_pStack : DsSipStack::instance();
    if (stack == nullptr || !stack->isRunning())
    {
        throw DsException("the SIP stack is not running");
    }
    const auto agent = stack->getAgent();
    auto core = std::make_shared<ClientTransactionCore>(*agent, in_hRequest, std::move(in_callback));
    if (!agent->post([core] { core->begin(); }))
    {
        throw DsException("the SIP stack is not running");
    }
    return std::unique_ptr<DsSipClientTransaction>(new DsSipClientTransaction(std::move(core)));
}

}  // namespace Quorvex
