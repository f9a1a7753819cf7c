#pragma once

#include <cstdint>

namespace Quorvex
{

/// What a receiver knows of a stream: sequence, loss, jitter (RFC 3550 appendix A.1, A.3 and A.8). One
/// thread.
class RxStatistics
{
public:
    enum Verdict
    {
        ACCEPTED,
        /// Came before.
        DUPLICATE,
        /// Older than anything that is of use.
        TOO_OLD,
        /// The first packet of another source or of another range of numbers: not believed before a second
        /// follows.
        ON_PROBATION
    };

    /// `in_i64Now` in nanoseconds of any steady clock.
    Verdict update(std::uint32_t in_ui32Ssrc,
                   std::uint16_t in_ui16Sequence,
                   std::uint32_t in_ui32Timestamp,
                   std::int64_t in_i64Now);

    bool hasSource() const { return m_bSource; }
    std::uint32_t getSsrc() const { return m_ui32Ssrc; }
    std::uint64_t getReceived() const { return m_ui64Received; }
    std::uint64_t getDuplicates() const { return m_ui64Duplicates; }
    std::uint64_t getReordered() const { return m_ui64Reordered; }
    std::uint64_t getExpected() const { return m_ui64ExpectedBefore + expectedNow(); }
    std::uint64_t getLost() const;
    /// How often another source or another range of numbers was taken up.
    std::uint64_t getRestarts() const { return m_ui64Restarts; }
    double getJitterMs() const { return m_fJitter / 8.0; }
    double getMaxJitterMs() const { return m_fMaxJitter / 8.0; }
    std::uint32_t getExtendedSequence() const { return m_ui32Cycles + m_ui16Max; }
    /// In timestamp units, for report blocks.
    std::uint32_t getJitterUnits() const { return static_cast<std::uint32_t>(m_fJitter); }

    /// Of the estimated opinion score: E-model of ITU-T G.107 for G.711 with loss concealment. The delay is
    /// one way.
    static double estimateMos(double in_fLossRate, double in_fDelayMs);

private:
    void restart(std::uint32_t in_ui32Ssrc, std::uint16_t in_ui16Sequence);
    std::uint64_t expectedNow() const;
    void updateJitter(std::uint32_t in_ui32Timestamp, std::int64_t in_i64Now);

    bool m_bSource = false;
    bool m_bTransit = false;
    bool m_bCandidate = false;
    std::uint16_t m_ui16Max = 0;
    std::uint16_t m_ui16Base = 0;
    // The packet that would confirm another source or range.
    std::uint16_t m_ui16CandidateNext = 0;
    std::uint32_t m_ui32CandidateSsrc = 0;
    std::uint32_t m_ui32Ssrc = 0;
    std::uint32_t m_ui32Cycles = 0;
    std::uint32_t m_ui32Transit = 0;
    // Bit n: the packet n before the newest has come.
    std::uint64_t m_ui64Seen = 0;
    std::uint64_t m_ui64Received = 0;
    std::uint64_t m_ui64ReceivedBefore = 0;
    std::uint64_t m_ui64ExpectedBefore = 0;
    std::uint64_t m_ui64LostBefore = 0;
    std::uint64_t m_ui64Duplicates = 0;
    std::uint64_t m_ui64Reordered = 0;
    std::uint64_t m_ui64Restarts = 0;
    double m_fJitter = 0;
    double m_fMaxJitter = 0;
};

}  // namespace Quorvex
