#pragma once

#include "infra/Object.h"
#include "media/MediaEndpoint.h"
#include "media/MediaValueList.h"

namespace Quorvex
{

/// What one direction of an endpoint is to run with: named values, the same names as in the capacity, and the
/// ones below. Names that an engine does not know are ignored by it.
class MediaEndpointConfig final : public OutputStreamable, public MediaValueList
{
public:
    /// Whether the call is recorded (bool), and what the recording is called (text).
    static constexpr const char* RECORDING_ENABLED = "recording.enabled";
    static constexpr const char* RECORDING_OUTPUT_ID = "recording.outputId";
    /// Whether call-progress analysis is wanted on what is received (bool).
    static constexpr const char* CPA_ENABLED = "sip.out.cpa.enabled";

    explicit MediaEndpointConfig(MediaEndpoint::Direction in_direction) : m_direction(in_direction) {}

    MediaEndpoint::Direction getDirection() const { return m_direction; }

    void enableRecording(bool in_bEnable) { set(RECORDING_ENABLED, MediaValue(in_bEnable)); }
    void setRecordingOutputId(const std::string& in_strId) { set(RECORDING_OUTPUT_ID, MediaValue(in_strId)); }
    void setParameter(std::string_view in_name, MediaValue in_value) { set(in_name, std::move(in_value)); }

    /// "direction=RX, name=value, ...".
    std::ostream& write(std::ostream& out_stream) const override;

private:
    MediaEndpoint::Direction m_direction;
};

}  // namespace Quorvex
