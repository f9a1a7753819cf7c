#pragma once

#include <cstdint>

#include "media/Media.h"

namespace Quorvex
{

class MediaEndpoint;
class VoipStateMachineNoT;

/// Hands out the media endpoints of the calls: the network interface, as a call's media manager sees it. Task
/// thread.
class VoipEndpointFactory
{
public:
    VoipEndpointFactory() = default;
    VoipEndpointFactory(const VoipEndpointFactory&) = delete;
    VoipEndpointFactory& operator=(const VoipEndpointFactory&) = delete;
    virtual ~VoipEndpointFactory() = default;

    /// An endpoint for one stream of a call, whose reports reach the given machine as media events that carry
    /// the stream's identifier. The caller owns it. Null when there is none to be had.
    /// @param in_bRedirectReceive what the endpoint receives takes the place of what the call's endpoint
    /// receives
    virtual MediaEndpoint* getEndpoint(const char* in_szCallId,
                                       std::uint32_t in_uiStreamId,
                                       const VoipStateMachineNoT* in_pStateMachine,
                                       Media::StreamMode in_mode,
                                       bool in_bRedirectReceive) = 0;
};

}  // namespace Quorvex
