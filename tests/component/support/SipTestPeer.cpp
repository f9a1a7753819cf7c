#include "SipTestPeer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

namespace Quorvex::Test
{

namespace
{

int bindLoopback(std::uint16_t& out_uiPort)
{
    const int iSocket = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    if (iSocket < 0 || ::bind(iSocket, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        ::getsockname(iSocket, reinterpret_cast<sockaddr*>(&address), &length) != 0)
    {
        throw std::runtime_error("no UDP port on the loopback");
    }
    out_uiPort = ntohs(address.sin_port);
    return iSocket;
}

}  // namespace

SipTestPeer::SipTestPeer() : m_iSocket(bindLoopback(m_uiPort))
{
}

SipTestPeer::~SipTestPeer()
{
    ::close(m_iSocket);
}

std::uint16_t SipTestPeer::findFreePort()
{
    std::uint16_t uiPort = 0;
    ::close(bindLoopback(uiPort));
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
        pollfd descriptor{m_iSocket, POLLIN, 0};
        if (left <= 0 || ::poll(&descriptor, 1, static_cast<int>(left)) <= 0)
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

std::string SipTestPeer::header(const std::string& in_strMessage, const std::string& in_strName)
{
    const auto start = in_strMessage.find("\r\n" + in_strName + ": ");
    if (start == std::string::npos)
    {
        return {};
    }
    const auto value = start + in_strName.size() + 4;
    return in_strMessage.substr(value, in_strMessage.find("\r\n", value) - value);
}

}  // namespace Quorvex::Test
