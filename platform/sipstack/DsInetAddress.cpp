#include "sipstack/DsInetAddress.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <array>
#include <chrono>
#include <ostream>

#include "net/HostResolver.h"
#include "sipstack/DsException.h"
#include "sipstack/DsSipText.h"

namespace Quorvex
{

bool DsInetAddress::parseLiteral(std::string_view in_text,
                                 std::uint16_t in_uiPort,
                                 DsInetAddress& out_address)
{
    if (in_text.size() >= 2 && in_text.front() == '[' && in_text.back() == ']')
    {
        in_text = in_text.substr(1, in_text.size() - 2);
    }
    if (in_text.empty() || in_text.size() >= INET6_ADDRSTRLEN || in_text.find('\0') != std::string_view::npos)
    {
        return false;
    }
    const std::string text(in_text);
    std::array<char, INET6_ADDRSTRLEN> canonical{};
    std::array<unsigned char, sizeof(in6_addr)> bytes{};
    const bool ipv6 = text.find(':') != std::string::npos;
    const int family = ipv6 ? AF_INET6 : AF_INET;
    if (::inet_pton(family, text.c_str(), bytes.data()) != 1 ||
        (ipv6 && ::inet_ntop(family, bytes.data(), canonical.data(), canonical.size()) == nullptr))
    {
        return false;
    }
    // Of IPv4 nothing but the canonical text is accepted.
    out_address.m_strAddress = ipv6 ? canonical.data() : text;
    out_address.m_uiPort = in_uiPort;
    out_address.m_bIPv6 = ipv6;
    return true;
}

DsInetAddress::DsInetAddress(std::string_view in_host, int in_iTimeoutMs, std::uint16_t in_uiPort)
{
    if (parseLiteral(in_host, in_uiPort, *this))
    {
        return;
    }
    if (in_host.empty())
    {
        throw DsException("a host name was expected, found an empty text");
    }
    if (in_iTimeoutMs < 0)
    {
        throw DsException("a time-out of 0 ms or more was expected, found " + std::to_string(in_iTimeoutMs));
    }
    std::string address;
    if (!Net::HostResolver::instance().resolve(
            std::string(in_host), std::chrono::milliseconds(in_iTimeoutMs), address) ||
        !parseLiteral(address, in_uiPort, *this))
    {
        throw DsException("no address for host " + SipText::excerpt(in_host) + " within " +
                          std::to_string(in_iTimeoutMs) + " ms");
    }
}

bool DsInetAddress::isAny() const
{
    return m_strAddress == "0.0.0.0" || m_strAddress == "::";
}

std::string DsInetAddress::getText() const
{
    std::string text = m_bIPv6 ? "[" + m_strAddress + "]" : m_strAddress;
    if (m_uiPort != 0)
    {
        text.append(":").append(std::to_string(m_uiPort));
    }
    return text;
}

std::ostream& operator<<(std::ostream& out_stream, const DsInetAddress& in_address)
{
    return out_stream << (in_address.isValid() ? in_address.getText() : "no address");
}

}  // namespace Quorvex
