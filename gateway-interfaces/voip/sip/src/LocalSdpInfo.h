#pragma once

#include <string>

#include "SdpInfo.h"
#include "infra/MemAccount.h"
#include "media/MediaEndpointCapacity.h"

namespace Quorvex
{

class ROConfiguration;

/// One stream of ours: what the media engine and the configuration allow (the offer), narrowed down to what
/// the far end can do as well (the negotiation). Task thread.
///
///   we offer:      initLocalOffer() -> the far end's answer -> setRemoteAnswer()
///   they offer:    initLocalAnswer()
class LocalSdpInfo final : public SdpInfo
{
public:
    QUORVEX_MEM_ACCOUNT("LocalSdpInfo");

    /// @param in_strLocalAddress written into the section of a stream that is rejected
    explicit LocalSdpInfo(std::string in_strLocalAddress) : m_strLocalAddress(std::move(in_strLocalAddress))
    {
    }

    /// Describes everything we can do. False, with the stream invalid, when that is nothing.
    bool initLocalOffer(const MediaEndpointCapacity& in_capacity,
                        const ROConfiguration& in_config,
                        Media::StreamMode in_mode);

    /// Describes our answer to an offered stream: accepted, or rejected when there is no common ground (the
    /// stream is then invalid, and the section a rejection). False when not even that could be made.
    bool initLocalAnswer(const MediaEndpointCapacity& in_capacity,
                         const ROConfiguration& in_config,
                         const SdpInfo& in_remote);

    /// Narrows our offer down to what the far end answered; the stream is invalid when that does not fit the
    /// offer.
    bool setRemoteAnswer(const SdpInfo& in_remote);

    /// What to send where, once negotiated; invalid before.
    const Fallible<RtpMediaConfigData>& getRemoteConfig() const { return m_remoteConfig; }

    /// The section of a description of ours, made anew; nil while nothing has been described.
    DsHandle<DsSdpMediaDescription> makeSection() const;

private:
    /// What we offered: what each answer to it is measured against.
    struct Offer
    {
        std::vector<unsigned> m_vPayloadType;
        Media::StreamMode m_mode;
        RtpMediaConfigData m_config;
    };

    // NOLINTNEXTLINE(readability-identifier-naming): the name that the log shows
    bool initLocal_i(const MediaEndpointCapacity& in_capacity,
                     const ROConfiguration& in_config,
                     Media::StreamMode in_mode);
    bool initPayloadTypes(const MediaEndpointCapacity& in_capacity, const ROConfiguration& in_config);
    void initPacketTime(const ROConfiguration& in_config);
    bool initTelephoneEvents(const MediaEndpointCapacity& in_capacity);
    bool describe();
    bool applyRemoteSdp(const SdpInfo& in_remote, bool in_bRemoteAnswer);
    bool negotiate(const SdpInfo& in_remote, bool in_bRemoteAnswer);
    bool negotiateMode(Media::StreamMode in_remoteMode, bool in_bRemoteAnswer);
    void negotiatePacketSizes(const SdpInfo& in_remote);
    bool reject(const SdpInfo& in_remote);

    std::vector<unsigned> m_vPacketSize;  // that the engine can do, in ms; empty: any
    std::string m_strLocalAddress;
    bool m_bDescribed = false;
    Fallible<RtpMediaConfigData> m_remoteConfig;
    Fallible<Offer> m_offer;
};

}  // namespace Quorvex
