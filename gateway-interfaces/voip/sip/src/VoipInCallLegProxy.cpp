#include "VoipInCallLegProxy.h"

#include "DsVoipGatewayNetIf.h"
#include "InStateMachine.h"
#include "ReleaseSameThread.h"

namespace Quorvex
{

namespace
{

using Common = CallLegMethodObjects<InLegSide>;

template <class Event, FixedString Account>
using MO = EventMethodObject<InLegSide, Event, Account>;

// What the call engine tells inbound legs only.
// clang-format off
// operation                                                            event                 account
/* inviteAccepted         */ using InviteAccepted_MO         = MO<InviteAcceptedEvent,   "InviteAccepted_MO">;
/* inviteRejected         */ using InviteRejected_MO         = MO<InviteRejectedEvent,   "InviteRejected_MO">;
/* remoteConnected        */ using RemoteConnected_MO        = MO<RemoteConnEvent,       "RemoteConnected_MO">;
/* remoteConnectionFailed */ using RemoteConnectionFailed_MO = MO<RemoteConnFailedEvent, "RemoteConnectionFailed_MO">;
// clang-format on

}  // namespace

VoipInCallLegProxy::VoipInCallLegProxy(IDGenerator& in_idGenerator,
                                       ACE_Activation_Queue& in_queue,
                                       Container& io_container,
                                       DsVoipGatewayNetIf& in_netIf,
                                       const ObjectPtr& in_pMachine)
    : CallLegProxy<InLegSide>(in_netIf, in_idGenerator, in_queue, io_container)
{
    QLOG_TRACE(InLegSide::getLogger(), "VoipInCallLegProxy::VoipInCallLegProxy");
    QLOG_DEBUG(InLegSide::getLogger(),
               "InSipLegInterfaceProxy will use InStateMachine " << in_pMachine.get());
    io_container.addObject(getObjectID(), in_pMachine);
}

VoipInCallLegProxy::~VoipInCallLegProxy()
{
    QLOG_TRACE(InLegSide::getLogger(), "VoipInCallLegProxy dtor");
    Task::enqueue(
        getQueue(), new ReleaseSameThread_MO<InStateMachine>(getNetIf(), *this), "VoipInCallLegProxy dtor");
}

bool VoipInCallLegProxy::hangup()
{
    return send<Common::Hangup_MO>("VoipInCallLegProxy::hangup");
}

bool VoipInCallLegProxy::inviteAccepted(RingType in_ringType)
{
    return send<InviteAccepted_MO>("VoipInCallLegProxy::inviteAccepted", in_ringType);
}

bool VoipInCallLegProxy::inviteRejected(ConnectionFailureType in_failure)
{
    return send<InviteRejected_MO>("VoipInCallLegProxy::inviteRejected", in_failure);
}

bool VoipInCallLegProxy::remoteConnected(Call::ConnectionType in_connectionType)
{
    return send<RemoteConnected_MO>("VoipInCallLegProxy::remoteConnected", in_connectionType);
}

bool VoipInCallLegProxy::remoteConnectionFailed(ConnectionFailureType in_failure)
{
    return send<RemoteConnectionFailed_MO>("VoipInCallLegProxy::remoteConnectionFailed", in_failure);
}

bool VoipInCallLegProxy::mediaAvailable()
{
    return send<Common::MediaAvailable_MO>("VoipInCallLegProxy::mediaAvailable");
}

bool VoipInCallLegProxy::sendInfoMsg(const std::vector<Parameter>& in_vParameters)
{
    return send<Common::SendInfoMsg_MO>("VoipInCallLegProxy::sendInfoMsg()", in_vParameters);
}

bool VoipInCallLegProxy::transferAccepted(RingType in_ringType)
{
    return send<Common::TransferAccepted_MO>("VoipInCallLegProxy::transferAccepted", in_ringType);
}

bool VoipInCallLegProxy::transferFailure(ConnectionFailureType in_failure)
{
    return send<Common::TransferFailure_MO>("VoipInCallLegProxy::transferFailure", in_failure);
}

bool VoipInCallLegProxy::transferSuccess()
{
    return send<Common::TransferSuccess_MO>("VoipInCallLegProxy::transferSuccess");
}

}  // namespace Quorvex
