#pragma once

#include "VoipCallLeg.h"
#include "quorvex/CallInterface.h"

namespace Quorvex
{

/// The leg of an inbound call, as the call engine holds it: made on the task thread, bound to its machine at
/// once; from then on the call engine's, which deletes it. No operation waits for the machine.
class VoipInCallLegProxy final : public InCallLeg, public CallLegProxy<InLegSide>
{
public:
    QUORVEX_MEM_ACCOUNT("VoipInCallLegProxy");

    VoipInCallLegProxy(IDGenerator& in_idGenerator,
                       ACE_Activation_Queue& in_queue,
                       Container& io_container,
                       DsVoipGatewayNetIf& in_netIf,
                       const ObjectPtr& in_pMachine);
    ~VoipInCallLegProxy() override;

    bool hangup() override;
    bool inviteAccepted(RingType in_ringType) override;
    bool inviteRejected(ConnectionFailureType in_failure) override;
    bool remoteConnected(Call::ConnectionType in_connectionType) override;
    bool remoteConnectionFailed(ConnectionFailureType in_failure) override;
    bool mediaAvailable() override;
    bool sendInfoMsg(const std::vector<Parameter>& in_vParameters) override;
    const char* getEngineName() const override { return "SIP IN"; }

    bool transferAccepted(RingType in_ringType) override;
    bool transferFailure(ConnectionFailureType in_failure) override;
    bool transferSuccess() override;
};

}  // namespace Quorvex
