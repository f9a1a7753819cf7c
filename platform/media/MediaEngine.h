#pragma once

#include <string>

#include "infra/Object.h"
#include "media/MediaEndpointSpec.h"

namespace Quorvex
{

class MediaEndpoint;
class MediaEndpointCallback;

/// Makes the media endpoints of calls. Endpoints with one call identifier form a group: they hear one
/// another. A plug-in exports `LoadMethod` to make one (see DynlibObjectFactory); the engine is a
/// ManageableTask too and makes endpoints only while it runs. Any thread.
class MediaEngine : public virtual Object
{
public:
    /// A new endpoint identifier, unique in the process's life.
    virtual std::string generateEptId() = 0;

    /// Makes an endpoint that others of its call can refer to by the identifier. The engine takes the
    /// callback and the description over, also when it refuses: null, when it does not run or the call
    /// identifier is empty. The caller owns the endpoint. The first report is the capacity, or its failure.
    virtual MediaEndpoint* createIdentifiedEndpoint(MediaEndpointCallback* in_pCallback,
                                                    const std::string& in_strCallId,
                                                    const std::string& in_strEptId,
                                                    MediaEndpointSpec* in_pSpec) = 0;
    /// The same without an identifier.
    virtual MediaEndpoint* createEndpoint(MediaEndpointCallback* in_pCallback,
                                          const std::string& in_strCallId,
                                          MediaEndpointSpec* in_pSpec) = 0;
};

}  // namespace Quorvex
