#pragma once

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "Sdp.h"
#include "VoipMediaStream.h"
#include "infra/Logger.h"
#include "infra/MemAccount.h"

namespace Quorvex
{

class CallLegInfo;
class MediaEndpointConfig;
class ROConfiguration;
class VoipEndpointFactory;
class VoipOpStatusMediaEvent;
class VoipStateMachineNoT;

/// The media of one call: its streams, each an endpoint of the media engine, and the offers and answers that
/// say what the streams do. The engine's outcomes come back as events, never from inside a call. Task thread.
///
///   made -> initialize() -> streams: configure() from our leg, or setSdpOffer() from the far end's offer
///        -> setCapacity() for each stream -> allCapacitiesReceived()
///   they offer: setSdpOffer() -> isSdpOfferValid() -> generateSdpAnswer()
///   we offer:   generateSdpOffer() -> setSdpAnswer()
///   startAll() -> relayMediaOpEvent() ... -> isAllStarted(); again after each re-INVITE; hold() ->
///   isAllOnHold() stopAll(), once: nothing starts afterwards.
///
/// An offer of the far end becomes the call's state when the answer to it has been written. Until then it can
/// be taken back: everything is then as it was before the offer came (streams, descriptions, what
/// remoteHasMadeAnOffer() says). That happens by itself when setSdpOffer() or isSdpOfferValid() refuses an
/// offer, when startAll(), stopAll() or another offer finds one unanswered; rollbackSdpOffer() does it when
/// an offer is refused for any other reason. The first offer of a call has nothing to go back to and stays.
class VoipMedia final : public ObjectWithLoggerImpl<LoggingIdLogger>
{
public:
    QUORVEX_MEM_ACCOUNT("VoipMedia");

    /// The factory must outlive this object.
    explicit VoipMedia(VoipEndpointFactory& in_factory);
    VoipMedia(const VoipMedia&) = delete;
    VoipMedia& operator=(const VoipMedia&) = delete;
    ~VoipMedia() override;

    /// What each endpoint request names: the call, and the machine that gets the reports. Always true.
    bool initialize(const std::string& in_strCallId, const VoipStateMachineNoT* in_pStateMachine);

    /// Makes a stream for each child of the leg's "media.rtp", and takes the leg's analysis and recording
    /// wishes. False when the leg has no such node; a stream that cannot be made is logged and left out.
    bool configure(const CallLegInfo& in_leg);

    /// Stores what the engine can do for a stream. Takes the capacity, whatever the result; false when it is
    /// not usable or not for a stream of ours.
    bool setCapacity(unsigned in_uiStreamId,
                     MediaEndpoint::Direction in_direction,
                     MediaEndpointCapacity* in_pCapacity);
    bool allCapacitiesReceived() const;

    /// Writes an offer of all streams. False, with nothing written, when a stream has nothing to offer.
    bool generateSdpOffer(const ROConfiguration& in_config, std::ostream& out_stream);

    /// Takes the far end's offer out of an INVITE; an INVITE without one asks for ours, which is well. Makes
    /// streams for sections that have none yet; their capacities then have to be waited for.
    bool setSdpOffer(const DsHandle<DsSipMessage>& in_hMsg);
    /// Whether the offer taken last was no SDP, so that the far end is at fault when it was refused.
    bool isOfferUnreadable() const { return m_bOfferUnreadable; }

    /// Negotiates the offer taken. False when not a single stream of it can be used.
    bool isSdpOfferValid(const ROConfiguration& in_config);

    /// Writes the answer to the offer, which becomes the call's state.
    bool generateSdpAnswer(std::ostream& out_stream);

    /// Takes the far end's answer to our offer. May be called again for a later answer to the same offer.
    bool setSdpAnswer(const DsHandle<DsSipMessage>& in_hMsg);

    /// Takes back an offer that was not answered. Repeatable; without such an offer it does nothing.
    void rollbackSdpOffer();

    /// Asks the engine to start or stop each direction as the descriptions say; what is as it should be is
    /// left alone.
    /// @param in_bCpaRequested analyse what is received, if the leg has that enabled
    bool startAll(bool in_bCpaRequested);
    /// Asks the engine to stop both directions of every stream.
    bool hold();
    /// Stops every stream without waiting for the outcome and releases the endpoints.
    bool stopAll();

    /// Whether every direction is as the descriptions say.
    bool isAllStarted() const;
    /// Whether every direction of every stream has stopped.
    bool isAllOnHold() const;
    /// Whether stopAll() was called.
    bool isAllStopped() const { return m_bStopped; }

    /// Applies the outcome of something that was asked of an endpoint. False when it failed or does not fit.
    bool relayMediaOpEvent(const VoipOpStatusMediaEvent* in_pEvent);

    /// Adds the directions of the streams to what the call engine learns about the leg.
    bool fillLegInfo(CallLegInfo& io_leg);

    /// The local address that descriptions name.
    void setUserAgentIPAddress(const std::string& in_strAddress) { m_strLocalAddress = in_strAddress; }
    /// How long a host name in a remote description may take to resolve.
    void setNameResolutionTimeoutMs(int in_iTimeoutMs) { m_sdp.setResolveTimeoutMs(in_iTimeoutMs); }
    /// Whether the far end's last offer or answer carried a description.
    bool remoteHasMadeAnOffer() const;
    /// Whether call-progress analysis is enabled for the leg.
    bool isCPAEnabled() const { return m_bCpaEnabled; }

    const Sdp& getSdp() const { return m_sdp; }
    std::size_t getStreamCount() const { return m_vMediaStreams.size(); }

private:
    using StreamVector = std::vector<std::unique_ptr<VoipMediaStream>>;

    /// What the two sides last agreed on: where a refused offer leads back to.
    struct AgreedState
    {
        Sdp m_sdp;
        bool m_bRemoteSdp;
        DsHandle<DsSipMessage> m_hRemoteSdpMessage;
        std::size_t m_streamCount;
        std::string m_strRecorderOutputIdHeader;
        bool m_bRecordCallHeader;
    };

    // Negotiation (VoipMediaSdp.cpp).
    bool takeOffer(const DsHandle<DsSipMessage>& in_hMsg);
    bool takeAnswer(const DsHandle<DsSipMessage>& in_hMsg);
    void rememberAgreed();
    void agree();
    void goBackToAgreed();

    // Streams and what they are made from (VoipMedia.cpp, VoipMediaLeg.cpp).
    bool createEndpoint(bool in_bRedirectReceive, Media::StreamMode in_mode);
    void configureRecordingFromHeaders(const DsSipMessage& in_msg);
    void configureRecordingFromHeaders(const CallLegInfo& in_leg);
    void fillSipInfo(const MediaEndpointCapacity& in_capacity, MediaEndpointConfig& io_config) const;
    bool engineAsksForSipData() const;

    // Running them (VoipMediaRun.cpp).
    bool applyDirections(std::size_t in_index, bool in_bCpa);
    bool startEndpoint(VoipMediaStream& io_stream,
                       const LocalSdpInfo& in_local,
                       MediaEndpoint::Direction in_direction,
                       bool in_bCpa);
    bool configureEndpoint(VoipMediaStream& io_stream,
                           const RtpMediaConfigData& in_config,
                           MediaEndpoint::Direction in_direction,
                           bool in_bCpa);
    bool runEndpoint(VoipMediaStream& io_stream, MediaEndpoint::Direction in_direction);
    void stopEndpoint(VoipMediaStream& io_stream, MediaEndpoint::Direction in_direction, bool in_bForce);
    bool applyOutcome(VoipMediaStream& io_stream, const VoipOpStatusMediaEvent& in_event);
    void doDeferred(VoipMediaStream& io_stream, MediaEndpoint::Direction in_direction);
    bool checkAllStarted(std::size_t in_index) const;
    bool checkDirections(const VoipMediaStream& in_stream,
                         const LocalSdpInfo& in_local,
                         Media::StreamMode in_remoteMode) const;
    const LocalSdpInfo* getLocalInfo(std::size_t in_index) const;
    const SdpInfo* getRemoteInfo(std::size_t in_index) const;

    VoipEndpointFactory& m_factory;
    StreamVector m_vMediaStreams;
    Sdp m_sdp;
    /// The far end's last offer or answer carried a description.
    bool m_bRemoteSdp = false;
    /// The message that did; kept beyond the agreement only for an engine that asks for SIP data.
    DsHandle<DsSipMessage> m_hRemoteSdpMessage;
    std::string m_strLocalAddress;
    std::string m_strCallId;
    const VoipStateMachineNoT* m_pStateMachine = nullptr;
    std::string m_strRecorderOutputIdHeader;
    /// Set while a re-negotiation is open.
    std::unique_ptr<AgreedState> m_pAgreed;
    bool m_bAgreedOnce = false;
    /// The far end's offer still waits for our answer.
    bool m_bOfferUnanswered = false;
    bool m_bOfferUnreadable = false;
    bool m_bCpaEnabled = false;
    bool m_bRecordCallHeader = false;
    bool m_bStopped = false;
};

}  // namespace Quorvex
