#pragma once

#include <string>
#include <utility>
#include <vector>

#include "SipLeg.h"
#include "VoipEndpointFactory.h"
#include "VoipMedia.h"
#include "infra/ROConfiguration.h"
#include "media/MediaEndpoint.h"
#include "media/MediaEndpointCapacity.h"
#include "sipstack/DsSipMessage.h"
#include "sipstack/DsSipRequest.h"

namespace Quorvex::LegsTest
{

/// A media engine whose endpoints do nothing.
class IdleEngine final : public VoipEndpointFactory
{
public:
    MediaEndpoint* getEndpoint(
        const char*, std::uint32_t, const VoipStateMachineNoT*, Media::StreamMode, bool) override
    {
        class IdleEndpoint final : public MediaEndpoint
        {
            bool configure(Direction, const MediaEndpointConfig&) override { return true; }
            bool start(Direction) override { return true; }
            bool stop(Direction) override { return true; }
        };
        return new IdleEndpoint;
    }
};

inline MapConfiguration configuration(
    std::initializer_list<std::pair<const char*, ParameterValue>> in_more = {})
{
    MapConfiguration config;
    config.set("quorvex.rtp.encodingList", "0 8");
    config.set("quorvex.media.rtp.packetSizeMs", "20");
    for (const auto& [szKey, value] : in_more)
    {
        config.set(szKey, value);
    }
    return config;
}

/// Gives the first stream what an engine would have set aside for it.
inline bool giveCapacity(VoipMedia& io_media, unsigned in_uiStream = 0)
{
    auto* const pCapacity = new MediaEndpointCapacity;
    pCapacity->set(MediaEndpointCapacity::IPV4_ADDRESS, "127.0.0.1");
    pCapacity->set(MediaEndpointCapacity::UDP_PORT, 40000 + 2 * in_uiStream);
    pCapacity->set(MediaEndpointCapacity::PAYLOAD_TYPE, MediaValue(std::vector<unsigned>{0, 8}));
    pCapacity->set(MediaEndpointCapacity::PAYLOAD_SIZE, MediaValue(std::vector<unsigned>{20}));
    pCapacity->set(MediaEndpointCapacity::RFC2833_SUPPORT, MediaValue(true));
    pCapacity->set(MediaEndpointCapacity::RFC2833_PAYLOAD_TYPE, 101U);
    return io_media.setCapacity(in_uiStream, MediaEndpoint::RX_DIRECTION, pCapacity);
}

inline const char* const kOffer =
    "v=0\r\no=peer 1 1 IN IP4 127.0.0.1\r\ns=-\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\nm=audio 30000 RTP/AVP 0 "
    "8\r\n";

/// A request as a peer sends it. `in_strHeaders`: whole lines.
inline std::string requestText(const std::string& in_strMethod,
                               const std::string& in_strHeaders = "",
                               const std::string& in_strBody = "",
                               const std::string& in_strType = "application/sdp")
{
    return in_strMethod +
           " sip:gateway@127.0.0.1 SIP/2.0\r\nVia: SIP/2.0/UDP 127.0.0.1:5099;branch=z9hG4bK-1\r\n" +
           "From: \"Alice\" <sip:alice@192.0.2.1;x=1>;tag=a\r\nTo: Bob <sip:bob@192.0.2.2>;tag=b\r\n" +
           "Call-ID: call-1@peer\r\nCSeq: 1 " + in_strMethod + "\r\nMax-Forwards: 70\r\n" +
           "Contact: <sip:alice@127.0.0.1:5099>\r\n" + in_strHeaders +
           (in_strBody.empty() || in_strType.empty() ? "" : "Content-Type: " + in_strType + "\r\n") +
           "Content-Length: " + std::to_string(in_strBody.size()) + "\r\n\r\n" + in_strBody;
}

inline DsHandle<DsSipRequest> request(const std::string& in_strMethod,
                                      const std::string& in_strHeaders = "",
                                      const std::string& in_strBody = "",
                                      const std::string& in_strType = "application/sdp")
{
    return DsSipMessage::parse(requestText(in_strMethod, in_strHeaders, in_strBody, in_strType))
        .dynamicCast<DsSipRequest>();
}

inline DsHandle<DsSipInviteMessage> invite(const std::string& in_strBody = "",
                                           const std::string& in_strType = "application/sdp")
{
    return request("INVITE", "", in_strBody, in_strType).dynamicCast<DsSipInviteMessage>();
}

}  // namespace Quorvex::LegsTest
