#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "infra/MemAccount.h"
#include "sipstack/DsHandle.h"
#include "sipstack/DsObject.h"
#include "sipstack/DsSipAckMessage.h"  // a default argument needs the whole class
#include "sipstack/DsString.h"

namespace Quorvex
{

class CallLogger;
class DialogCore;
class DsSipAckMessage;
class DsSipContactHeader;
class DsSipInviteMessage;
class DsSipMessage;
class DsSipRequest;
class DsSipResponse;

/// One dialog of a call (RFC 3261 section 12). Any thread; see DsSipCall for what is checked at once.
class DsSipDialog final : public DsObject
{
public:
    QUORVEX_MEM_ACCOUNT("DsSipDialog");

    DsString getCallID() const;
    DsString getLocalTag() const;
    DsString getRemoteTag() const;

    /// True until the dialog has ended (BYE sent or received, or never established).
    bool isActive() const;

    /// A request of the dialog with Request-URI, From, To and Call-ID; the CSeq follows when it is sent. Nil
    /// when the dialog has no remote target yet or is over. A BYE made here is sent with hangup().
    DsHandle<DsSipRequest> createRequest(const DsString& in_strMethod) const;

    /// Sends an INFO or NOTIFY made by createRequest(). The answer to a NOTIFY is reported (notifyResponse),
    /// that to an INFO is not. Throws when the dialog is not established or over.
    void info(const DsHandle<DsSipRequest>& in_hInfo);
    void notify(const DsHandle<DsSipRequest>& in_hNotify);

    /// Sends a REFER made by createRequest(); answered by referResponse and notifyRequest.
    void refer(const DsHandle<DsSipRequest>& in_hRefer);

    /// Sends a re-INVITE; answered by reinviteResponse or reinviteTimeOut. One refused with 491 is sent once
    /// more after the time of RFC 3261 14.1. Throws while another INVITE of the dialog is unanswered, either
    /// way.
    void reinvite(const DsHandle<DsSipInviteMessage>& in_hInvite);

    /// Acknowledges the 2xx of the call's INVITE; nil: the stack makes the ACK.
    void ack(const DsHandle<DsSipAckMessage>& in_hAck = DsHandle<DsSipAckMessage>());

    /// Acknowledges the 2xx of a re-INVITE of ours.
    void ackReinvite(const DsHandle<DsSipAckMessage>& in_hAck);

    /// Answers the pending re-INVITE. Throws when none is pending.
    void respondToReinvite(const DsHandle<DsSipResponse>& in_hResponse);

    /// Answers the BYE that was reported. Throws when none is pending; nothing happens when it has been
    /// answered because we had hung up, too.
    void respondToBye(const DsHandle<DsSipResponse>& in_hResponse);

    /// Answers the INVITE that offered this dialog in the place of another (replacesDialog).
    void sendResponse(const DsHandle<DsSipResponse>& in_hResponse);

    /// Ends the dialog with the BYE given (made by createRequest), or one of the stack's making when nil. A
    /// re-INVITE of the far end that is still unanswered gets 488. Repeatable.
    void hangup(const DsHandle<DsSipRequest>& in_hBye = DsHandle<DsSipRequest>());

    /// A logger of the call's, used on the SIP stack thread for what concerns the dialog. setLogger() takes
    /// it.
    bool loggerIsSet() const { return m_bLoggerIsSet.load(std::memory_order_acquire); }
    void setLogger(CallLogger* in_pLogger);

protected:
    ~DsSipDialog() override;

private:
    friend class DialogCore;
    explicit DsSipDialog(std::shared_ptr<DialogCore> in_pCore);

    const std::shared_ptr<DialogCore> m_pCore;
    std::atomic<bool> m_bLoggerIsSet{false};
};

}  // namespace Quorvex
