#pragma once

#include "sipstack/DsHandle.h"
#include "sipstack/DsObject.h"

namespace Quorvex
{

class DsSipAckMessage;
class DsSipDialog;
class DsSipInviteMessage;
class DsSipMessage;
class DsSipOutgoingCall;
class DsSipRequest;
class DsSipResponse;
class DsSipServerTransaction;

/// What the stack reports about one outbound call. Every operation is called on the SIP stack thread, must
/// not block, and may call operations of the call and its dialogs. The dialog is nil where the message that
/// is reported made none (no To tag, or no response at all).
///
/// The stack holds the interface until the call's end and then releases it, on the SIP stack thread. A call
/// that was never established ends with dialogTerminated(nil), whatever was reported before; an established
/// one with the dialogTerminated() that names the BYE received, or the answer to ours (nil when none came).
class DsSipOutgoingCallinterface : public DsObject
{
public:
    /// A provisional response that was sent reliably; the layer acknowledges it with PRACK. Reported besides
    /// provisionalResponse(), before it.
    virtual void reliableProvisionalResponse(const DsHandle<DsSipOutgoingCall>& in_hCall,
                                             const DsHandle<DsSipDialog>& in_hDialog,
                                             const DsHandle<DsSipResponse>& in_hResponse) = 0;

    /// A provisional response, reliable or not; each reliable one once.
    virtual void provisionalResponse(const DsHandle<DsSipOutgoingCall>& in_hCall,
                                     const DsHandle<DsSipDialog>& in_hDialog,
                                     const DsHandle<DsSipResponse>& in_hResponse) = 0;

    /// A final 4xx to 6xx, or nil when the transaction ended without a response (time-out, unreachable).
    virtual void failedToConnect(const DsHandle<DsSipOutgoingCall>& in_hCall,
                                 const DsHandle<DsSipDialog>& in_hDialog,
                                 const DsHandle<DsSipResponse>& in_hResponse) = 0;

    /// A final 3xx.
    virtual void redirect(const DsHandle<DsSipOutgoingCall>& in_hCall,
                          const DsHandle<DsSipDialog>& in_hDialog,
                          const DsHandle<DsSipResponse>& in_hResponse) = 0;

    /// The first 2xx, to be acknowledged with DsSipDialog::ack(). Also reported when the call was hung up
    /// before and the 2xx crossed the CANCEL: a second hangup() then ends the call with ACK and BYE.
    virtual void succeeded(const DsHandle<DsSipOutgoingCall>& in_hCall,
                           const DsHandle<DsSipDialog>& in_hDialog,
                           const DsHandle<DsSipResponse>& in_hResponse) = 0;

    /// The dialog is over: the BYE received (to be answered with DsSipDialog::respondToBye()), the response
    /// to our BYE, the 487 of a cancelled INVITE, or nil.
    virtual void dialogTerminated(const DsHandle<DsSipOutgoingCall>& in_hCall,
                                  const DsHandle<DsSipDialog>& in_hDialog,
                                  const DsHandle<DsSipMessage>& in_hMessage) = 0;

    /// The call has no dialog left; the interface is released next.
    virtual void terminated(const DsHandle<DsSipOutgoingCall>& in_hCall,
                            const DsHandle<DsSipMessage>& in_hMessage) = 0;

    virtual void unknownRequest(const DsHandle<DsSipOutgoingCall>& in_hCall,
                                const DsHandle<DsSipDialog>& in_hDialog,
                                const DsHandle<DsSipServerTransaction>& in_hTransaction,
                                const DsHandle<DsSipRequest>& in_hRequest) = 0;

    virtual void referRequest(const DsHandle<DsSipOutgoingCall>& in_hCall,
                              const DsHandle<DsSipDialog>& in_hDialog,
                              const DsHandle<DsSipServerTransaction>& in_hTransaction,
                              const DsHandle<DsSipRequest>& in_hRefer) = 0;

    virtual void referResponse(const DsHandle<DsSipOutgoingCall>& in_hCall,
                               const DsHandle<DsSipDialog>& in_hDialog,
                               const DsHandle<DsSipResponse>& in_hResponse) = 0;

    virtual void notifyRequest(const DsHandle<DsSipOutgoingCall>& in_hCall,
                               const DsHandle<DsSipDialog>& in_hDialog,
                               const DsHandle<DsSipServerTransaction>& in_hTransaction,
                               const DsHandle<DsSipRequest>& in_hNotify) = 0;

    virtual void notifyResponse(const DsHandle<DsSipOutgoingCall>& in_hCall,
                                const DsHandle<DsSipDialog>& in_hDialog,
                                const DsHandle<DsSipResponse>& in_hResponse) = 0;

    virtual void reinviteRequest(const DsHandle<DsSipOutgoingCall>& in_hCall,
                                 const DsHandle<DsSipDialog>& in_hDialog,
                                 const DsHandle<DsSipInviteMessage>& in_hInvite) = 0;

    virtual void reinviteCancel(const DsHandle<DsSipOutgoingCall>& in_hCall,
                                const DsHandle<DsSipDialog>& in_hDialog,
                                const DsHandle<DsSipRequest>& in_hCancel) = 0;

    virtual void reinviteResponse(const DsHandle<DsSipOutgoingCall>& in_hCall,
                                  const DsHandle<DsSipDialog>& in_hDialog,
                                  const DsHandle<DsSipResponse>& in_hResponse) = 0;

    virtual void reinviteAck(const DsHandle<DsSipOutgoingCall>& in_hCall,
                             const DsHandle<DsSipDialog>& in_hDialog,
                             const DsHandle<DsSipAckMessage>& in_hAck) = 0;

    virtual void reinviteTimeOut(const DsHandle<DsSipOutgoingCall>& in_hCall,
                                 const DsHandle<DsSipDialog>& in_hDialog,
                                 const DsHandle<DsSipInviteMessage>& in_hInvite) = 0;

    virtual void onSessionTimeOut(const DsHandle<DsSipOutgoingCall>& in_hCall,
                                  const DsHandle<DsSipDialog>& in_hDialog) = 0;

    virtual void onSessionRefreshTime(const DsHandle<DsSipOutgoingCall>& in_hCall,
                                      const DsHandle<DsSipDialog>& in_hDialog) = 0;

    /// A 2xx of a further fork; the layer has acknowledged it and ended its dialog with BYE.
    virtual void multipleResponse(const DsHandle<DsSipOutgoingCall>& in_hCall,
                                  const DsHandle<DsSipDialog>& in_hDialog,
                                  const DsHandle<DsSipResponse>& in_hResponse) = 0;

    virtual void replacesDialog(const DsHandle<DsSipOutgoingCall>& in_hCall,
                                const DsHandle<DsSipDialog>& in_hReplacedDialog,
                                const DsHandle<DsSipDialog>& in_hNewDialog,
                                const DsHandle<DsSipInviteMessage>& in_hInvite) = 0;
};

}  // namespace Quorvex
