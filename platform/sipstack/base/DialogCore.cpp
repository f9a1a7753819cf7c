#include "sipstack/base/DialogCore.h"

#include "infra/Logger.h"
#include "sipstack/DsException.h"
#include "sipstack/DsSipAckMessage.h"
#include "sipstack/DsSipInviteMessage.h"
#include "sipstack/DsSipRequest.h"
#include "sipstack/DsSipResponse.h"
#include "sipstack/DsSipServerTransaction.h"
#include "sipstack/base/MessageBridge.h"
#include "sipstack/base/PortIdent.h"
#include "sipstack/base/ServerTransactionCore.h"
#include "sipstack/base/SipAgent.h"

namespace Quorvex
{

namespace
{

StaticLogger s_logger("quorvex.sip.Dialog");

// With the counts beside it, a size that transactions hardly use: else a held call is resident with their
// holes.
static_assert(sizeof(DialogCore) <= 496, "2 KiB more for each held call");

}  // namespace

DialogCore::DialogCore(SipAgent& in_agent, DialogOwner& in_owner)
    : m_agent(in_agent), m_pAgent(in_agent.weak_from_this()), m_pOwner(&in_owner), m_session(*this)
{
    m_agent.dialogCreated();
}

DialogCore::~DialogCore() = default;

std::shared_ptr<DialogCore> DialogCore::fromInvite(SipAgent& in_agent,
                                                   DialogOwner& in_owner,
                                                   nta_incoming_t* in_pIrq,
                                                   const sip_t* in_pSip,
                                                   const DsInetAddress& in_local)
{
    auto dialog = std::make_shared<DialogCore>(in_agent, in_owner);
    const std::string port = in_agent.portOf(in_pIrq);
    dialog->m_pLocalEnd = in_agent.localEnd(port, in_agent.contactFor(port, in_local));
    dialog->m_bUpdateAllowed = sip_is_allowed(in_pSip->sip_allow, SIP_METHOD_UPDATE) != 0;
    const char* const tag = nta_incoming_tag(in_pIrq, nullptr);
    dialog->m_strLocalTag = tag != nullptr ? tag : "";

    su_home_t home[1] = {SU_HOME_INIT(home)};
    sip_to_t* const local = sip_to_dup(home, in_pSip->sip_to);
    if (local != nullptr)
    {
        sip_to_tag(home, local, tag);
        // The tag is the leg's from its beginning, so that a second INVITE without a tag is none of its
        // requests.
        dialog->m_pLeg = nta_leg_tcreate(in_agent.nta(),
                                         &LegHandler::callback,
                                         dialog.get(),
                                         SIPTAG_FROM(local),
                                         SIPTAG_TO(in_pSip->sip_from),
                                         SIPTAG_CALL_ID(in_pSip->sip_call_id),
                                         NTATAG_REMOTE_CSEQ(in_pSip->sip_cseq->cs_seq),
                                         TAG_END());
        dialog->m_strLocal = MessageBridge::headerValue(reinterpret_cast<const sip_header_t*>(local));
        dialog->m_strRemote =
            MessageBridge::headerValue(reinterpret_cast<const sip_header_t*>(in_pSip->sip_from));
    }
    su_home_deinit(home);
    if (dialog->m_pLeg == nullptr)
    {
        dialog->end();
        return nullptr;
    }
    nta_leg_server_route(dialog->m_pLeg, in_pSip->sip_record_route, in_pSip->sip_contact);
    dialog->m_strCallId = in_pSip->sip_call_id->i_id;
    dialog->m_strRemoteTag = in_pSip->sip_from->a_tag != nullptr ? in_pSip->sip_from->a_tag : "";
    dialog->m_strTarget = MessageBridge::urlText(in_pSip->sip_contact != nullptr ? in_pSip->sip_contact->m_url
                                                                                 : in_pSip->sip_from->a_url);
    dialog->m_hDialog = DsHandle<DsSipDialog>(new DsSipDialog(dialog));
    return dialog;
}

std::shared_ptr<DialogCore> DialogCore::fromResponse(SipAgent& in_agent,
                                                     DialogOwner& in_owner,
                                                     const sip_t* in_pSip,
                                                     const std::shared_ptr<const LocalEnd>& in_pLocalEnd)
{
    auto dialog = std::make_shared<DialogCore>(in_agent, in_owner);
    dialog->m_pLocalEnd = in_pLocalEnd;
    dialog->m_pLeg = nta_leg_tcreate(in_agent.nta(),
                                     &LegHandler::callback,
                                     dialog.get(),
                                     SIPTAG_FROM(in_pSip->sip_from),
                                     SIPTAG_TO(in_pSip->sip_to),
                                     SIPTAG_CALL_ID(in_pSip->sip_call_id),
                                     SIPTAG_CSEQ(in_pSip->sip_cseq),
                                     TAG_END());
    if (dialog->m_pLeg == nullptr)
    {
        dialog->end();
        return nullptr;
    }
    dialog->m_strLocal = MessageBridge::headerValue(reinterpret_cast<const sip_header_t*>(in_pSip->sip_from));
    dialog->m_strRemote = MessageBridge::headerValue(reinterpret_cast<const sip_header_t*>(in_pSip->sip_to));
    dialog->m_strCallId = in_pSip->sip_call_id->i_id;
    dialog->m_strLocalTag = in_pSip->sip_from->a_tag != nullptr ? in_pSip->sip_from->a_tag : "";
    dialog->m_strRemoteTag = in_pSip->sip_to->a_tag != nullptr ? in_pSip->sip_to->a_tag : "";
    dialog->refreshTarget(in_pSip, true);
    dialog->m_hDialog = DsHandle<DsSipDialog>(new DsSipDialog(dialog));
    return dialog;
}

void DialogCore::refreshTarget(const sip_t* in_pSip, bool in_bWithRoute)
{
    if (m_pLeg == nullptr)
    {
        return;
    }
    if (in_bWithRoute)
    {
        nta_leg_client_reroute(m_pLeg,
                               in_pSip->sip_record_route,
                               in_pSip->sip_contact,
                               in_pSip->sip_status->st_status < 200 ? 1 : 2);
    }
    else if (in_pSip->sip_contact != nullptr)
    {
        nta_leg_server_route(m_pLeg, nullptr, in_pSip->sip_contact);
    }
    if (in_pSip->sip_contact != nullptr)
    {
        std::string target = MessageBridge::urlText(in_pSip->sip_contact->m_url);
        const std::lock_guard<std::mutex> lock(copyMutex(*this));
        m_strTarget.swap(target);
    }
}

void DialogCore::confirm()
{
    State expected = State::eEarly;
    m_state.compare_exchange_strong(expected, State::eConfirmed);
}

void DialogCore::end()
{
    if (m_state.exchange(State::eEnded) == State::eEnded)
    {
        return;
    }
    const auto self = weak_from_this().lock();
    m_pOwner = nullptr;
    m_byeTimer.stop();
    m_reinviteTimer.stop();
    m_retryTimer.stop();
    m_session.stop();
    if (m_pByeIrq != nullptr)
    {
        m_bByeAnsweredByStack = true;
        nta_incoming_treply(m_pByeIrq, SIP_200_OK, TAG_END());
        nta_incoming_destroy(m_pByeIrq);
        m_pByeIrq = nullptr;
    }
    m_bByePending = false;
    if (m_pReinviteIrq != nullptr && !m_bReinviteAnswered)
    {
        nta_incoming_treply(m_pReinviteIrq, SIP_488_NOT_ACCEPTABLE, TAG_END());
    }
    finishReinvite();
    if (m_pDueAck && m_pLeg != nullptr)
    {
        sendAck(DsHandle<DsSipMessage>());
    }
    m_pBye.reset();
    m_hBye = nullptr;
    m_pOurReinvite.reset();
    m_hOurReinvite = DsHandle<DsSipInviteMessage>();
    m_bOurReinvitePending = false;
    m_vRequests.clear();
    m_pInviteAnswer.reset();
    if (m_pLeg != nullptr)
    {
        nta_leg_destroy(m_pLeg);
        m_pLeg = nullptr;
    }
    DsHandle<DsSipDialog> handle;
    {
        const std::lock_guard<std::mutex> lock(copyMutex(*this));
        handle.swap(m_hDialog);
    }
    m_agent.dialogEnded();
}

void DialogCore::hangup(const DsHandle<DsSipRequest>& in_hBye)
{
    if (m_state == State::eEnded || m_pBye)
    {
        return;
    }
    if (m_pByeIrq != nullptr)
    {
        answerBye(DsHandle<DsSipResponse>());
        return;
    }
    if (m_state != State::eConfirmed)
    {
        return;
    }
    if (m_pReinviteIrq != nullptr)
    {
        if (!m_bReinviteAnswered)
        {
            nta_incoming_treply(m_pReinviteIrq, SIP_488_NOT_ACCEPTABLE, TAG_END());
        }
        finishReinvite();
    }
    m_retryTimer.stop();
    m_session.stop();
    if (m_pDueAck)
    {
        sendAck(DsHandle<DsSipMessage>());
    }
    m_state = State::eEnding;
    sendBye(in_hBye);
}

void DialogCore::sendBye(const DsHandle<DsSipRequest>& in_hBye)
{
    m_hBye = in_hBye;
    m_pBye = std::make_unique<ClientRequest>(
        [this](const sip_t* in_pSip)
        {
            const bool internal = ClientRequest::isInternal(in_pSip);
            if (!internal && in_pSip->sip_status->st_status < 200)
            {
                return;
            }
            const auto self = shared_from_this();
            DsHandle<DsSipMessage> response;
            if (!internal)
            {
                response = m_agent.bridge().fromResponse(m_pBye->get());
                if (m_challenges.answer(
                        response.dynamicCast<DsSipResponse>(), "BYE", target(), m_agent.credentials()))
                {
                    sendBye(m_hBye);
                    return;
                }
            }
            DialogOwner* const owner = m_pOwner;
            if (owner != nullptr)
            {
                owner->onDialogByeAnswered(*this, response);
            }
            end();
        });
    if (!send(*m_pBye,
              SIP_METHOD_BYE,
              in_hBye.isNil() ? DsHandle<DsSipMessage>() : DsHandle<DsSipMessage>(in_hBye),
              m_challenges.getHeaders()))
    {
        // It could not even be made: the answer is a time-out at once, though not from inside this call.
        m_byeTimer.start(m_agent.thread(),
                         0,
                         [this]
                         {
                             const auto self = shared_from_this();
                             if (m_pOwner != nullptr)
                             {
                                 m_pOwner->onDialogByeAnswered(*this, DsHandle<DsSipMessage>());
                             }
                             end();
                         });
    }
}

bool DialogCore::send(ClientRequest& in_request,
                      sip_method_t in_method,
                      const char* in_szMethod,
                      const DsHandle<DsSipMessage>& in_hMessage,
                      const std::string& in_strAuthorization)
{
    if (m_pLeg == nullptr)
    {
        return false;
    }
    su_home_t home[1] = {SU_HOME_INIT(home)};
    const bool target = in_method == sip_method_invite || in_method == sip_method_update ||
                        in_method == sip_method_refer || in_method == sip_method_notify;
    const OutgoingParts parts(home, in_hMessage, target ? getContact() : std::string());
    const bool made = in_request.take(nta_outgoing_tcreate(
        m_pLeg,
        &OutgoingHandler::callback,
        &in_request,
        nullptr,
        in_method,
        in_szMethod,
        nullptr,
        TAG_IF(!in_strAuthorization.empty(), SIPTAG_HEADER_STR(in_strAuthorization.c_str())),
        TAG_IF(parts.hasHeaders(), SIPTAG_HEADER_STR(parts.headers())),
        TAG_IF(parts.hasBody(), SIPTAG_PAYLOAD(parts.body())),
        TPTAG_IDENT(portIdent(getPort())),
        TAG_END()));
    su_home_deinit(home);
    return made;
}

void DialogCore::rememberInvite(std::uint32_t in_uiCSeq,
                                std::string in_strBranch,
                                std::string in_strAuthorization)
{
    m_pDueAck = std::make_unique<DueAck>(DueAck{in_uiCSeq, std::move(in_strBranch)});
    m_pAckAuthorization = in_strAuthorization.empty()
                              ? nullptr
                              : std::make_unique<const std::string>(std::move(in_strAuthorization));
}

void DialogCore::sendAck(const DsHandle<DsSipMessage>& in_hAck)
{
    if (!m_pDueAck || m_pLeg == nullptr)
    {
        return;
    }
    const auto due = std::move(m_pDueAck);
    su_home_t home[1] = {SU_HOME_INIT(home)};
    const OutgoingParts parts(home, in_hAck);
    const std::string cseq = std::to_string(due->m_uiCSeq) + " ACK";
    const char* const authorization = m_pAckAuthorization ? m_pAckAuthorization->c_str() : nullptr;
    // The branch tells the base library which INVITE is meant; without it, it insists on finding that INVITE.
    nta_outgoing_t* const ack =
        nta_outgoing_tcreate(m_pLeg,
                             nullptr,
                             nullptr,
                             nullptr,
                             SIP_METHOD_ACK,
                             nullptr,
                             SIPTAG_CSEQ_STR(cseq.c_str()),
                             NTATAG_ACK_BRANCH(due->m_strBranch.c_str()),
                             TAG_IF(authorization != nullptr, SIPTAG_HEADER_STR(authorization)),
                             TAG_IF(parts.hasHeaders(), SIPTAG_HEADER_STR(parts.headers())),
                             TAG_IF(parts.hasBody(), SIPTAG_PAYLOAD(parts.body())),
                             TPTAG_IDENT(portIdent(getPort())),
                             TAG_END());
    su_home_deinit(home);
    // It stays in the base library to acknowledge further copies of the 2xx.
    nta_outgoing_destroy(ack);
}

void DialogCore::lose(const char* in_szReason)
{
    if (m_state != State::eConfirmed || m_pOwner == nullptr)
    {
        return;
    }
    const auto self = shared_from_this();
    QLOG_INFO(s_logger, "dialog " << m_strCallId << " is ended: " << in_szReason);
    hangup(DsHandle<DsSipRequest>());
    if (m_pOwner != nullptr)
    {
        m_pOwner->onDialogLost(*this);
    }
}

std::string DialogCore::target() const
{
    const std::lock_guard<std::mutex> lock(copyMutex(*this));
    return m_strTarget;
}

std::string DialogCore::getRemoteTag() const
{
    return m_strRemoteTag;
}

void DialogCore::checkNotEnded() const
{
    const State state = getState();
    if (state != State::eConfirmed)
    {
        throw DsException(state == State::eEarly ? "the dialog is not established" : "the dialog is over");
    }
}

DsHandle<DsSipRequest> DialogCore::createRequest(const std::string& in_strMethod) const
{
    const State state = getState();
    const std::string target = this->target();
    if (target.empty() || (state != State::eConfirmed && state != State::eEarly))
    {
        return DsHandle<DsSipRequest>();
    }
    return MessageBridge::makeRequest(in_strMethod, target, m_strLocal, m_strRemote, m_strCallId);
}

void DialogCore::postAck(const DsHandle<DsSipAckMessage>& in_hAck)
{
    const State state = getState();
    if (state == State::eEnded)
    {
        throw DsException("the dialog is over");
    }
    const auto agent = SipAgent::lock(m_pAgent);
    agent->post(
        [self = shared_from_this(), in_hAck]
        { self->sendAck(in_hAck.isNil() ? DsHandle<DsSipMessage>() : DsHandle<DsSipMessage>(in_hAck)); });
}

void DialogCore::postInviteResponse(const DsHandle<DsSipResponse>& in_hResponse)
{
    if (in_hResponse.isNil() || getState() == State::eEnded)
    {
        throw DsException("no INVITE of this dialog waits for an answer");
    }
    SipAgent::lock(m_pAgent)->post(
        [self = shared_from_this(), in_hResponse]
        {
            if (self->m_pInviteAnswer)
            {
                const auto answer = *self->m_pInviteAnswer;
                answer(in_hResponse);
            }
        });
}

void DialogCore::postHangup(const DsHandle<DsSipRequest>& in_hBye)
{
    if (getState() == State::eEnded)
    {
        return;
    }
    if (const auto agent = m_pAgent.lock())
    {
        agent->post([self = shared_from_this(), in_hBye] { self->hangup(in_hBye); });
    }
}

void DialogCore::setLogger(CallLogger* in_pLogger)
{
    std::unique_ptr<CallLogger> logger(in_pLogger);
    if (const auto agent = m_pAgent.lock())
    {
        agent->post([self = shared_from_this(),
                     shared = std::make_shared<std::unique_ptr<CallLogger>>(std::move(logger))]
                    { self->m_pLogger = std::move(*shared); });
    }
}

void DialogCore::setInviteAnswer(InviteAnswer in_function)
{
    m_pInviteAnswer = in_function ? std::make_unique<InviteAnswer>(std::move(in_function)) : nullptr;
}

}  // namespace Quorvex
