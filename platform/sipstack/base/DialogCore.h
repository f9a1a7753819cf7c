#pragma once

#include <atomic>
#include <cstdint>
#include <forward_list>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "sipstack/DsHandle.h"
#include "sipstack/DsSipDialog.h"
#include "sipstack/base/Challenges.h"
#include "sipstack/base/ClientRequest.h"
#include "sipstack/base/CopyMutex.h"
#include "sipstack/base/DialogOwner.h"
#include "sipstack/base/LocalEnd.h"
#include "sipstack/base/SessionTimer.h"
#include "sipstack/base/Sofia.h"
#include "sipstack/base/StackThread.h"

namespace Quorvex
{

class CallLogger;
class DsInetAddress;
class SipAgent;

/// The stack's side of a dialog: the leg of the base library, and the transactions in it. There are two for
/// each call that is held: what few dialogs have stands outside. SIP stack thread, except where noted. Lives
/// as long as its call or a DsSipDialog holds it; end() releases everything of the base library.
class DialogCore final : public LegHandler,
                         public IncomingHandler,
                         private SessionTimer::Handler,
                         public std::enable_shared_from_this<DialogCore>
{
public:
    enum class State : std::uint8_t
    {
        eEarly,
        eConfirmed,
        eEnding,  // a BYE was sent or received and is not answered
        eEnded
    };

    DialogCore(SipAgent& in_agent, DialogOwner& in_owner);
    ~DialogCore();
    DialogCore(const DialogCore&) = delete;
    DialogCore& operator=(const DialogCore&) = delete;

    /// The dialog of an INVITE that was received (RFC 3261 12.1.1): the request gets its To tag here.
    static std::shared_ptr<DialogCore> fromInvite(SipAgent& in_agent,
                                                  DialogOwner& in_owner,
                                                  nta_incoming_t* in_pIrq,
                                                  const sip_t* in_pSip,
                                                  const DsInetAddress& in_local);

    /// The dialog of a response to an INVITE of ours (RFC 3261 12.1.2).
    static std::shared_ptr<DialogCore> fromResponse(SipAgent& in_agent,
                                                    DialogOwner& in_owner,
                                                    const sip_t* in_pSip,
                                                    const std::shared_ptr<const LocalEnd>& in_pLocalEnd);

    /// Any thread; nil once the dialog has ended.
    DsHandle<DsSipDialog> getHandle() const
    {
        const std::lock_guard<std::mutex> lock(copyMutex(*this));
        return m_hDialog;
    }
    State getState() const { return m_state.load(std::memory_order_acquire); }  // any thread
    DialogOwner* getOwner() const { return m_pOwner; }
    const std::string& getPort() const { return m_pLocalEnd->m_strPort; }
    /// The Contact for messages of the dialog that have none of their own.
    const std::string& getContact() const { return m_pLocalEnd->m_strContact; }

    /// Our 2xx to an INVITE of the dialog: settles the session timer, and gives header lines for the answer.
    std::string acceptSession(nta_incoming_t* in_pIrq);
    /// A 2xx to an INVITE of ours.
    void agreeSession(const sip_t* in_pSip);
    /// What we offered or answered last; a refresh of the session repeats it. Before the session is settled:
    /// without a session timer it is not kept.
    void rememberSdp(const DsHandle<DsSipMessage>& in_hMessage);

    nta_leg_t* getLeg() const { return m_pLeg; }

    /// The INVITE was answered 2xx: the dialog stands.
    void confirm();
    /// A 2xx to our INVITE: its Contact and route set are the dialog's from now on (RFC 3261 13.2.2.4).
    void refreshTarget(const sip_t* in_pSip, bool in_bWithRoute);

    /// Sends BYE, if the dialog stands; answers what is pending of the far end's.
    void hangup(const DsHandle<DsSipRequest>& in_hBye);
    /// How long the user has to answer the far end's BYE before the layer does.
    void answerByeWithin(unsigned int in_uiMs);
    /// Releases leg, transactions and the owner; nothing is reported any more.
    void end();

    /// Remembers an INVITE of ours for its ACK.
    void rememberInvite(std::uint32_t in_uiCSeq, std::string in_strBranch, std::string in_strAuthorization);
    void sendAck(const DsHandle<DsSipMessage>& in_hAck);

    // Any thread, for DsSipDialog. They throw what is wrong at once.
    const std::string& getCallId() const { return m_strCallId; }
    const std::string& getLocalTag() const { return m_strLocalTag; }
    std::string getRemoteTag() const;
    DsHandle<DsSipRequest> createRequest(const std::string& in_strMethod) const;
    void postRequest(const DsHandle<DsSipRequest>& in_hRequest);
    void postReinvite(const DsHandle<DsSipInviteMessage>& in_hInvite);
    void postAck(const DsHandle<DsSipAckMessage>& in_hAck);
    void postReinviteResponse(const DsHandle<DsSipResponse>& in_hResponse);
    void postByeResponse(const DsHandle<DsSipResponse>& in_hResponse);
    /// Whether their BYE was answered by the stack since we had hung up, too.
    bool isByeAnsweredByStack() const { return m_bByeAnsweredByStack.load(); }
    void postInviteResponse(const DsHandle<DsSipResponse>& in_hResponse);
    void postHangup(const DsHandle<DsSipRequest>& in_hBye);
    void setLogger(CallLogger* in_pLogger);

    /// Set for a dialog that was offered in the place of another: takes the answer to its INVITE.
    using InviteAnswer = std::function<void(const DsHandle<DsSipResponse>&)>;
    void setInviteAnswer(InviteAnswer in_function);

    int onLegRequest(nta_leg_t* in_pLeg, nta_incoming_t* in_pIrq, const sip_t* in_pSip) override;

private:
    void onIncoming(nta_incoming_t* in_pIrq, const sip_t* in_pSip) override;  // the far end's re-INVITE

    int onBye(nta_incoming_t* in_pIrq);
    int onReinvite(nta_incoming_t* in_pIrq, const sip_t* in_pSip);
    int onOtherRequest(nta_incoming_t* in_pIrq, const sip_t* in_pSip);
    void onReinviteOutcome(const sip_t* in_pSip);
    // The answer is null when none came.
    void endReinvite(const sip_t* in_pAnswer,
                     const DsHandle<DsSipInviteMessage>& in_hInvite,
                     const DsHandle<DsSipResponse>& in_hResponse);
    void onRequestOutcome(sip_method_t in_method, const sip_t* in_pSip);
    void finishReinvite();
    void answerBye(const DsHandle<DsSipResponse>& in_hResponse);
    void answerReinvite(const DsHandle<DsSipResponse>& in_hResponse);
    void sendBye(const DsHandle<DsSipRequest>& in_hBye);
    void onSessionRefreshDue() override;
    void onSessionExpired() override;
    StackThread& sessionThread() override;
    void forgetUnusedSdp();
    void lose(const char* in_szReason);
    void sendReinvite(const DsHandle<DsSipInviteMessage>& in_hInvite);
    void retryReinvite(const DsHandle<DsSipInviteMessage>& in_hInvite);
    bool send(ClientRequest& in_request,
              sip_method_t in_method,
              const char* in_szMethod,
              const DsHandle<DsSipMessage>& in_hMessage,
              const std::string& in_strAuthorization = std::string());
    void checkNotEnded() const;
    std::string target() const;

    // Of the INVITE that waits for it.
    struct DueAck
    {
        std::uint32_t m_uiCSeq;
        std::string m_strBranch;
    };

    SipAgent& m_agent;
    std::weak_ptr<SipAgent> m_pAgent;
    DialogOwner* m_pOwner;
    nta_leg_t* m_pLeg = nullptr;
    std::atomic<State> m_state{State::eEarly};
    std::atomic<bool> m_bByePending{false};
    std::atomic<bool> m_bByeAnsweredByStack{false};
    std::atomic<bool> m_bReinvitePending{false};  // the far end's
    std::atomic<bool> m_bOurReinvitePending{false};
    bool m_bReinviteAnswered = false;
    bool m_bReinviteRetried = false;
    bool m_bUpdateAllowed = false;  // by the far end
    bool m_bRefreshing = false;     // our re-INVITE is the layer's, not the user's

    // Set before the handle is given away, constant afterwards.
    std::string m_strCallId;
    std::string m_strLocalTag;
    std::string m_strLocal;   // From of our requests
    std::string m_strRemote;  // To of our requests
    std::string m_strRemoteTag;
    std::shared_ptr<const LocalEnd> m_pLocalEnd;

    // copyMutex() guards the two below.
    std::string m_strTarget;
    DsHandle<DsSipDialog> m_hDialog;

    // The far end's BYE.
    nta_incoming_t* m_pByeIrq = nullptr;
    StackTimer m_byeTimer;

    // The far end's re-INVITE.
    nta_incoming_t* m_pReinviteIrq = nullptr;
    DsHandle<DsSipInviteMessage> m_hReinvite;
    StackTimer m_reinviteTimer;

    // Ours.
    std::unique_ptr<ClientRequest> m_pBye;
    DsHandle<DsSipRequest> m_hBye;
    Challenges m_challenges;  // to our BYE
    std::unique_ptr<ClientRequest> m_pOurReinvite;
    DsHandle<DsSipInviteMessage> m_hOurReinvite;
    StackTimer m_retryTimer;
    std::forward_list<std::unique_ptr<ClientRequest>> m_vRequests;
    std::unique_ptr<DueAck> m_pDueAck;
    std::unique_ptr<const std::string> m_pAckAuthorization;

    SessionTimer m_session;
    std::unique_ptr<const std::string> m_pLocalSdp;
    std::unique_ptr<InviteAnswer> m_pInviteAnswer;
    std::unique_ptr<CallLogger> m_pLogger;
};

}  // namespace Quorvex
