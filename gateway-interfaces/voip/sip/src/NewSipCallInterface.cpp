#include "NewSipCallInterface.h"

#include "DsVoipGatewayNetIf.h"
#include "InSipLegInterfaceProxy.h"
#include "infra/Assertion.h"
#include "infra/Logger.h"
#include "infra/UUID.h"
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
    const DsHandle<DsSipIncomingCall> hIncomingCall(new DsSipIncomingCall(in_hInvite, hInterface));
    static_cast<void>(QUORVEX_ASSERT(s_logger, !hIncomingCall.isNil()));
    return hIncomingCall;
}

}  // namespace Quorvex
