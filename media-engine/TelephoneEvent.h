#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace Quorvex
{

/// Telephone events of RFC 4733: digits outside the sound.
namespace TelephoneEvent
{

constexpr std::size_t PAYLOAD_SIZE = 4;
constexpr unsigned DEFAULT_PAYLOAD_TYPE = 101;

/// The digit of an event code (0 to 15), or 0.
char digitOf(unsigned in_uiCode);
/// The event code of a digit ('0' to '9', '*', '#', 'A' to 'D'), or -1.
int codeOf(char in_cDigit);

}  // namespace TelephoneEvent

/// Finds the digits in received events: each press once, although its packets are many, the last three times,
/// and some senders change the timestamp inside an event. One thread.
class TelephoneEventReceiver
{
public:
    /// The digit that begins with this packet, or 0.
    char receive(const std::uint8_t* in_pPayload,
                 std::size_t in_uiSize,
                 std::uint32_t in_ui32Timestamp,
                 bool in_bMarker,
                 std::int64_t in_i64Now);

private:
    bool m_bHeard = false;
    bool m_bEnded = false;
    std::uint8_t m_ui8Code = 0;
    std::uint32_t m_ui32Timestamp = 0;
    std::int64_t m_i64LastHeard = 0;
};

/// Makes the packets of digits to be sent: one every 20 ms, one timestamp for each event, its last packet
/// three times. One thread.
class TelephoneEventSender
{
public:
    struct Packet
    {
        std::uint8_t m_payload[TelephoneEvent::PAYLOAD_SIZE];
        /// Of the event's beginning.
        std::uint32_t m_ui32Timestamp;
        bool m_bMarker;
    };

    /// How often tick() is to be called.
    static constexpr unsigned PERIOD_MS = 20;

    /// Sends digits after those that wait. The duration of each is rounded up to the period, at most 8 s.
    void add(const std::string& in_strDigits, unsigned in_uiDurationMs);
    bool isBusy() const { return !m_strDigits.empty(); }
    /// Whether an event is being sent at this moment: the sound pauses.
    bool isSounding() const { return isBusy() && m_uiGapLeft == 0; }

    /// The packet of this tick; false when there is none (between two digits).
    bool tick(std::uint32_t in_ui32TimestampNow, Packet& out_packet);

private:
    static constexpr unsigned END_PACKETS = 3;
    static constexpr unsigned GAP_TICKS = 3;

    std::string m_strDigits;
    unsigned m_uiDuration = 0;
    unsigned m_uiSent = 0;
    unsigned m_uiEndsSent = 0;
    unsigned m_uiGapLeft = 0;
    std::uint32_t m_ui32Timestamp = 0;
};

}  // namespace Quorvex
