#pragma once

#include "infra/Object.h"

namespace Quorvex
{

/// Something that runs until it is told to stop.
class Stoppable : public virtual Object
{
public:
    /// Asks for the end and returns at once; the end itself comes later. False when there is nothing to stop.
    virtual bool stop() = 0;

    /// Blocks until the end has come, at once when nothing runs. False when it cannot be waited for, as from
    /// the task's own thread. Any thread may wait, several at a time.
    virtual bool waitUntilDone() = 0;
};

}  // namespace Quorvex
