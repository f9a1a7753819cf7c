#include "NewSipCallInterface.h"

#include "DsVoipGatewayNetIf.h"
#include "InSipLegInterfaceProxy.h"
#include "infra/Assertion.h"
#include "infra/Logger.h"
#include "infra/UUID.h"
#include "sipstack/DsException.h"
#include "sipstack/DsSipIncomingCall.h"
#include "sipstack/DsSipInviteMessage.h"

namespace Quorvex
{

namespace
{
const StaticLogger s_logger("quorvex.voip.NewSipCallInterface");
}

DsHandle<DsSipIncomingCall> NewSipCallInterface::newCall(const DsHandle<DsSipInviteMessage>& in_hInvite)
{
    QLOG_TRACE(s_logger, "NewSipCallInterface::newCall");
    static_cast<void>(QUORVEX_ASSERT_TEXT(s_logger, !in_hInvite.isNil(), "hInviteMessage.isNil() == false"));

    const DsHandle<DsSipIncomingCallinterface> hInterface(
        new InSipLegInterfaceProxy(m_netIf,
                                   m_netIf.getDsThreadSafeIDGenerator(),
                                   m_netIf.getQueue(),
                                   m_netIf.getDsObjectContainer(),
                                   UUID().toString()));
    DsHandle<DsSipIncomingCall> hIncomingCall;
    try
    {
        hIncomingCall.reset(new DsSipIncomingCall(in_hInvite, hInterface));
    }
    catch (const DsException& exception)
    {
        QLOG_ERROR(s_logger, exception);
    }
    static_cast<void>(QUORVEX_ASSERT(s_logger, !hIncomingCall.isNil()));
    return hIncomingCall;
}

}  // namespace Quorvex
