#pragma once

#include <utility>
#include <vector>

#include "EventMethodObject.h"
#include "infra/Logger.h"
#include "infra/TraceScope.h"
#include "thread/TaskObjectProxy.h"

namespace Quorvex
{

class DsVoipGatewayNetIf;
class InStateMachine;
class OutStateMachine;

/// Inbound calls, as the call engine sees them.
struct InLegSide
{
    using Machine = InStateMachine;
    static const Logger& getLogger();
};

/// Outbound calls, as the call engine sees them.
struct OutLegSide
{
    using Machine = OutStateMachine;
    static const Logger& getLogger();
};

/// What the call engine may tell either leg: method object and event of each operation. Those of one
/// direction only stand in VoipInCallLegProxy and VoipOutCallLegProxy.
template <class Side>
struct CallLegMethodObjects
{
    template <class Event, FixedString Account>
    using MO = EventMethodObject<Side, Event, Account>;

    // clang-format off
    // operation                                   event                                        account
    /* hangup           */ using Hangup_MO =
                              MO<PlainEvent<EventType::eAPI_HANGUP>,           "Hangup_MO<SMType>">;
    /* transferAccepted */ using TransferAccepted_MO =
                              MO<TransferAcceptedEvent,                        "TransferAccepted_MO<SMType>">;
    /* transferSuccess  */ using TransferSuccess_MO =
                              MO<PlainEvent<EventType::eAPI_TRANSFER_SUCCESS>, "TransferSuccess_MO<SMType>">;
    /* transferFailure  */ using TransferFailure_MO =
                              MO<TransferFailureEvent,                         "TransferFailure_MO<SMType>">;
    /* mediaAvailable   */ using MediaAvailable_MO =
                              MO<PlainEvent<EventType::eAPI_MEDIA_START_CMD>,  "MediaAvailable_MO<SMType>">;
    /* sendInfoMsg      */ using SendInfoMsg_MO =
                              MO<SendInfoMsgEvent,                             "SendInfoMsg_MO">;
    // clang-format on
};

/// What both leg proxies share: each command of the call engine becomes a method object on the task's queue,
/// and none waits for the machine. One thread, the call engine's.
template <class Side>
class CallLegProxy : public TaskObjectProxy<typename Side::Machine>
{
protected:
    using Proxy = TaskObjectProxy<typename Side::Machine>;

    CallLegProxy(DsVoipGatewayNetIf& in_netIf,
                 IDGenerator& in_idGenerator,
                 ACE_Activation_Queue& in_queue,
                 typename Proxy::Container& in_container)
        : Proxy(in_idGenerator, in_queue, in_container), m_netIf(in_netIf)
    {
    }
    ~CallLegProxy() = default;

    /// Queues a command; the name, a literal, is that of the operation. False when the queue refuses it.
    template <class MethodObject, class... Args>
    bool send(const char* in_szOperation, Args&&... in_args)
    {
        const TraceScope traceScope(Side::getLogger(), in_szOperation, __FILE__, __LINE__);
        return Task::enqueue(this->getQueue(),
                             new MethodObject(this->getProxyData(), std::forward<Args>(in_args)...),
                             in_szOperation);
    }

    DsVoipGatewayNetIf& getNetIf() const { return m_netIf; }

private:
    DsVoipGatewayNetIf& m_netIf;
};

}  // namespace Quorvex
