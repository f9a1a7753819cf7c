#pragma once

#include "VoipCallLeg.h"
#include "infra/Logger.h"
#include "quorvex/CallInterface.h"

namespace Quorvex
{

/// The leg of an outbound call, as the call engine holds it: made and deleted by it. The first method object
/// acquires the machine, the last one releases it; when no machine is to be had, what comes between does
/// nothing. No operation waits for the machine.
class VoipOutCallLegProxy final : public OutCallLeg,
                                  public CallLegProxy<OutLegSide>,
                                  public ObjectWithLoggerImpl<LoggingIdLogger>
{
public:
    QUORVEX_MEM_ACCOUNT("VoipOutCallLegProxy");

    /// Takes the call-out interface.
    VoipOutCallLegProxy(IDGenerator& in_idGenerator,
                        ACE_Activation_Queue& in_queue,
                        Container& in_container,
                        DsVoipGatewayNetIf& in_netIf,
                        CallOutInterface* in_pCallOutInterface,
                        const char* in_szCallId);
    ~VoipOutCallLegProxy() override;

    bool hangup() override;
    bool mediaAvailable() override;
    bool sendInfoMsg(const std::vector<Parameter>& in_vParameters) override;
    const char* getEngineName() const override { return "SIP OUT"; }
    bool invite(const CallInfo& in_callInfo) override;

    bool transferAccepted(RingType in_ringType) override;
    bool transferFailure(ConnectionFailureType in_failure) override;
    bool transferSuccess() override;
};

}  // namespace Quorvex
