#pragma once

#include <memory>

#include "infra/MemAccount.h"
#include "sipstack/DsSipCall.h"

namespace Quorvex
{

class DsSipAckMessage;
class DsSipIncomingCallinterface;
class DsSipInviteMessage;
class DsSipResponse;
class IncomingCallCore;

/// An inbound call: the INVITE, its dialog and their transactions. Made by DsSipNewCallinterface::newCall();
/// the stack keeps it until the call has ended.
class DsSipIncomingCall final : public DsSipCall
{
public:
    QUORVEX_MEM_ACCOUNT("DsSipIncomingCall");

    DsSipIncomingCall(const DsHandle<DsSipInviteMessage>& in_hInvite,
                      const DsHandle<DsSipIncomingCallinterface>& in_hInterface);

    /// Answers the INVITE: 100 to 199 any number of times, one final response. A response from 101 on gets
    /// the dialog's To tag. Where the INVITE requires 100rel, a provisional response goes out reliably; its
    /// PRACK is the layer's own matter.
    /// Throws when the INVITE has its final response already, or was cancelled.
    void answer(const DsHandle<DsSipResponse>& in_hResponse);

    /// Sends a provisional response (101 to 199) reliably (RFC 3262); retransmitted until its PRACK, which is
    /// answered by the layer and reported. Throws when the far end does not know 100rel, or as answer().
    void sendReliableProvisionalResponse(const DsHandle<DsSipResponse>& in_hResponse);

    /// Before the final response: 480. After the 2xx: BYE, once the ACK has come (or cannot come any more).
    void hangup() override;

    /// Never nil after called().
    DsHandle<DsSipDialog> getDialog() const override;

    /// The status of the INVITE's final response, whether the user or the stack has chosen it; 0 while there
    /// is none. Any thread.
    unsigned int getFinalStatus() const;

    /// Answers the pending re-INVITE; as DsSipDialog::respondToReinvite() on the call's dialog.
    void respondToReinvite(const DsHandle<DsSipResponse>& in_hResponse);

    /// Answers the BYE that was reported; as DsSipDialog::respondToBye() on the call's dialog.
    void respondToBye(const DsHandle<DsSipResponse>& in_hResponse);

    /// Acknowledges a 2xx to a re-INVITE of ours; as DsSipDialog::ackReinvite() on the call's dialog.
    void ackReinvite(const DsHandle<DsSipAckMessage>& in_hAck);

    void acceptReplaces(const DsHandle<DsSipDialog>& in_hReplacedDialog,
                        const DsHandle<DsSipDialog>& in_hNewDialog) override;
    void rejectReplaces(const DsHandle<DsSipDialog>& in_hReplacedDialog,
                        const DsHandle<DsSipDialog>& in_hNewDialog) override;

    /// Nil once the ACK of its 2xx has come: nobody asks for the INVITE then. Any thread.
    DsHandle<DsSipInviteMessage> getInvite() const;

protected:
    ~DsSipIncomingCall() override;

private:
    friend class IncomingCallCore;
    IncomingCallCore& core() const;
    DsHandle<DsSipDialog> dialog() const;

    void forgetInvite();

    DsHandle<DsSipInviteMessage> m_hInvite;             // copyMutex()
    DsHandle<DsSipIncomingCallinterface> m_hInterface;  // SIP stack thread; released with the core
    std::shared_ptr<IncomingCallCore> m_pCore;          // set before called(), never changed
};

}  // namespace Quorvex
