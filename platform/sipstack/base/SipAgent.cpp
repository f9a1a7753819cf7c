#include "sipstack/base/SipAgent.h"

#include <sofia-sip/sresolv.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <set>
#include <system_error>

#include "infra/Bell.h"
#include "infra/Logger.h"
#include "sipstack/DsException.h"
#include "sipstack/DsInetAddress.h"
#include "sipstack/DsSipAckMessage.h"
#include "sipstack/DsSipIncomingCall.h"
#include "sipstack/DsSipInviteMessage.h"
#include "sipstack/DsSipNewCallinterface.h"
#include "sipstack/DsSipResponse.h"
#include "sipstack/base/ClientTransactionCore.h"
#include "sipstack/base/DialogCore.h"
#include "sipstack/base/IncomingCallCore.h"
#include "sipstack/base/MessageClass.h"
#include "sipstack/base/OutgoingCallCore.h"
#include "sipstack/base/PendingInvite.h"
#include "sipstack/base/ServerLocator.h"
#include "sipstack/base/ServerTransactionCore.h"
#include "sipstack/base/SofiaLog.h"

namespace Quorvex
{

namespace
{

StaticLogger s_logger("quorvex.sip.Stack");

std::string portName(std::size_t in_iPort)
{
    return "p" + std::to_string(in_iPort);
}

std::string bracketed(const std::string& in_strAddress)
{
    return in_strAddress.find(':') == std::string::npos ? in_strAddress : "[" + in_strAddress + "]";
}

}  // namespace

SipAgent::SipAgent(DsSipStackConfig in_config, DsHandle<DsSipNewCallinterface> in_hNewCall)
    : m_config(std::move(in_config)),
      m_hNewCall(std::move(in_hNewCall)),
      m_bridge(*this),
      m_vCredentials(m_config.m_vCredentials)
{
}

SipAgent::~SipAgent() = default;

std::shared_ptr<SipAgent> SipAgent::lock(const std::weak_ptr<SipAgent>& in_pAgent)
{
    auto agent = in_pAgent.lock();
    if (!agent)
    {
        throw DsException("the SIP stack is not running");
    }
    return agent;
}

bool SipAgent::start(std::string& out_strError)
{
    return m_thread.start([&](su_root_t* in_pRoot) { return open(in_pRoot, out_strError); },
                          [this] { close(); });
}

bool SipAgent::open(su_root_t* in_pRoot, std::string& out_strError)
{
    redirectSofiaLog();
    unplugStunServer();
    if (m_config.m_vListenPorts.empty())
    {
        out_strError = "no port to listen on: at least one is needed";
        return false;
    }
    if (!m_config.m_strResolverSettings.empty() &&
        ::access(m_config.m_strResolverSettings.c_str(), R_OK) != 0)
    {
        out_strError = "cannot read the name servers from " + m_config.m_strResolverSettings + ": " +
                       std::generic_category().message(errno);
        return false;
    }
    for (std::size_t i = 0; i < m_config.m_vListenPorts.size(); ++i)
    {
        if (!addPort(in_pRoot, i, out_strError))
        {
            if (m_pNta != nullptr)
            {
                nta_agent_destroy(m_pNta);
                m_pNta = nullptr;
            }
            return false;
        }
    }
    m_pServerLocator = makeServerLocator(in_pRoot);
    m_pDefaultOutgoing = nta_outgoing_default(m_pNta, &OutgoingHandler::callback, this);
    m_pDefaultLeg = nta_leg_tcreate(m_pNta, &LegHandler::callback, this, NTATAG_NO_DIALOG(1), TAG_END());
    for (tport_t* port = tport_primaries(nta_agent_tports(m_pNta)); port != nullptr; port = tport_next(port))
    {
        const char* const name = tport_name(port)->tpn_ident;
        if (name != nullptr && name[0] == 'p')
        {
            const std::size_t i = std::strtoul(name + 1, nullptr, 10);
            if (i < m_config.m_vListenPorts.size())
            {
                m_config.m_vListenPorts[i].m_uiPort =
                    static_cast<std::uint16_t>(std::strtoul(tport_name(port)->tpn_port, nullptr, 10));
            }
        }
    }
    m_overload.open(m_config, m_pNta);
    setReceiver(m_pNta, &m_overload, &m_answeredInvites);
    return true;
}

bool SipAgent::addPort(su_root_t* in_pRoot, std::size_t in_iPort, std::string& out_strError)
{
    const DsSipListenPort& port = m_config.m_vListenPorts[in_iPort];
    const char* const transport = port.m_transport == DsSipTransport::eTCP ? "tcp" : "udp";
    const std::string number = port.m_uiPort == 0 ? "*" : std::to_string(port.m_uiPort);
    const std::string url = "sip:" + bracketed(port.m_strAddress) + ":" + number + ";transport=" + transport;
    const std::string name = portName(in_iPort);
    const unsigned int t1 = m_config.m_uiT1Ms;
    errno = 0;
    bool ok = false;
    if (m_pNta == nullptr)
    {
        m_pNta = nta_agent_create(in_pRoot,
                                  URL_STRING_MAKE(url.c_str()),
                                  nullptr,
                                  nullptr,
                                  TPTAG_IDENT(name.c_str()),
                                  NTATAG_UA(1),
                                  NTATAG_CANCEL_487(0),
                                  NTATAG_PROGRESS(UINT_MAX),
                                  NTATAG_MERGE_482(1),
                                  NTATAG_MAXSIZE(m_config.m_uiMaxMessageBytes),
                                  NTATAG_SIPFLAGS(MSG_DO_EXTRACT_COPY),
                                  NTATAG_MCLASS(messageClass()),
                                  // Other headers that cannot be read count as absent: a response
                                  // that is dropped for one leaves its transaction to time out.
                                  NTATAG_BAD_RESP_MASK(sip_mask_response),
                                  NTATAG_UDP_MTU(65535),
                                  NTATAG_CLIENT_RPORT(1),
                                  NTATAG_SERVER_RPORT(1),
                                  NTATAG_SIP_T1(t1),
                                  NTATAG_SIP_T2(8 * t1),
                                  NTATAG_SIP_T4(10 * t1),
                                  NTATAG_SIP_T1X64(64 * t1),
                                  NTATAG_TIMER_C(m_config.m_uiTimerCMs + 64 * t1),
                                  NTATAG_USE_NAPTR(1),
                                  NTATAG_USE_SRV(1),
                                  TAG_IF(!m_config.m_strResolverSettings.empty(),
                                         SRESTAG_RESOLV_CONF(m_config.m_strResolverSettings.c_str())),
                                  TPTAG_UDP_RMEM(4 * 1024 * 1024),
                                  TPTAG_IDLE(m_config.m_uiTcpIdleMs),
                                  TPTAG_TIMEOUT(m_config.m_uiTcpIdleMs),
                                  TAG_END());
        ok = m_pNta != nullptr;
    }
    else
    {
        ok = nta_agent_add_tport(m_pNta,
                                 URL_STRING_MAKE(url.c_str()),
                                 TPTAG_IDENT(name.c_str()),
                                 TPTAG_UDP_RMEM(4 * 1024 * 1024),
                                 TPTAG_IDLE(m_config.m_uiTcpIdleMs),
                                 TPTAG_TIMEOUT(m_config.m_uiTcpIdleMs),
                                 TAG_END()) >= 0;
    }
    if (!ok)
    {
        out_strError = std::string("cannot listen on ") + transport + ":" + bracketed(port.m_strAddress) +
                       ":" + std::to_string(port.m_uiPort) + ": " + std::generic_category().message(errno);
    }
    return ok;
}

void SipAgent::stop(unsigned int in_uiTimeoutMs)
{
    m_bDraining = true;
    struct Wait
    {
        std::mutex m_mutex;
        std::condition_variable m_condition;
        bool m_bDone = false;
    };
    const auto wait = std::make_shared<Wait>();
    const auto deadline = StackThread::Clock::now() + std::chrono::milliseconds(in_uiTimeoutMs);
    const auto finish = [wait]
    {
        const std::lock_guard<std::mutex> lock(wait->m_mutex);
        wait->m_bDone = true;
        wait->m_condition.notify_all();
    };
    const auto self = shared_from_this();
    if (m_thread.post(
            [this, self, finish]
            {
                m_vPending.clear();
                const auto calls = m_calls;
                for (const auto& [key, call] : calls)
                {
                    call->shutdown();
                }
                m_onEmpty = finish;
                checkEmpty();
            }))
    {
        Bell::Batch::ring();
        std::unique_lock<std::mutex> lock(wait->m_mutex);
        wait->m_condition.wait_until(lock, deadline, [&] { return wait->m_bDone; });
    }
    m_thread.join();
}

void SipAgent::addCredential(const DsSipCredential& in_credential)
{
    constexpr std::size_t kMost = 1024;
    const auto known = std::find_if(m_vCredentials.begin(),
                                    m_vCredentials.end(),
                                    [&](const DsSipCredential& in_other)
                                    { return in_other.m_strRealm == in_credential.m_strRealm; });
    if (known == m_vCredentials.end() && m_vCredentials.size() < kMost)
    {
        m_vCredentials.push_back(in_credential);
    }
    else if (known - m_vCredentials.begin() >= static_cast<std::ptrdiff_t>(m_config.m_vCredentials.size()) &&
             known != m_vCredentials.end())
    {
        *known = in_credential;
    }
}

void SipAgent::refuseUnanswered()
{
    post(
        [this]
        {
            const auto calls = m_calls;
            for (const auto& [key, call] : calls)
            {
                call->refuseUnanswered();
            }
        });
}

void SipAgent::checkEmpty()
{
    if (m_onEmpty && m_calls.empty() && m_serverTransactions.empty() && m_clientTransactions.empty())
    {
        const auto onEmpty = std::move(m_onEmpty);
        m_onEmpty = nullptr;
        onEmpty();
    }
}

void SipAgent::close()
{
    m_onEmpty = nullptr;
    m_vPending.clear();
    const auto calls = m_calls;
    for (const auto& [key, call] : calls)
    {
        call->abort();
    }
    const auto transactions = m_serverTransactions;
    for (const auto& [key, transaction] : transactions)
    {
        transaction->close();
    }
    const auto requests = m_clientTransactions;
    for (const auto& [key, request] : requests)
    {
        request->close();
    }
    m_pServerLocator.reset();
    m_hNewCall = nullptr;
    if (m_pDefaultLeg != nullptr)
    {
        nta_leg_destroy(m_pDefaultLeg);
        m_pDefaultLeg = nullptr;
    }
    if (m_pDefaultOutgoing != nullptr)
    {
        nta_outgoing_destroy(m_pDefaultOutgoing);
        m_pDefaultOutgoing = nullptr;
    }
    setReceiver(nullptr, nullptr, nullptr);
    nta_agent_destroy(m_pNta);
    m_pNta = nullptr;
}

std::string SipAgent::portOf(nta_incoming_t* in_pIrq) const
{
    std::string name;
    msg_t* const msg = nta_incoming_getrequest(in_pIrq);
    if (tport_t* const transport = nta_incoming_transport(m_pNta, in_pIrq, msg))
    {
        const tport_t* const port = tport_parent(transport);
        if (port != nullptr && tport_name(port)->tpn_ident != nullptr)
        {
            name = tport_name(port)->tpn_ident;
        }
        tport_unref(transport);
    }
    msg_destroy(msg);
    return name;
}

void SipAgent::boundAddress(const char* in_szPort, DsInetAddress& out_address) const
{
    if (in_szPort == nullptr || in_szPort[0] != 'p')
    {
        return;
    }
    const std::size_t i = std::strtoul(in_szPort + 1, nullptr, 10);
    if (i < m_config.m_vListenPorts.size())
    {
        const DsSipListenPort& port = m_config.m_vListenPorts[i];
        DsInetAddress::parseLiteral(port.m_strAddress, port.m_uiPort, out_address);
    }
}

const char* SipAgent::keptPhrase(unsigned int in_uiStatusCode, const std::string& in_strPhrase)
{
    const char* const usual = DsSipResponse::getDefaultReason(in_uiStatusCode);
    if (in_strPhrase == usual)
    {
        return usual;
    }
    constexpr std::size_t kMost = 1024;
    static std::mutex s_mutex;  // two stacks may run
    static std::set<std::string> s_phrases;
    const std::lock_guard<std::mutex> lock(s_mutex);
    if (const auto known = s_phrases.find(in_strPhrase); known != s_phrases.end())
    {
        return known->c_str();
    }
    return s_phrases.size() < kMost ? s_phrases.insert(in_strPhrase).first->c_str() : usual;
}

std::string SipAgent::contactFor(const std::string& in_strPort, const DsInetAddress& in_local) const
{
    DsInetAddress address;
    boundAddress(in_strPort.c_str(), address);
    if (!address.isValid())
    {
        return std::string();
    }
    const std::string host = bracketed(address.isAny() && in_local.isValid() ? in_local.getHostAddress()
                                                                             : address.getHostAddress());
    const std::size_t i = std::strtoul(in_strPort.c_str() + 1, nullptr, 10);
    const bool tcp = m_config.m_vListenPorts[i].m_transport == DsSipTransport::eTCP;
    return "<sip:" + (m_config.m_strContactUser.empty() ? "" : m_config.m_strContactUser + "@") + host + ":" +
           std::to_string(address.getPort()) + (tcp ? ";transport=tcp>" : ">");
}

bool SipAgent::checkRequire(nta_incoming_t* in_pIrq, const sip_t* in_pSip) const
{
    if (in_pSip->sip_require == nullptr)
    {
        return true;
    }
    su_home_t home[1] = {SU_HOME_INIT(home)};
    const sip_supported_t* const supported = sip_supported_make(home, "100rel, replaces, timer");
    const int status = nta_check_required(in_pIrq, in_pSip, supported, TAG_END());
    su_home_deinit(home);
    return status == 0;
}

DsHandle<DsSipIncomingCall> SipAgent::newCall(const DsHandle<DsSipInviteMessage>& in_hInvite)
{
    return m_hNewCall.isNil() ? DsHandle<DsSipIncomingCall>() : m_hNewCall->newCall(in_hInvite);
}

void SipAgent::addCall(const std::shared_ptr<CallCore>& in_pCall)
{
    m_calls.emplace(in_pCall.get(), in_pCall);
    ++m_ulCalls;
}

void SipAgent::removeCall(const CallCore& in_call)
{
    if (m_calls.erase(&in_call) != 0)
    {
        --m_ulCalls;
        checkEmpty();
    }
}

std::shared_ptr<const LocalEnd> SipAgent::localEnd(const std::string& in_strPort,
                                                   const std::string& in_strContact)
{
    for (const auto& pEnd : m_vLocalEnds)
    {
        if (pEnd->m_strPort == in_strPort && pEnd->m_strContact == in_strContact)
        {
            return pEnd;
        }
    }
    constexpr std::size_t kMostShared = 32;
    auto pEnd = std::make_shared<const LocalEnd>(LocalEnd{in_strPort, in_strContact});
    if (m_vLocalEnds.size() < kMostShared)
    {
        m_vLocalEnds.push_back(pEnd);
    }
    return pEnd;
}

void SipAgent::addAnsweredInvite(const std::string& in_strBranch, AnsweredInvite in_invite)
{
    m_answeredInvites[in_strBranch] = std::move(in_invite);
}

// A response to no request, or to one whose transaction is over.
void SipAgent::onOutgoing(nta_outgoing_t* in_pOrq, const sip_t* in_pSip)
{
    const char* const branch =
        in_pSip != nullptr && in_pSip->sip_via != nullptr ? in_pSip->sip_via->v_branch : nullptr;
    const auto known = branch != nullptr ? m_answeredInvites.find(branch) : m_answeredInvites.end();
    // A copy of the first 2xx comes here too before its ACK is on its way.
    if (in_pSip != nullptr && known != m_answeredInvites.end() && in_pSip->sip_status->st_status / 100 == 2 &&
        in_pSip->sip_to->a_tag != nullptr &&
        su_casematch(known->second.m_strTag.c_str(), in_pSip->sip_to->a_tag) == 0)
    {
        known->second.m_pCall->onFurtherAnswer(in_pSip,
                                               m_bridge.fromResponse(in_pOrq).dynamicCast<DsSipResponse>());
    }
}

void SipAgent::addServerTransaction(const std::shared_ptr<ServerTransactionCore>& in_pTransaction)
{
    m_serverTransactions.emplace(in_pTransaction.get(), in_pTransaction);
    ++m_ulServerTransactions;
}

void SipAgent::removeServerTransaction(const ServerTransactionCore& in_transaction)
{
    if (m_serverTransactions.erase(&in_transaction) != 0)
    {
        --m_ulServerTransactions;
        checkEmpty();
    }
}

void SipAgent::addClientTransaction(const std::shared_ptr<ClientTransactionCore>& in_pTransaction)
{
    m_clientTransactions.emplace(in_pTransaction.get(), in_pTransaction);
    ++m_ulClientTransactions;
}

void SipAgent::removeClientTransaction(const ClientTransactionCore& in_transaction)
{
    if (m_clientTransactions.erase(&in_transaction) != 0)
    {
        --m_ulClientTransactions;
        checkEmpty();
    }
}

DsSipStackStatistics SipAgent::statistics()
{
    // The base library counts on its own thread; who asks gets what it had counted when somebody asked
    // before.
    post(
        [self = shared_from_this()]
        {
            usize_t malformed = 0;
            nta_agent_get_stats(self->m_pNta, NTATAG_S_BAD_MESSAGE_REF(malformed), TAG_END());
            self->m_ulMalformed = malformed - self->m_overload.getForgotten();
        });
    DsSipStackStatistics statistics;
    statistics.m_ulInvitesReceived = m_ulInvitesReceived + m_overload.getRefused();
    statistics.m_ulInvitesSent = m_ulInvitesSent;
    statistics.m_ulOverloadRefused = m_ulOverloadRefused + m_overload.getRefused();
    statistics.m_ulNoDialog481 = m_ulNoDialog;
    statistics.m_ulRefused = m_ulRefused;
    statistics.m_ulMalformed = m_ulMalformed;
    statistics.m_ulUnreadableHeaders = m_bridge.getUnreadableHeaders();
    statistics.m_ulCalls = m_ulCalls;
    statistics.m_ulDialogs = m_ulDialogs;
    statistics.m_ulServerTransactions = m_ulServerTransactions;
    statistics.m_ulClientTransactions = m_ulClientTransactions;
    return statistics;
}

}  // namespace Quorvex
