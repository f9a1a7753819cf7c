#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstdint>
#include <string>

namespace Quorvex
{

/// An IPv4 address with a port, both in network byte order. Port 0: none.
struct SocketAddress
{
    std::uint32_t m_ui32Address = 0;
    std::uint16_t m_ui16Port = 0;

    SocketAddress() = default;
    explicit SocketAddress(const sockaddr_in& in_address)
        : m_ui32Address(in_address.sin_addr.s_addr), m_ui16Port(in_address.sin_port)
    {
    }

    /// False when the text is no dotted address or the port is not 1 to 65535.
    static bool make(const std::string& in_strAddress, unsigned in_uiPort, SocketAddress& out_address)
    {
        in_addr address{};
        if (in_uiPort == 0 || in_uiPort > 65535 || inet_pton(AF_INET, in_strAddress.c_str(), &address) != 1)
        {
            return false;
        }
        out_address.m_ui32Address = address.s_addr;
        out_address.m_ui16Port = htons(static_cast<std::uint16_t>(in_uiPort));
        return true;
    }

    bool isSet() const { return m_ui16Port != 0; }
    sockaddr_in toSockaddr() const
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = m_ui16Port;
        address.sin_addr.s_addr = m_ui32Address;
        return address;
    }
    /// Where RTCP of this RTP address goes: the next port (RFC 3550 section 11).
    SocketAddress nextPort() const
    {
        SocketAddress next = *this;
        next.m_ui16Port = htons(static_cast<std::uint16_t>(ntohs(m_ui16Port) + 1));
        return next;
    }
    /// "10.0.0.5:40000"; "" when not set.
    std::string toText() const
    {
        if (!isSet())
        {
            return {};
        }
        char szAddress[INET_ADDRSTRLEN] = "";
        const in_addr address{m_ui32Address};
        inet_ntop(AF_INET, &address, szAddress, sizeof szAddress);
        return std::string(szAddress) + ":" + std::to_string(ntohs(m_ui16Port));
    }

    friend bool operator==(const SocketAddress&, const SocketAddress&) = default;
};

}  // namespace Quorvex
