#pragma once

#include <memory>

#include "infra/MemAccount.h"
#include "infra/Object.h"
#include "media/Media.h"
#include "media/MediaEndpoint.h"
#include "media/MediaEndpointCapacity.h"
#include "rtp/RtpMediaConfigData.h"

namespace Quorvex
{

/// One audio stream of a call: an endpoint of the media engine and how far each of its two directions is.
/// Every change of a direction's state is logged. Task thread.
class VoipMediaStream final : public OutputStreamable
{
public:
    QUORVEX_MEM_ACCOUNT("VoipMediaStream");

    enum RunState
    {
        eSTOPPED,
        eSTARTING,
        eSTARTED,
        eSTOPPING,
        /// Stopped for good: no outcome is waited for.
        eFORCING_STOP
    };

    enum ConfigState
    {
        eNOT_CONFIGURED,
        eCONFIGURING,
        eCONFIGURED
    };

    /// Takes the endpoint.
    VoipMediaStream(std::unique_ptr<MediaEndpoint> in_pEndpoint, Media::StreamMode in_mode);
    VoipMediaStream(const VoipMediaStream&) = delete;
    VoipMediaStream& operator=(const VoipMediaStream&) = delete;
    ~VoipMediaStream() override;

    /// Null once the endpoint was released.
    MediaEndpoint* getEndpoint() const { return m_pEndpoint.get(); }
    void releaseEndpoint() { m_pEndpoint.reset(); }

    /// The mode the stream was made with.
    Media::StreamMode getMode() const { return m_mode; }

    /// What the engine can do for this stream; null until it has said so.
    const MediaEndpointCapacity* getCapacity() const { return m_pCapacity.get(); }
    void setCapacity(std::unique_ptr<MediaEndpointCapacity> in_pCapacity)
    {
        m_pCapacity = std::move(in_pCapacity);
    }

    RunState getRunState(MediaEndpoint::Direction in_direction) const
    {
        return direction(in_direction).m_runState;
    }
    ConfigState getConfigState(MediaEndpoint::Direction in_direction) const
    {
        return direction(in_direction).m_configState;
    }
    void setRunState(MediaEndpoint::Direction in_direction, RunState in_state);
    void setConfigState(MediaEndpoint::Direction in_direction, ConfigState in_state);

    /// What was asked of a direction while it was still starting or stopping, and is to be done once it has.
    enum Deferred
    {
        eNOTHING,
        eSTART_LATER,
        eSTOP_LATER
    };
    Deferred getDeferred(MediaEndpoint::Direction in_direction) const
    {
        return direction(in_direction).m_deferred;
    }
    void setDeferred(MediaEndpoint::Direction in_direction, Deferred in_deferred)
    {
        direction(in_direction).m_deferred = in_deferred;
    }

    /// The configuration last sent for a direction.
    const RtpMediaConfigData& getConfig(MediaEndpoint::Direction in_direction) const
    {
        return direction(in_direction).m_config;
    }
    void setConfig(MediaEndpoint::Direction in_direction, const RtpMediaConfigData& in_config);

    static const char* getRunStateName(RunState in_state);
    static const char* getConfigStateName(ConfigState in_state);

    std::ostream& write(std::ostream& out_stream) const override;

private:
    struct DirectionState
    {
        RtpMediaConfigData m_config;
        RunState m_runState = eSTOPPED;
        ConfigState m_configState = eNOT_CONFIGURED;
        Deferred m_deferred = eNOTHING;
    };

    const DirectionState& direction(MediaEndpoint::Direction in_direction) const
    {
        return in_direction == MediaEndpoint::RX_DIRECTION ? m_rx : m_tx;
    }
    DirectionState& direction(MediaEndpoint::Direction in_direction)
    {
        return in_direction == MediaEndpoint::RX_DIRECTION ? m_rx : m_tx;
    }
    static void moveTo(DirectionState& io_direction, RunState in_runState, ConfigState in_configState);

    std::unique_ptr<MediaEndpoint> m_pEndpoint;
    DirectionState m_rx;
    DirectionState m_tx;
    Media::StreamMode m_mode;
    std::unique_ptr<MediaEndpointCapacity> m_pCapacity;
};

}  // namespace Quorvex
