#pragma once

#include "sipstack/DsHandle.h"
#include "sipstack/DsObject.h"

namespace Quorvex
{

class DsSipAckMessage;
class DsSipDialog;
class DsSipIncomingCall;
class DsSipInviteMessage;
class DsSipMessage;
class DsSipPrackMessage;
class DsSipRequest;
class DsSipResponse;
class DsSipServerTransaction;

/// What the stack reports about one inbound call. Every operation is called on the SIP stack thread, must not
/// block, and may call operations of the call and its dialogs (they are carried out after it returns).
///
/// The stack holds the interface from the making of the DsSipIncomingCall to the call's end and then releases
/// it, on the SIP stack thread; nothing is reported afterwards. A call ends with one of:
///   terminated(BYE)          the far end hung up; to be answered with respondToBye()
///   terminated(response)     our BYE was answered
///   terminated(CANCEL)       the far end gave up before the answer (the layer has answered CANCEL and
///   INVITE),
///                            followed by the closing report
///   terminated(nil)          the closing report: nothing else will come (refused, timed out, no ACK, no BYE
///   answer)
class DsSipIncomingCallinterface : public DsObject
{
public:
    virtual void called(const DsHandle<DsSipIncomingCall>& in_hCall,
                        const DsHandle<DsSipInviteMessage>& in_hInvite) = 0;

    /// A PRACK for the reliable provisional response in flight; the layer has answered it.
    virtual void prack(const DsHandle<DsSipIncomingCall>& in_hCall,
                       const DsHandle<DsSipPrackMessage>& in_hPrack) = 0;

    /// The ACK of our 2xx.
    virtual void callConfirmed(const DsHandle<DsSipIncomingCall>& in_hCall,
                               const DsHandle<DsSipAckMessage>& in_hAck) = 0;

    /// The call is over; the message may be nil.
    virtual void terminated(const DsHandle<DsSipIncomingCall>& in_hCall,
                            const DsHandle<DsSipMessage>& in_hMessage) = 0;

    /// A request in the dialog that has no report of its own (INFO, OPTIONS, MESSAGE, UPDATE, a NOTIFY of
    /// another event package than "refer", ...); to be answered on the transaction.
    virtual void unknownRequest(const DsHandle<DsSipIncomingCall>& in_hCall,
                                const DsHandle<DsSipServerTransaction>& in_hTransaction,
                                const DsHandle<DsSipRequest>& in_hRequest) = 0;

    virtual void referRequest(const DsHandle<DsSipIncomingCall>& in_hCall,
                              const DsHandle<DsSipServerTransaction>& in_hTransaction,
                              const DsHandle<DsSipRequest>& in_hRefer) = 0;

    /// The response to a REFER of ours. Default: nothing.
    virtual void referResponse(const DsHandle<DsSipIncomingCall>& in_hCall,
                               const DsHandle<DsSipResponse>& in_hResponse);

    /// A NOTIFY of event package "refer". Default: nothing, so that the layer answers 481.
    virtual void notifyRequest(const DsHandle<DsSipIncomingCall>& in_hCall,
                               const DsHandle<DsSipServerTransaction>& in_hTransaction,
                               const DsHandle<DsSipRequest>& in_hNotify);

    /// The response to a NOTIFY of ours.
    virtual void notifyResponse(const DsHandle<DsSipIncomingCall>& in_hCall,
                                const DsHandle<DsSipResponse>& in_hResponse) = 0;

    /// A re-INVITE; to be answered with respondToReinvite().
    virtual void reinviteRequest(const DsHandle<DsSipIncomingCall>& in_hCall,
                                 const DsHandle<DsSipInviteMessage>& in_hInvite) = 0;

    /// The unanswered re-INVITE was cancelled; the layer has answered both.
    virtual void reinviteCancel(const DsHandle<DsSipIncomingCall>& in_hCall,
                                const DsHandle<DsSipRequest>& in_hCancel) = 0;

    /// A response to a re-INVITE of ours; a 2xx is to be acknowledged with ackReinvite().
    virtual void reinviteResponse(const DsHandle<DsSipIncomingCall>& in_hCall,
                                  const DsHandle<DsSipResponse>& in_hResponse) = 0;

    /// The ACK of our 2xx to a re-INVITE.
    virtual void reinviteAck(const DsHandle<DsSipIncomingCall>& in_hCall,
                             const DsHandle<DsSipAckMessage>& in_hAck) = 0;

    /// No ACK came for our 2xx to a re-INVITE, or no answer to a re-INVITE of ours.
    virtual void reinviteTimeOut(const DsHandle<DsSipIncomingCall>& in_hCall,
                                 const DsHandle<DsSipInviteMessage>& in_hInvite) = 0;

    /// The negotiated session interval passed without a refresh (RFC 4028 section 10).
    virtual void onSessionTimeOut(const DsHandle<DsSipIncomingCall>& in_hCall) = 0;

    /// Half of the session interval has passed and the refresh is ours to send.
    virtual void onSessionRefreshTime(const DsHandle<DsSipIncomingCall>& in_hCall) = 0;

    /// An INVITE whose Replaces names a dialog of this call. Answered in the new dialog
    /// (DsSipDialog::sendResponse), between the call's acceptReplaces() or rejectReplaces().
    virtual void replacesDialog(const DsHandle<DsSipIncomingCall>& in_hCall,
                                const DsHandle<DsSipDialog>& in_hReplacedDialog,
                                const DsHandle<DsSipDialog>& in_hNewDialog,
                                const DsHandle<DsSipInviteMessage>& in_hInvite) = 0;
};

}  // namespace Quorvex
