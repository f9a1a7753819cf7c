#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace Quorvex
{

/// What is written about one leg of a call when it has ended. A value.
struct CallRecord
{
    /// A moment on the clock that nobody sets: what lies between two of them is what really passed.
    using Time = std::chrono::steady_clock::time_point;
    /// What is written of one.
    using TimeOfDay = std::chrono::system_clock::time_point;

    enum class Direction
    {
        IN,
        OUT
    };
    enum class EndedBy
    {
        LOCAL,        ///< a route, an operator, or the other leg of the call
        REMOTE,       ///< the leg's own far end
        TIMEOUT,      ///< nothing came in time
        UNREACHABLE,  ///< the network knows no way to the far end
        STOP          ///< the gateway's stop
    };

    /// Figures of the leg's audio stream.
    struct Rtp
    {
        std::uint64_t m_ui64Sent = 0;
        std::uint64_t m_ui64Received = 0;
        std::uint64_t m_ui64Lost = 0;
        double m_fJitterMs = 0;
        /// 1 to 4.5; 0 when nothing was received.
        double m_fMos = 0;
    };

    std::string m_strCall;
    /// Which leg of its call, from 0 in the order of creation.
    unsigned m_uiLeg = 0;
    Direction m_direction = Direction::IN;
    std::string m_strSipCallId;
    std::string m_strFrom;
    std::string m_strTo;
    /// The route's name; empty when no route was found.
    std::string m_strRoute;

    Time m_invited;
    /// What the clock showed then. The other times are written as this and what has passed since: the
    /// differences stay right when the clock is set meanwhile.
    TimeOfDay m_invitedAt;
    // Of an outbound leg, for the metrics only: when the call that it belongs to arrived (its first leg's
    // alone), when its INVITE went out, and when there was first something to hear.
    std::optional<Time> m_callArrived;
    std::optional<Time> m_sent;
    std::optional<Time> m_alerted;
    std::optional<Time> m_ringing;
    std::optional<Time> m_answered;
    Time m_ended;
    EndedBy m_endedBy = EndedBy::REMOTE;
    /// The final SIP status that the INVITE got; of an outbound one that got none, what stands for its
    /// failure. 0 when there is none at all.
    unsigned m_uiStatus = 0;
    /// One sentence or a reason phrase, for a person.
    std::string m_strReason;
    /// "PCMU"; empty when no media were set up.
    std::string m_strCodec;
    std::optional<Rtp> m_rtp;
    /// What call-progress analysis heard; empty when it was not asked for.
    std::string m_strCpa;

    /// The record as one line of JSON without the line's end. Members without a value are null; text that is
    /// not UTF-8 has its bad bytes replaced.
    std::string toJson() const;
};

/// "in" and "out"; "local", "remote", "timeout" and "stop".
const char* toText(CallRecord::Direction in_direction);
const char* toText(CallRecord::EndedBy in_endedBy);

/// "2031-05-04T10:00:00.123Z".
std::string toRfc3339(CallRecord::TimeOfDay in_time);

}  // namespace Quorvex
