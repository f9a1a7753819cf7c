#include "SipTestPeer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <sstream>
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

SipTestCall::SipTestCall(SipTestPeer& io_peer,
                         std::uint16_t in_uiGatewayPort,
                         const std::string& in_strCallId)
    : m_peer(io_peer), m_uiGatewayPort(in_uiGatewayPort), m_strCallId(in_strCallId)
{
}

std::string SipTestCall::sdp() const
{
    return "v=0\r\no=peer 1 1 IN IP4 127.0.0.1\r\ns=-\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\n"
           "m=audio 5998 RTP/AVP 0 101\r\na=rtpmap:0 PCMU/8000\r\na=rtpmap:101 telephone-event/8000\r\n"
           "a=ptime:20\r\na=sendrecv\r\n";
}

std::string SipTestCall::makeRequest(const std::string& in_strMethod,
                                     unsigned in_uiCSeq,
                                     const std::string& in_strBranch,
                                     const std::string& in_strTo,
                                     const std::string& in_strBody,
                                     const std::string& in_strType) const
{
    std::ostringstream stream;
    stream << in_strMethod << " sip:" << m_strUser << "@127.0.0.1:" << m_uiGatewayPort << " SIP/2.0\r\n"
           << "Via: SIP/2.0/UDP 127.0.0.1:" << m_peer.getPort() << ";branch=z9hG4bK" << in_strBranch << "\r\n"
           << "Max-Forwards: 70\r\n"
           << "From: <sip:peer@127.0.0.1:" << m_peer.getPort() << ">;tag=peer-" << m_strCallId << "\r\n"
           << "To: " << in_strTo << "\r\n"
           << "Call-ID: " << m_strCallId << "\r\n"
           << "CSeq: " << in_uiCSeq << " " << in_strMethod << "\r\n"
           << "Contact: <sip:peer@127.0.0.1:" << m_peer.getPort() << ">\r\n";
    if (!in_strType.empty())
    {
        stream << "Content-Type: " << in_strType << "\r\n";
    }
    stream << "Content-Length: " << in_strBody.size() << "\r\n\r\n" << in_strBody;
    return stream.str();
}

void SipTestCall::invite(const std::string& in_strUser, bool in_bWithSDP)
{
    m_strUser = in_strUser;
    if (m_strTo.empty())
    {
        m_strTo = "<sip:" + in_strUser + "@127.0.0.1>";
    }
    m_uiInviteCSeq = ++m_uiCSeq;
    m_strInviteBranch = m_strCallId + "-" + std::to_string(m_uiCSeq);
    m_peer.send(m_uiGatewayPort,
                makeRequest("INVITE",
                            m_uiInviteCSeq,
                            m_strInviteBranch,
                            m_strTo,
                            in_bWithSDP ? sdp() : "",
                            in_bWithSDP ? "application/sdp" : ""));
}

void SipTestCall::cancel()
{
    m_peer.send(m_uiGatewayPort, makeRequest("CANCEL", m_uiInviteCSeq, m_strInviteBranch, m_strTo, "", ""));
}

void SipTestCall::ack(const std::string& in_strResponse)
{
    const std::string strTo = SipTestPeer::header(in_strResponse, "To");
    const bool bSuccess = in_strResponse.compare(0, 9, "SIP/2.0 2") == 0;
    if (bSuccess)
    {
        m_strTo = strTo;
    }
    m_peer.send(
        m_uiGatewayPort,
        makeRequest("ACK", m_uiInviteCSeq, m_strInviteBranch + (bSuccess ? "-ack" : ""), strTo, "", ""));
}

void SipTestCall::request(const std::string& in_strMethod,
                          const std::string& in_strBody,
                          const std::string& in_strType)
{
    ++m_uiCSeq;
    if (m_strTo.empty())
    {
        m_strTo = "<sip:" + m_strUser + "@127.0.0.1>";
    }
    m_peer.send(m_uiGatewayPort,
                makeRequest(in_strMethod,
                            m_uiCSeq,
                            m_strCallId + "-" + std::to_string(m_uiCSeq),
                            m_strTo,
                            in_strBody,
                            in_strType));
}

void SipTestCall::respond(const std::string& in_strRequest, const std::string& in_strStatus)
{
    std::ostringstream stream;
    stream << "SIP/2.0 " << in_strStatus << "\r\n";
    for (const char* szName : {"Via", "From", "To", "Call-ID", "CSeq"})
    {
        stream << szName << ": " << SipTestPeer::header(in_strRequest, szName) << "\r\n";
    }
    stream << "Content-Length: 0\r\n\r\n";
    m_peer.send(m_uiGatewayPort, stream.str());
}

}  // namespace Quorvex::Test
