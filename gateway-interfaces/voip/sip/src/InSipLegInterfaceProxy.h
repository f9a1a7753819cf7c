#pragma once

#include "SipLegInterface.h"
#include "sipstack/DsSipIncomingCallinterface.h"

namespace Quorvex
{

/// What the SIP stack reports about one inbound call, on its way to the call's machine. Its first method
/// object acquires the machine, its last one (when the stack lets go of it) releases it.
class InSipLegInterfaceProxy final : public virtual DsSipIncomingCallinterface,
                                     public SipLegInterfaceProxy<InSipSide>
{
public:
    QUORVEX_MEM_ACCOUNT("InSipLegInterfaceProxy");

    InSipLegInterfaceProxy(DsVoipGatewayNetIf& in_netIf,
                           IDGenerator& in_idGenerator,
                           ACE_Activation_Queue& in_queue,
                           Container& in_container,
                           const std::string& in_strCallId);

    void called(const Call& in_hCall, const DsHandle<DsSipInviteMessage>& in_hInvite) override;
    void prack(const Call& in_hCall, const DsHandle<DsSipPrackMessage>& in_hPrack) override;
    void callConfirmed(const Call& in_hCall, const DsHandle<DsSipAckMessage>& in_hAck) override;
    void terminated(const Call& in_hCall, const DsHandle<DsSipMessage>& in_hMessage) override;
    void unknownRequest(const Call& in_hCall,
                        const DsHandle<DsSipServerTransaction>& in_hTransaction,
                        const DsHandle<DsSipRequest>& in_hRequest) override;
    void referRequest(const Call& in_hCall,
                      const DsHandle<DsSipServerTransaction>& in_hTransaction,
                      const DsHandle<DsSipRequest>& in_hRefer) override;
    // referResponse, notifyRequest: the stack's defaults.
    void notifyResponse(const Call& in_hCall, const DsHandle<DsSipResponse>& in_hResponse) override;
    void reinviteRequest(const Call& in_hCall, const DsHandle<DsSipInviteMessage>& in_hInvite) override;
    void reinviteCancel(const Call& in_hCall, const DsHandle<DsSipRequest>& in_hCancel) override;
    void reinviteResponse(const Call& in_hCall, const DsHandle<DsSipResponse>& in_hResponse) override;
    void reinviteAck(const Call& in_hCall, const DsHandle<DsSipAckMessage>& in_hAck) override;
    void reinviteTimeOut(const Call& in_hCall, const DsHandle<DsSipInviteMessage>& in_hInvite) override;
    void onSessionTimeOut(const Call& in_hCall) override;
    void onSessionRefreshTime(const Call& in_hCall) override;
    void replacesDialog(const Call& in_hCall,
                        const DsHandle<DsSipDialog>& in_hReplacedDialog,
                        const DsHandle<DsSipDialog>& in_hNewDialog,
                        const DsHandle<DsSipInviteMessage>& in_hInvite) override;

protected:
    ~InSipLegInterfaceProxy() override;

private:
    void enqueueReleaseObject();
};

}  // namespace Quorvex
