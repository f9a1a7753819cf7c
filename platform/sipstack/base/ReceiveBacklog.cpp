#include "sipstack/base/ReceiveBacklog.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <linux/sock_diag.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <string>

namespace Quorvex
{

namespace
{

// As the kernel counts: a SIP message takes some 2 KiB. Six hundred of them are about a tenth of a second's
// work.
constexpr unsigned int kHighBytes = 1536 * 1024;

int option(int in_iSocket, int in_iName)
{
    int iValue = 0;
    socklen_t size = sizeof iValue;
    return ::getsockopt(in_iSocket, SOL_SOCKET, in_iName, &iValue, &size) == 0 ? iValue : -1;
}

bool isBoundTo(int in_iSocket, const DsSipListenPort& in_port)
{
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (::getsockname(in_iSocket, reinterpret_cast<sockaddr*>(&address), &size) != 0)
    {
        return false;
    }
    std::array<char, INET6_ADDRSTRLEN> text{};
    const void* pHost = nullptr;
    unsigned int uiPort = 0;
    if (address.ss_family == AF_INET)
    {
        const auto& inet = reinterpret_cast<const sockaddr_in&>(address);
        pHost = &inet.sin_addr;
        uiPort = ntohs(inet.sin_port);
    }
    else if (address.ss_family == AF_INET6)
    {
        const auto& inet = reinterpret_cast<const sockaddr_in6&>(address);
        pHost = &inet.sin6_addr;
        uiPort = ntohs(inet.sin6_port);
    }
    return uiPort == in_port.m_uiPort && pHost != nullptr &&
           ::inet_ntop(address.ss_family, pHost, text.data(), text.size()) != nullptr &&
           text.data() == in_port.m_strAddress;
}

}  // namespace

void ReceiveBacklog::watch(const std::vector<DsSipListenPort>& in_vPorts)
{
    m_vSockets.clear();
    const std::unique_ptr<DIR, int (*)(DIR*)> pFolder(::opendir("/proc/self/fd"), ::closedir);
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody else reads this folder's stream
    for (const dirent* pEntry = nullptr; pFolder && (pEntry = ::readdir(pFolder.get())) != nullptr;)
    {
        const int iSocket = std::atoi(static_cast<const char*>(pEntry->d_name));
        if (option(iSocket, SO_TYPE) == SOCK_DGRAM &&
            std::any_of(in_vPorts.begin(),
                        in_vPorts.end(),
                        [&](const DsSipListenPort& in_port) {
                            return in_port.m_transport == DsSipTransport::eUDP && isBoundTo(iSocket, in_port);
                        }))
        {
            const auto uiBuffer = static_cast<unsigned int>(std::max(0, option(iSocket, SO_RCVBUF)));
            m_vSockets.push_back({iSocket, option(iSocket, SO_DOMAIN), std::min(kHighBytes, uiBuffer / 2)});
        }
    }
}

int ReceiveBacklog::getOnlySocket(int in_iFamily) const
{
    int iFound = -1;
    for (const Socket& socket : m_vSockets)
    {
        if (socket.m_iFamily == in_iFamily)
        {
            if (iFound >= 0)
            {
                return -1;
            }
            iFound = socket.m_iDescriptor;
        }
    }
    return iFound;
}

bool ReceiveBacklog::isHigh() const
{
    return std::any_of(
        m_vSockets.begin(),
        m_vSockets.end(),
        [](const Socket& in_socket)
        {
            std::array<unsigned int, SK_MEMINFO_VARS> memory{};
            socklen_t size = sizeof memory;
            return ::getsockopt(in_socket.m_iDescriptor, SOL_SOCKET, SO_MEMINFO, memory.data(), &size) == 0 &&
                   memory[SK_MEMINFO_RMEM_ALLOC] > in_socket.m_uiHighBytes;
        });
}

}  // namespace Quorvex
