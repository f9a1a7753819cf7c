#pragma once

#include <cstdint>
#include <memory>

#include "DsVoipGatewayNetIf.h"
#include "EventMethodObject.h"
#include "ReleaseSameThread.h"
#include "VoipEvent.h"
#include "infra/TraceScope.h"
#include "media/MediaEndpointCallback.h"
#include "thread/TaskObjectProxy.h"

namespace Quorvex
{

/// Brings a media event to its machine; owns the event.
template <class Machine>
class Media_MO final : public TaskObjectProxy<Machine>::MethodObject, public Accounted<"Media_MO<SMType>">
{
    using Proxy = TaskObjectProxy<Machine>;

public:
    Media_MO(const typename Proxy::ProxyData& in_data, std::unique_ptr<const VoipMediaEvent> in_pEvent)
        : Proxy::MethodObject(in_data), m_pEvent(std::move(in_pEvent))
    {
    }

protected:
    int call_i(const typename Proxy::ObjectPtr& in_pMachine) override
    {
        return in_pMachine->processEvent(*m_pEvent) ? eMO_DONE : eMO_FAILED;
    }

private:
    const std::unique_ptr<const VoipMediaEvent> m_pEvent;
};

/// What the media engine reports about one endpoint, on its way to the call's machine. Made on the task
/// thread and bound to the machine there; called and in the end deleted on the media engine's threads. As
/// long as it lives the machine stays with its call.
template <class Machine>
class RtpCallbackProxy final : public MediaEndpointCallback, public TaskObjectProxy<Machine>
{
    using Direction = MediaEndpoint::Direction;

public:
    QUORVEX_MEM_ACCOUNT("RtpCallbackProxy");

    RtpCallbackProxy(DsVoipGatewayNetIf& in_netIf,
                     IDGenerator& in_idGenerator,
                     ACE_Activation_Queue& in_queue,
                     TaskObjectContainer<Machine>& in_container,
                     std::uint32_t in_uiStreamId)
        : TaskObjectProxy<Machine>(in_idGenerator, in_queue, in_container),
          m_netIf(in_netIf),
          m_uiStreamId(in_uiStreamId)
    {
        QLOG_TRACE(m_netIf.getLogger(), "RtpCallbackProxy::RtpCallbackProxy");
    }

    ~RtpCallbackProxy() override
    {
        QLOG_TRACE(m_netIf.getLogger(), "RtpCallbackProxy::~RtpCallbackProxy");
        m_netIf.Enqueue(new ReleaseSameThread_MO<Machine>(m_netIf, *this));
    }

    bool setCapacity(Direction in_direction, MediaEndpointCapacity* in_pCapacity) override
    {
        return post<VoipSetCapacityMediaEvent>("RtpCallbackProxy::setCapacity", in_direction, in_pCapacity);
    }

    bool getCapacityFailure(Direction in_direction) override
    {
        QLOG_WARN(m_netIf.getLogger(), "Capacity not available.");
        return post<VoipSetCapacityMediaEvent>("RtpCallbackProxy::getCapacityFailure", in_direction, nullptr);
    }

    bool configureStatus(Direction in_direction, EptOpStatus in_status) override
    {
        return post<VoipOpStatusMediaEvent>(
            "RtpCallbackProxy::configureStatus", in_direction, MediaOpType::eCONFIG, in_status);
    }

    bool startStatus(Direction in_direction, EptOpStatus in_status) override
    {
        return post<VoipOpStatusMediaEvent>(
            "RtpCallbackProxy::startStatus", in_direction, MediaOpType::eSTART, in_status);
    }

    bool stopStatus(Direction in_direction, EptOpStatus in_status) override
    {
        return post<VoipOpStatusMediaEvent>(
            "RtpCallbackProxy::stopStatus", in_direction, MediaOpType::eSTOP, in_status);
    }

    bool notifyEvent(MediaNotificationEvent* in_pEvent) override
    {
        return post<VoipNotificationMediaEvent>("RtpCallbackProxy::notifyEvent", in_pEvent);
    }

private:
    template <class Event, class... Args>
    bool post(const char* in_szOperation, Args&&... in_args)
    {
        const TraceScope traceScope(m_netIf.getLogger(), in_szOperation, __FILE__, __LINE__);
        return Task::enqueue(
            this->getQueue(),
            new Media_MO<Machine>(this->getProxyData(),
                                  std::make_unique<Event>(m_uiStreamId, std::forward<Args>(in_args)...)),
            in_szOperation);
    }

    DsVoipGatewayNetIf& m_netIf;
    const std::uint32_t m_uiStreamId;
};

}  // namespace Quorvex
