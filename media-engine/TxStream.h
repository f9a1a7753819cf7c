#pragma once

#include <cstddef>
#include <cstdint>

namespace Quorvex
{

/// The numbering of what one endpoint sends: one synchronisation source whose sequence numbers and timestamps
/// run on evenly whatever the sound comes from. One thread.
class TxStream
{
public:
    struct Numbers
    {
        std::uint16_t m_ui16Sequence;
        std::uint32_t m_ui32Timestamp;
        /// The first packet after a change of source: a talk spurt begins.
        bool m_bMarker;
    };

    /// Of no relayed stream: the engine's own clock.
    static constexpr std::uint64_t CLOCK_SOURCE = ~std::uint64_t{0};

    void initialize(std::uint32_t in_ui32Ssrc, std::uint16_t in_ui16Sequence, std::uint32_t in_ui32Timestamp);

    std::uint32_t getSsrc() const { return m_ui32Ssrc; }

    /// Numbers a relayed packet so that gaps, order and timing of its stream are kept. `in_ui64Source` names
    /// the stream that it belongs to.
    Numbers relay(std::uint64_t in_ui64Source,
                  std::uint16_t in_ui16Sequence,
                  std::uint32_t in_ui32Timestamp,
                  std::int64_t in_i64Now);
    /// Numbers a packet of the engine's own; the timestamp advances by the packet's samples.
    Numbers clocked(unsigned in_uiSamples, std::int64_t in_i64Now);
    /// Numbers a packet that is put between those of the present source, with a timestamp of its own (the
    /// packets of a telephone event share one).
    Numbers inserted(std::uint32_t in_ui32Timestamp);
    /// A packet of the relayed stream is left out on purpose: the next one takes its place.
    void skip() { --m_ui16SequenceOffset; }
    /// The same for the engine's own packets.
    void skipClocked(unsigned in_uiSamples) { m_ui32TimestampOffset += in_uiSamples; }

    /// The timestamp of this moment.
    std::uint32_t timestampAt(std::int64_t in_i64Now) const;

    void count(std::size_t in_uiPayloadSize)
    {
        ++m_ui64Packets;
        m_ui64Octets += in_uiPayloadSize;
    }
    std::uint64_t getPackets() const { return m_ui64Packets; }
    std::uint64_t getOctets() const { return m_ui64Octets; }

private:
    void advance(std::uint16_t in_ui16Sequence, std::uint32_t in_ui32Timestamp, std::int64_t in_i64Now);

    std::uint64_t m_ui64Source = CLOCK_SOURCE - 1;
    std::uint64_t m_ui64Packets = 0;
    std::uint64_t m_ui64Octets = 0;
    std::int64_t m_i64LastSent = 0;
    std::uint32_t m_ui32Ssrc = 0;
    std::uint32_t m_ui32LastTimestamp = 0;
    std::uint32_t m_ui32TimestampOffset = 0;
    std::uint16_t m_ui16NextSequence = 0;
    std::uint16_t m_ui16SequenceOffset = 0;
};

}  // namespace Quorvex
