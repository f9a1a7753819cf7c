#include "TelephoneEvent.h"

#include <algorithm>
#include <string_view>

#include "RtpPacket.h"

namespace Quorvex
{

namespace
{

constexpr std::string_view DIGITS = "0123456789*#ABCD";
// A sender repeats the last packet within this time; a new press comes later or with another timestamp and
// marker.
constexpr std::int64_t REPEAT_NS = 100 * NS_PER_MS;
constexpr std::uint8_t END_BIT = 0x80;
constexpr std::uint8_t LEVEL_MINUS_10_DBM0 = 10;
constexpr unsigned SAMPLES_PER_TICK = TelephoneEventSender::PERIOD_MS * SAMPLES_PER_MS;

}  // namespace

char TelephoneEvent::digitOf(unsigned in_uiCode)
{
    return in_uiCode < DIGITS.size() ? DIGITS[in_uiCode] : '\0';
}

int TelephoneEvent::codeOf(char in_cDigit)
{
    const std::size_t pos = DIGITS.find(in_cDigit);
    return pos == std::string_view::npos ? -1 : static_cast<int>(pos);
}

char TelephoneEventReceiver::receive(const std::uint8_t* in_pPayload,
                                     std::size_t in_uiSize,
                                     std::uint32_t in_ui32Timestamp,
                                     bool in_bMarker,
                                     std::int64_t in_i64Now)
{
    if (in_uiSize < TelephoneEvent::PAYLOAD_SIZE)
    {
        return '\0';
    }
    const std::uint8_t ui8Code = in_pPayload[0];
    const bool bEnd = (in_pPayload[1] & END_BIT) != 0;
    bool bNew = !m_bHeard || ui8Code != m_ui8Code;
    if (!bNew && in_ui32Timestamp != m_ui32Timestamp)
    {
        const bool bOlder = static_cast<std::int32_t>(in_ui32Timestamp - m_ui32Timestamp) < 0;
        const bool bRepeatedEnd = m_bEnded && bEnd && in_i64Now - m_i64LastHeard < REPEAT_NS;
        bNew = in_bMarker || (m_bEnded && !bRepeatedEnd && !bOlder) ||
               in_i64Now - m_i64LastHeard > 5 * REPEAT_NS;
    }
    m_i64LastHeard = in_i64Now;
    if (bNew)
    {
        m_bHeard = true;
        m_bEnded = false;
        m_ui8Code = ui8Code;
        m_ui32Timestamp = in_ui32Timestamp;
    }
    m_bEnded = m_bEnded || bEnd;
    return bNew ? TelephoneEvent::digitOf(ui8Code) : '\0';
}

void TelephoneEventSender::add(const std::string& in_strDigits, unsigned in_uiDurationMs)
{
    const unsigned uiTicks = (std::clamp(in_uiDurationMs, PERIOD_MS, 8000U) + PERIOD_MS - 1) / PERIOD_MS;
    m_uiDuration = std::min(uiTicks * SAMPLES_PER_TICK, 0xffffU);
    m_strDigits += in_strDigits;
}

bool TelephoneEventSender::tick(std::uint32_t in_ui32TimestampNow, Packet& out_packet)
{
    if (m_uiGapLeft > 0)
    {
        --m_uiGapLeft;
        return false;
    }
    if (m_strDigits.empty())
    {
        return false;
    }
    if (m_uiSent == 0)
    {
        m_ui32Timestamp = in_ui32TimestampNow;
    }
    out_packet.m_bMarker = m_uiSent == 0;
    out_packet.m_ui32Timestamp = m_ui32Timestamp;
    m_uiSent = std::min(m_uiSent + SAMPLES_PER_TICK, m_uiDuration);
    const bool bEnd = m_uiSent == m_uiDuration && !out_packet.m_bMarker;
    out_packet.m_payload[0] = static_cast<std::uint8_t>(TelephoneEvent::codeOf(m_strDigits.front()));
    out_packet.m_payload[1] = LEVEL_MINUS_10_DBM0 | (bEnd ? END_BIT : 0);
    writeU16(out_packet.m_payload + 2, static_cast<std::uint16_t>(m_uiSent));
    if (bEnd && ++m_uiEndsSent == END_PACKETS)
    {
        m_strDigits.erase(0, 1);
        m_uiSent = 0;
        m_uiEndsSent = 0;
        m_uiGapLeft = GAP_TICKS;
    }
    return true;
}

}  // namespace Quorvex
