#include "Latch.h"

#include "RtpPacket.h"

namespace Quorvex
{

namespace
{

// An address that has gone quiet before it was locked makes room for another.
constexpr std::int64_t CANDIDATE_NS = 300 * NS_PER_MS;

}  // namespace

void Latch::reset(const SocketAddress& in_signalled)
{
    const bool bMoved = m_signalled.isSet() && in_signalled != m_signalled;
    const SocketAddress former = bMoved ? getRemote() : SocketAddress();
    *this = Latch();
    m_signalled = in_signalled;
    m_former = former == in_signalled ? SocketAddress() : former;
}

bool Latch::accept(const SocketAddress& in_from,
                   std::uint32_t in_ui32Ssrc,
                   std::uint16_t in_ui16Sequence,
                   std::int64_t in_i64Now)
{
    const bool bSignalled = in_from == m_signalled;
    if (m_bLocked)
    {
        if (in_from == m_candidate)
        {
            return true;
        }
        if (!bSignalled)
        {
            return false;
        }
        m_ui8Claims =
            in_ui32Ssrc == m_ui32Ssrc && in_ui16Sequence == m_ui16NextSequence ? m_ui8Claims + 1 : 1;
        m_ui32Ssrc = in_ui32Ssrc;
        m_ui16NextSequence = static_cast<std::uint16_t>(in_ui16Sequence + 1);
        if (m_ui8Claims < GOOD_PACKETS)
        {
            return false;
        }
        m_candidate = in_from;
        return true;
    }
    if (in_from != m_candidate)
    {
        const bool bHeld =
            m_candidate.isSet() && m_candidate != m_former && in_i64Now - m_i64LastHeard < CANDIDATE_NS;
        if (bHeld && !bSignalled)
        {
            return false;
        }
        m_candidate = in_from;
        m_ui8Good = 0;
    }
    m_i64LastHeard = in_i64Now;
    m_ui8Good = m_ui8Good > 0 && in_ui32Ssrc == m_ui32Ssrc && in_ui16Sequence == m_ui16NextSequence
                    ? m_ui8Good + 1
                    : 1;
    m_ui32Ssrc = in_ui32Ssrc;
    m_ui16NextSequence = static_cast<std::uint16_t>(in_ui16Sequence + 1);
    m_bLocked = m_ui8Good >= (in_from == m_former ? GOOD_PACKETS_OF_FORMER : GOOD_PACKETS);
    return true;
}

}  // namespace Quorvex
