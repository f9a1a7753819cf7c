#pragma once

#include "infra/Assertion.h"
#include "infra/DynLibObjPtr.h"
#include "infra/LimitedObjPtr.h"
#include "infra/Logger.h"
#include "oam/OAMCmdExecuter.h"
#include "oam/OMReporter.h"
#include "thread/Task.h"

namespace Quorvex
{

class CallEngine;
class CallOutInterface;
class MediaEngine;
class OutCallLeg;

/// Places outbound calls for the call engine.
class OutLegEngine
{
public:
    OutLegEngine() = default;
    OutLegEngine(const OutLegEngine&) = delete;
    OutLegEngine& operator=(const OutLegEngine&) = delete;
    virtual ~OutLegEngine() = default;

    /// A new outbound leg, owned by the caller, which reports to the call-out interface (owned by the leg
    /// from now on). The call identifier ties the legs of one call together. Null only when memory is short.
    /// One thread: the call engine's.
    virtual OutCallLeg* getOutCallLeg(CallOutInterface* in_pCallOutInterface, const char* in_szCallId) = 0;
};

/// A network interface of the gateway: a task that carries calls between a network and the call engine.
class GatewayNetIf : public virtual ManageableTask, public virtual OutLegEngine
{
public:
    /// The call engine must outlive the run of the task. Before start().
    virtual void setCallEngine(LimitedObjPtr<CallEngine> in_pCallEngine) = 0;

    /// Gives the network interface a media engine in place of one that it would load itself. Before
    /// configure. False when it cannot, which is the default.
    virtual bool setMediaEngine(const DynLibObjPtr<MediaEngine>& /*in_pMediaEngine*/)
    {
        static const Logger s_logger("quorvex.GatewayNetIf");
        Assertion::report("Not implemented : GatewayNetIf::setMediaEngine", s_logger, __FILE__, __LINE__);
        return false;
    }
};

/// A network interface with operations and maintenance.
class OAMGatewayNetIf : public virtual GatewayNetIf, public virtual OMReporter, public virtual OAMCmdExecuter
{
};

}  // namespace Quorvex
