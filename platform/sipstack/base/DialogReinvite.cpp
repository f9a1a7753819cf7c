// The re-INVITEs of a dialog, in both directions (RFC 3261 section 14).

#include <random>
#include <utility>

#include "infra/Logger.h"
#include "sipstack/DsException.h"
#include "sipstack/DsSipAckMessage.h"
#include "sipstack/DsSipInviteMessage.h"
#include "sipstack/DsSipRequest.h"
#include "sipstack/DsSipResponse.h"
#include "sipstack/base/DialogCore.h"
#include "sipstack/base/MessageBridge.h"
#include "sipstack/base/SipAgent.h"

namespace Quorvex
{

namespace
{

StaticLogger s_logger("quorvex.sip.Dialog");

unsigned int randomUpTo(unsigned int in_uiMax)
{
    static thread_local std::minstd_rand s_random{std::random_device{}()};
    return std::uniform_int_distribution<unsigned int>(0, in_uiMax)(s_random);
}

}  // namespace

int DialogCore::onReinvite(nta_incoming_t* in_pIrq, const sip_t* in_pSip)
{
    if (m_pOwner->isInviteUnfinished(*this) || (m_pReinviteIrq != nullptr && !m_bReinviteAnswered))
    {
        const std::string retryAfter = std::to_string(randomUpTo(10));
        nta_incoming_treply(
            in_pIrq, SIP_500_INTERNAL_SERVER_ERROR, SIPTAG_RETRY_AFTER_STR(retryAfter.c_str()), TAG_END());
        return 500;
    }
    if (m_bOurReinvitePending && m_pOurReinvite)
    {
        return 491;
    }
    // A 2xx whose ACK has not come: the new INVITE shows that the far end has got it.
    finishReinvite();
    m_pReinviteIrq = in_pIrq;
    m_bReinviteAnswered = false;
    m_hReinvite = m_agent.bridge().fromRequest(in_pIrq).dynamicCast<DsSipInviteMessage>();
    m_bReinvitePending = true;
    nta_incoming_bind(in_pIrq, &IncomingHandler::callback, this);
    if (in_pSip->sip_contact != nullptr)
    {
        refreshTarget(in_pSip, false);
    }
    m_reinviteTimer.start(m_agent.thread(),
                          m_agent.timerCMs(),
                          [this]
                          {
                              const auto self = shared_from_this();
                              nta_incoming_treply(m_pReinviteIrq, SIP_500_INTERNAL_SERVER_ERROR, TAG_END());
                              finishReinvite();
                          });
    m_pOwner->onDialogReinvite(*this, m_hReinvite);
    return 0;
}

void DialogCore::finishReinvite()
{
    m_reinviteTimer.stop();
    m_bReinvitePending = false;
    m_bReinviteAnswered = false;
    m_hReinvite = DsHandle<DsSipInviteMessage>();
    if (m_pReinviteIrq != nullptr)
    {
        nta_incoming_destroy(m_pReinviteIrq);
        m_pReinviteIrq = nullptr;
    }
}

void DialogCore::postReinviteResponse(const DsHandle<DsSipResponse>& in_hResponse)
{
    if (in_hResponse.isNil() || !m_bReinvitePending.load())
    {
        throw DsException("no re-INVITE waits for an answer");
    }
    if (in_hResponse->getStatusCode() >= 200)
    {
        m_bReinvitePending = false;
    }
    SipAgent::lock(m_pAgent)->post([self = shared_from_this(), in_hResponse]
                                   { self->answerReinvite(in_hResponse); });
}

void DialogCore::answerReinvite(const DsHandle<DsSipResponse>& in_hResponse)
{
    if (m_pReinviteIrq == nullptr || m_bReinviteAnswered)
    {
        return;  // cancelled, or the dialog has ended meanwhile
    }
    const auto status = in_hResponse->getStatusCode();
    const bool accepted = status >= 200 && status < 300;
    if (accepted)
    {
        rememberSdp(in_hResponse);
    }
    MessageBridge::reply(
        m_pReinviteIrq, in_hResponse, getContact(), accepted ? acceptSession(m_pReinviteIrq) : std::string());
    if (status >= 300)
    {
        finishReinvite();
    }
    else if (status >= 200)
    {
        m_bReinviteAnswered = true;
        m_bReinvitePending = false;
        m_reinviteTimer.stop();
    }
}

void DialogCore::onIncoming(nta_incoming_t* in_pIrq, const sip_t* in_pSip)
{
    const auto self = shared_from_this();
    if (in_pIrq != m_pReinviteIrq || m_pOwner == nullptr)
    {
        return;
    }
    if (in_pSip == nullptr)
    {
        // No ACK for our 2xx: the session is in doubt, the dialog is ended (RFC 3261 14.2, 13.3.1.4).
        const auto invite = m_hReinvite;
        finishReinvite();
        m_pOwner->onDialogReinviteTimeOut(*this, invite);
        lose("no ACK for the answer to a re-INVITE");
        return;
    }
    const sip_method_t method = in_pSip->sip_request->rq_method;
    if (method == sip_method_ack && m_bReinviteAnswered)
    {
        const auto ack = m_agent.bridge().fromAckOrCancel(in_pIrq).dynamicCast<DsSipAckMessage>();
        finishReinvite();
        m_pOwner->onDialogReinviteAck(*this, ack);
    }
    else if (method == sip_method_cancel && !m_bReinviteAnswered)
    {
        const auto cancel = m_agent.bridge().fromAckOrCancel(in_pIrq).dynamicCast<DsSipRequest>();
        nta_incoming_treply(in_pIrq, SIP_487_REQUEST_CANCELLED, TAG_END());
        finishReinvite();
        m_pOwner->onDialogReinviteCancel(*this, cancel);
    }
}

void DialogCore::postReinvite(const DsHandle<DsSipInviteMessage>& in_hInvite)
{
    checkNotEnded();
    if (in_hInvite.isNil())
    {
        throw DsException("no INVITE to send");
    }
    if (m_bReinvitePending.load() || m_bOurReinvitePending.exchange(true))
    {
        throw DsException("another INVITE of the dialog is unanswered");
    }
    SipAgent::lock(m_pAgent)->post(
        [self = shared_from_this(), in_hInvite]
        {
            self->m_bReinviteRetried = false;
            self->sendReinvite(in_hInvite);
        });
}

void DialogCore::sendReinvite(const DsHandle<DsSipInviteMessage>& in_hInvite)
{
    const auto self = shared_from_this();
    m_hOurReinvite = in_hInvite;
    bool sent = false;
    if (m_state == State::eConfirmed && m_pOwner != nullptr &&
        (m_pOwner->isInviteUnfinished(*this) || m_pReinviteIrq != nullptr))
    {
        // No INVITE while another one is under way in either direction (RFC 3261 14.1). The other one ends in
        // bounded time, and a dialog that ends stops the timer.
        retryReinvite(in_hInvite);
        return;
    }
    if (m_state == State::eConfirmed && m_pOwner != nullptr)
    {
        m_pOurReinvite =
            std::make_unique<ClientRequest>([this](const sip_t* in_pSip) { onReinviteOutcome(in_pSip); });
        sent = send(*m_pOurReinvite,
                    SIP_METHOD_INVITE,
                    DsHandle<DsSipMessage>(in_hInvite),
                    m_session.getInterval() == 0 ? std::string() : m_session.refreshHeaders());
    }
    if (!sent)
    {
        m_pOurReinvite.reset();
        m_hOurReinvite = DsHandle<DsSipInviteMessage>();
        m_bOurReinvitePending = false;
        const bool refreshing = std::exchange(m_bRefreshing, false);
        if (m_pOwner != nullptr && !refreshing && m_state == State::eConfirmed)
        {
            m_pOwner->onDialogReinviteTimeOut(*this, in_hInvite);
        }
    }
}

// RFC 3261 14.1: the owner of the Call-ID waits 2.1 to 4 s, the other side 0 to 2 s.
void DialogCore::retryReinvite(const DsHandle<DsSipInviteMessage>& in_hInvite)
{
    const unsigned int wait = m_pOwner->isInbound() ? 10 + 10 * randomUpTo(199) : 2100 + 10 * randomUpTo(190);
    m_retryTimer.start(m_agent.thread(), wait, [this, in_hInvite] { sendReinvite(in_hInvite); });
}

void DialogCore::onReinviteOutcome(const sip_t* in_pSip)
{
    const auto self = shared_from_this();
    const bool internal = ClientRequest::isInternal(in_pSip);
    const int status = internal ? 408 : in_pSip->sip_status->st_status;
    if (status < 200)
    {
        if (m_pOwner != nullptr && !m_bRefreshing)
        {
            m_pOwner->onDialogReinviteResponse(
                *this, m_agent.bridge().fromResponse(m_pOurReinvite->get()).dynamicCast<DsSipResponse>());
        }
        return;
    }
    const auto invite = m_hOurReinvite;
    DsHandle<DsSipResponse> response;
    if (!internal)
    {
        response = m_agent.bridge().fromResponse(m_pOurReinvite->get()).dynamicCast<DsSipResponse>();
    }
    if (status < 300)
    {
        const char* const branch = nta_outgoing_branch(m_pOurReinvite->get());
        rememberInvite(in_pSip->sip_cseq->cs_seq,
                       branch != nullptr ? branch : "",
                       m_pAckAuthorization ? *m_pAckAuthorization : std::string());
        refreshTarget(in_pSip, false);
    }
    m_pOurReinvite.reset();
    if (status < 300 && m_state != State::eConfirmed)
    {
        sendAck(DsHandle<DsSipMessage>());
        return;
    }
    if (status == 491 && !m_bReinviteRetried && m_state == State::eConfirmed && m_pOwner != nullptr)
    {
        m_bReinviteRetried = true;
        retryReinvite(invite);
        return;
    }
    const bool owned = m_pOwner != nullptr;
    endReinvite(internal ? nullptr : in_pSip, invite, response);
    if (owned && (status == 481 || status == 408))
    {
        lose("the far end does not know it any more, or has gone");
    }
}

void DialogCore::endReinvite(const sip_t* in_pAnswer,
                             const DsHandle<DsSipInviteMessage>& in_hInvite,
                             const DsHandle<DsSipResponse>& in_hResponse)
{
    const bool accepted = in_pAnswer != nullptr && in_pAnswer->sip_status->st_status < 300;
    m_hOurReinvite = DsHandle<DsSipInviteMessage>();
    m_bOurReinvitePending = false;
    if (m_pOwner == nullptr || m_state != State::eConfirmed)
    {
        return;  // the end of the dialog has been, or will be, the last report
    }
    if (accepted)
    {
        rememberSdp(DsHandle<DsSipMessage>(in_hInvite));
        agreeSession(in_pAnswer);
    }
    if (std::exchange(m_bRefreshing, false))
    {
        if (accepted)
        {
            sendAck(DsHandle<DsSipMessage>());
        }
    }
    else if (in_pAnswer == nullptr)
    {
        m_pOwner->onDialogReinviteTimeOut(*this, in_hInvite);
    }
    else
    {
        m_pOwner->onDialogReinviteResponse(*this, in_hResponse);
    }
}

// ---- the session timer
// ----------------------------------------------------------------------------------------------

std::string DialogCore::acceptSession(nta_incoming_t* in_pIrq)
{
    msg_t* const msg = nta_incoming_getrequest(in_pIrq);
    std::string headers = m_session.accept(sip_object(msg), m_agent.config());
    msg_destroy(msg);
    forgetUnusedSdp();
    return headers;
}

void DialogCore::agreeSession(const sip_t* in_pSip)
{
    if (in_pSip->sip_allow != nullptr)
    {
        m_bUpdateAllowed = sip_is_allowed(in_pSip->sip_allow, SIP_METHOD_UPDATE) != 0;
    }
    m_session.agree(in_pSip, m_agent.config());
    forgetUnusedSdp();
}

void DialogCore::forgetUnusedSdp()
{
    if (m_session.getInterval() == 0)
    {
        m_pLocalSdp.reset();
    }
}

void DialogCore::rememberSdp(const DsHandle<DsSipMessage>& in_hMessage)
{
    if (in_hMessage->getBodyLength() != 0 && in_hMessage->getBodyType().equalsIgnoreCase("application/sdp"))
    {
        m_pLocalSdp = std::make_unique<const std::string>(in_hMessage->getBody());
    }
}

StackThread& DialogCore::sessionThread()
{
    return m_agent.thread();
}

void DialogCore::onSessionExpired()
{
    const auto self = shared_from_this();
    m_pOwner->onDialogSessionTimeOut(*this);
    lose("the session was not refreshed in time");
}

void DialogCore::onSessionRefreshDue()
{
    const auto self = shared_from_this();
    if (m_pOwner == nullptr || m_state != State::eConfirmed)
    {
        return;
    }
    m_pOwner->onDialogSessionRefresh(*this);
    if (m_bUpdateAllowed)
    {
        auto request = std::make_unique<ClientRequest>(nullptr);
        request->setCallback(
            [this](const sip_t* in_pSip)
            {
                if (!ClientRequest::isInternal(in_pSip) && in_pSip->sip_status->st_status >= 200 &&
                    in_pSip->sip_status->st_status < 300)
                {
                    m_session.agree(in_pSip, m_agent.config());
                }
                onRequestOutcome(sip_method_update, in_pSip);
            });
        ClientRequest& reference = *request;
        m_vRequests.push_front(std::move(request));
        if (!send(reference, SIP_METHOD_UPDATE, DsHandle<DsSipMessage>(), m_session.refreshHeaders()))
        {
            m_vRequests.pop_front();
        }
        return;
    }
    if (m_bReinvitePending || m_bOurReinvitePending.exchange(true))
    {
        return;  // the INVITE under way refreshes the session as well
    }
    const auto invite = createRequest("INVITE").dynamicCast<DsSipInviteMessage>();
    invite->setBody(m_pLocalSdp ? *m_pLocalSdp : std::string(), "application/sdp");
    m_bRefreshing = true;
    m_bReinviteRetried = false;
    sendReinvite(invite);
}

}  // namespace Quorvex
