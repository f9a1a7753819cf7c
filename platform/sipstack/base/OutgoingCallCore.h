#pragma once

#include <atomic>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "sipstack/DsHandle.h"
#include "sipstack/base/CallCore.h"
#include "sipstack/base/Challenges.h"
#include "sipstack/base/ClientRequest.h"
#include "sipstack/base/StackThread.h"

namespace Quorvex
{

struct LocalEnd;
class CallLogger;
class DsSipOutgoingCall;
class DsSipOutgoingCallinterface;

/// The stack's side of an outbound call. SIP stack thread, except where noted.
class OutgoingCallCore final : public CallCore, public LegHandler
{
public:
    OutgoingCallCore(SipAgent& in_agent, CallLogger* in_pLogger);
    ~OutgoingCallCore() override;

    void begin(const DsHandle<DsSipOutgoingCall>& in_hCall);
    /// Any thread, instead of begin(): the logger stays with whoever made the call.
    void giveLoggerBack();

    /// A 2xx of another far end than the one whose 2xx came first: acknowledged and ended.
    void onFurtherAnswer(const sip_t* in_pSip, const DsHandle<DsSipResponse>& in_hResponse);

    // Any thread, for DsSipOutgoingCall.
    void postHangup();

    void shutdown() override;
    void abort() override;

private:
    enum class State
    {
        eNew,
        eResolving,
        eCalling,    // no final response yet
        eConfirmed,  // a 2xx came
        eEnding,     // BYE sent or received
        eClosed
    };

    void send();
    void openLeg();
    void closeLeg();
    void onResponse(const sip_t* in_pSip);
    void onProvisional(const sip_t* in_pSip, const DsHandle<DsSipResponse>& in_hResponse);
    void onSuccess(const sip_t* in_pSip, const DsHandle<DsSipResponse>& in_hResponse);
    void onFailure(int in_iStatus, const sip_t* in_pSip, const DsHandle<DsSipResponse>& in_hResponse);
    void sendPrack(DialogCore& in_dialog, const sip_t* in_pSip);
    void cancel();
    void hangup();
    void fail();
    void forgetDialogs();
    void close();
    void report(const DsHandle<DsSipMessage>& in_hMessage);
    std::shared_ptr<DialogCore> dialogOf(const sip_t* in_pSip);
    DsHandle<DsSipDialog> firstDialog() const;
    DsSipOutgoingCallinterface& reports() const;

    int onLegRequest(nta_leg_t* in_pLeg, nta_incoming_t* in_pIrq, const sip_t* in_pSip) override;

    void takeDialog(const std::shared_ptr<DialogCore>& in_pDialog) override;
    void onReplacesAck(DialogCore& in_dialog, const DsHandle<DsSipAckMessage>& in_hAck) override;
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
    bool isInbound() const override { return false; }

    State m_state = State::eNew;
    std::unique_ptr<CallLogger> m_pLogger;
    DsHandle<DsSipOutgoingCall> m_hCall;
    nta_leg_t* m_pLeg = nullptr;  // of the INVITE, before there is a dialog
    std::unique_ptr<ClientRequest> m_pInvite;
    std::shared_ptr<const LocalEnd> m_pLocalEnd;
    std::vector<std::string> m_vRoutes;  // the first is in use, the others are still to be tried
    unsigned int m_uiSessionExpires = 0;
    bool m_bIntervalRaised = false;
    std::uint32_t m_uiCSeq = 1;
    Challenges m_challenges;
    std::vector<std::shared_ptr<DialogCore>> m_vDialogs;
    std::shared_ptr<DialogCore> m_pDialog;                                // the one of the 2xx
    std::map<std::string, std::uint32_t> m_lastRSeq;                      // by the far end's tag
    std::map<std::string, std::shared_ptr<DialogCore>> m_furtherDialogs;  // the same, of further 2xx
    std::string m_strBranch;                                              // of the INVITE that has its 2xx
    std::list<std::unique_ptr<ClientRequest>> m_vPracks;
    StackTimer m_timerC;
    StackTimer m_cancelTimer;
    bool m_bCancelled = false;
    bool m_bClosingReported = false;
};

}  // namespace Quorvex
