#include "PortPool.h"

#include <netinet/ip.h>
#include <sys/socket.h>
#include <unistd.h>

#include <random>

#include "SocketAddress.h"

namespace Quorvex
{

PortPool::PortPool(const std::string& in_strAddress, unsigned in_uiFirstPort, unsigned in_uiLastPort)
    : m_strAddress(in_strAddress),
      m_uiFirstPort((in_uiFirstPort + 1) & ~1U),
      m_vTaken((in_uiLastPort + 1 - m_uiFirstPort) / 2)
{
    if (!m_vTaken.empty())
    {
        m_uiNext = std::random_device{}() % getPairs();
    }
}

bool PortPool::acquire(int& out_iSocket, unsigned& out_uiPort)
{
    for (unsigned uiTried = 0; m_uiTaken < getPairs() && uiTried < getPairs(); ++uiTried)
    {
        const unsigned uiIndex = m_uiNext;
        m_uiNext = (m_uiNext + 1) % getPairs();
        if (m_vTaken[uiIndex])
        {
            continue;
        }
        out_uiPort = m_uiFirstPort + 2 * uiIndex;
        out_iSocket = bindPort(out_uiPort);
        if (out_iSocket >= 0)
        {
            m_vTaken[uiIndex] = true;
            ++m_uiTaken;
            return true;
        }
        if (errno != EADDRINUSE)
        {
            // Out of descriptors or the address is gone: another port would not help.
            return false;
        }
    }
    errno = EADDRINUSE;
    return false;
}

int PortPool::bindPort(unsigned in_uiPort) const
{
    const int iSocket = ::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (iSocket < 0)
    {
        return -1;
    }
    SocketAddress address;
    static_cast<void>(SocketAddress::make(m_strAddress, in_uiPort, address));
    const sockaddr_in sockAddress = address.toSockaddr();
    if (::bind(iSocket, reinterpret_cast<const sockaddr*>(&sockAddress), sizeof sockAddress) != 0)
    {
        const int iError = errno;
        ::close(iSocket);
        errno = iError;
        return -1;
    }
    // Expedited forwarding, what networks expect of voice (RFC 4594); harmless where it is not honoured.
    const int iTos = IPTOS_DSCP_EF;
    static_cast<void>(::setsockopt(iSocket, IPPROTO_IP, IP_TOS, &iTos, sizeof iTos));
    return iSocket;
}

void PortPool::release(int in_iSocket, unsigned in_uiPort)
{
    ::close(in_iSocket);
    m_vTaken[(in_uiPort - m_uiFirstPort) / 2] = false;
    --m_uiTaken;
}

}  // namespace Quorvex
