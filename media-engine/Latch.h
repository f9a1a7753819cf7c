#pragma once

#include <cstdint>

#include "SocketAddress.h"

namespace Quorvex
{

/// Where a stream really comes from (symmetric RTP, RFC 4961): a party behind an address translator sends
/// from another address than the one it signalled. The first address that sends a few good packets is locked;
/// until then the signalled one has precedence. A lock lasts until the next negotiation; only the signalled
/// address itself can still claim a stream that another one was locked to. One thread.
class Latch
{
public:
    static constexpr unsigned GOOD_PACKETS = 3;
    /// From where a stream came before its signalled address changed: what is still under way must not lock
    /// it again.
    static constexpr unsigned GOOD_PACKETS_OF_FORMER = 50;

    /// A negotiation: forgets what was learned.
    void reset(const SocketAddress& in_signalled);

    /// Whether a packet from that address belongs to the stream.
    bool accept(const SocketAddress& in_from,
                std::uint32_t in_ui32Ssrc,
                std::uint16_t in_ui16Sequence,
                std::int64_t in_i64Now);

    bool isLocked() const { return m_bLocked; }
    /// Where to send; not set when nothing is known.
    const SocketAddress& getRemote() const { return m_bLocked ? m_candidate : m_signalled; }

private:
    SocketAddress m_signalled;
    SocketAddress m_candidate;
    SocketAddress m_former;
    std::uint32_t m_ui32Ssrc = 0;
    std::uint16_t m_ui16NextSequence = 0;
    std::uint8_t m_ui8Good = 0;
    // Of the signalled address, while another one is locked.
    std::uint8_t m_ui8Claims = 0;
    bool m_bLocked = false;
    std::int64_t m_i64LastHeard = 0;
};

}  // namespace Quorvex
