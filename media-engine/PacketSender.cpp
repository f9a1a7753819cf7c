#include "PacketSender.h"

#include <cerrno>

namespace Quorvex
{

PacketSender::PacketSender()
{
    for (unsigned i = 0; i < SLOTS; ++i)
    {
        m_addresses[i].sin_family = AF_INET;
        m_vectors[i].iov_base = m_packets[i].data();
        msghdr& header = m_messages[i].msg_hdr;
        header.msg_name = &m_addresses[i];
        header.msg_namelen = sizeof(sockaddr_in);
        header.msg_iov = &m_vectors[i];
        header.msg_iovlen = 1;
    }
}

std::uint8_t* PacketSender::add(int in_iSocket, const SocketAddress& in_to, std::size_t in_uiSize)
{
    if (m_uiCount == SLOTS)
    {
        flush();
    }
    m_sockets[m_uiCount] = in_iSocket;
    m_addresses[m_uiCount].sin_port = in_to.m_ui16Port;
    m_addresses[m_uiCount].sin_addr.s_addr = in_to.m_ui32Address;
    m_vectors[m_uiCount].iov_len = in_uiSize;
    return m_packets[m_uiCount++].data();
}

void PacketSender::flush()
{
    for (unsigned uiFirst = 0; uiFirst < m_uiCount;)
    {
        unsigned uiEnd = uiFirst + 1;
        while (uiEnd < m_uiCount && m_sockets[uiEnd] == m_sockets[uiFirst])
        {
            ++uiEnd;
        }
        if (uiEnd == uiFirst + 1)
        {
            if (::sendto(m_sockets[uiFirst],
                         m_packets[uiFirst].data(),
                         m_vectors[uiFirst].iov_len,
                         MSG_DONTWAIT,
                         reinterpret_cast<const sockaddr*>(&m_addresses[uiFirst]),
                         sizeof(sockaddr_in)) < 0)
            {
                ++m_ui64Failures;
            }
            uiFirst = uiEnd;
            continue;
        }
        const int iSent = ::sendmmsg(m_sockets[uiFirst], &m_messages[uiFirst], uiEnd - uiFirst, MSG_DONTWAIT);
        if (iSent <= 0)
        {
            // The first one was refused; the ones after it may still go.
            ++m_ui64Failures;
            ++uiFirst;
        }
        else
        {
            uiFirst += static_cast<unsigned>(iSent);
        }
    }
    m_uiCount = 0;
}

}  // namespace Quorvex
