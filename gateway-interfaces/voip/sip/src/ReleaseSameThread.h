#pragma once

#include <cstdint>

#include "DsVoipGatewayNetIf.h"
#include "EventMethodObject.h"
#include "infra/TraceScope.h"
#include "thread/TaskObjectProxy.h"

namespace Quorvex
{

/// The end of a proxy whose identifier belongs to the task's thread: releases its machine, then gives the
/// identifier back, both there.
template <class Machine>
class ReleaseSameThread_MO final : public TaskObjectProxy<Machine>::ProxyData_MO,
                                   public Accounted<"ReleaseSameThread_MO<ContainerType>">
{
    using Proxy = TaskObjectProxy<Machine>;

public:
    ReleaseSameThread_MO(DsVoipGatewayNetIf& in_netIf, const Proxy& in_proxy)
        : Proxy::ProxyData_MO(in_proxy.getProxyData()),
          m_netIf(in_netIf),
          m_idGenerator(in_proxy.getIDGenerator())
    {
    }

    int call() override
    {
        TRACE_SCOPE(m_netIf.getLogger(), "ReleaseSameThread_MO::call");
        static_cast<void>(m_netIf.releaseStateMachine(this->getContainer(), this->getObjectID()));
        m_idGenerator.takeBack(this->getObjectID());
        return eMO_DONE;
    }

private:
    DsVoipGatewayNetIf& m_netIf;
    IDGenerator& m_idGenerator;
};

}  // namespace Quorvex
