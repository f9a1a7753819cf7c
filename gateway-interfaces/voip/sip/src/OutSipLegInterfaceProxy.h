#pragma once

#include "SipLegInterface.h"
#include "sipstack/DsSipOutgoingCallinterface.h"

namespace Quorvex
{

/// What the SIP stack reports about one outbound call, on its way to the call's machine, which is bound to
/// this proxy before the stack gets it. Its last method object (when the stack lets go of it) releases the
/// machine.
class OutSipLegInterfaceProxy final : public virtual DsSipOutgoingCallinterface,
                                      public SipLegInterfaceProxy<OutSipSide>
{
public:
    QUORVEX_MEM_ACCOUNT("OutSipLegInterfaceProxy");

    OutSipLegInterfaceProxy(DsVoipGatewayNetIf& in_netIf,
                            IDGenerator& in_idGenerator,
                            ACE_Activation_Queue& in_queue,
                            Container& in_container);

    using Dialog = DsHandle<DsSipDialog>;
    using Response = DsHandle<DsSipResponse>;

    void reliableProvisionalResponse(const Call& in_hCall,
                                     const Dialog& in_hDialog,
                                     const Response& in_hResponse) override;
    void provisionalResponse(const Call& in_hCall,
                             const Dialog& in_hDialog,
                             const Response& in_hResponse) override;
    void failedToConnect(const Call& in_hCall,
                         const Dialog& in_hDialog,
                         const Response& in_hResponse) override;
    void redirect(const Call& in_hCall, const Dialog& in_hDialog, const Response& in_hResponse) override;
    void succeeded(const Call& in_hCall, const Dialog& in_hDialog, const Response& in_hResponse) override;
    void dialogTerminated(const Call& in_hCall,
                          const Dialog& in_hDialog,
                          const DsHandle<DsSipMessage>& in_hMessage) override;
    void terminated(const Call& in_hCall, const DsHandle<DsSipMessage>& in_hMessage) override;
    void unknownRequest(const Call& in_hCall,
                        const Dialog& in_hDialog,
                        const DsHandle<DsSipServerTransaction>& in_hTransaction,
                        const DsHandle<DsSipRequest>& in_hRequest) override;
    void referRequest(const Call& in_hCall,
                      const Dialog& in_hDialog,
                      const DsHandle<DsSipServerTransaction>& in_hTransaction,
                      const DsHandle<DsSipRequest>& in_hRefer) override;
    void referResponse(const Call& in_hCall, const Dialog& in_hDialog, const Response& in_hResponse) override;
    void notifyRequest(const Call& in_hCall,
                       const Dialog& in_hDialog,
                       const DsHandle<DsSipServerTransaction>& in_hTransaction,
                       const DsHandle<DsSipRequest>& in_hNotify) override;
    void notifyResponse(const Call& in_hCall,
                        const Dialog& in_hDialog,
                        const Response& in_hResponse) override;
    void reinviteRequest(const Call& in_hCall,
                         const Dialog& in_hDialog,
                         const DsHandle<DsSipInviteMessage>& in_hInvite) override;
    void reinviteCancel(const Call& in_hCall,
                        const Dialog& in_hDialog,
                        const DsHandle<DsSipRequest>& in_hCancel) override;
    void reinviteResponse(const Call& in_hCall,
                          const Dialog& in_hDialog,
                          const Response& in_hResponse) override;
    void reinviteAck(const Call& in_hCall,
                     const Dialog& in_hDialog,
                     const DsHandle<DsSipAckMessage>& in_hAck) override;
    void reinviteTimeOut(const Call& in_hCall,
                         const Dialog& in_hDialog,
                         const DsHandle<DsSipInviteMessage>& in_hInvite) override;
    void onSessionTimeOut(const Call& in_hCall, const Dialog& in_hDialog) override;
    void onSessionRefreshTime(const Call& in_hCall, const Dialog& in_hDialog) override;
    void multipleResponse(const Call& in_hCall,
                          const Dialog& in_hDialog,
                          const Response& in_hResponse) override;
    void replacesDialog(const Call& in_hCall,
                        const Dialog& in_hReplacedDialog,
                        const Dialog& in_hNewDialog,
                        const DsHandle<DsSipInviteMessage>& in_hInvite) override;

protected:
    ~OutSipLegInterfaceProxy() override;

private:
    void enqueueReleaseObject();
};

}  // namespace Quorvex
