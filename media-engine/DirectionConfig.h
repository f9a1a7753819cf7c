#pragma once

#include <cstdint>
#include <string>

#include "SocketAddress.h"
#include "infra/SharedText.h"
#include "media/MediaEndpoint.h"

namespace Quorvex
{

/// What one direction of an endpoint runs with, checked.
struct DirectionConfig
{
    static constexpr std::uint8_t NO_PAYLOAD_TYPE = 0xff;

    /// 0 or 8.
    std::uint8_t m_ui8PayloadType = 0;
    /// Of telephone events, or NO_PAYLOAD_TYPE.
    std::uint8_t m_ui8EventPayloadType = NO_PAYLOAD_TYPE;
    /// 10, 20, ... 60.
    unsigned m_uiPacketSizeMs = 20;
    /// Where to send; of the transmit direction only.
    SocketAddress m_remote;
    bool m_bRecord = false;
    bool m_bCpa = false;
    // A pointer wide: few calls are recorded under a name of their own.
    SharedText m_recordingId;

    /// False, with what is wrong, when the engine cannot do what the configuration asks for.
    bool read(MediaEndpoint::Direction in_direction,
              const MediaEndpointConfig& in_config,
              std::string& out_strError);
};

}  // namespace Quorvex
