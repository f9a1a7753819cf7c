#include "sipstack/base/OutgoingCallCore.h"

#include <algorithm>

#include "infra/Logger.h"
#include "sipstack/DsSipAckMessage.h"
#include "sipstack/DsSipInviteMessage.h"
#include "sipstack/DsSipOutgoingCall.h"
#include "sipstack/DsSipOutgoingCallinterface.h"
#include "sipstack/DsSipRequest.h"
#include "sipstack/DsSipResponse.h"
#include "sipstack/DsSipServerTransaction.h"
#include "sipstack/base/DialogCore.h"
#include "sipstack/base/MessageBridge.h"
#include "sipstack/base/PortIdent.h"
#include "sipstack/base/SipAgent.h"

namespace Quorvex
{

namespace
{

StaticLogger s_logger("quorvex.sip.OutgoingCall");

// How long a 2xx that crossed our CANCEL waits for the user to end it before the layer does.
constexpr unsigned int kCrossingGraceT1 = 4;
// Of one INVITE: what a hostile proxy makes beyond is dropped.
constexpr std::size_t kMostFurtherDialogs = 64;
constexpr unsigned long kLongestSession = 86400;  // s

}  // namespace

OutgoingCallCore::OutgoingCallCore(SipAgent& in_agent, CallLogger* in_pLogger)
    : CallCore(in_agent), m_pLogger(in_pLogger)
{
}

OutgoingCallCore::~OutgoingCallCore() = default;

void OutgoingCallCore::giveLoggerBack()
{
    static_cast<void>(m_pLogger.release());
}

DsSipOutgoingCallinterface& OutgoingCallCore::reports() const
{
    return *m_hCall->m_hInterface;
}

void OutgoingCallCore::begin(const DsHandle<DsSipOutgoingCall>& in_hCall)
{
    const auto self = shared_from_this();
    m_hCall = in_hCall;
    m_agent.addCall(self);
    m_agent.countInviteSent();
    if (m_agent.isDraining())
    {
        fail();
        return;
    }
    m_state = State::eResolving;
    std::weak_ptr<CallCore> weak = self;
    m_agent.resolveDestination(
        in_hCall->getInvite(),
        [weak, agent = m_pAgent](const std::vector<std::string>& in_vRoutes)
        {
            // On another thread, or inside this very call.
            const auto locked = agent.lock();
            if (!locked)
            {
                return;
            }
            locked->post(
                [weak, in_vRoutes]
                {
                    if (const auto core = std::static_pointer_cast<OutgoingCallCore>(weak.lock()))
                    {
                        core->m_vRoutes = in_vRoutes;
                        core->send();
                    }
                });
        });
}

void OutgoingCallCore::openLeg()
{
    const auto invite = m_hCall->getInvite();
    m_uiSessionExpires = m_agent.config().m_uiSessionExpiresS;
    std::string from = invite->getHeaderValue("From");
    if (invite->getFromTag().empty())
    {
        from += ";tag=" + SipAgent::newTag();
    }
    const std::string to = invite->getHeaderValue("To");
    m_pLeg = nta_leg_tcreate(m_agent.nta(),
                             &LegHandler::callback,
                             this,
                             SIPTAG_FROM_STR(from.c_str()),
                             SIPTAG_TO_STR(to.c_str()),
                             SIPTAG_CALL_ID_STR(m_hCall->getCallID().c_str()),
                             TAG_END());
}

void OutgoingCallCore::closeLeg()
{
    if (m_pLeg != nullptr)
    {
        nta_leg_destroy(m_pLeg);
        m_pLeg = nullptr;
    }
}

void OutgoingCallCore::send()
{
    if (m_state != State::eResolving && m_state != State::eCalling)
    {
        return;
    }
    const auto self = shared_from_this();
    const auto invite = m_hCall->getInvite();
    if (m_vRoutes.empty())
    {
        QLOG_INFO(s_logger, "no address for " << invite->getRequestURI());
        m_hCall->m_bUnreachable = true;
        fail();
        return;
    }
    const std::string& route = m_vRoutes.front();
    const std::string port = m_agent.portFor(invite, route);
    m_pLocalEnd = m_agent.localEnd(port, m_agent.contactFor(port, route));
    if (m_pLeg == nullptr)
    {
        openLeg();
    }
    m_pInvite = std::make_unique<ClientRequest>([this](const sip_t* in_pSip) { onResponse(in_pSip); });
    bool made = false;
    m_state = State::eCalling;
    if (m_pLeg != nullptr)
    {
        su_home_t home[1] = {SU_HOME_INIT(home)};
        const OutgoingParts parts(home,
                                  invite,
                                  m_pLocalEnd->m_strContact,
                                  OutgoingParts::Routes::eKeep,
                                  SessionTimer::offer(m_agent.config(), m_uiSessionExpires));
        const std::string cseq = std::to_string(m_uiCSeq) + " INVITE";
        const std::string uri = invite->getRequestURI();
        // A numeric route stays out of the message: it is where to send, not a Route header.
        made = m_pInvite->take(nta_outgoing_tcreate(
            m_pLeg,
            &OutgoingHandler::callback,
            m_pInvite.get(),
            URL_STRING_MAKE(route.c_str()),
            SIP_METHOD_INVITE,
            URL_STRING_MAKE(uri.c_str()),
            SIPTAG_CSEQ_STR(cseq.c_str()),
            TAG_IF(!m_challenges.getHeaders().empty(), SIPTAG_HEADER_STR(m_challenges.getHeaders().c_str())),
            TAG_IF(parts.hasHeaders(), SIPTAG_HEADER_STR(parts.headers())),
            TAG_IF(parts.hasBody(), SIPTAG_PAYLOAD(parts.body())),
            NTATAG_PASS_100(1),
            TPTAG_IDENT(portIdent(m_pLocalEnd->m_strPort)),
            TAG_END()));
        su_home_deinit(home);
    }
    if (!made)
    {
        QLOG_ERROR(s_logger, "cannot send the INVITE to " << invite->getRequestURI());
        fail();
        return;
    }
    m_timerC.start(m_agent.thread(), m_agent.timerCMs(), [this] { cancel(); });
}

void OutgoingCallCore::onResponse(const sip_t* in_pSip)
{
    if (m_state != State::eCalling)
    {
        return;
    }
    const auto self = shared_from_this();
    // Once somebody has been reached, the call is his to accept or refuse. The CSeq counts up: if the servers
    // share what is behind them, the second INVITE must not pass there for a merged copy of the first.
    if (!m_bCancelled && m_vDialogs.empty() && m_agent.nextRoute(m_vRoutes, in_pSip))
    {
        ++m_uiCSeq;
        send();
        return;
    }
    if (ClientRequest::isInternal(in_pSip))
    {
        // What the transport reports (RFC 3261 section 8.1.3.1); a time-out is a 408.
        constexpr int kTransportFailed = 503;
        if (in_pSip != nullptr && in_pSip->sip_status->st_status == kTransportFailed)
        {
            QLOG_INFO(s_logger, m_vRoutes.front() << " cannot be reached");
            m_hCall->m_bUnreachable = true;
        }
        fail();
        return;
    }
    const int status = in_pSip->sip_status->st_status;
    const auto response = m_agent.bridge().fromResponse(m_pInvite->get()).dynamicCast<DsSipResponse>();
    if (status < 200)
    {
        onProvisional(in_pSip, response);
    }
    else if (status < 300)
    {
        onSuccess(in_pSip, response);
    }
    else
    {
        onFailure(status, in_pSip, response);
    }
}

std::shared_ptr<DialogCore> OutgoingCallCore::dialogOf(const sip_t* in_pSip)
{
    const char* const tag = in_pSip->sip_to->a_tag;
    if (tag == nullptr)
    {
        return nullptr;
    }
    for (const auto& dialog : m_vDialogs)
    {
        if (su_casematch(dialog->getRemoteTag().c_str(), tag) != 0)
        {
            return dialog;
        }
    }
    auto dialog = DialogCore::fromResponse(m_agent, *this, in_pSip, m_pLocalEnd);
    if (dialog)
    {
        m_vDialogs.push_back(dialog);
        const std::lock_guard<std::recursive_mutex> lock(m_hCall->m_mutex);
        m_hCall->m_vDialogs.push_back(dialog->getHandle());
    }
    return dialog;
}

DsHandle<DsSipDialog> OutgoingCallCore::firstDialog() const
{
    const auto& dialog = m_pDialog ? m_pDialog : (m_vDialogs.empty() ? m_pDialog : m_vDialogs.front());
    return dialog ? dialog->getHandle() : DsHandle<DsSipDialog>();
}

void OutgoingCallCore::onProvisional(const sip_t* in_pSip, const DsHandle<DsSipResponse>& in_hResponse)
{
    if (in_pSip->sip_status->st_status > 100)
    {
        m_timerC.start(m_agent.thread(), m_agent.timerCMs(), [this] { cancel(); });
    }
    const auto dialog = in_pSip->sip_status->st_status > 100 ? dialogOf(in_pSip) : nullptr;
    const auto handle = dialog ? dialog->getHandle() : DsHandle<DsSipDialog>();
    if (dialog && in_pSip->sip_rseq != nullptr && sip_has_feature(in_pSip->sip_require, "100rel") != 0)
    {
        std::uint32_t& last = m_lastRSeq[dialog->getRemoteTag()];
        const std::uint32_t rseq = in_pSip->sip_rseq->rs_response;
        if (last != 0 && rseq != last + 1)
        {
            return;  // a copy, or one whose forerunner is still to come (RFC 3262 section 4)
        }
        last = rseq;
        dialog->refreshTarget(in_pSip, true);
        sendPrack(*dialog, in_pSip);
        reports().reliableProvisionalResponse(m_hCall, handle, in_hResponse);
    }
    reports().provisionalResponse(m_hCall, handle, in_hResponse);
}

void OutgoingCallCore::sendPrack(DialogCore& in_dialog, const sip_t* in_pSip)
{
    if (in_dialog.getLeg() == nullptr)
    {
        return;
    }
    const std::string rack = std::to_string(in_pSip->sip_rseq->rs_response) + " " +
                             std::to_string(in_pSip->sip_cseq->cs_seq) + " INVITE";
    auto request = std::make_unique<ClientRequest>(nullptr);
    request->setCallback(
        [this, p = request.get()](const sip_t* in_pAnswer)
        {
            if (ClientRequest::isInternal(in_pAnswer) || in_pAnswer->sip_status->st_status >= 200)
            {
                m_vPracks.remove_if([p](const auto& in_pRequest) { return in_pRequest.get() == p; });
            }
        });
    if (request->take(nta_outgoing_tcreate(in_dialog.getLeg(),
                                           &OutgoingHandler::callback,
                                           request.get(),
                                           nullptr,
                                           SIP_METHOD_PRACK,
                                           nullptr,
                                           SIPTAG_RACK_STR(rack.c_str()),
                                           TPTAG_IDENT(portIdent(m_pLocalEnd->m_strPort)),
                                           TAG_END())))
    {
        m_vPracks.push_back(std::move(request));
    }
}

void OutgoingCallCore::onSuccess(const sip_t* in_pSip, const DsHandle<DsSipResponse>& in_hResponse)
{
    m_timerC.stop();
    m_cancelTimer.stop();
    m_pDialog = dialogOf(in_pSip);
    if (!m_pDialog)
    {
        fail();
        return;
    }
    m_pDialog->refreshTarget(in_pSip, true);
    m_pDialog->confirm();
    const char* const branch = nta_outgoing_branch(m_pInvite->get());
    m_strBranch = branch != nullptr ? branch : "";
    if (!m_strBranch.empty())
    {
        m_agent.addAnsweredInvite(m_strBranch, {m_pDialog->getRemoteTag(), this});
    }
    m_pDialog->rememberInvite(in_pSip->sip_cseq->cs_seq, m_strBranch, m_challenges.getHeaders());
    m_pDialog->rememberSdp(m_hCall->getInvite());
    m_pDialog->agreeSession(in_pSip);
    m_state = State::eConfirmed;
    m_pInvite.reset();
    closeLeg();
    // The other early dialogs are over; a 2xx of theirs makes one of its own.
    for (const auto& dialog : m_vDialogs)
    {
        if (dialog != m_pDialog)
        {
            dialog->end();
        }
    }
    m_vDialogs = {m_pDialog};
    {
        const std::lock_guard<std::recursive_mutex> lock(m_hCall->m_mutex);
        m_hCall->m_vDialogs = {m_pDialog->getHandle()};
        m_hCall->m_hInvite = nullptr;
    }
    if (m_bCancelled)
    {
        m_cancelTimer.start(m_agent.thread(),
                            std::uint64_t{kCrossingGraceT1} * m_agent.config().m_uiT1Ms,
                            [this] { hangup(); });
    }
    reports().succeeded(m_hCall, m_pDialog->getHandle(), in_hResponse);
}

void OutgoingCallCore::onFurtherAnswer(const sip_t* in_pSip, const DsHandle<DsSipResponse>& in_hResponse)
{
    const auto self = shared_from_this();
    const std::string tag = in_pSip->sip_to->a_tag;
    if (m_furtherDialogs.size() >= kMostFurtherDialogs && m_furtherDialogs.count(tag) == 0)
    {
        return;
    }
    auto& dialog = m_furtherDialogs[tag];
    const bool copy = dialog != nullptr;
    if (!copy)
    {
        dialog = DialogCore::fromResponse(m_agent, *this, in_pSip, m_pLocalEnd);
    }
    if (!dialog)
    {
        return;
    }
    dialog->rememberInvite(in_pSip->sip_cseq->cs_seq, m_strBranch, m_challenges.getHeaders());
    if (copy)
    {
        dialog->sendAck(DsHandle<DsSipMessage>());
        return;
    }
    QLOG_INFO(s_logger,
              "call " << m_hCall->getCallID() << " was answered by a further far end (tag "
                      << dialog->getRemoteTag() << "): its dialog is ended");
    const auto handle = dialog->getHandle();
    dialog->confirm();
    dialog->hangup(DsHandle<DsSipRequest>());
    reports().multipleResponse(m_hCall, handle, in_hResponse);
}

void OutgoingCallCore::onFailure(int in_iStatus,
                                 const sip_t* in_pSip,
                                 const DsHandle<DsSipResponse>& in_hResponse)
{
    const auto invite = m_hCall->getInvite();
    if (!m_bCancelled &&
        m_challenges.answer(in_hResponse, "INVITE", invite->getRequestURI(), m_agent.credentials()))
    {
        // The same call once more, with credentials; what the first attempt made is forgotten.
        ++m_uiCSeq;
        m_lastRSeq.clear();
        forgetDialogs();
        send();
        return;
    }
    if (in_iStatus == 422 && !m_bCancelled && !m_bIntervalRaised && in_pSip->sip_min_se != nullptr &&
        m_uiSessionExpires != 0 && in_pSip->sip_min_se->min_delta <= kLongestSession)
    {
        // RFC 4028 section 7.4: once more, with an interval that the far end can take.
        m_bIntervalRaised = true;
        m_uiSessionExpires =
            std::max(m_uiSessionExpires, static_cast<unsigned int>(in_pSip->sip_min_se->min_delta));
        ++m_uiCSeq;
        forgetDialogs();
        send();
        return;
    }
    if (in_iStatus < 400)
    {
        reports().redirect(m_hCall, firstDialog(), in_hResponse);
    }
    else if (in_iStatus == 487)
    {
        reports().dialogTerminated(m_hCall, firstDialog(), in_hResponse);
    }
    else
    {
        reports().failedToConnect(m_hCall, firstDialog(), in_hResponse);
    }
    close();
}

void OutgoingCallCore::fail()
{
    if (m_state == State::eClosed)
    {
        return;
    }
    const auto self = shared_from_this();
    reports().failedToConnect(m_hCall, firstDialog(), DsHandle<DsSipResponse>());
    close();
}

void OutgoingCallCore::postHangup()
{
    if (const auto agent = m_pAgent.lock())
    {
        agent->post([self = std::static_pointer_cast<OutgoingCallCore>(shared_from_this())]
                    { self->hangup(); });
    }
}

void OutgoingCallCore::cancel()
{
    if (m_state == State::eResolving)
    {
        fail();
        return;
    }
    if (m_state != State::eCalling || m_bCancelled)
    {
        return;
    }
    const auto self = shared_from_this();
    m_bCancelled = true;
    m_timerC.stop();
    nta_outgoing_t* const orq = m_pInvite->get();
    // RFC 3261 9.1: after a CANCEL the final response may never come. Before any provisional response the
    // INVITE's own time-out comes first.
    m_cancelTimer.start(
        m_agent.thread(), m_agent.timeoutMs() + m_agent.config().m_uiT1Ms, [this] { fail(); });
    nta_outgoing_tcancel(orq, nullptr, nullptr, TAG_END());
}

void OutgoingCallCore::hangup()
{
    const auto self = shared_from_this();
    switch (m_state)
    {
        case State::eNew:
        case State::eResolving:
        case State::eCalling:
            cancel();
            break;
        case State::eConfirmed:
            m_cancelTimer.stop();
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

void OutgoingCallCore::report(const DsHandle<DsSipMessage>& in_hMessage)
{
    if (!m_bClosingReported)
    {
        m_bClosingReported = true;
        reports().dialogTerminated(m_hCall, firstDialog(), in_hMessage);
    }
}

void OutgoingCallCore::close()
{
    if (m_state == State::eClosed)
    {
        return;
    }
    const auto self = shared_from_this();
    report(DsHandle<DsSipMessage>());
    m_state = State::eClosed;
    m_timerC.stop();
    m_cancelTimer.stop();
    m_pInvite.reset();
    m_vPracks.clear();
    dropOffers();
    forgetDialogs();
    m_pDialog.reset();
    if (!m_strBranch.empty())
    {
        m_agent.removeAnsweredInvite(m_strBranch);
    }
    for (const auto& [tag, dialog] : m_furtherDialogs)
    {
        if (dialog)
        {
            dialog->end();
        }
    }
    m_furtherDialogs.clear();
    closeLeg();
    reports().terminated(m_hCall, DsHandle<DsSipMessage>());
    m_hCall->m_hInterface = nullptr;
    m_hCall = nullptr;
    m_pLogger.reset();
    m_agent.removeCall(*this);
}

void OutgoingCallCore::forgetDialogs()
{
    for (const auto& dialog : m_vDialogs)
    {
        dialog->end();
    }
    m_vDialogs.clear();
    const std::lock_guard<std::recursive_mutex> lock(m_hCall->m_mutex);
    m_hCall->m_vDialogs.clear();
}

void OutgoingCallCore::shutdown()
{
    hangup();
}

void OutgoingCallCore::abort()
{
    const auto self = shared_from_this();
    if (m_state == State::eCalling && !m_bCancelled)
    {
        nta_outgoing_tcancel(m_pInvite->get(), nullptr, nullptr, TAG_END());
    }
    close();
}

int OutgoingCallCore::onLegRequest(nta_leg_t*, nta_incoming_t*, const sip_t*)
{
    return 481;  // there is no dialog yet, or not the one that is named
}

}  // namespace Quorvex
