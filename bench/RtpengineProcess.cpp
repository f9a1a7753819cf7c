#include "RtpengineProcess.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <ctime>
#include <utility>
#include <vector>

namespace Quorvex::Bench
{

namespace
{

std::string bencode(const std::string& in_strText)
{
    return std::to_string(in_strText.size()) + ":" + in_strText;
}

std::string bencode(const std::vector<std::pair<std::string, std::string>>& in_vEntries)
{
    std::string strResult = "d";
    for (const auto& [strKey, strValue] : in_vEntries)
    {
        strResult += bencode(strKey) + bencode(strValue);
    }
    return strResult + "e";
}

/// A port that nobody has now.
unsigned findFreePort()
{
    const int iSocket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t uiSize = sizeof address;
    ::bind(iSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    ::getsockname(iSocket, reinterpret_cast<sockaddr*>(&address), &uiSize);
    ::close(iSocket);
    return ntohs(address.sin_port);
}

}  // namespace

RtpengineProcess::~RtpengineProcess()
{
    if (m_pid > 0)
    {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
    }
    if (m_iSocket >= 0)
    {
        ::close(m_iSocket);
    }
}

bool RtpengineProcess::start(unsigned in_uiFirstPort, unsigned in_uiLastPort)
{
    const unsigned uiPort = findFreePort();
    // A table of -1 is forwarding in user space.
    const std::vector<std::string> vArguments = {"rtpengine",
                                                 "--config-file=none",
                                                 "--foreground",
                                                 "--log-stderr",
                                                 "--log-level=1",
                                                 "--table=-1",
                                                 "--interface=127.0.0.1",
                                                 "--listen-ng=127.0.0.1:" + std::to_string(uiPort),
                                                 "--port-min=" + std::to_string(in_uiFirstPort),
                                                 "--port-max=" + std::to_string(in_uiLastPort)};
    std::vector<char*> vPointers;
    for (const std::string& strArgument : vArguments)
    {
        vPointers.push_back(const_cast<char*>(strArgument.c_str()));
    }
    vPointers.push_back(nullptr);
    m_pid = ::fork();
    if (m_pid == 0)
    {
        // It does not outlive a benchmark that is interrupted.
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        const int iNull = ::open("/dev/null", O_RDWR);
        ::dup2(iNull, STDIN_FILENO);
        ::dup2(iNull, STDOUT_FILENO);
        ::dup2(iNull, STDERR_FILENO);
        ::execvp("rtpengine", vPointers.data());
        ::_exit(127);
    }
    m_iSocket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(uiPort));
    ::connect(m_iSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    for (int i = 0; i < 50; ++i)
    {
        if (request(bencode({
                        {"command", "ping"}
        }),
                    100)
                .find("pong") != std::string::npos)
        {
            return true;
        }
        if (::waitpid(m_pid, nullptr, WNOHANG) == m_pid)
        {
            m_pid = -1;
            return false;
        }
        ::usleep(100'000);
    }
    return false;
}

std::string RtpengineProcess::request(const std::string& in_strDictionary, int in_iTimeoutMs)
{
    const std::string strCookie = "bench" + std::to_string(++m_uiCookie) + " ";
    const std::string strRequest = strCookie + in_strDictionary;
    static_cast<void>(::send(m_iSocket, strRequest.data(), strRequest.size(), 0));
    pollfd descriptor{m_iSocket, POLLIN, 0};
    std::array<char, 4096> answer{};
    while (::poll(&descriptor, 1, in_iTimeoutMs) == 1)
    {
        const ssize_t iSize = ::recv(m_iSocket, answer.data(), answer.size(), 0);
        if (iSize < 0)
        {
            return {};
        }
        const std::string strAnswer(answer.data(), static_cast<std::size_t>(iSize));
        if (strAnswer.compare(0, strCookie.size(), strCookie) == 0)
        {
            return strAnswer.substr(strCookie.size());
        }
    }
    return {};
}

bool RtpengineProcess::sendDescription(const std::string& in_strCommand,
                                       const std::string& in_strCallId,
                                       unsigned in_uiPort,
                                       unsigned& out_uiPort)
{
    const std::string strSdp =
        "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=-\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\nm=audio " +
        std::to_string(in_uiPort) +
        " RTP/AVP 0 101\r\na=rtpmap:0 PCMU/8000\r\na=rtpmap:101 telephone-event/8000\r\na=ptime:20\r\n";
    std::vector<std::pair<std::string, std::string>> vEntries = {
        {"ICE",      "remove"     },
        {"call-id",  in_strCallId },
        {"command",  in_strCommand},
        {"from-tag", "a"          },
        {"sdp",      strSdp       }
    };
    if (in_strCommand == "answer")
    {
        vEntries.emplace_back("to-tag", "b");
    }
    const std::string strAnswer = request(bencode(vEntries), 2000);
    const std::string strMedia = "m=audio ";
    const std::size_t uiPlace = strAnswer.find(strMedia);
    out_uiPort =
        uiPlace == std::string::npos
            ? 0
            : static_cast<unsigned>(std::strtoul(strAnswer.c_str() + uiPlace + strMedia.size(), nullptr, 10));
    return out_uiPort != 0;
}

bool RtpengineProcess::bridge(const std::string& in_strCallId,
                              unsigned in_uiPortA,
                              unsigned in_uiPortB,
                              unsigned& out_uiTowardsA,
                              unsigned& out_uiTowardsB)
{
    // What A's offer becomes is what B sends to, and the other way round.
    return sendDescription("offer", in_strCallId, in_uiPortA, out_uiTowardsB) &&
           sendDescription("answer", in_strCallId, in_uiPortB, out_uiTowardsA);
}

double RtpengineProcess::getCpuSeconds() const
{
    clockid_t clock{};
    timespec time{};
    if (::clock_getcpuclockid(m_pid, &clock) != 0 || ::clock_gettime(clock, &time) != 0)
    {
        return 0;
    }
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

}  // namespace Quorvex::Bench
