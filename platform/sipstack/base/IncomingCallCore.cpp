#include "sipstack/base/IncomingCallCore.h"

#include <algorithm>

#include "infra/Logger.h"
#include "sipstack/DsException.h"
#include "sipstack/DsSipAckMessage.h"
#include "sipstack/DsSipIncomingCall.h"
#include "sipstack/DsSipIncomingCallinterface.h"
#include "sipstack/DsSipInviteMessage.h"
#include "sipstack/DsSipNewCallinterface.h"
#include "sipstack/DsSipPrackMessage.h"
#include "sipstack/DsSipRequest.h"
#include "sipstack/DsSipResponse.h"
#include "sipstack/DsSipServerTransaction.h"
#include "sipstack/base/DialogCore.h"
#include "sipstack/base/MessageBridge.h"
#include "sipstack/base/SipAgent.h"

namespace Quorvex
{

namespace
{

StaticLogger s_logger("quorvex.sip.IncomingCall");

// As for DialogCore.
static_assert(sizeof(IncomingCallCore) <= 240, "2 KiB more for each held call");

}  // namespace

IncomingCallCore::IncomingCallCore(SipAgent& in_agent) : CallCore(in_agent)
{
}
IncomingCallCore::~IncomingCallCore() = default;

int IncomingCallCore::begin(SipAgent& in_agent, nta_incoming_t* in_pIrq, const sip_t* in_pSip)
{
    const auto core = std::make_shared<IncomingCallCore>(in_agent);
    const auto invite = in_agent.bridge().fromRequest(in_pIrq).dynamicCast<DsSipInviteMessage>();
    core->m_pDialog = DialogCore::fromInvite(in_agent, *core, in_pIrq, in_pSip, invite->getLocalAddress());
    if (!core->m_pDialog)
    {
        return 500;
    }
    const auto call = in_agent.newCall(invite);
    if (call.isNil())
    {
        core->m_pDialog->end();
        return 500;
    }
    core->m_hCall = call;
    core->m_pIrq = in_pIrq;
    core->m_bRequires100rel = sip_has_feature(in_pSip->sip_require, "100rel") != 0;
    core->m_bSupports100rel =
        core->m_bRequires100rel || sip_has_feature(in_pSip->sip_supported, "100rel") != 0;
    call->m_pCore = core;
    in_agent.addCall(core);
    nta_incoming_bind(in_pIrq, &IncomingHandler::callback, core.get());
    core->m_timer.start(in_agent.thread(),
                        in_agent.timerCMs(),
                        [p = core.get()]
                        {
                            QLOG_INFO(s_logger,
                                      "call " << p->m_pDialog->getCallId() << " was not answered in time");
                            p->refuse(SIP_480_TEMPORARILY_UNAVAILABLE);
                        });
    core->reports().called(call, invite);
    return 0;
}

DsSipIncomingCallinterface& IncomingCallCore::reports() const
{
    return *m_hCall->m_hInterface;
}

std::shared_ptr<DialogCore> IncomingCallCore::dialog() const
{
    const std::lock_guard<std::mutex> lock(copyMutex(*this));
    return m_pDialog;
}

DsHandle<DsSipDialog> IncomingCallCore::getDialog() const
{
    return dialog()->getHandle();
}

bool IncomingCallCore::isByeAnsweredByStack() const
{
    return dialog()->isByeAnsweredByStack();
}

void IncomingCallCore::postAnswer(const DsHandle<DsSipResponse>& in_hResponse, bool in_bReliable)
{
    if (in_hResponse.isNil())
    {
        throw DsException("no response to send");
    }
    const auto status = in_hResponse->getStatusCode();
    if (status < 100 || status > 699 || (in_bReliable && (status <= 100 || status >= 200)))
    {
        throw DsException("status code " + std::to_string(status) + " cannot be sent here");
    }
    if (in_bReliable && !m_bSupports100rel)
    {
        throw DsException("the far end does not know reliable provisional responses");
    }
    if (m_bOver.load())
    {
        throw DsException("the call is over");
    }
    unsigned int uiAsked = m_uiFinalAsked.load();
    if (uiAsked != 0 || (status >= 200 && !m_uiFinalAsked.compare_exchange_strong(uiAsked, status)))
    {
        throw DsException("the INVITE has its final response already");
    }
    SipAgent::lock(m_pAgent)->post(
        [self = std::static_pointer_cast<IncomingCallCore>(shared_from_this()), in_hResponse, in_bReliable]
        { self->answer(in_hResponse, in_bReliable); });
}

unsigned int IncomingCallCore::getFinalStatus() const
{
    const unsigned int uiSent = m_uiFinalSent.load();
    return uiSent != 0 ? uiSent : m_uiFinalAsked.load();
}

void IncomingCallCore::postHangup()
{
    unsigned int uiNone = 0;
    m_uiFinalAsked.compare_exchange_strong(uiNone, 480);
    if (const auto agent = m_pAgent.lock())
    {
        agent->post([self = std::static_pointer_cast<IncomingCallCore>(shared_from_this())]
                    { self->hangup(); });
    }
}

void IncomingCallCore::answer(const DsHandle<DsSipResponse>& in_hResponse, bool in_bReliable)
{
    if (m_state != State::eProceeding)
    {
        return;  // cancelled or timed out meanwhile, which was reported
    }
    const auto self = shared_from_this();
    const auto status = in_hResponse->getStatusCode();
    if (status > 100 && status < 200 && (in_bReliable || m_bRequires100rel))
    {
        sendReliable(in_hResponse, in_bReliable);
        return;
    }
    if (status >= 200 && status < 300 && m_pReliable != nullptr)
    {
        // RFC 3262 section 3: the 2xx waits for the PRACK.
        m_hHeldAnswer = in_hResponse;
        return;
    }
    if (status > 100 && status < 300)
    {
        m_pDialog->rememberSdp(in_hResponse);
    }
    if (status >= 200)
    {
        m_uiFinalSent = status;
    }
    MessageBridge::reply(m_pIrq,
                         in_hResponse,
                         status > 100 && status < 300 ? m_pDialog->getContact() : std::string(),
                         status >= 200 && status < 300 ? m_pDialog->acceptSession(m_pIrq) : std::string());
    if (status >= 300)
    {
        close();
    }
    else if (status >= 200)
    {
        m_timer.stop();
        m_state = State::eAccepted;
        m_pDialog->confirm();
    }
}

void IncomingCallCore::sendReliable(const DsHandle<DsSipResponse>& in_hResponse, bool in_bAsked)
{
    if (m_pReliable != nullptr)
    {
        m_vReliableQueue.emplace_back(in_hResponse, in_bAsked);
        return;
    }
    m_bReliableAsked = in_bAsked;
    m_pDialog->rememberSdp(in_hResponse);
    m_pReliable = MessageBridge::replyReliably(m_pIrq, *this, in_hResponse, m_pDialog->getContact());
    if (m_pReliable == nullptr)
    {
        QLOG_ERROR(s_logger,
                   "cannot send a reliable provisional response in call " << m_pDialog->getCallId());
    }
}

int IncomingCallCore::onPrack(nta_reliable_t* in_pReliable, nta_incoming_t* in_pIrq, const sip_t* in_pSip)
{
    const auto self = shared_from_this();
    if (in_pReliable == m_pReliable)
    {
        m_pReliable = nullptr;
    }
    nta_reliable_destroy(in_pReliable);
    if (in_pSip == nullptr || in_pIrq == nullptr || m_state == State::eClosed)
    {
        return 200;  // never acknowledged, or overtaken by the final response
    }
    const auto prack = m_agent.bridge().fromRequest(in_pIrq).dynamicCast<DsSipPrackMessage>();
    nta_incoming_treply(in_pIrq, SIP_200_OK, TAG_END());
    nta_incoming_destroy(in_pIrq);
    if (m_bReliableAsked)
    {
        reports().prack(m_hCall, prack);
    }
    m_agent.post([core = std::static_pointer_cast<IncomingCallCore>(self)] { core->afterPrack(); });
    return 200;
}

void IncomingCallCore::afterPrack()
{
    if (m_state != State::eProceeding || m_pReliable != nullptr)
    {
        return;
    }
    if (!m_vReliableQueue.empty())
    {
        const auto next = m_vReliableQueue.front();
        m_vReliableQueue.pop_front();
        sendReliable(next.first, next.second);
    }
    else if (!m_hHeldAnswer.isNil())
    {
        const auto held = m_hHeldAnswer;
        m_hHeldAnswer = DsHandle<DsSipResponse>();
        answer(held, false);
    }
}

void IncomingCallCore::onIncoming(nta_incoming_t*, const sip_t* in_pSip)
{
    const auto self = shared_from_this();
    if (in_pSip == nullptr)
    {
        onInviteTimeOut();
    }
    else if (in_pSip->sip_request->rq_method == sip_method_ack)
    {
        onAck();
    }
    else if (in_pSip->sip_request->rq_method == sip_method_cancel)
    {
        onCancel();
    }
}

void IncomingCallCore::onAck()
{
    if (m_state != State::eAccepted)
    {
        return;
    }
    const auto ack = m_agent.bridge().fromAckOrCancel(m_pIrq).dynamicCast<DsSipAckMessage>();
    nta_incoming_destroy(m_pIrq);
    m_pIrq = nullptr;
    m_hCall->forgetInvite();
    m_state = State::eConfirmed;
    if (m_bHangupDue)
    {
        hangup();
    }
    else
    {
        reports().callConfirmed(m_hCall, ack);
    }
}

void IncomingCallCore::onCancel()
{
    if (m_state != State::eProceeding)
    {
        return;
    }
    const auto cancel = m_agent.bridge().fromAckOrCancel(m_pIrq);
    m_bOver = true;
    replyFinally(SIP_487_REQUEST_CANCELLED);
    reports().terminated(m_hCall, cancel);
    close();
}

void IncomingCallCore::onInviteTimeOut()
{
    if (m_state == State::eAccepted)
    {
        QLOG_INFO(s_logger, "call " << m_pDialog->getCallId() << " is ended: no ACK for its 200");
        nta_incoming_destroy(m_pIrq);
        m_pIrq = nullptr;
        m_state = State::eEnding;
        m_pDialog->hangup(DsHandle<DsSipRequest>());
        report(DsHandle<DsSipMessage>());
    }
    else if (m_state == State::eProceeding)
    {
        // No PRACK: the base library answers 503 as soon as this returns.
        QLOG_INFO(s_logger, "call " << m_pDialog->getCallId() << " is ended: no PRACK");
        m_bOver = true;
        m_uiFinalSent = 503;
        m_timer.start(m_agent.thread(), 0, [this] { close(); });
    }
}

void IncomingCallCore::hangup()
{
    const auto self = shared_from_this();
    switch (m_state)
    {
        case State::eProceeding:
            refuse(SIP_480_TEMPORARILY_UNAVAILABLE);
            break;
        case State::eAccepted:
            m_bHangupDue = true;
            break;
        case State::eConfirmed:
            m_state = State::eEnding;
            m_pDialog->hangup(DsHandle<DsSipRequest>());
            break;
        case State::eEnding:
            m_pDialog->hangup(DsHandle<DsSipRequest>());
            break;
        case State::eClosed:
            break;
    }
}

void IncomingCallCore::refuse(int in_iStatus, const char* in_szPhrase)
{
    const auto self = shared_from_this();
    replyFinally(in_iStatus, in_szPhrase);
    close();
}

void IncomingCallCore::replyFinally(int in_iStatus, const char* in_szPhrase)
{
    m_uiFinalSent = static_cast<unsigned int>(in_iStatus);
    nta_incoming_treply(m_pIrq, in_iStatus, in_szPhrase, TAG_END());
}

void IncomingCallCore::report(const DsHandle<DsSipMessage>& in_hMessage)
{
    if (!m_bClosingReported)
    {
        m_bClosingReported = true;
        m_bOver = true;
        reports().terminated(m_hCall, in_hMessage);
    }
}

void IncomingCallCore::close()
{
    if (m_state == State::eClosed)
    {
        return;
    }
    const auto self = shared_from_this();
    report(DsHandle<DsSipMessage>());
    m_state = State::eClosed;
    m_timer.stop();
    m_vReliableQueue.clear();
    m_hHeldAnswer = DsHandle<DsSipResponse>();
    if (m_pIrq != nullptr)
    {
        nta_incoming_destroy(m_pIrq);
        m_pIrq = nullptr;
    }
    dropOffers();
    for (const auto& replaced : m_vReplaced)
    {
        replaced->end();
    }
    m_vReplaced.clear();
    m_pDialog->end();
    m_hCall->m_hInterface = DsHandle<DsSipIncomingCallinterface>();
    m_hCall = DsHandle<DsSipIncomingCall>();
    m_agent.removeCall(*this);
}

void IncomingCallCore::shutdown()
{
    if (m_state == State::eProceeding)
    {
        refuse(SIP_503_SERVICE_UNAVAILABLE);
    }
    else
    {
        hangup();
    }
}

void IncomingCallCore::refuseUnanswered()
{
    if (m_state == State::eProceeding && m_uiFinalAsked.load() == 0)
    {
        m_uiFinalAsked = 503;
        refuse(SIP_503_SERVICE_UNAVAILABLE);
    }
}

void IncomingCallCore::abort()
{
    const auto self = shared_from_this();
    if (m_state == State::eProceeding)
    {
        replyFinally(SIP_503_SERVICE_UNAVAILABLE);
    }
    close();
}

}  // namespace Quorvex
