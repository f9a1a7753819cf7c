#pragma once

#include "infra/Object.h"
#include "media/MediaEndpoint.h"

namespace Quorvex
{

class MediaEndpointCapacity;
class MediaNotificationEvent;

/// Receives the reports about one endpoint, on threads of the media engine, one at a time and in order, never
/// from inside the operation that caused them. The engine owns the callback and deletes it after the
/// endpoint. The results say whether a report was taken; the engine only counts those that were not.
class MediaEndpointCallback : public virtual Object
{
public:
    enum EptOpStatus
    {
        SUCCESS_STATUS = 0,
        /// The configuration asks for what the engine cannot do.
        INVALID_CONFIG_STATUS = 1,
        /// The operation does not fit the endpoint's state (started before it was configured).
        INVALID_STATE_STATUS = 2,
        /// The engine lacks something it needs: a socket, a file.
        RESOURCE_STATUS = 3
    };

    /// The first report, once: what the engine has set aside. The capacity belongs to the callback from now
    /// on.
    virtual bool setCapacity(MediaEndpoint::Direction in_direction, MediaEndpointCapacity* in_pCapacity) = 0;
    /// The first report, once, instead of a capacity: nothing could be set aside.
    virtual bool getCapacityFailure(MediaEndpoint::Direction in_direction) = 0;
    virtual bool configureStatus(MediaEndpoint::Direction in_direction, EptOpStatus in_status) = 0;
    virtual bool startStatus(MediaEndpoint::Direction in_direction, EptOpStatus in_status) = 0;
    virtual bool stopStatus(MediaEndpoint::Direction in_direction, EptOpStatus in_status) = 0;
    /// Something happened on the stream. The event belongs to the callback from now on.
    virtual bool notifyEvent(MediaNotificationEvent* in_pEvent) = 0;

    /// "SUCCESS", "INVALID_CONFIG", "INVALID_STATE", "RESOURCE", or "???".
    static const char* getOpStatusString(EptOpStatus in_status);
};

}  // namespace Quorvex
