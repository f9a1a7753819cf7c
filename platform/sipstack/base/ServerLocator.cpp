#include "sipstack/base/ServerLocator.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#define SRES_CONTEXT_T void
#include <sofia-resolv/sres.h>
#include <sofia-resolv/sres_record.h>
#include <sofia-sip/sresolv.h>

#include <algorithm>
#include <array>
#include <numeric>
#include <random>
#include <tuple>

#include "net/HostResolver.h"
#include "sipstack/base/Sofia.h"

namespace Quorvex
{

namespace
{

constexpr std::size_t kMostServers = 16;  // of one domain; what a hostile one names beyond is not looked at
constexpr std::size_t kMostNames = 1024;
constexpr std::uint64_t kSilenceMs = 10000;

struct Naptr
{
    unsigned int m_uiOrder = 0;
    unsigned int m_uiPreference = 0;
    DsSipTransport m_transport{};
    std::string m_strReplacement;
};

struct Srv
{
    unsigned int m_uiPriority = 0;
    unsigned int m_uiWeight = 0;
    std::string m_strTarget;
    std::uint16_t m_uiPort = 0;
};

std::string plainName(const char* in_szName)
{
    std::string name = in_szName != nullptr ? in_szName : "";
    if (!name.empty() && name.back() == '.')
    {
        name.pop_back();
    }
    std::transform(name.begin(),
                   name.end(),
                   name.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return name;
}

std::string srvName(const std::string& in_strDomain, DsSipTransport in_transport)
{
    return (in_transport == DsSipTransport::eTCP ? "_sip._tcp." : "_sip._udp.") + in_strDomain;
}

// RFC 2782: by priority, and among equals by chance in proportion to their weights.
void putInOrder(std::vector<Srv>& io_vRecords)
{
    static thread_local std::minstd_rand s_random{std::random_device{}()};
    std::sort(io_vRecords.begin(),
              io_vRecords.end(),
              [](const Srv& in_a, const Srv& in_b) {
                  return std::tie(in_a.m_uiPriority, in_a.m_uiWeight) <
                         std::tie(in_b.m_uiPriority, in_b.m_uiWeight);
              });
    for (auto first = io_vRecords.begin(); first != io_vRecords.end(); ++first)
    {
        const auto end =
            std::find_if(first,
                         io_vRecords.end(),
                         [&](const Srv& in_record) { return in_record.m_uiPriority != first->m_uiPriority; });
        const unsigned int sum = std::accumulate(first,
                                                 end,
                                                 0U,
                                                 [](unsigned int in_uiSum, const Srv& in_record)
                                                 { return in_uiSum + in_record.m_uiWeight; });
        unsigned int at = std::uniform_int_distribution<unsigned int>(0, sum)(s_random);
        auto chosen = first;
        while (at > chosen->m_uiWeight && chosen + 1 != end)
        {
            at -= chosen->m_uiWeight;
            ++chosen;
        }
        std::rotate(first, chosen, chosen + 1);
    }
}

}  // namespace

/// The look-up of one domain for one caller.
class ServerLocator::Search : public std::enable_shared_from_this<Search>
{
public:
    Search(ServerLocator& in_locator,
           std::string in_strDomain,
           std::optional<DsSipTransport> in_transport,
           Callback in_callback)
        : m_callback(std::move(in_callback)),
          m_strDomain(std::move(in_strDomain)),
          m_locator(in_locator),
          m_transport(in_transport)
    {
    }
    Search(const Search&) = delete;
    Search& operator=(const Search&) = delete;
    ~Search()
    {
        for (const Query& query : m_vQueries)
        {
            sres_query_bind(query.m_pQuery, nullptr, nullptr);
        }
    }

    void start()
    {
        const auto self = shared_from_this();
        // The base library's own patience is a minute long.
        m_timer.start(m_locator.m_thread, m_locator.m_options.m_ulTimeoutMs, [this] { runOut(); });
        // All at once: one round trip for whichever of them the domain has.
        if (!m_transport)
        {
            ask(sres_type_naptr, m_strDomain);
        }
        for (const DsSipTransport transport : transports())
        {
            ask(sres_type_srv, srvName(m_strDomain, transport));
        }
        proceed();
    }

    Callback m_callback;
    const std::string m_strDomain;

private:
    struct Query
    {
        Search* m_pSearch;
        std::uint16_t m_uiType;
        std::string m_strName;
        sres_query_t* m_pQuery;
    };
    enum class Stage
    {
        eServices,  // the domain's NAPTR and usual SRV records
        eServers,   // SRV records of names that NAPTR records gave
        eAddresses
    };

    std::vector<DsSipTransport> transports() const
    {
        return m_transport ? std::vector<DsSipTransport>{*m_transport} : m_locator.m_options.m_vTransports;
    }

    void ask(std::uint16_t in_uiType, const std::string& in_strName)
    {
        sres_resolver_t* const resolver = m_locator.m_pResolver;
        if (sres_record_t** const known = sres_cached_answers(resolver, in_uiType, in_strName.c_str()))
        {
            take(in_uiType, in_strName, known);
            sres_free_answers(resolver, known);
            return;
        }
        Query& query = m_vQueries.emplace_back(Query{this, in_uiType, in_strName, nullptr});
        query.m_pQuery = sres_query(resolver, onAnswer, &query, in_uiType, in_strName.c_str());
        if (query.m_pQuery == nullptr)
        {
            m_vQueries.pop_back();
        }
    }

    static void onAnswer(sres_context_t* in_pQuery, sres_query_t*, sres_record_t** in_pAnswers)
    {
        auto* const query = static_cast<Query*>(in_pQuery);
        const auto self = query->m_pSearch->shared_from_this();
        self->take(query->m_uiType, query->m_strName, in_pAnswers);
        sres_free_answers(self->m_locator.m_pResolver, in_pAnswers);
        self->m_vQueries.remove_if([&](const Query& in_query) { return &in_query == query; });
        self->proceed();
    }

    void take(std::uint16_t in_uiType, const std::string& in_strName, sres_record_t** in_pAnswers)
    {
        for (sres_record_t** answer = in_pAnswers; answer != nullptr && *answer != nullptr; ++answer)
        {
            const sres_record_t& record = **answer;
            if (record.sr_record->r_status != 0 || record.sr_record->r_type != in_uiType)
            {
                continue;
            }
            switch (in_uiType)
            {
                case sres_type_naptr:
                    takeNaptr(*record.sr_naptr);
                    break;
                case sres_type_srv:
                    if (std::string target = plainName(record.sr_srv->srv_target); !target.empty())
                    {
                        m_servers[in_strName].push_back({record.sr_srv->srv_priority,
                                                         record.sr_srv->srv_weight,
                                                         std::move(target),
                                                         record.sr_srv->srv_port});
                    }
                    break;
                case sres_type_a:
                    takeAddress(in_strName, AF_INET, &record.sr_a->a_addr);
                    break;
                case sres_type_aaaa:
                    takeAddress(in_strName, AF_INET6, &record.sr_aaaa->aaaa_addr);
                    break;
                default:
                    break;
            }
        }
    }

    void takeNaptr(const sres_naptr_record_t& in_record)
    {
        const std::string service = plainName(in_record.na_services);
        const bool tcp = service == "sip+d2t";
        const DsSipTransport transport = tcp ? DsSipTransport::eTCP : DsSipTransport::eUDP;
        const auto& ours = m_locator.m_options.m_vTransports;
        std::string replacement = plainName(in_record.na_replace);
        if ((tcp || service == "sip+d2u") && plainName(in_record.na_flags) == "s" && !replacement.empty() &&
            std::find(ours.begin(), ours.end(), transport) != ours.end())
        {
            m_vServices.push_back(
                {in_record.na_order, in_record.na_prefer, transport, std::move(replacement)});
        }
    }

    void takeAddress(const std::string& in_strHost, int in_iFamily, const void* in_pAddress)
    {
        std::array<char, INET6_ADDRSTRLEN> text{};
        if (::inet_ntop(in_iFamily, in_pAddress, text.data(), text.size()) != nullptr)
        {
            m_addresses[in_strHost].emplace_back(text.data());
        }
    }

    void proceed()
    {
        if (m_vQueries.empty() && m_stage == Stage::eServices)
        {
            m_stage = Stage::eServers;
            chooseServices();
            for (const Naptr& service : m_vServices)
            {
                if (m_servers.count(service.m_strReplacement) == 0)
                {
                    ask(sres_type_srv, service.m_strReplacement);
                }
            }
        }
        if (m_vQueries.empty() && m_stage == Stage::eServers)
        {
            m_stage = Stage::eAddresses;
            askForAddresses();
        }
        if (m_vQueries.empty() && m_stage == Stage::eAddresses)
        {
            m_locator.finish(*this, routes());
        }
    }

    // Without NAPTR records that suit us: what is usual, in our own order.
    void chooseServices()
    {
        std::sort(m_vServices.begin(),
                  m_vServices.end(),
                  [](const Naptr& in_a, const Naptr& in_b) {
                      return std::tie(in_a.m_uiOrder, in_a.m_uiPreference) <
                             std::tie(in_b.m_uiOrder, in_b.m_uiPreference);
                  });
        m_vServices.resize(std::min(m_vServices.size(), kMostServers));
        if (m_vServices.empty())
        {
            for (const DsSipTransport transport : transports())
            {
                m_vServices.push_back({0, 0, transport, srvName(m_strDomain, transport)});
            }
        }
    }

    void askForAddresses()
    {
        std::map<std::string, int> asked;
        for (const Naptr& service : m_vServices)
        {
            for (const Srv& server : m_servers[service.m_strReplacement])
            {
                if (Net::HostResolver::isAddress(server.m_strTarget) || asked.size() == kMostServers ||
                    !asked.emplace(server.m_strTarget, 0).second)
                {
                    continue;
                }
                if (m_locator.m_options.m_bIPv4)
                {
                    ask(sres_type_a, server.m_strTarget);
                }
                if (m_locator.m_options.m_bIPv6)
                {
                    ask(sres_type_aaaa, server.m_strTarget);
                }
            }
        }
    }

    Routes routes()
    {
        Routes routes;
        for (const Naptr& service : m_vServices)
        {
            std::vector<Srv>& servers = m_servers[service.m_strReplacement];
            putInOrder(servers);
            for (const Srv& server : servers)
            {
                auto& addresses = m_addresses[server.m_strTarget];
                if (Net::HostResolver::isAddress(server.m_strTarget))
                {
                    addresses = {server.m_strTarget};
                }
                for (const std::string& address : addresses)
                {
                    routes.push_back(route(address, server.m_uiPort, service.m_transport));
                }
            }
        }
        routes.resize(std::min(routes.size(), kMostServers));
        return routes;
    }

    void runOut()
    {
        const auto self = shared_from_this();
        if (m_stage == Stage::eServices)
        {
            chooseServices();
        }
        // What has come is better than nothing.
        const Routes found = routes();
        if (found.empty())
        {
            remember(m_locator.m_silent, m_strDomain, kSilenceMs);
        }
        m_locator.finish(*this, found);
    }

    ServerLocator& m_locator;
    const std::optional<DsSipTransport> m_transport;
    Stage m_stage = Stage::eServices;
    std::list<Query> m_vQueries;
    StackTimer m_timer;
    std::vector<Naptr> m_vServices;
    std::map<std::string, std::vector<Srv>> m_servers;            // by the SRV record's name
    std::map<std::string, std::vector<std::string>> m_addresses;  // by host
};

ServerLocator::ServerLocator(su_root_s* in_pRoot, StackThread& in_thread, Options in_options)
    : m_options(std::move(in_options)),
      m_thread(in_thread),
      m_pResolver(sres_resolver_create(
          in_pRoot, m_options.m_strSettings.empty() ? nullptr : m_options.m_strSettings.c_str(), TAG_END()))
{
}

ServerLocator::~ServerLocator()
{
    m_vSearches.clear();
    if (m_pResolver != nullptr)
    {
        sres_resolver_destroy(m_pResolver);
    }
}

void ServerLocator::locate(const std::string& in_strDomain,
                           std::optional<DsSipTransport> in_transport,
                           Callback in_callback)
{
    const std::string domain = plainName(in_strDomain.c_str());
    if (m_pResolver == nullptr || m_options.m_ulTimeoutMs == 0 || isWithin(m_silent, domain))
    {
        in_callback(Routes());
        return;
    }
    m_vSearches.push_back(std::make_shared<Search>(*this, domain, in_transport, std::move(in_callback)));
    const auto search = m_vSearches.back();
    search->start();
}

void ServerLocator::finish(Search& in_search, Routes in_vRoutes)
{
    const Callback callback = std::move(in_search.m_callback);
    m_vSearches.remove_if([&](const auto& in_pSearch) { return in_pSearch.get() == &in_search; });
    std::stable_partition(in_vRoutes.begin(),
                          in_vRoutes.end(),
                          [this](const std::string& in_strRoute)
                          { return !isWithin(m_avoided, in_strRoute); });
    callback(in_vRoutes);
}

void ServerLocator::avoid(const std::string& in_strRoute, std::uint64_t in_ulMs)
{
    remember(m_avoided, in_strRoute, in_ulMs);
}

void ServerLocator::remember(Times& io_times, const std::string& in_strName, std::uint64_t in_ulMs)
{
    if (io_times.size() >= kMostNames)
    {
        io_times.clear();
    }
    io_times[in_strName] = StackThread::Clock::now() + std::chrono::milliseconds(in_ulMs);
}

bool ServerLocator::isWithin(Times& io_times, const std::string& in_strName)
{
    const auto i = io_times.find(in_strName);
    if (i != io_times.end() && i->second <= StackThread::Clock::now())
    {
        io_times.erase(i);
        return false;
    }
    return i != io_times.end();
}

std::string ServerLocator::route(const std::string& in_strAddress,
                                 std::uint16_t in_uiPort,
                                 DsSipTransport in_transport)
{
    const bool v6 = in_strAddress.find(':') != std::string::npos;
    return "sip:" + (v6 ? "[" + in_strAddress + "]" : in_strAddress) +
           (in_uiPort == 0 ? "" : ":" + std::to_string(in_uiPort)) +
           (in_transport == DsSipTransport::eTCP ? ";transport=tcp" : ";transport=udp");
}

}  // namespace Quorvex
