#pragma once

#include "infra/Object.h"

namespace Quorvex
{

class MediaEndpointConfig;

/// One end of a media stream of a call, made by a media engine and owned by the call. Operations only hand
/// the request to the engine and return: the outcome is reported to the endpoint's callback. Deleting the
/// endpoint stops it, gives its port back and releases its callback, all soon after. One thread at a time.
class MediaEndpoint : public virtual Object
{
public:
    enum Direction
    {
        RX_DIRECTION = 0,
        TX_DIRECTION = 1,
        RXTX_DIRECTION = 2,
        /// Of reports that concern no direction.
        NO_DIRECTION = 3
    };

    /// Says what a direction runs with, before it is started or while it runs (it then goes on with the new
    /// values). The outcome is `configureStatus`. False, without a report, when the engine does not run.
    virtual bool configure(Direction in_direction, const MediaEndpointConfig& in_config) = 0;
    /// The outcome is `startStatus`; a direction that was never configured fails.
    virtual bool start(Direction in_direction) = 0;
    /// The outcome is `stopStatus`. The direction keeps its configuration.
    virtual bool stop(Direction in_direction) = 0;

    /// "RX", "TX", "RXTX", "NONE", or "???".
    static const char* getDirectionString(Direction in_direction);
};

}  // namespace Quorvex
