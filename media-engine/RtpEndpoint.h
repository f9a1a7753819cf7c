#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "AudioSource.h"
#include "DirectionConfig.h"
#include "JitterBuffer.h"
#include "Latch.h"
#include "Recorder.h"
#include "RtcpSession.h"
#include "RtpPacket.h"
#include "RxAnalysis.h"
#include "RxStatistics.h"
#include "TelephoneEvent.h"
#include "TxStream.h"
#include "infra/MemAccount.h"
#include "media/MediaEndpointCallback.h"
#include "media/MediaEndpointSpec.h"
#include "media/MediaStatistics.h"

namespace Quorvex
{

class CallGroup;
class MediaThread;
class RtpEndpoint;

/// What a readable descriptor belongs to.
struct SocketSlot
{
    RtpEndpoint* m_pEndpoint;
    bool m_bRtcp;
};

/// The media thread's side of an endpoint: its sockets, its stream in either direction, and where its sound
/// goes and comes from, which the endpoint's group decides. Media thread only.
class RtpEndpoint
{
public:
    QUORVEX_MEM_ACCOUNT("RtpEndpoint");

    struct Identity
    {
        std::uint32_t m_uiId = 0;
        std::string m_strCallId;
        std::string m_strEptId;
        /// The endpoint that this one serves; empty for a party of the call.
        std::string m_strTargetId;
        MediaEndpointSpec::Type m_type = MediaEndpointSpec::SND_RECV_TYPE;
        /// Which of its call's parties it is, from 0.
        unsigned m_uiPartyIndex = 0;
    };

    RtpEndpoint(MediaThread& in_thread,
                Identity in_identity,
                std::unique_ptr<MediaEndpointCallback> in_pCallback);
    RtpEndpoint(const RtpEndpoint&) = delete;
    RtpEndpoint& operator=(const RtpEndpoint&) = delete;
    ~RtpEndpoint();

    /// Binds the port and reports the capacity, or its failure.
    void open(CallGroup& in_group);

    /// What the owner of the endpoint asked for; each is reported to the callback.
    void configure(MediaEndpoint::Direction in_direction, bool in_bValid, const DirectionConfig& in_config);
    void start(MediaEndpoint::Direction in_direction);
    void stop(MediaEndpoint::Direction in_direction);

    const Identity& getIdentity() const { return m_identity; }
    CallGroup* getGroup() const { return m_pGroup; }
    bool isOpen() const { return m_iSocket >= 0; }
    int getSocket() const { return m_iSocket; }
    SocketSlot& getRtpSlot() { return m_rtpSlot; }
    SocketSlot& getRtcpSlot() { return m_rtcpSlot; }
    /// -1 when there is none.
    int getRtcpSocket() const { return m_pRtcp == nullptr ? -1 : m_pRtcp->getSocket(); }
    std::uint64_t getPacketsSent() const { return m_txStream.getPackets(); }
    std::uint64_t getPacketsDropped() const { return m_ui64Dropped; }
    bool isReceiving() const { return m_rx.m_bStarted; }
    bool isSending() const { return m_tx.m_bStarted; }
    unsigned getRxPacketSizeMs() const { return m_rx.m_config.m_uiPacketSizeMs; }
    unsigned getTxPacketSizeMs() const { return m_tx.m_config.m_uiPacketSizeMs; }

    /// The group's decision. Everything is cleared first, then set anew.
    struct Plan
    {
        /// Who gets what this endpoint receives, packet by packet.
        std::vector<RtpEndpoint*> m_vRelayTo;
        /// Who gets a copy of what this endpoint sends.
        std::vector<RtpEndpoint*> m_vForks;
        /// Whose sound is mixed into what this endpoint sends on the clock.
        std::vector<RtpEndpoint*> m_vMix;
        /// Whether somebody mixes this endpoint's sound.
        bool m_bMixed = false;
        /// Whether this endpoint sends on the clock: the mix, else the source, else silence.
        bool m_bClocked = false;
    };
    Plan& getPlan() { return m_plan; }
    /// To be called when the plan is complete. The recipe is what the endpoint plays when it mixes nothing.
    void applyPlan(const AudioRecipePtr& in_pRecipe);

    /// A datagram on the RTP port.
    void receive(const std::uint8_t* in_pData,
                 std::size_t in_uiSize,
                 const SocketAddress& in_from,
                 std::int64_t in_i64Now);
    /// A datagram on the RTP port that was larger than the engine takes.
    void countDropped() { ++m_ui64Dropped; }
    /// The same on the RTCP port.
    void receiveRtcp(const std::uint8_t* in_pData,
                     std::size_t in_uiSize,
                     const SocketAddress& in_from,
                     std::int64_t in_i64Now);
    /// Time for a report; false when none is due any more.
    bool sendReport(std::int64_t in_i64Now);
    /// Time for call-progress analysis to notice that nothing comes; false when it is over.
    bool passAnalysisTime(std::int64_t in_i64Now);
    /// Counts a datagram; false when there were so many that the socket is to be left alone for a while.
    bool isWithinRate(std::int64_t in_i64Now);
    bool isReading() const { return m_bReading; }
    unsigned getClockMs() const { return m_uiClockMs; }
    void setClockMs(unsigned in_uiClockMs) { m_uiClockMs = in_uiClockMs; }
    void setReadingState(bool in_bReading) { m_bReading = in_bReading; }
    /// A packet that another endpoint received.
    void sendRelayed(const RtpEndpoint& in_from, const RtpPacket& in_packet, std::int64_t in_i64Now);
    /// The clock: time for the next packet.
    void onClock(std::int64_t in_i64Now);
    /// The clock of telephone events, every 20 ms while digits are being sent. False when there are no more.
    bool onEventClock(std::int64_t in_i64Now);

    void sendDigits(const std::string& in_strDigits, unsigned in_uiDurationMs);

    StreamStatistics getStatistics() const;

private:
    struct Side
    {
        bool m_bConfigured = false;
        bool m_bStarted = false;
        DirectionConfig m_config;
    };

    Side& side(MediaEndpoint::Direction in_direction)
    {
        return in_direction == MediaEndpoint::RX_DIRECTION ? m_rx : m_tx;
    }
    void receiveEvent(const RtpPacket& in_packet, std::int64_t in_i64Now);
    void receiveSound(const RtpPacket& in_packet, std::int64_t in_i64Now);
    /// Sends a payload, and to the forks a copy of sound. The law is that of the payload, which is transcoded
    /// if needed.
    void sendSound(TxStream::Numbers in_numbers,
                   bool in_bMarker,
                   unsigned in_uiPayloadType,
                   const std::uint8_t* in_pPayload,
                   std::size_t in_uiSize,
                   std::int64_t in_i64Now);
    void sendEvent(TxStream::Numbers in_numbers,
                   bool in_bMarker,
                   const std::uint8_t* in_pPayload,
                   std::size_t in_uiSize);
    std::uint8_t* addPacket(TxStream::Numbers in_numbers,
                            bool in_bMarker,
                            unsigned in_uiPayloadType,
                            std::size_t in_uiSize);
    void report(bool in_bTaken);
    void startTaps();
    void reportAnalysis();
    void digitHeard(char in_cDigit, unsigned in_uiDurationMs);
    void sendDigitTones(const std::string& in_strDigits, unsigned in_uiDurationMs);
    void nextTones();
    void openRtcp();
    void sendRtcp(bool in_bBye, std::int64_t in_i64Now);

    MediaThread& m_thread;
    const Identity m_identity;
    const std::unique_ptr<MediaEndpointCallback> m_pCallback;
    CallGroup* m_pGroup = nullptr;

    SocketSlot m_rtpSlot{this, false};
    SocketSlot m_rtcpSlot{this, true};
    int m_iSocket = -1;
    unsigned m_uiPort = 0;
    Side m_rx;
    Side m_tx;
    Plan m_plan;

    Latch m_latch;
    RxStatistics m_statistics;
    TelephoneEventReceiver m_eventReceiver;
    std::uint64_t m_ui64Dropped = 0;
    // Of the window that began then.
    unsigned m_uiInWindow = 0;
    std::int64_t m_i64Window = 0;
    bool m_bReading = true;

    std::unique_ptr<RtcpSession> m_pRtcp;
    bool m_bReportDue = false;

    TxStream m_txStream;
    std::unique_ptr<TelephoneEventSender> m_pEventSender;
    // Relayed events keep one timestamp through the renumbering of a mixed stream.
    std::uint32_t m_ui32EventIn = 0;
    std::uint32_t m_ui32EventOut = 0;

    std::unique_ptr<RxAnalysis> m_pAnalysis;
    // Call-progress analysis is done once in a call.
    bool m_bAnalysed = false;
    std::unique_ptr<Recorder> m_pRecorder;

    std::unique_ptr<JitterBuffer> m_pJitterBuffer;
    std::vector<JitterBuffer::Cursor> m_vCursors;
    AudioRecipePtr m_pRecipe;
    std::unique_ptr<AudioSource> m_pSource;
    // Digits as tones, in the place of everything else.
    std::unique_ptr<AudioSource> m_pTones;
    std::string m_strToneDigits;
    unsigned m_uiToneMs = 0;
    // Of the clock that calls this endpoint; 0: none.
    unsigned m_uiClockMs = 0;
};

}  // namespace Quorvex
