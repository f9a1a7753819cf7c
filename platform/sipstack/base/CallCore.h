#pragma once

#include <functional>
#include <list>
#include <memory>

#include "sipstack/base/DialogOwner.h"
#include "sipstack/base/Sofia.h"
#include "sipstack/base/StackThread.h"

namespace Quorvex
{

class DsSipDialog;
class SipAgent;

/// What the stack keeps of any call, inbound or outbound. SIP stack thread, except where noted.
class CallCore : public DialogOwner, public std::enable_shared_from_this<CallCore>
{
public:
    explicit CallCore(SipAgent& in_agent);
    virtual ~CallCore();
    CallCore(const CallCore&) = delete;
    CallCore& operator=(const CallCore&) = delete;

    /// Ends the call in order, as its user's hangup() would; the stack is stopping.
    virtual void shutdown() = 0;
    /// Refuses an inbound INVITE that its user leaves unanswered (503); nothing to any other call.
    virtual void refuseUnanswered() {}
    /// Ends the call at once, without waiting for anybody.
    virtual void abort() = 0;

    /// An INVITE that offers a new dialog in the place of one of this call's (RFC 3891); the result is as
    /// LegHandler's.
    int offerReplaces(DialogCore& in_replaced, nta_incoming_t* in_pIrq, const sip_t* in_pSip) override;

    // Any thread, for the calls.
    void postAcceptReplaces(const DsHandle<DsSipDialog>& in_hNewDialog);
    void postRejectReplaces(const DsHandle<DsSipDialog>& in_hNewDialog);

protected:
    /// The new dialog is the call's from now on.
    virtual void takeDialog(const std::shared_ptr<DialogCore>& in_pDialog) = 0;
    /// The ACK of the INVITE that brought the new dialog.
    virtual void onReplacesAck(DialogCore& in_dialog, const DsHandle<DsSipAckMessage>& in_hAck) = 0;

    /// Whether the dialog's own INVITE, with Replaces, is unfinished.
    bool isOfferUnfinished(const DialogCore& in_dialog) const;
    /// Answers what is unanswered and forgets all offers.
    void dropOffers();

    SipAgent& m_agent;
    const std::weak_ptr<SipAgent> m_pAgent;

private:
    class ReplacesOffer;

    ReplacesOffer* findOffer(const DsHandle<DsSipDialog>& in_hNewDialog);
    void removeOffer(const ReplacesOffer& in_offer);

    std::list<std::unique_ptr<ReplacesOffer>> m_vOffers;
};

}  // namespace Quorvex
