#pragma once

#include <iosfwd>
#include <vector>

#include "infra/Logger.h"
#include "infra/Object.h"
#include "media/Media.h"
#include "quorvex/Fallible.h"
#include "rtp/RtpMediaConfigData.h"
#include "sipstack/DsSdpMsg.h"

namespace Quorvex
{

/// One media stream as one side describes it: what a section of a remote description says, or what goes into
/// a section of ours. Task thread.
class SdpInfo : public OutputStreamable
{
public:
    SdpInfo();
    explicit SdpInfo(const DsHandle<DsSdpMediaDescription>& in_hMediaDescription);
    SdpInfo(const SdpInfo&) = default;
    SdpInfo& operator=(const SdpInfo&) = default;
    ~SdpInfo() override = default;

    /// False when the stream cannot be used: rejected, unknown media, no common ground.
    bool isValid() const { return m_bValid; }
    /// Makes the stream unusable and inactive.
    void invalidate();

    /// Payload types in order of preference.
    const std::vector<unsigned>& getPayloadTypes() const { return m_vPayloadType; }
    void setPayloadTypes(std::vector<unsigned> in_vPayloadType)
    {
        m_vPayloadType = std::move(in_vPayloadType);
    }

    /// Milliseconds of sound in a packet; invalid when not known.
    const Fallible<unsigned>& getPacketTime() const { return m_packetTime; }
    void setPacketTime(Fallible<unsigned> in_packetTime) { m_packetTime = in_packetTime; }

    Media::StreamMode getStreamMode() const { return m_streamMode; }
    void setStreamMode(Media::StreamMode in_mode) { m_streamMode = in_mode; }

    /// The values that the media engine is given.
    const RtpMediaConfigData& getMediaConfig() const { return m_mediaConfig; }
    RtpMediaConfigData& getMediaConfig() { return m_mediaConfig; }
    unsigned getPort() const;

    /// The section of the far end's description, until forgotten; of a stream of ours, the rejection of an
    /// offered one. Nil otherwise.
    const DsHandle<DsSdpMediaDescription>& getMediaDescription() const { return m_hMediaDescription; }
    void forgetMediaDescription() { m_hMediaDescription = nullptr; }

    /// The media line of this stream. Its payload types must not be empty.
    DsSdpMediaField generateMediaField() const;
    /// The "rtpmap" attribute of a static payload type.
    static DsSdpAttributeField generateAttributeField(unsigned in_uiPayloadType);
    /// A media section made from what the stream says. Its payload types must not be empty.
    DsHandle<DsSdpMediaDescription> generateMediaDescription() const;

    std::ostream& write(std::ostream& out_stream) const override;

protected:
    /// The media configuration of a stream of which nothing is known yet.
    void initConfigData();
    /// Takes an invalidation back; the mode has to be set again.
    void revalidate() { m_bValid = true; }
    void setMediaDescription(const DsHandle<DsSdpMediaDescription>& in_hMediaDescription)
    {
        m_hMediaDescription = in_hMediaDescription;
    }
    static const StaticLogger& getLogger();

private:
    std::vector<unsigned> m_vPayloadType;
    Fallible<unsigned> m_packetTime;
    RtpMediaConfigData m_mediaConfig;
    Media::StreamMode m_streamMode;
    DsHandle<DsSdpMediaDescription> m_hMediaDescription;
    bool m_bValid = true;
};

}  // namespace Quorvex
