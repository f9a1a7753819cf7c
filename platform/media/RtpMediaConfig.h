#pragma once

#include "rtp/RtpMediaConfigData.h"

namespace Quorvex
{

class MediaEndpointConfig;

/// The RTP configuration of a direction, as a media engine takes it.
class RtpMediaConfig final : public RtpMediaConfigData
{
public:
    RtpMediaConfig() = default;
    explicit RtpMediaConfig(const RtpMediaConfigData& in_data) : RtpMediaConfigData(in_data) {}

    /// Sets the values under their names in the engine's configuration; what else is there stays.
    void copyInto(MediaEndpointConfig& out_config) const;
};

}  // namespace Quorvex
