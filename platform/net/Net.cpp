#include "net/Net.h"

#include <ace/INET_Addr.h>
#include <ace/OS_NS_sys_socket.h>
#include <ace/OS_NS_unistd.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <unordered_map>

#include "net/HostResolver.h"

namespace Quorvex::Net
{

namespace
{

/// The routes asked for last, so that a call to where the last one went costs no socket. What it says is at
/// most a second old: routes change.
class RouteCache
{
public:
    bool find(const std::string& in_strHost, std::string& out_strLocal)
    {
        const std::lock_guard lock(m_mutex);
        const auto iter = m_routes.find(in_strHost);
        if (iter == m_routes.end() || Clock::now() - iter->second.m_asked > std::chrono::seconds(1))
        {
            return false;
        }
        out_strLocal = iter->second.m_strLocal;
        return true;
    }
    void keep(const std::string& in_strHost, const std::string& in_strLocal)
    {
        const std::lock_guard lock(m_mutex);
        if (m_routes.size() >= kMost)
        {
            m_routes.clear();
        }
        m_routes[in_strHost] = {in_strLocal, Clock::now()};
    }

private:
    using Clock = std::chrono::steady_clock;
    struct Route
    {
        std::string m_strLocal;
        Clock::time_point m_asked;
    };
    static constexpr std::size_t kMost = 1024;

    std::mutex m_mutex;
    std::unordered_map<std::string, Route> m_routes;
};

RouteCache& routeCache()
{
    static RouteCache s_cache;
    return s_cache;
}

}  // namespace

bool initializeLibrary()
{
    // Where sockets begin to work on Windows, which counts the calls; nothing elsewhere. The whole of ACE is
    // not ours to end: that closes every dynamic library, the caller's among them.
    return ACE_OS::socket_init(2, 2) == 0;
}

void closeLibrary()
{
    ACE_OS::socket_fini();
}

bool Interface::getForDestination(const std::string& in_strDestination, Interface& out_interface)
{
    std::string strHost = in_strDestination;
    if (strHost.size() > 2 && strHost.front() == '[' && strHost.back() == ']')
    {
        strHost = strHost.substr(1, strHost.size() - 2);
    }
    if (routeCache().find(strHost, out_interface.m_strAddress))
    {
        return true;
    }
    if (!HostResolver::isAddress(strHost))
    {
        return false;
    }
    const bool bIPv6 = strHost.find(':') != std::string::npos;
    // Connecting a datagram socket sends nothing, and makes the system choose the route. Any port does.
    constexpr std::uint16_t kAnyPort = 9;
    ACE_INET_Addr destination;
    if (destination.set(kAnyPort, strHost.c_str(), 1, bIPv6 ? AF_INET6 : AF_INET) != 0)
    {
        return false;
    }
    const ACE_HANDLE hSocket = ACE_OS::socket(bIPv6 ? AF_INET6 : AF_INET, SOCK_DGRAM, 0);
    if (hSocket == ACE_INVALID_HANDLE)
    {
        return false;
    }
    ACE_INET_Addr local(std::uint16_t{0}, bIPv6 ? "::" : "0.0.0.0", bIPv6 ? AF_INET6 : AF_INET);
    int iLength = local.get_size();
    std::array<char, 64> szAddress{};
    const bool bFound =
        ACE_OS::connect(hSocket, static_cast<sockaddr*>(destination.get_addr()), destination.get_size()) ==
            0 &&
        ACE_OS::getsockname(hSocket, static_cast<sockaddr*>(local.get_addr()), &iLength) == 0 &&
        local.get_host_addr(szAddress.data(), static_cast<int>(szAddress.size())) != nullptr;
    ACE_OS::closesocket(hSocket);
    if (bFound)
    {
        out_interface.m_strAddress = szAddress.data();
        routeCache().keep(strHost, out_interface.m_strAddress);
    }
    return bFound;
}

}  // namespace Quorvex::Net
