#include "DirectionConfig.h"

#include "RtpPacket.h"
#include "media/MediaEndpointCapacity.h"
#include "media/MediaEndpointConfig.h"

namespace Quorvex
{

bool DirectionConfig::read(MediaEndpoint::Direction in_direction,
                           const MediaEndpointConfig& in_config,
                           std::string& out_strError)
{
    unsigned uiValue = 0;
    if (!in_config.getUnsigned(MediaEndpointCapacity::PAYLOAD_TYPE, uiValue) ||
        (uiValue != PCMU_PAYLOAD_TYPE && uiValue != PCMA_PAYLOAD_TYPE))
    {
        out_strError = "payload type: expected 0 or 8";
        return false;
    }
    m_ui8PayloadType = static_cast<std::uint8_t>(uiValue);
    if (!in_config.getUnsigned(MediaEndpointCapacity::PAYLOAD_SIZE, uiValue) || uiValue < 10 ||
        uiValue > 60 || uiValue % 10 != 0)
    {
        out_strError = "packet size: expected 10, 20, 30, 40, 50 or 60 ms";
        return false;
    }
    m_uiPacketSizeMs = uiValue;
    bool bEvents = false;
    if (in_config.getBool(MediaEndpointCapacity::RFC2833_SUPPORT, bEvents) && bEvents)
    {
        if (!in_config.getUnsigned(MediaEndpointCapacity::RFC2833_PAYLOAD_TYPE, uiValue) || uiValue > 127 ||
            uiValue == PCMU_PAYLOAD_TYPE || uiValue == PCMA_PAYLOAD_TYPE)
        {
            out_strError = "payload type of telephone events: expected another of 1 to 127";
            return false;
        }
        m_ui8EventPayloadType = static_cast<std::uint8_t>(uiValue);
    }
    if (in_direction == MediaEndpoint::TX_DIRECTION)
    {
        std::string strAddress;
        uiValue = 0;
        static_cast<void>(in_config.getString(MediaEndpointCapacity::IPV4_ADDRESS, strAddress));
        static_cast<void>(in_config.getUnsigned(MediaEndpointCapacity::UDP_PORT, uiValue));
        if (!SocketAddress::make(strAddress, uiValue, m_remote))
        {
            out_strError = "remote address: expected a dotted IPv4 address and a port of 1 to 65535";
            return false;
        }
    }
    static_cast<void>(in_config.getBool(MediaEndpointConfig::RECORDING_ENABLED, m_bRecord));
    std::string strRecordingId;
    if (in_config.getString(MediaEndpointConfig::RECORDING_OUTPUT_ID, strRecordingId))
    {
        m_recordingId = SharedText(strRecordingId);
    }
    static_cast<void>(in_config.getBool(MediaEndpointConfig::CPA_ENABLED, m_bCpa));
    return true;
}

}  // namespace Quorvex
