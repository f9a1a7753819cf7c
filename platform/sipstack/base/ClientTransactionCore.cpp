#include "sipstack/base/ClientTransactionCore.h"

#include "infra/Logger.h"
#include "sipstack/DsException.h"
#include "sipstack/DsSipRequest.h"
#include "sipstack/DsSipResponse.h"
#include "sipstack/base/MessageBridge.h"
#include "sipstack/base/PortIdent.h"
#include "sipstack/base/SipAgent.h"

namespace Quorvex
{

namespace
{

StaticLogger s_logger("quorvex.sip.ClientTransaction");

}  // namespace

ClientTransactionCore::ClientTransactionCore(SipAgent& in_agent,
                                             DsHandle<DsSipRequest> in_hRequest,
                                             DsSipClientTransaction::Callback in_callback)
    : m_agent(in_agent),
      m_pAgent(in_agent.weak_from_this()),
      m_hRequest(std::move(in_hRequest)),
      m_callback(std::move(in_callback))
{
}

ClientTransactionCore::~ClientTransactionCore() = default;

void ClientTransactionCore::begin()
{
    m_agent.addClientTransaction(shared_from_this());
    if (const auto cseq = m_hRequest->getHeaderValue("CSeq"); !cseq.empty())
    {
        m_uiCSeq = static_cast<std::uint32_t>(std::strtoul(cseq.c_str(), nullptr, 10));
    }
    m_strCallId = m_hRequest->getCallID().empty() ? SipAgent::newTag() : std::string(m_hRequest->getCallID());
    m_strFrom = m_hRequest->getHeaderValue("From");
    if (m_hRequest->getFromTag().empty())
    {
        m_strFrom += ";tag=" + SipAgent::newTag();
    }
    const std::weak_ptr<ClientTransactionCore> weak = shared_from_this();
    m_agent.resolveDestination(m_hRequest,
                               [weak, agent = m_pAgent](const std::vector<std::string>& in_vRoutes)
                               {
                                   if (const auto locked = agent.lock())
                                   {
                                       locked->post(
                                           [weak, in_vRoutes]
                                           {
                                               if (const auto core = weak.lock())
                                               {
                                                   core->m_vRoutes = in_vRoutes;
                                                   core->send();
                                               }
                                           });
                                   }
                               });
}

void ClientTransactionCore::send()
{
    if (m_bDone)
    {
        return;
    }
    bool made = false;
    if (!m_vRoutes.empty())
    {
        const std::string& route = m_vRoutes.front();
        m_pRequest = std::make_unique<ClientRequest>([this](const sip_t* in_pSip) { onResponse(in_pSip); });
        su_home_t home[1] = {SU_HOME_INIT(home)};
        const OutgoingParts parts(home, m_hRequest, std::string(), OutgoingParts::Routes::eKeep);
        const std::string method = m_hRequest->getMethod();
        const std::string uri = m_hRequest->getRequestURI();
        const std::string to = m_hRequest->getHeaderValue("To");
        const std::string cseq = std::to_string(m_uiCSeq) + " " + method;
        const std::string port = m_agent.portFor(m_hRequest, route);
        made = m_pRequest->take(nta_outgoing_tcreate(
            m_agent.defaultLeg(),
            &OutgoingHandler::callback,
            m_pRequest.get(),
            URL_STRING_MAKE(route.c_str()),
            sip_method_code(method.c_str()),
            method.c_str(),
            URL_STRING_MAKE(uri.c_str()),
            SIPTAG_FROM_STR(m_strFrom.c_str()),
            SIPTAG_TO_STR(to.c_str()),
            SIPTAG_CALL_ID_STR(m_strCallId.c_str()),
            SIPTAG_CSEQ_STR(cseq.c_str()),
            TAG_IF(!m_challenges.getHeaders().empty(), SIPTAG_HEADER_STR(m_challenges.getHeaders().c_str())),
            TAG_IF(parts.hasHeaders(), SIPTAG_HEADER_STR(parts.headers())),
            TAG_IF(parts.hasBody(), SIPTAG_PAYLOAD(parts.body())),
            TPTAG_IDENT(portIdent(port)),
            TAG_END()));
        su_home_deinit(home);
    }
    if (!made)
    {
        QLOG_INFO(s_logger,
                  "cannot send " << m_hRequest->getMethod() << " to " << m_hRequest->getRequestURI());
        finish(DsHandle<DsSipResponse>());
    }
}

void ClientTransactionCore::onResponse(const sip_t* in_pSip)
{
    const auto self = shared_from_this();
    if (m_agent.nextRoute(m_vRoutes, in_pSip))
    {
        ++m_uiCSeq;
        send();
        return;
    }
    if (ClientRequest::isInternal(in_pSip))
    {
        finish(DsHandle<DsSipResponse>());
        return;
    }
    if (in_pSip->sip_status->st_status < 200)
    {
        return;
    }
    const auto response = m_agent.bridge().fromResponse(m_pRequest->get()).dynamicCast<DsSipResponse>();
    if (m_challenges.answer(
            response, m_hRequest->getMethod(), m_hRequest->getRequestURI(), m_agent.credentials()))
    {
        ++m_uiCSeq;
        send();
        return;
    }
    finish(response);
}

void ClientTransactionCore::finish(const DsHandle<DsSipResponse>& in_hResponse)
{
    if (m_bDone)
    {
        return;
    }
    const auto self = shared_from_this();
    m_bDone = true;
    m_pRequest.reset();
    m_agent.removeClientTransaction(*this);
    const std::lock_guard<std::recursive_mutex> lock(m_mutex);
    if (const auto callback = std::move(m_callback))
    {
        m_callback = nullptr;
        callback(in_hResponse);
    }
}

void ClientTransactionCore::forget()
{
    {
        const std::lock_guard<std::recursive_mutex> lock(m_mutex);
        m_callback = nullptr;
    }
    if (const auto agent = m_pAgent.lock())
    {
        agent->post([self = shared_from_this()] { self->close(); });
    }
}

}  // namespace Quorvex
