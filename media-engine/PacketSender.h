#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cstdint>

#include "RtpPacket.h"
#include "SocketAddress.h"

namespace Quorvex
{

/// Collects packets and sends those that go out of one socket with one system call. Nothing is allocated. One
/// thread.
class PacketSender
{
public:
    /// The largest datagram that the engine takes or sends.
    static constexpr std::size_t MAX_PACKET = 1500;

    PacketSender();
    PacketSender(const PacketSender&) = delete;
    PacketSender& operator=(const PacketSender&) = delete;
    ~PacketSender() = default;

    /// Room for a packet; what is written there goes out with the next flush(). Sends what was collected
    /// before when there is no room.
    std::uint8_t* add(int in_iSocket, const SocketAddress& in_to, std::size_t in_uiSize);
    void flush();

    /// Datagrams that the system did not take.
    std::uint64_t getFailures() const { return m_ui64Failures; }

private:
    static constexpr unsigned SLOTS = 32;

    unsigned m_uiCount = 0;
    std::uint64_t m_ui64Failures = 0;
    std::array<int, SLOTS> m_sockets{};
    std::array<sockaddr_in, SLOTS> m_addresses{};
    std::array<iovec, SLOTS> m_vectors{};
    std::array<mmsghdr, SLOTS> m_messages{};
    std::array<std::array<std::uint8_t, MAX_PACKET>, SLOTS> m_packets{};
};

}  // namespace Quorvex
