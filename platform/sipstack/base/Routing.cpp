// Where requests of ours go, and from which port.

#include <algorithm>
#include <array>
#include <optional>
#include <random>

#include "infra/Logger.h"
#include "net/HostResolver.h"
#include "net/Net.h"
#include "sipstack/DsInetAddress.h"
#include "sipstack/DsSipRequest.h"
#include "sipstack/base/ServerLocator.h"
#include "sipstack/base/SipAgent.h"

namespace Quorvex
{

namespace
{

StaticLogger s_logger("quorvex.sip.Routing");

// A SIP URI taken apart, as far as sending is concerned.
struct Target
{
    explicit Target(const std::string& in_strUri)
    {
        su_home_t home[1] = {SU_HOME_INIT(home)};
        const url_t* const url = url_hdup(home, URL_STRING_MAKE(in_strUri.c_str())->us_url);
        if (url != nullptr && (url->url_type == url_sip || url->url_type == url_sips) &&
            url->url_host != nullptr)
        {
            m_strHost = url->url_host;
            m_strPort = url->url_port != nullptr ? url->url_port : "";
            std::array<char, 256> value{};
            if (url_param(url->url_params, "maddr", value.data(), value.size()) > 0)
            {
                m_strHost = value.data();
            }
            value = {};
            if (url_param(url->url_params, "transport", value.data(), value.size()) > 0)
            {
                m_transport =
                    su_casematch(value.data(), "tcp") != 0 ? DsSipTransport::eTCP : DsSipTransport::eUDP;
            }
            if (m_strHost.size() > 2 && m_strHost.front() == '[' && m_strHost.back() == ']')
            {
                m_strHost = m_strHost.substr(1, m_strHost.size() - 2);
            }
        }
        su_home_deinit(home);
    }

    DsSipTransport transport() const { return m_transport.value_or(DsSipTransport::eUDP); }

    std::string route(const std::string& in_strAddress) const
    {
        return ServerLocator::route(in_strAddress,
                                    static_cast<std::uint16_t>(std::strtoul(m_strPort.c_str(), nullptr, 10)),
                                    transport());
    }

    std::string m_strHost;
    std::string m_strPort;
    std::optional<DsSipTransport> m_transport;  // when it is named
};

// Calls back from inside the call when nothing has to be looked up, else on a thread of the resolver.
void resolveHost(const Target& in_target, unsigned int in_uiTimeoutMs, SipAgent::RoutesCallback in_callback)
{
    Net::HostResolver::instance().prefetch(
        in_target.m_strHost,
        std::chrono::milliseconds(in_uiTimeoutMs),
        [in_target, callback = std::move(in_callback)](const std::string& in_strAddress)
        {
            callback(in_strAddress.empty() ? ServerLocator::Routes()
                                           : ServerLocator::Routes{in_target.route(in_strAddress)});
        });
}

}  // namespace

std::unique_ptr<ServerLocator> SipAgent::makeServerLocator(su_root_t* in_pRoot)
{
    ServerLocator::Options options;
    options.m_strSettings = m_config.m_strResolverSettings;
    options.m_ulTimeoutMs = m_config.m_uiNameTimeoutMs;
    options.m_bIPv4 = false;
    for (const DsSipListenPort& port : m_config.m_vListenPorts)
    {
        (port.m_strAddress.find(':') != std::string::npos ? options.m_bIPv6 : options.m_bIPv4) = true;
    }
    for (const DsSipTransport transport : {DsSipTransport::eUDP, DsSipTransport::eTCP})
    {
        if (std::any_of(m_config.m_vListenPorts.begin(),
                        m_config.m_vListenPorts.end(),
                        [&](const DsSipListenPort& in_port) { return in_port.m_transport == transport; }))
        {
            options.m_vTransports.push_back(transport);
        }
    }
    return std::make_unique<ServerLocator>(in_pRoot, m_thread, std::move(options));
}

void SipAgent::resolveDestination(const DsHandle<DsSipRequest>& in_hRequest, RoutesCallback in_callback)
{
    const std::string uri = in_hRequest->getRequestURI();
    if (in_hRequest->getConnectionAddress().isValid())
    {
        Target target(uri);
        const DsInetAddress& address = in_hRequest->getConnectionAddress();
        target.m_strPort = address.getPort() == 0 ? target.m_strPort : std::to_string(address.getPort());
        in_callback({target.route(address.getHostAddress())});
        return;
    }
    const Target target(m_config.m_strOutboundProxy.empty() ? uri : m_config.m_strOutboundProxy);
    if (target.m_strHost.empty())
    {
        in_callback({});
        return;
    }
    // A domain without a port may have its SIP servers elsewhere; a name without a dot is a host's.
    if (!target.m_strPort.empty() || m_pServerLocator == nullptr ||
        target.m_strHost.find('.') == std::string::npos || Net::HostResolver::isAddress(target.m_strHost))
    {
        resolveHost(target, m_config.m_uiNameTimeoutMs, std::move(in_callback));
        return;
    }
    m_pServerLocator->locate(
        target.m_strHost,
        target.m_transport,
        [this, target, callback = std::move(in_callback)](const ServerLocator::Routes& in_vRoutes) mutable
        {
            if (!in_vRoutes.empty())
            {
                callback(in_vRoutes);
                return;
            }
            resolveHost(target, m_config.m_uiNameTimeoutMs, std::move(callback));
        });
}

bool SipAgent::nextRoute(std::vector<std::string>& io_vRoutes, const sip_t* in_pSip)
{
    const bool silent = in_pSip == nullptr || nta_sip_is_internal(in_pSip) != 0;
    if (io_vRoutes.size() < 2 || (!silent && in_pSip->sip_status->st_status != 503))
    {
        return false;
    }
    constexpr std::uint64_t kLongestMs = 300000;
    const std::uint64_t retryAfterMs =
        silent || in_pSip->sip_retry_after == nullptr
            ? timeoutMs()
            : std::uint64_t{1000} * static_cast<std::uint64_t>(in_pSip->sip_retry_after->af_delta);
    QLOG_INFO(s_logger,
              io_vRoutes.front() << (silent ? " cannot be reached" : " refuses service") << ": "
                                 << io_vRoutes[1] << " is tried");
    if (m_pServerLocator != nullptr)
    {
        m_pServerLocator->avoid(io_vRoutes.front(), std::min(retryAfterMs, kLongestMs));
    }
    io_vRoutes.erase(io_vRoutes.begin());
    return true;
}

std::string SipAgent::portFor(const DsHandle<DsSipRequest>& in_hRequest, const std::string& in_strRoute) const
{
    const Target route(in_strRoute);
    const auto transport = route.transport();
    const bool v6 = route.m_strHost.find(':') != std::string::npos;
    std::string contactPort;
    std::string contactHost;
    if (std::string text = in_hRequest->getHeaderValue("Contact"); !text.empty())
    {
        const std::size_t begin = text.find('<');
        const std::size_t end = text.find('>');
        text = begin != std::string::npos && end != std::string::npos
                   ? text.substr(begin + 1, end - begin - 1)
                   : text;
        const Target target(text);
        contactHost = target.m_strHost;
        contactPort = target.m_strPort.empty() ? "5060" : target.m_strPort;
    }
    std::string best;
    int bestScore = 0;
    for (std::size_t i = 0; i < m_config.m_vListenPorts.size(); ++i)
    {
        const DsSipListenPort& port = m_config.m_vListenPorts[i];
        if (port.m_transport != transport || (port.m_strAddress.find(':') != std::string::npos) != v6)
        {
            continue;
        }
        const bool samePort = std::to_string(port.m_uiPort) == contactPort;
        const int score = 1 + (samePort ? 1 : 0) + (samePort && port.m_strAddress == contactHost ? 1 : 0);
        if (score > bestScore)
        {
            best = "p" + std::to_string(i);
            bestScore = score;
        }
    }
    return best;
}

std::string SipAgent::contactFor(const std::string& in_strPort, const std::string& in_strRoute) const
{
    DsInetAddress address;
    boundAddress(in_strPort.c_str(), address);
    DsInetAddress local;
    Net::Interface interface;
    if (address.isAny() && Net::Interface::getForDestination(Target(in_strRoute).m_strHost, interface))
    {
        DsInetAddress::parseLiteral(interface.getIPAdress(), 0, local);
    }
    return contactFor(in_strPort, local);
}

std::vector<std::string> SipAgent::unknownHosts(const std::vector<const url_t*>& in_vUrls)
{
    std::vector<std::string> hosts;
    for (const url_t* const url : in_vUrls)
    {
        if (url != nullptr && url->url_host != nullptr &&
            (url->url_type == url_sip || url->url_type == url_sips))
        {
            std::string host = url->url_host;
            if (!Net::HostResolver::isAddress(host) &&
                std::find(hosts.begin(), hosts.end(), host) == hosts.end())
            {
                hosts.push_back(std::move(host));
            }
        }
    }
    return hosts;
}

void SipAgent::prefetchHosts(const std::vector<std::string>& in_vHosts, std::function<void()> in_function)
{
    const auto left = std::make_shared<std::atomic<std::size_t>>(in_vHosts.size());
    const auto shared = std::make_shared<std::function<void()>>(std::move(in_function));
    for (const auto& host : in_vHosts)
    {
        Net::HostResolver::instance().prefetch(host,
                                               std::chrono::milliseconds(m_config.m_uiNameTimeoutMs),
                                               [left, shared, weak = weak_from_this()](const std::string&)
                                               {
                                                   if (--*left != 0)
                                                   {
                                                       return;
                                                   }
                                                   if (const auto agent = weak.lock())
                                                   {
                                                       agent->post([shared] { (*shared)(); });
                                                   }
                                               });
    }
}

std::string SipAgent::newTag()
{
    static thread_local std::mt19937_64 s_random{std::random_device{}()};
    constexpr const char* kDigits = "0123456789abcdefghijklmnopqrstuv";
    std::string tag;
    for (int i = 0; i < 2; ++i)
    {
        std::uint64_t bits = s_random();
        for (int digit = 0; digit < 12; ++digit, bits >>= 5U)
        {
            tag += kDigits[bits & 31U];
        }
    }
    return tag;
}

}  // namespace Quorvex
