#include "RxStatistics.h"

#include <algorithm>
#include <cmath>

#include "RtpPacket.h"

namespace Quorvex
{

namespace
{

// A jump forward of less is loss, of more another range of numbers (RFC 3550 appendix A.1).
constexpr std::uint16_t MAX_DROPOUT = 3000;
// What is remembered to tell duplicates from late packets.
constexpr int SEEN_BITS = 64;

}  // namespace

RxStatistics::Verdict RxStatistics::update(std::uint32_t in_ui32Ssrc,
                                           std::uint16_t in_ui16Sequence,
                                           std::uint32_t in_ui32Timestamp,
                                           std::int64_t in_i64Now)
{
    const bool bFirst = !m_bSource;
    if (bFirst)
    {
        restart(in_ui32Ssrc, in_ui16Sequence);
    }
    const auto ui16Ahead = static_cast<std::uint16_t>(in_ui16Sequence - m_ui16Max);
    const auto ui16Behind = static_cast<std::uint16_t>(m_ui16Max - in_ui16Sequence);
    if (in_ui32Ssrc != m_ui32Ssrc || (ui16Ahead >= MAX_DROPOUT && ui16Behind >= SEEN_BITS))
    {
        if (!m_bCandidate || in_ui32Ssrc != m_ui32CandidateSsrc || in_ui16Sequence != m_ui16CandidateNext)
        {
            m_bCandidate = true;
            m_ui32CandidateSsrc = in_ui32Ssrc;
            m_ui16CandidateNext = static_cast<std::uint16_t>(in_ui16Sequence + 1);
            return in_ui32Ssrc == m_ui32Ssrc && ui16Behind < MAX_DROPOUT ? TOO_OLD : ON_PROBATION;
        }
        restart(in_ui32Ssrc, in_ui16Sequence);
        ++m_ui64Restarts;
    }
    else if (ui16Ahead != 0 && ui16Ahead < MAX_DROPOUT)
    {
        m_ui64Seen = ui16Ahead < SEEN_BITS ? (m_ui64Seen << ui16Ahead) | 1U : 1U;
        if (in_ui16Sequence < m_ui16Max)
        {
            m_ui32Cycles += 0x10000;
        }
        m_ui16Max = in_ui16Sequence;
    }
    else if (!bFirst)
    {
        const std::uint64_t ui64Bit = std::uint64_t{1} << ui16Behind;
        if ((m_ui64Seen & ui64Bit) != 0)
        {
            ++m_ui64Duplicates;
            return DUPLICATE;
        }
        m_ui64Seen |= ui64Bit;
        ++m_ui64Reordered;
        ++m_ui64Received;
        m_bCandidate = false;
        return ACCEPTED;
    }
    m_bCandidate = false;
    ++m_ui64Received;
    updateJitter(in_ui32Timestamp, in_i64Now);
    return ACCEPTED;
}

void RxStatistics::restart(std::uint32_t in_ui32Ssrc, std::uint16_t in_ui16Sequence)
{
    m_ui64LostBefore = getLost();
    m_ui64ExpectedBefore += expectedNow();
    m_ui64ReceivedBefore = m_ui64Received;
    m_bSource = true;
    m_bTransit = false;
    m_bCandidate = false;
    m_ui32Ssrc = in_ui32Ssrc;
    m_ui16Base = in_ui16Sequence;
    m_ui16Max = in_ui16Sequence;
    m_ui32Cycles = 0;
    m_ui64Seen = 1;
}

std::uint64_t RxStatistics::expectedNow() const
{
    return m_bSource ? std::uint64_t{m_ui32Cycles} + m_ui16Max - m_ui16Base + 1 : 0;
}

std::uint64_t RxStatistics::getLost() const
{
    const std::uint64_t ui64Expected = expectedNow();
    const std::uint64_t ui64Received = m_ui64Received - m_ui64ReceivedBefore;
    return m_ui64LostBefore + (ui64Expected > ui64Received ? ui64Expected - ui64Received : 0);
}

void RxStatistics::updateJitter(std::uint32_t in_ui32Timestamp, std::int64_t in_i64Now)
{
    const std::uint32_t ui32Transit =
        static_cast<std::uint32_t>(in_i64Now / NS_PER_SAMPLE) - in_ui32Timestamp;
    if (m_bTransit)
    {
        const double fDifference =
            std::abs(static_cast<double>(static_cast<std::int32_t>(ui32Transit - m_ui32Transit)));
        // A sender that restarts its timestamps (another talk spurt, a hold) is no jitter.
        if (fDifference < 8000)
        {
            m_fJitter += (fDifference - m_fJitter) / 16.0;
            m_fMaxJitter = std::max(m_fMaxJitter, m_fJitter);
        }
    }
    m_bTransit = true;
    m_ui32Transit = ui32Transit;
}

double RxStatistics::estimateMos(double in_fLossRate, double in_fDelayMs)
{
    // Equipment impairment 0 and robustness 25.1 are those of G.711 with concealment (ITU-T G.113 appendix
    // I).
    const double fLossPercent = std::clamp(in_fLossRate, 0.0, 1.0) * 100.0;
    const double fEquipment = 95.0 * fLossPercent / (fLossPercent + 25.1);
    const double fDelay = 0.024 * in_fDelayMs + (in_fDelayMs > 177.3 ? 0.11 * (in_fDelayMs - 177.3) : 0.0);
    const double fR = std::clamp(93.2 - fEquipment - fDelay, 0.0, 100.0);
    return std::max(1.0, 1.0 + 0.035 * fR + fR * (fR - 60.0) * (100.0 - fR) * 7e-6);
}

}  // namespace Quorvex
