#pragma once

#include <cstddef>
#include <cstdint>

namespace Quorvex
{

/// Sound is sampled at 8 kHz everywhere in the engine, and RTP timestamps count samples.
constexpr unsigned SAMPLES_PER_MS = 8;
constexpr std::int64_t NS_PER_MS = 1'000'000;
constexpr std::int64_t NS_PER_SAMPLE = NS_PER_MS / SAMPLES_PER_MS;

constexpr unsigned PCMU_PAYLOAD_TYPE = 0;
constexpr unsigned PCMA_PAYLOAD_TYPE = 8;
constexpr unsigned COMFORT_NOISE_PAYLOAD_TYPE = 13;

inline std::uint16_t readU16(const std::uint8_t* in_p)
{
    return static_cast<std::uint16_t>((in_p[0] << 8) | in_p[1]);
}
inline std::uint32_t readU32(const std::uint8_t* in_p)
{
    return (std::uint32_t{readU16(in_p)} << 16) | readU16(in_p + 2);
}
inline void writeU16(std::uint8_t* out_p, std::uint16_t in_ui16Value)
{
    out_p[0] = static_cast<std::uint8_t>(in_ui16Value >> 8);
    out_p[1] = static_cast<std::uint8_t>(in_ui16Value);
}
inline void writeU32(std::uint8_t* out_p, std::uint32_t in_ui32Value)
{
    writeU16(out_p, static_cast<std::uint16_t>(in_ui32Value >> 16));
    writeU16(out_p + 2, static_cast<std::uint16_t>(in_ui32Value));
}

/// One RTP packet (RFC 3550 section 5.1); the payload stays where it was received.
struct RtpPacket
{
    static constexpr std::size_t HEADER_SIZE = 12;

    std::uint8_t m_ui8PayloadType = 0;
    bool m_bMarker = false;
    std::uint16_t m_ui16Sequence = 0;
    std::uint32_t m_ui32Timestamp = 0;
    std::uint32_t m_ui32Ssrc = 0;
    const std::uint8_t* m_pPayload = nullptr;
    std::size_t m_uiPayloadSize = 0;

    /// False when the bytes are no RTP packet of version 2 with consistent lengths, or are RTCP (RFC 5761
    /// section 4).
    bool parse(const std::uint8_t* in_pData, std::size_t in_uiSize)
    {
        if (in_uiSize < HEADER_SIZE || (in_pData[0] >> 6) != 2)
        {
            return false;
        }
        m_bMarker = (in_pData[1] & 0x80) != 0;
        m_ui8PayloadType = in_pData[1] & 0x7f;
        if (m_ui8PayloadType >= 64 && m_ui8PayloadType <= 95)
        {
            return false;
        }
        m_ui16Sequence = readU16(in_pData + 2);
        m_ui32Timestamp = readU32(in_pData + 4);
        m_ui32Ssrc = readU32(in_pData + 8);
        std::size_t uiHeader = HEADER_SIZE + std::size_t{4} * (in_pData[0] & 0x0fU);
        if ((in_pData[0] & 0x10) != 0)
        {
            if (in_uiSize < uiHeader + 4)
            {
                return false;
            }
            uiHeader += 4 + std::size_t{4} * readU16(in_pData + uiHeader + 2);
        }
        if (in_uiSize < uiHeader)
        {
            return false;
        }
        m_pPayload = in_pData + uiHeader;
        m_uiPayloadSize = in_uiSize - uiHeader;
        if ((in_pData[0] & 0x20) != 0)
        {
            const std::size_t uiPadding = in_pData[in_uiSize - 1];
            if (uiPadding == 0 || uiPadding > m_uiPayloadSize)
            {
                return false;
            }
            m_uiPayloadSize -= uiPadding;
        }
        return true;
    }

    /// Writes the fixed header in front of a payload.
    void writeHeader(std::uint8_t* out_pData) const
    {
        out_pData[0] = 0x80;
        out_pData[1] = static_cast<std::uint8_t>((m_bMarker ? 0x80U : 0U) | m_ui8PayloadType);
        writeU16(out_pData + 2, m_ui16Sequence);
        writeU32(out_pData + 4, m_ui32Timestamp);
        writeU32(out_pData + 8, m_ui32Ssrc);
    }
};

}  // namespace Quorvex
