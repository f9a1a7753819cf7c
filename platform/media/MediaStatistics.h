#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "infra/LimitedObjPtr.h"
#include "infra/Object.h"

namespace Quorvex
{

/// Figures of one endpoint's stream from its beginning.
struct StreamStatistics
{
    std::string m_strCallId;
    /// Which send-and-receive endpoint of its call, counted from 0 in the order of creation: the first leg's
    /// is 0.
    unsigned m_uiIndex = 0;
    unsigned m_uiLocalPort = 0;
    /// "10.0.0.5:40000"; empty before one is known.
    std::string m_strRemote;
    /// The encoding name of what is received, else sent: "PCMU"; empty when nothing was configured.
    std::string m_strCodec;

    std::uint64_t m_ui64Sent = 0;
    std::uint64_t m_ui64Received = 0;
    /// Expected less received, duplicates not counted; never negative.
    std::uint64_t m_ui64Lost = 0;
    std::uint64_t m_ui64Duplicates = 0;
    std::uint64_t m_ui64Reordered = 0;
    /// Datagrams that were no acceptable RTP: too short, another version, an unknown payload type, a
    /// stranger's.
    std::uint64_t m_ui64Dropped = 0;
    /// Interarrival jitter of RFC 3550.
    double m_fJitterMs = 0;
    double m_fMaxJitterMs = 0;
    /// What the far end says it lost of our packets, 0 to 1, and the round trip in ms; negative when it never
    /// said.
    double m_fRemoteLossRate = -1;
    double m_fRoundTripMs = -1;
    /// Mean opinion score estimated by the E-model of ITU-T G.107 from codec, loss and jitter, 1 to 4.5; 0
    /// when nothing was received.
    double m_fMos = 0;
};

/// Figures of the whole engine.
struct MediaTotals
{
    std::uint64_t m_ui64Endpoints = 0;
    std::uint64_t m_ui64FreePortPairs = 0;
    std::uint64_t m_ui64PortPairs = 0;
    std::uint64_t m_ui64PacketsReceived = 0;
    std::uint64_t m_ui64PacketsSent = 0;
    std::uint64_t m_ui64PacketsDropped = 0;
    std::uint64_t m_ui64CapacityFailures = 0;
    /// Ticks of the 20 ms clock that came more than 20 ms late.
    std::uint64_t m_ui64LateTicks = 0;
};

/// Is told of what happens on the streams, on a media thread: hand it to a queue and return.
class MediaObserver
{
public:
    MediaObserver() = default;
    MediaObserver(const MediaObserver&) = delete;
    MediaObserver& operator=(const MediaObserver&) = delete;
    virtual ~MediaObserver() = default;

    /// An endpoint has ended, with its final figures; once for each endpoint that had a port.
    virtual void streamEnded(const StreamStatistics& in_statistics) = 0;
    /// What was attached to the call has played to its end (never reported for echo, a repeated file or a
    /// tone without end).
    virtual void playEnded(const std::string& in_strCallId) = 0;
    /// A digit ('0' to '9', '*', '#', 'A' to 'D') has come in, once for each press.
    virtual void digitReceived(const std::string& in_strCallId, unsigned in_uiIndex, char in_cDigit) = 0;
};

/// How the host of a media engine looks at its streams; an engine that offers it derives from it. Any thread.
class MediaStatisticsSource : public virtual Object
{
public:
    /// Sets the one observer, or none (null). After the return the former one is not called any more, so this
    /// must not be called from inside an observer.
    virtual void setMediaObserver(LimitedObjPtr<MediaObserver> in_pObserver) = 0;
    /// The live endpoints of a call, in the order of creation; the figures are at most a few packets old.
    virtual std::vector<StreamStatistics> getStreamStatistics(const std::string& in_strCallId) = 0;
    /// Those of a moment ago when the media thread does not answer within a second.
    virtual MediaTotals getTotals() = 0;
    /// Has the media thread call the function, later; returns at once. False when there is no such thread.
    /// For watchdogs.
    virtual bool ping(const std::function<void()>& /*in_done*/) { return false; }
};

}  // namespace Quorvex
