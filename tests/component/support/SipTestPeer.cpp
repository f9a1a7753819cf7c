#include "SipTestPeer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <stdexcept>

namespace Quorvex::Test
{

namespace
{

int bindLoopback(const char* in_szAddress, std::uint16_t& out_uiPort)
{
    const int iSocket = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    socklen_t length = sizeof(address);
    if (iSocket < 0 || ::inet_pton(AF_INET, in_szAddress, &address.sin_addr) != 1 ||
        ::bind(iSocket, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        ::getsockname(iSocket, reinterpret_cast<sockaddr*>(&address), &length) != 0)
    {
        throw std::runtime_error("no UDP port on the loopback");
    }
    out_uiPort = ntohs(address.sin_port);
    return iSocket;
}

}  // namespace

SipTestPeer::SipTestPeer(const char* in_szAddress) : m_iSocket(bindLoopback(in_szAddress, m_uiPort))
{
}

SipTestPeer::~SipTestPeer()
{
    ::close(m_iSocket);
}

std::uint16_t SipTestPeer::findFreePort()
{
    std::uint16_t uiPort = 0;
    ::close(bindLoopback("127.0.0.1", uiPort));
    return uiPort;
}

void SipTestPeer::send(std::uint16_t in_uiPort, const std::string& in_strMessage)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(in_uiPort);
    static_cast<void>(::sendto(m_iSocket,
                               in_strMessage.data(),
                               in_strMessage.size(),
                               0,
                               reinterpret_cast<const sockaddr*>(&address),
                               sizeof(address)));
}

std::string SipTestPeer::receive(const std::string& in_strFirstLine, std::chrono::milliseconds in_time)
{
    const auto end = std::chrono::steady_clock::now() + in_time;
    for (;;)
    {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now())
                .count();
        const int iLeft = static_cast<int>(std::max<decltype(left)>(0, left));
        pollfd descriptor{m_iSocket, POLLIN, 0};
        if (::poll(&descriptor, 1, iLeft) <= 0)
        {
            return {};
        }
        std::array<char, 65536> buffer;
        const ssize_t length = ::recv(m_iSocket, buffer.data(), buffer.size(), 0);
        const std::string strMessage(buffer.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
        if (strMessage.substr(0, strMessage.find('\r')).find(in_strFirstLine) != std::string::npos)
        {
            return strMessage;
        }
    }
}

std::vector<std::string> SipTestPeer::headers(const std::string& in_strMessage, const std::string& in_strName)
{
    std::vector<std::string> values;
    std::size_t at = in_strMessage.find("\r\n");
    while (at != std::string::npos)
    {
        const std::size_t begin = at + 2;
        const std::size_t end = in_strMessage.find("\r\n", begin);
        if (end == std::string::npos || end == begin)
        {
            break;
        }
        const std::string line = in_strMessage.substr(begin, end - begin);
        const std::size_t colon = line.find(':');
        if (colon == in_strName.size() && ::strncasecmp(line.c_str(), in_strName.c_str(), colon) == 0)
        {
            const std::size_t value = line.find_first_not_of(' ', colon + 1);
            values.push_back(value == std::string::npos ? std::string() : line.substr(value));
        }
        at = end;
    }
    return values;
}

std::string SipTestPeer::header(const std::string& in_strMessage, const std::string& in_strName)
{
    const auto values = headers(in_strMessage, in_strName);
    return values.empty() ? std::string() : values.front();
}

}  // namespace Quorvex::Test
