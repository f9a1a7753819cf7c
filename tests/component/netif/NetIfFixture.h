#pragma once

#include <functional>
#include <memory>
#include <string>

#include "DsVoipGatewayNetIf.h"
#include "ScriptedCallEngine.h"
#include "ScriptedMediaEngine.h"
#include "SipTestPeer.h"
#include "infra/Handle.h"
#include "infra/ROConfiguration.h"
#include "sipstack/DsHandle.h"

namespace Quorvex
{

class DsSipIncomingCall;
class InSipLegInterfaceProxy;

/// Looks into the network interface, on its task thread.
class NetIfProbe
{
public:
    explicit NetIfProbe(DsVoipGatewayNetIf& in_netIf) : m_netIf(in_netIf) {}

    /// Runs a job on the task thread behind everything that is queued now, and waits for it. False when it
    /// was not run.
    bool run(const std::function<void()>& in_job);
    /// Queues a job there.
    bool post(std::function<void()> in_job);

    /// What the registry holds, read on the task thread.
    DsVoipGatewayNetIf::Population getPopulation();
    /// Waits until no machine is active.
    bool waitUntilEmpty();
    bool waitForState(Task::State in_state);

    /// A new inbound call, as the SIP stack would report it, without a SIP stack behind it. Any thread.
    DsHandle<DsSipIncomingCall> newInCall();
    /// The proxy of such a call by itself. Any thread.
    DsHandle<InSipLegInterfaceProxy> newInProxy(const std::string& in_strCallId);

    // Task thread.
    MOCallStatus acquireIn(std::uint32_t in_uiID, const char* in_szCallId)
    {
        return m_netIf.acquireInStateMachine(m_netIf.m_dsObjectContainer, in_uiID, in_szCallId);
    }
    MOCallStatus releaseIn(std::uint32_t in_uiID)
    {
        return m_netIf.releaseStateMachine(m_netIf.m_dsObjectContainer, in_uiID);
    }
    MOCallStatus releaseInMedia(std::uint32_t in_uiID)
    {
        return m_netIf.releaseStateMachine(m_netIf.m_inSMPool.getProxyData(DsVoipGatewayNetIf::eMEDIA_PROXY),
                                           in_uiID);
    }
    /// Takes the machine from the leg proxy, the SIP proxy or the media proxy of that identifier.
    MOCallStatus releaseOut(std::uint32_t in_uiID)
    {
        return releaseOut(in_uiID, DsVoipGatewayNetIf::eLEG_PROXY);
    }
    MOCallStatus releaseOutSip(std::uint32_t in_uiID)
    {
        return releaseOut(in_uiID, DsVoipGatewayNetIf::eSIP_PROXY);
    }
    MOCallStatus releaseOutMedia(std::uint32_t in_uiID)
    {
        return releaseOut(in_uiID, DsVoipGatewayNetIf::eMEDIA_PROXY);
    }
    std::uint32_t takeInID() { return m_netIf.m_idGenerator.getID(); }
    void giveInIDBack(std::uint32_t in_uiID) { m_netIf.m_idGenerator.takeBack(in_uiID); }
    /// The machine under an identifier of the SIP proxies; null when there is none.
    CountedObjPtr<InStateMachine> getIn(std::uint32_t in_uiID)
    {
        return m_netIf.m_dsObjectContainer.getObject(in_uiID);
    }
    const DsVoipGatewayNetIf::InSMHash& activeIn() const { return m_netIf.m_activeInSMHash; }
    const DsVoipGatewayNetIf::OutSMHash& activeOut() const { return m_netIf.m_activeOutSMHash; }

private:
    MOCallStatus releaseOut(std::uint32_t in_uiID, DsVoipGatewayNetIf::ProxyKind in_kind)
    {
        return m_netIf.releaseStateMachine(m_netIf.m_outSMPool.getProxyData(in_kind), in_uiID);
    }

    DsVoipGatewayNetIf& m_netIf;
};

namespace Test
{

/// The configuration of a network interface that listens on the loopback, with short SIP timers.
std::shared_ptr<MapConfiguration> makeConfiguration(std::uint16_t in_uiPort,
                                                    const std::string& in_strMediaLib);
TSHandle<ROConfiguration> toHandle(const std::shared_ptr<MapConfiguration>& in_pConfiguration);

/// The path of a library of tests/component/support.
std::string mediaLibrary(const std::string& in_strKind);

/// Expects that no object of a call is left in the memory accounts.
void expectAccountsEmpty();

/// A network interface with scripted engines on both sides, running on the loopback.
class RunningNetIf
{
public:
    explicit RunningNetIf(const std::string& in_strMediaKind = "plain");
    RunningNetIf(const RunningNetIf&) = delete;
    RunningNetIf& operator=(const RunningNetIf&) = delete;
    ~RunningNetIf();

    DsVoipGatewayNetIf& netIf() { return *m_pNetIf; }
    NetIfProbe& probe() { return *m_pProbe; }
    ScriptedCallEngine& engine() { return *m_pEngine; }
    ScriptedMediaEngine& media() { return *ScriptedMediaEngine::current(); }
    std::uint16_t getPort() const { return m_uiPort; }

    /// Stops in good order; false when it does not end in time.
    bool stop();

private:
    std::uint16_t m_uiPort;
    std::unique_ptr<ScriptedCallEngine> m_pEngine;
    std::unique_ptr<DsVoipGatewayNetIf> m_pNetIf;
    std::unique_ptr<NetIfProbe> m_pProbe;
};

}  // namespace Test
}  // namespace Quorvex
