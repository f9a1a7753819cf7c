#pragma once

#include "sipstack/DsHandle.h"
#include "sipstack/base/Sofia.h"

namespace Quorvex
{

class DialogCore;
class DsSipAckMessage;
class DsSipInviteMessage;
class DsSipMessage;
class DsSipRequest;
class DsSipResponse;
class DsSipServerTransaction;

/// What a dialog tells the call that it belongs to. SIP stack thread.
class DialogOwner
{
public:
    virtual void onDialogBye(DialogCore& in_dialog, const DsHandle<DsSipMessage>& in_hBye) = 0;

    /// Our BYE is answered; nil when no answer came. Nothing follows for this dialog.
    virtual void onDialogByeAnswered(DialogCore& in_dialog, const DsHandle<DsSipMessage>& in_hResponse) = 0;

    /// The far end's BYE has been answered. Nothing follows for this dialog.
    virtual void onDialogEnded(DialogCore& in_dialog) = 0;

    /// The layer has ended the dialog of itself; its BYE is on its way, and its answer is of no interest.
    virtual void onDialogLost(DialogCore& in_dialog) = 0;

    virtual void onDialogRequest(DialogCore& in_dialog,
                                 const DsHandle<DsSipServerTransaction>& in_hTransaction,
                                 const DsHandle<DsSipRequest>& in_hRequest) = 0;
    virtual void onDialogRefer(DialogCore& in_dialog,
                               const DsHandle<DsSipServerTransaction>& in_hTransaction,
                               const DsHandle<DsSipRequest>& in_hRequest) = 0;
    virtual void onDialogNotify(DialogCore& in_dialog,
                                const DsHandle<DsSipServerTransaction>& in_hTransaction,
                                const DsHandle<DsSipRequest>& in_hRequest) = 0;
    virtual void onDialogReferResponse(DialogCore& in_dialog,
                                       const DsHandle<DsSipResponse>& in_hResponse) = 0;
    virtual void onDialogNotifyResponse(DialogCore& in_dialog,
                                        const DsHandle<DsSipResponse>& in_hResponse) = 0;
    virtual void onDialogReinvite(DialogCore& in_dialog, const DsHandle<DsSipInviteMessage>& in_hInvite) = 0;
    virtual void onDialogReinviteCancel(DialogCore& in_dialog, const DsHandle<DsSipRequest>& in_hCancel) = 0;
    virtual void onDialogReinviteResponse(DialogCore& in_dialog,
                                          const DsHandle<DsSipResponse>& in_hResponse) = 0;
    virtual void onDialogReinviteAck(DialogCore& in_dialog, const DsHandle<DsSipAckMessage>& in_hAck) = 0;
    virtual void onDialogReinviteTimeOut(DialogCore& in_dialog,
                                         const DsHandle<DsSipInviteMessage>& in_hInvite) = 0;
    virtual void onDialogSessionTimeOut(DialogCore& in_dialog) = 0;
    virtual void onDialogSessionRefresh(DialogCore& in_dialog) = 0;
    virtual void onDialogReplaces(DialogCore& in_replaced,
                                  DialogCore& in_new,
                                  const DsHandle<DsSipInviteMessage>& in_hInvite) = 0;

    /// An INVITE that offers a new dialog in the place of one of the owner's; the result is as LegHandler's.
    virtual int offerReplaces(DialogCore& in_replaced, nta_incoming_t* in_pIrq, const sip_t* in_pSip) = 0;

    /// True while the INVITE that makes the dialog is without a final response or without its ACK.
    virtual bool isInviteUnfinished(const DialogCore& in_dialog) const = 0;

    /// True when the far end placed the call, so that the Call-ID is its own.
    virtual bool isInbound() const = 0;

protected:
    ~DialogOwner() = default;
};

}  // namespace Quorvex
