#include "TxStream.h"

#include "RtpPacket.h"

namespace Quorvex
{

void TxStream::initialize(std::uint32_t in_ui32Ssrc,
                          std::uint16_t in_ui16Sequence,
                          std::uint32_t in_ui32Timestamp)
{
    m_ui32Ssrc = in_ui32Ssrc;
    m_ui16NextSequence = in_ui16Sequence;
    m_ui32LastTimestamp = in_ui32Timestamp;
}

std::uint32_t TxStream::timestampAt(std::int64_t in_i64Now) const
{
    return m_i64LastSent == 0 ? m_ui32LastTimestamp
                              : m_ui32LastTimestamp +
                                    static_cast<std::uint32_t>((in_i64Now - m_i64LastSent) / NS_PER_SAMPLE);
}

TxStream::Numbers TxStream::relay(std::uint64_t in_ui64Source,
                                  std::uint16_t in_ui16Sequence,
                                  std::uint32_t in_ui32Timestamp,
                                  std::int64_t in_i64Now)
{
    const bool bNew = in_ui64Source != m_ui64Source;
    if (bNew)
    {
        m_ui64Source = in_ui64Source;
        m_ui16SequenceOffset = static_cast<std::uint16_t>(m_ui16NextSequence - in_ui16Sequence);
        m_ui32TimestampOffset = timestampAt(in_i64Now) - in_ui32Timestamp;
    }
    const auto ui16Sequence = static_cast<std::uint16_t>(in_ui16Sequence + m_ui16SequenceOffset);
    const std::uint32_t ui32Timestamp = in_ui32Timestamp + m_ui32TimestampOffset;
    // A packet that was overtaken keeps its place and does not turn the stream back.
    if (static_cast<std::int16_t>(ui16Sequence - m_ui16NextSequence) >= 0)
    {
        advance(ui16Sequence, ui32Timestamp, in_i64Now);
    }
    return {ui16Sequence, ui32Timestamp, bNew};
}

TxStream::Numbers TxStream::clocked(unsigned in_uiSamples, std::int64_t in_i64Now)
{
    const bool bNew = m_ui64Source != CLOCK_SOURCE;
    if (bNew)
    {
        m_ui64Source = CLOCK_SOURCE;
        m_ui32TimestampOffset = timestampAt(in_i64Now);
    }
    const Numbers numbers{m_ui16NextSequence, m_ui32TimestampOffset, bNew};
    advance(numbers.m_ui16Sequence, numbers.m_ui32Timestamp, in_i64Now);
    m_ui32TimestampOffset += in_uiSamples;
    return numbers;
}

TxStream::Numbers TxStream::inserted(std::uint32_t in_ui32Timestamp)
{
    const Numbers numbers{m_ui16NextSequence, in_ui32Timestamp, false};
    ++m_ui16NextSequence;
    ++m_ui16SequenceOffset;
    return numbers;
}

void TxStream::advance(std::uint16_t in_ui16Sequence, std::uint32_t in_ui32Timestamp, std::int64_t in_i64Now)
{
    m_ui16NextSequence = static_cast<std::uint16_t>(in_ui16Sequence + 1);
    m_ui32LastTimestamp = in_ui32Timestamp;
    m_i64LastSent = in_i64Now;
}

}  // namespace Quorvex
