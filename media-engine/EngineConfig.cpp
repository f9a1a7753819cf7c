#include "EngineConfig.h"

#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fstream>
#include <system_error>

#include "SocketAddress.h"
#include "infra/ROConfiguration.h"

namespace Quorvex
{

namespace
{

bool parseRange(const std::string& in_strText, unsigned& out_uiFirst, unsigned& out_uiLast)
{
    const char* pEnd = in_strText.data() + in_strText.size();
    const auto first = std::from_chars(in_strText.data(), pEnd, out_uiFirst);
    if (first.ec != std::errc() || first.ptr == pEnd || *first.ptr != '-')
    {
        return false;
    }
    const auto last = std::from_chars(first.ptr + 1, pEnd, out_uiLast);
    return last.ec == std::errc() && last.ptr == pEnd && out_uiFirst >= 1024 && out_uiLast <= 65535 &&
           ((out_uiFirst + 1) | 1U) <= out_uiLast;
}

/// "" when a socket can be bound to the address.
std::string tryBind(const std::string& in_strAddress)
{
    SocketAddress address;
    if (!SocketAddress::make(in_strAddress, 1, address) || address.m_ui32Address == INADDR_ANY)
    {
        return "a dotted IPv4 address of this machine";
    }
    address.m_ui16Port = 0;
    const int iSocket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_in sockAddress = address.toSockaddr();
    std::string strError;
    if (iSocket < 0 ||
        ::bind(iSocket, reinterpret_cast<const sockaddr*>(&sockAddress), sizeof sockAddress) != 0)
    {
        strError = std::string("an address of this machine (") + std::generic_category().message(errno) + ")";
    }
    if (iSocket >= 0)
    {
        ::close(iSocket);
    }
    return strError;
}

}  // namespace

bool EngineConfig::read(const ROConfiguration& in_config, std::string& out_strError)
{
    m_strLocalAddress = in_config.getStringOr("quorvex.rtp.localAddress", "127.0.0.1");
    const std::string strExpected = tryBind(m_strLocalAddress);
    if (!strExpected.empty())
    {
        out_strError = "quorvex.rtp.localAddress: \"" + m_strLocalAddress + "\", expected " + strExpected;
        return false;
    }
    const std::string strRange = in_config.getStringOr("quorvex.rtp.portRange", "16384-32767");
    if (!parseRange(strRange, m_uiFirstPort, m_uiLastPort))
    {
        out_strError =
            "quorvex.rtp.portRange: \"" + strRange +
            "\", expected FIRST-LAST within 1024-65535 with at least one even port and the odd one after it";
        return false;
    }
    m_bRtcp = in_config.getBooleanOr("quorvex.rtp.rtcp", true);
    const std::int64_t iCpaMaxTimeMs = in_config.getIntegerOr("quorvex.media.cpaMaxTimeMs", 10000);
    if (iCpaMaxTimeMs < 1000 || iCpaMaxTimeMs > 60000)
    {
        out_strError =
            "quorvex.media.cpaMaxTimeMs: " + std::to_string(iCpaMaxTimeMs) + ", expected 1000 to 60000";
        return false;
    }
    m_uiCpaMaxTimeMs = static_cast<unsigned>(iCpaMaxTimeMs);
    m_strRecordingDir = in_config.getStringOr("quorvex.media.recordingDir", ".");
    return true;
}

std::string EngineConfig::raiseDescriptorLimit() const
{
    // Besides its ports, a process has its signalling sockets and files.
    constexpr rlim_t OTHERS = 1024;
    const rlim_t uiNeeded = m_uiLastPort - m_uiFirstPort + 1 + OTHERS;
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= uiNeeded)
    {
        return {};
    }
    const rlimit wanted{uiNeeded, std::max(limit.rlim_max, uiNeeded)};
    const rlimit possible{std::min(limit.rlim_max, uiNeeded), limit.rlim_max};
    if (::setrlimit(RLIMIT_NOFILE, &wanted) == 0)
    {
        return {};
    }
    static_cast<void>(::setrlimit(RLIMIT_NOFILE, &possible));
    if (possible.rlim_cur >= uiNeeded)
    {
        return {};
    }
    return "the process may open " + std::to_string(possible.rlim_cur) +
           " descriptors, quorvex.rtp.portRange has use for " + std::to_string(uiNeeded) +
           ": raise its limit, or calls are refused before the ports are used up";
}

std::string EngineConfig::checkEphemeralPorts() const
{
    std::ifstream file("/proc/sys/net/ipv4/ip_local_port_range");
    unsigned uiFirst = 0;
    unsigned uiLast = 0;
    if (!(file >> uiFirst >> uiLast) || uiLast < m_uiFirstPort || m_uiLastPort < uiFirst)
    {
        return {};
    }
    return "quorvex.rtp.portRange " + std::to_string(m_uiFirstPort) + "-" + std::to_string(m_uiLastPort) +
           " overlaps the ports that the system gives to outgoing connections (" + std::to_string(uiFirst) +
           "-" + std::to_string(uiLast) + "): some will be in use when a call needs them";
}

}  // namespace Quorvex
