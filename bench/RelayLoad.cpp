#include "RelayLoad.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <ctime>
#include <thread>

#include "RtpPacket.h"

namespace Quorvex::Bench
{

namespace
{

constexpr std::size_t PACKET_SIZE = 172;

std::int64_t toNs(const timespec& in_time)
{
    return std::int64_t{in_time.tv_sec} * 1'000'000'000 + in_time.tv_nsec;
}

sockaddr_in makeLoopback(unsigned in_uiPort)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(in_uiPort));
    return address;
}

}  // namespace

RelayParty::RelayParty() : m_iSocket(::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0))
{
    const sockaddr_in address = makeLoopback(0);
    ::bind(m_iSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    const int iOn = 1;
    ::setsockopt(m_iSocket, SOL_SOCKET, SO_TIMESTAMPNS, &iOn, sizeof iOn);
}

RelayParty::~RelayParty()
{
    ::close(m_iSocket);
}

unsigned RelayParty::getPort() const
{
    sockaddr_in address{};
    socklen_t uiSize = sizeof address;
    ::getsockname(m_iSocket, reinterpret_cast<sockaddr*>(&address), &uiSize);
    return ntohs(address.sin_port);
}

void RelayParty::connectTo(unsigned in_uiPort) const
{
    const sockaddr_in address = makeLoopback(in_uiPort);
    ::connect(m_iSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

void RelayParty::send()
{
    std::array<std::uint8_t, PACKET_SIZE> packet{};
    RtpPacket header;
    header.m_ui32Ssrc = static_cast<std::uint32_t>(m_iSocket);
    header.m_ui16Sequence = m_ui16Sequence++;
    header.m_ui32Timestamp = header.m_ui16Sequence * 160U;
    header.writeHeader(packet.data());
    timespec time{};
    ::clock_gettime(CLOCK_REALTIME, &time);
    const std::int64_t i64Now = toNs(time);
    std::memcpy(packet.data() + RtpPacket::HEADER_SIZE, &i64Now, sizeof i64Now);
    static_cast<void>(::send(m_iSocket, packet.data(), packet.size(), 0));
}

void RelayParty::drain(std::vector<float>& out_vDelays) const
{
    std::array<std::uint8_t, 2048> packet{};
    alignas(cmsghdr) std::array<char, 256> control{};
    iovec vector{packet.data(), packet.size()};
    msghdr message{};
    message.msg_iov = &vector;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    while (::recvmsg(m_iSocket, &message, 0) == static_cast<ssize_t>(PACKET_SIZE))
    {
        timespec arrived{};
        for (cmsghdr* pHeader = CMSG_FIRSTHDR(&message); pHeader != nullptr;
             pHeader = CMSG_NXTHDR(&message, pHeader))
        {
            if (pHeader->cmsg_type == SCM_TIMESTAMPNS)
            {
                std::memcpy(&arrived, CMSG_DATA(pHeader), sizeof arrived);
            }
        }
        std::int64_t i64Sent = 0;
        std::memcpy(&i64Sent, packet.data() + RtpPacket::HEADER_SIZE, sizeof i64Sent);
        const std::int64_t i64Delay = toNs(arrived) - i64Sent;
        // The silence from before both parties were there carries no time.
        if (i64Delay >= 0 && i64Delay < 10'000'000'000)
        {
            out_vDelays.push_back(static_cast<float>(i64Delay) / 1000);
        }
        message.msg_controllen = control.size();
    }
}

double RelayResult::getCpuPerPacketUs() const
{
    return m_fCpuSeconds * 1e6 / static_cast<double>(m_ui64Sent);
}

double RelayResult::getLostPerMillion() const
{
    const auto fSent = static_cast<double>(m_ui64Sent);
    return (fSent - static_cast<double>(m_vDelays.size())) * 1e6 / fSent;
}

float RelayResult::getDelayUs(double in_fShare)
{
    if (m_vDelays.empty())
    {
        return 0;
    }
    const auto place = static_cast<std::ptrdiff_t>(static_cast<double>(m_vDelays.size() - 1) * in_fShare);
    std::nth_element(m_vDelays.begin(), m_vDelays.begin() + place, m_vDelays.end());
    return m_vDelays[static_cast<std::size_t>(place)];
}

void sendForASecond(std::vector<std::unique_ptr<RelayParty>>& io_vParties, RelayResult& io_result)
{
    const auto start = std::chrono::steady_clock::now();
    const auto uiSlices = std::min<std::size_t>(io_vParties.size(), 100);
    for (std::size_t tick = 0; tick < 50 * uiSlices; ++tick)
    {
        for (std::size_t i = tick % uiSlices; i < io_vParties.size(); i += uiSlices)
        {
            io_vParties[i]->send();
            ++io_result.m_ui64Sent;
        }
        std::this_thread::sleep_until(start + (tick + 1) * std::chrono::milliseconds(20) / uiSlices);
        // What came back of those that are half a round old: nothing waits there for long.
        for (std::size_t i = (tick + uiSlices / 2) % uiSlices; i < io_vParties.size(); i += uiSlices)
        {
            io_vParties[i]->drain(io_result.m_vDelays);
        }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    for (const auto& pParty : io_vParties)
    {
        pParty->drain(io_result.m_vDelays);
    }
}

}  // namespace Quorvex::Bench
