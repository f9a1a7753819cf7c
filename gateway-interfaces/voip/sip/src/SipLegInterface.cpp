#include "SipLegInterface.h"

#include "sipstack/DsSipAckMessage.h"
#include "sipstack/DsString.h"

namespace Quorvex
{

const Logger& InSipSide::getLogger()
{
    static const StaticLogger s_logger("quorvex.voip.InSipLegInterfaceProxy");
    return s_logger;
}

const Logger& OutSipSide::getLogger()
{
    static const StaticLogger s_logger("quorvex.voip.OutSipLegInterfaceProxy");
    return s_logger;
}

bool carriesSDP(const DsHandle<DsSipAckMessage>& in_hAck)
{
    return !in_hAck.isNil() && in_hAck->getBodyLength() > 0 &&
           in_hAck->getBodyType().equalsIgnoreCase("application/sdp");
}

}  // namespace Quorvex
