#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "infra/MemAccount.h"
#include "sipstack/DsSipCall.h"

namespace Quorvex
{

class CallLogger;
class DsSipInviteMessage;
class DsSipOutgoingCallinterface;
class OutgoingCallCore;

/// An outbound call: one INVITE, the dialogs that its responses make, and their transactions. The stack keeps
/// it until the call has ended.
class DsSipOutgoingCall final : public DsSipCall
{
public:
    QUORVEX_MEM_ACCOUNT("DsSipOutgoingCall");

    /// Makes the call and sends its INVITE. Call-ID and CSeq are the stack's where the message has none. The
    /// call takes the logger (may be null). Throws a DsException, and leaves the logger with the caller, when
    /// the INVITE cannot be sent as it stands or the stack is stopping; what fails later is reported by
    /// failedToConnect(nil).
    /// @param in_pStack the stack to send with; null for DsSipStack::instance()
    static DsHandle<DsSipOutgoingCall> create(const DsHandle<DsSipInviteMessage>& in_hInvite,
                                              const DsHandle<DsSipOutgoingCallinterface>& in_hInterface,
                                              CallLogger* in_pLogger,
                                              DsSipStack* in_pStack = nullptr);

    /// Before the final response: CANCEL (held back until a provisional response has come). After the 2xx:
    /// ACK, if it was not sent, and BYE.
    void hangup() override;

    DsHandle<DsSipDialog> getDialog() const override { return getDialog(0); }

    /// The dialogs in the order in which responses made them; nil beyond the last. getMutex() keeps the list
    /// as it is between two calls.
    DsHandle<DsSipDialog> getDialog(unsigned int in_uiIndex) const;
    unsigned int getNumDialogs() const;
    std::recursive_mutex& getMutex() const { return m_mutex; }

    /// Nil once the call has been answered: nobody asks for the INVITE then.
    DsHandle<DsSipInviteMessage> getInvite() const;

    /// The Call-ID of the INVITE on the wire: the message's own, else the one the stack chose. Known from
    /// create() on and never changed, also while the INVITE is sent again (digest, session interval). Any
    /// thread.
    const std::string& getCallID() const { return m_strCallId; }

    /// Whether the network has said that nothing takes the INVITE there, which failedToConnect(nil) reports
    /// like a time-out. Any thread.
    bool isUnreachable() const { return m_bUnreachable.load(std::memory_order_relaxed); }

    void acceptReplaces(const DsHandle<DsSipDialog>& in_hReplacedDialog,
                        const DsHandle<DsSipDialog>& in_hNewDialog) override;
    void rejectReplaces(const DsHandle<DsSipDialog>& in_hReplacedDialog,
                        const DsHandle<DsSipDialog>& in_hNewDialog) override;

protected:
    ~DsSipOutgoingCall() override;

private:
    friend class OutgoingCallCore;

    DsSipOutgoingCall(const DsHandle<DsSipInviteMessage>& in_hInvite,
                      const DsHandle<DsSipOutgoingCallinterface>& in_hInterface);

    const std::string m_strCallId;
    DsHandle<DsSipOutgoingCallinterface> m_hInterface;  // SIP stack thread; released with the core
    std::shared_ptr<OutgoingCallCore> m_pCore;
    std::atomic<bool> m_bUnreachable{false};
    mutable std::recursive_mutex m_mutex;  // guards the two below
    DsHandle<DsSipInviteMessage> m_hInvite;
    std::vector<DsHandle<DsSipDialog>> m_vDialogs;
};

}  // namespace Quorvex
