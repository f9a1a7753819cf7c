#include "sipstack/DsSipIncomingCallinterface.h"
#include "sipstack/DsSipNewCallinterface.h"
#include "sipstack/DsSipOutgoingCallinterface.h"
#include "sipstack/DsSipRequest.h"
#include "sipstack/DsSipResponse.h"
#include "sipstack/DsSipServerTransaction.h"

namespace Quorvex
{

void DsSipIncomingCallinterface::referResponse(const DsHandle<DsSipIncomingCall>&,
                                               const DsHandle<DsSipResponse>&)
{
}

void DsSipIncomingCallinterface::notifyRequest(const DsHandle<DsSipIncomingCall>&,
                                               const DsHandle<DsSipServerTransaction>&,
                                               const DsHandle<DsSipRequest>&)
{
    // The transaction is dropped, and so the layer answers that there is no subscription.
}

}  // namespace Quorvex
