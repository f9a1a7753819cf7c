#pragma once

#include <cstdint>

#include "CommandQueue.h"
#include "infra/MemAccount.h"
#include "media/MediaEndpoint.h"

namespace Quorvex
{

/// What the owner of an endpoint holds: passes its requests on to the media thread. Safe to keep longer than
/// the engine runs; requests are refused then.
class EndpointHandle final : public MediaEndpoint
{
public:
    QUORVEX_MEM_ACCOUNT("MediaEndpointHandle");

    EndpointHandle(CommandQueuePtr in_pQueue, std::uint32_t in_uiId);
    EndpointHandle(const EndpointHandle&) = delete;
    EndpointHandle& operator=(const EndpointHandle&) = delete;
    ~EndpointHandle() override;

    bool configure(Direction in_direction, const MediaEndpointConfig& in_config) override;
    bool start(Direction in_direction) override;
    bool stop(Direction in_direction) override;

private:
    const CommandQueuePtr m_pQueue;
    const std::uint32_t m_uiId;
};

}  // namespace Quorvex
