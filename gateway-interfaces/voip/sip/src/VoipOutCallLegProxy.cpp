#include "VoipOutCallLegProxy.h"

#include <memory>
#include <string>
#include <thread>

#include "DsVoipGatewayNetIf.h"
#include "OutStateMachine.h"

namespace Quorvex
{

namespace
{

using OutProxy = TaskObjectProxy<OutStateMachine>;
using Common = CallLegMethodObjects<OutLegSide>;

// What the call engine tells outbound legs only.
// operation                         event        account
/* invite */ using Invite_MO = EventMethodObject<OutLegSide, InviteEvent, "Invite_MO">;

}  // namespace

/// Asks for the machine of a new leg. Owns the call-out interface until it has run: when it never does, the
/// call engine is told that there will be no call.
class AcquireOutStateMachine_MO final : public OutProxy::ProxyData_MO,
                                        public Accounted<"AcquireOutStateMachine_MO">
{
public:
    AcquireOutStateMachine_MO(DsVoipGatewayNetIf& in_netIf,
                              const OutProxy::ProxyData& in_data,
                              CallOutInterface* in_pCallOutInterface,
                              const char* in_szCallId)
        : ProxyData_MO(in_data),
          m_netIf(in_netIf),
          m_pCallOutInterface(in_pCallOutInterface),
          m_strCallId(in_szCallId)
    {
    }
    ~AcquireOutStateMachine_MO() override
    {
        if (m_pCallOutInterface != nullptr)
        {
            m_pCallOutInterface->connectFailed(ConnectionFailureType(eUNAVAILABLE_FAILURE));
        }
    }

    int call() override
    {
        QLOG_TRACE(OutLegSide::getLogger(), getPlainName());
        return m_netIf.acquireOutStateMachine(
            getContainer(), getObjectID(), m_pCallOutInterface.release(), m_strCallId.c_str());
    }

private:
    DsVoipGatewayNetIf& m_netIf;
    std::unique_ptr<CallOutInterface> m_pCallOutInterface;
    const std::string m_strCallId;
};

/// Releases it.
class OutDestructor_MO final : public OutProxy::ProxyData_MO, public Accounted<"OutDestructor_MO">
{
public:
    OutDestructor_MO(DsVoipGatewayNetIf& in_netIf, const OutProxy::ProxyData& in_data)
        : ProxyData_MO(in_data), m_netIf(in_netIf)
    {
    }

    int call() override
    {
        QLOG_TRACE(OutLegSide::getLogger(), getPlainName());
        return m_netIf.releaseStateMachine(getContainer(), getObjectID());
    }

private:
    DsVoipGatewayNetIf& m_netIf;
};

VoipOutCallLegProxy::VoipOutCallLegProxy(IDGenerator& in_idGenerator,
                                         ACE_Activation_Queue& in_queue,
                                         Container& in_container,
                                         DsVoipGatewayNetIf& in_netIf,
                                         CallOutInterface* in_pCallOutInterface,
                                         const char* in_szCallId)
    : CallLegProxy<OutLegSide>(in_netIf, in_idGenerator, in_queue, in_container),
      ObjectWithLoggerImpl<LoggingIdLogger>(LoggingIdLogger(OutLegSide::getLogger()))
{
    QLOG_TRACE(getLogger(), "VoipOutCallLegProxy ctor");
    QLOG_DEBUG(getLogger(), "VoipOutCallLegProxy ctor : thread_id = " << std::this_thread::get_id());
    Task::enqueue(getQueue(),
                  new AcquireOutStateMachine_MO(in_netIf, getProxyData(), in_pCallOutInterface, in_szCallId),
                  "VoipOutCallLegProxy ctor");
}

VoipOutCallLegProxy::~VoipOutCallLegProxy()
{
    QLOG_TRACE(getLogger(), "VoipOutCallLegProxy dtor");
    QLOG_DEBUG(getLogger(),
               "VoipOutCallLegProxy dtor"
                   << " : thread_id = " << std::this_thread::get_id());
    Task::enqueue(getQueue(), new OutDestructor_MO(getNetIf(), getProxyData()), "VoipOutCallLegProxy dtor");
    // Whoever gets the identifier next queues its acquisition behind this release.
    TaskObjectProxyNoT::proxyDestruction();
}

bool VoipOutCallLegProxy::hangup()
{
    return send<Common::Hangup_MO>("VoipOutCallLegProxy::hangup");
}

bool VoipOutCallLegProxy::mediaAvailable()
{
    return send<Common::MediaAvailable_MO>("VoipOutCallLegProxy::mediaAvailable");
}

bool VoipOutCallLegProxy::sendInfoMsg(const std::vector<Parameter>& in_vParameters)
{
    return send<Common::SendInfoMsg_MO>("VoipOutCallLegProxy::sendInfoMsg()", in_vParameters);
}

bool VoipOutCallLegProxy::invite(const CallInfo& in_callInfo)
{
    if (!send<Invite_MO>("VoipOutCallLegProxy::invite", in_callInfo))
    {
        QLOG_ERROR(getLogger(), "Invite_MO enqueue failed");
        return false;
    }
    return true;
}

bool VoipOutCallLegProxy::transferAccepted(RingType in_ringType)
{
    return send<Common::TransferAccepted_MO>("VoipOutCallLegProxy::transferAccepted", in_ringType);
}

bool VoipOutCallLegProxy::transferFailure(ConnectionFailureType in_failure)
{
    return send<Common::TransferFailure_MO>("VoipOutCallLegProxy::transferFailure", in_failure);
}

bool VoipOutCallLegProxy::transferSuccess()
{
    return send<Common::TransferSuccess_MO>("VoipOutCallLegProxy::transferSuccess");
}

}  // namespace Quorvex
