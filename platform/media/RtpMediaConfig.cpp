#include "media/RtpMediaConfig.h"

#include "media/MediaEndpointCapacity.h"
#include "media/MediaEndpointConfig.h"

namespace Quorvex
{

void RtpMediaConfig::copyInto(MediaEndpointConfig& out_config) const
{
    out_config.set(MediaEndpointCapacity::IPV4_ADDRESS, MediaValue(getIPAddress()));
    out_config.set(MediaEndpointCapacity::UDP_PORT, getUDPPort());
    out_config.set(MediaEndpointCapacity::PAYLOAD_TYPE, getPayloadType());
    out_config.set(MediaEndpointCapacity::PAYLOAD_SIZE, getPacketSizeMs());
    out_config.set(MediaEndpointCapacity::RFC2833_SUPPORT, MediaValue(getRfc2833Support()));
    if (getRfc2833Support())
    {
        out_config.set(MediaEndpointCapacity::RFC2833_PAYLOAD_TYPE, getRfc2833PayloadType());
    }
}

}  // namespace Quorvex
