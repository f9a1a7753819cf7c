#pragma once

#include <atomic>
#include <list>
#include <memory>
#include <utility>
#include <vector>

#include "sipstack/DsHandle.h"
#include "sipstack/base/CallCore.h"
#include "sipstack/base/CopyMutex.h"
#include "sipstack/base/StackThread.h"

namespace Quorvex
{

class DsSipDialog;
class DsSipIncomingCall;
class DsSipIncomingCallinterface;

/// The stack's side of an inbound call. SIP stack thread, except where noted.
class IncomingCallCore final : public CallCore, public IncomingHandler, public ReliableHandler
{
public:
    explicit IncomingCallCore(SipAgent& in_agent);
    ~IncomingCallCore() override;

    /// Takes an INVITE that begins a call; the result is as LegHandler's.
    static int begin(SipAgent& in_agent, nta_incoming_t* in_pIrq, const sip_t* in_pSip);

    // Any thread, for DsSipIncomingCall.
    void postAnswer(const DsHandle<DsSipResponse>& in_hResponse, bool in_bReliable);
    void postHangup();
    DsHandle<DsSipDialog> getDialog() const;
    unsigned int getFinalStatus() const;
    /// As DialogCore's, of the call's dialog, also when it is over.
    bool isByeAnsweredByStack() const;

    void shutdown() override;
    void refuseUnanswered() override;
    void abort() override;

private:
    enum class State
    {
        eProceeding,  // no final response yet
        eAccepted,    // 2xx sent, no ACK yet
        eConfirmed,
        eEnding,  // BYE sent or received
        eClosed
    };

    int onPrack(nta_reliable_t* in_pReliable, nta_incoming_t* in_pIrq, const sip_t* in_pSip) override;
    void onIncoming(nta_incoming_t* in_pIrq, const sip_t* in_pSip) override;
    void onAck();
    void onCancel();
    void onInviteTimeOut();

    void answer(const DsHandle<DsSipResponse>& in_hResponse, bool in_bReliable);
    void sendReliable(const DsHandle<DsSipResponse>& in_hResponse, bool in_bAsked);
    void afterPrack();
    void hangup();
    void refuse(int in_iStatus, const char* in_szPhrase);
    void replyFinally(int in_iStatus, const char* in_szPhrase);
    void report(const DsHandle<DsSipMessage>& in_hMessage);
    void close();
    DsSipIncomingCallinterface& reports() const;
    std::shared_ptr<DialogCore> dialog() const;

    void onDialogBye(DialogCore& in_dialog, const DsHandle<DsSipMessage>& in_hBye) override;
    void onDialogByeAnswered(DialogCore& in_dialog, const DsHandle<DsSipMessage>& in_hResponse) override;
    void onDialogEnded(DialogCore& in_dialog) override;
    void onDialogLost(DialogCore& in_dialog) override;
    void onDialogRequest(DialogCore& in_dialog,
                         const DsHandle<DsSipServerTransaction>& in_hTransaction,
                         const DsHandle<DsSipRequest>& in_hRequest) override;
    void onDialogRefer(DialogCore& in_dialog,
                       const DsHandle<DsSipServerTransaction>& in_hTransaction,
                       const DsHandle<DsSipRequest>& in_hRequest) override;
    void onDialogNotify(DialogCore& in_dialog,
                        const DsHandle<DsSipServerTransaction>& in_hTransaction,
                        const DsHandle<DsSipRequest>& in_hRequest) override;
    void onDialogReferResponse(DialogCore& in_dialog, const DsHandle<DsSipResponse>& in_hResponse) override;
    void onDialogNotifyResponse(DialogCore& in_dialog, const DsHandle<DsSipResponse>& in_hResponse) override;
    void onDialogReinvite(DialogCore& in_dialog, const DsHandle<DsSipInviteMessage>& in_hInvite) override;
    void onDialogReinviteCancel(DialogCore& in_dialog, const DsHandle<DsSipRequest>& in_hCancel) override;
    void onDialogReinviteResponse(DialogCore& in_dialog,
                                  const DsHandle<DsSipResponse>& in_hResponse) override;
    void onDialogReinviteAck(DialogCore& in_dialog, const DsHandle<DsSipAckMessage>& in_hAck) override;
    void onDialogReinviteTimeOut(DialogCore& in_dialog,
                                 const DsHandle<DsSipInviteMessage>& in_hInvite) override;
    void onDialogSessionTimeOut(DialogCore& in_dialog) override;
    void onDialogSessionRefresh(DialogCore& in_dialog) override;
    void onDialogReplaces(DialogCore& in_replaced,
                          DialogCore& in_new,
                          const DsHandle<DsSipInviteMessage>& in_hInvite) override;
    bool isInviteUnfinished(const DialogCore& in_dialog) const override;
    bool isInbound() const override { return true; }
    void takeDialog(const std::shared_ptr<DialogCore>& in_pDialog) override;
    void onReplacesAck(DialogCore& in_dialog, const DsHandle<DsSipAckMessage>& in_hAck) override;

    State m_state = State::eProceeding;
    nta_incoming_t* m_pIrq = nullptr;
    std::shared_ptr<DialogCore> m_pDialog;  // copyMutex(): it changes on the SIP stack thread only
    std::vector<std::shared_ptr<DialogCore>> m_vReplaced;  // taken over from, not ended yet
    DsHandle<DsSipIncomingCall> m_hCall;
    StackTimer m_timer;
    bool m_bHangupDue = false;
    bool m_bClosingReported = false;

    bool m_bSupports100rel = false;
    bool m_bRequires100rel = false;
    nta_reliable_t* m_pReliable = nullptr;
    bool m_bReliableAsked = false;  // by the user, who hears of its PRACK; not only by the far end
    std::list<std::pair<DsHandle<DsSipResponse>, bool>> m_vReliableQueue;
    DsHandle<DsSipResponse> m_hHeldAnswer;

    // Any thread: what the user has decided, ahead of what the stack has done.
    std::atomic<unsigned int> m_uiFinalAsked{0};
    std::atomic<bool> m_bOver{false};
    // What the stack has answered the INVITE with finally; 0 until then.
    std::atomic<unsigned int> m_uiFinalSent{0};
};

}  // namespace Quorvex
