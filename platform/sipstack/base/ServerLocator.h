#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sipstack/DsSipStack.h"
#include "sipstack/base/StackThread.h"

struct sres_resolver_s;

namespace Quorvex
{

/// Finds the servers of a SIP domain (RFC 3263): NAPTR records say which transports it offers and prefers,
/// SRV records which hosts and ports serve each, address records where those are. What the name service said
/// is kept for as long as its records may live. SIP stack thread.
class ServerLocator
{
public:
    struct Options
    {
        std::string m_strSettings;                  ///< a file in resolv.conf's form; "" for the system's
        std::vector<DsSipTransport> m_vTransports;  ///< those that we have, the preferred one first
        bool m_bIPv4 = true;
        bool m_bIPv6 = false;
        std::uint64_t m_ulTimeoutMs = 250;  ///< for one domain, all its records together
    };

    /// SIP URIs whose hosts are addresses, in the order in which they are to be tried. Empty when the domain
    /// names no servers, or not in time.
    using Routes = std::vector<std::string>;
    using Callback = std::function<void(const Routes& in_vRoutes)>;

    ServerLocator(su_root_s* in_pRoot, StackThread& in_thread, Options in_options);
    ~ServerLocator();
    ServerLocator(const ServerLocator&) = delete;
    ServerLocator& operator=(const ServerLocator&) = delete;

    /// Calls back once, from inside the call when everything is known; not at all when this is destroyed
    /// before. A transport that is given is the only one looked for.
    void locate(const std::string& in_strDomain,
                std::optional<DsSipTransport> in_transport,
                Callback in_callback);

    /// A route that has failed comes after the others of its domain for this time.
    void avoid(const std::string& in_strRoute, std::uint64_t in_ulMs);

    /// The SIP URI of an address and port; port 0 stands for none.
    static std::string route(const std::string& in_strAddress,
                             std::uint16_t in_uiPort,
                             DsSipTransport in_transport);

private:
    using Times = std::map<std::string, StackThread::Clock::time_point>;
    class Search;
    void finish(Search& in_search, Routes in_vRoutes);
    static void remember(Times& io_times, const std::string& in_strName, std::uint64_t in_ulMs);
    static bool isWithin(Times& io_times, const std::string& in_strName);

    const Options m_options;
    StackThread& m_thread;
    sres_resolver_s* m_pResolver;  // null when the base library cannot make one
    std::list<std::shared_ptr<Search>> m_vSearches;
    Times m_avoided;  // routes, until when
    Times m_silent;   // domains that were looked up in vain: one dead name server is not waited for by every
                      // call
};

}  // namespace Quorvex
