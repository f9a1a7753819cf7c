#include "NetIfFixture.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>

#include "InSipLegInterfaceProxy.h"
#include "InStateMachine.h"
#include "Job_MO.h"
#include "NewSipCallInterface.h"
#include "OutStateMachine.h"
#include "infra/MemAccount.h"
#include "sipstack/DsSipIncomingCall.h"
#include "sipstack/DsSipInviteMessage.h"

namespace Quorvex
{

bool NetIfProbe::post(std::function<void()> in_job)
{
    return m_netIf.Enqueue(new Test::Job_MO(std::move(in_job))) == 0;
}

bool NetIfProbe::run(const std::function<void()>& in_job)
{
    if (m_netIf.getTaskState() == Task::STOPPED_STATE || m_netIf.isTaskThread())
    {
        in_job();
        return true;
    }
    auto pDone = std::make_shared<std::promise<void>>();
    auto done = pDone->get_future();
    post(
        [in_job, pDone]
        {
            in_job();
            pDone->set_value();
        });
    return done.wait_for(Test::kDeadline) == std::future_status::ready;
}

DsVoipGatewayNetIf::Population NetIfProbe::getPopulation()
{
    auto pPopulation = std::make_shared<DsVoipGatewayNetIf::Population>();
    EXPECT_TRUE(run([this, pPopulation] { *pPopulation = m_netIf.getPopulation(); }));
    return *pPopulation;
}

bool NetIfProbe::waitUntilEmpty()
{
    return Test::waitUntil(
        [this]
        {
            const auto population = getPopulation();
            return population.m_activeIn + population.m_activeOut + population.m_calls == 0;
        });
}

bool NetIfProbe::waitForState(Task::State in_state)
{
    return Test::waitUntil([this, in_state] { return m_netIf.getTaskState() == in_state; });
}

DsHandle<DsSipIncomingCall> NetIfProbe::newInCall()
{
    const DsHandle<NewSipCallInterface> hNewCall(new NewSipCallInterface(m_netIf));
    return hNewCall->newCall(makeDs<DsSipInviteMessage>("sip:someone@127.0.0.1"));
}

DsHandle<InSipLegInterfaceProxy> NetIfProbe::newInProxy(const std::string& in_strCallId)
{
    return DsHandle<InSipLegInterfaceProxy>(new InSipLegInterfaceProxy(
        m_netIf, m_netIf.m_idGenerator, m_netIf.getQueue(), m_netIf.m_dsObjectContainer, in_strCallId));
}

namespace Test
{

std::shared_ptr<MapConfiguration> makeConfiguration(std::uint16_t in_uiPort,
                                                    const std::string& in_strMediaLib)
{
    auto pConfiguration = std::make_shared<MapConfiguration>();
    pConfiguration->set("quorvex.sip.mediaLibName", in_strMediaLib);
    pConfiguration->set("quorvex.sip.listen.0", "udp:127.0.0.1:" + std::to_string(in_uiPort));
    pConfiguration->set("quorvex.sip.contactUser", "gateway");
    pConfiguration->set("quorvex.sip.t1Ms", 50);
    pConfiguration->set("quorvex.sip.timerCMs", 5000);
    pConfiguration->set("quorvex.sip.minSES", 2);
    pConfiguration->set("quorvex.sip.state.Disconnecting.timeoutMs", 1000);
    pConfiguration->set("quorvex.rtp.encodingList", "0 8");
    return pConfiguration;
}

TSHandle<ROConfiguration> toHandle(const std::shared_ptr<MapConfiguration>& in_pConfiguration)
{
    return TSHandle<ROConfiguration>(new MapConfiguration(*in_pConfiguration));
}

std::string mediaLibrary(const std::string& in_strKind)
{
    return std::string(TEST_LIB_DIR) + "/libtest_media_" + in_strKind + ".so";
}

void expectAccountsEmpty()
{
    // Whatever belongs to a call; the infrastructure's own accounts are not among them.
    static const std::vector<std::string> vPerCall = {"InSipLegInterfaceProxy",
                                                      "OutSipLegInterfaceProxy",
                                                      "VoipInCallLegProxy",
                                                      "VoipOutCallLegProxy",
                                                      "RtpCallbackProxy",
                                                      "CallData",
                                                      "AcquireInStateMachine_MO",
                                                      "AcquireOutStateMachine_MO",
                                                      "InDestructor_MO",
                                                      "OutDestructor_MO",
                                                      "ReleaseSameThread_MO<ContainerType>",
                                                      "Called_MO",
                                                      "CallConfirmed_MO",
                                                      "Terminated_MO",
                                                      "Prack_MO",
                                                      "VoipEvent_MO",
                                                      "Media_MO<SMType>",
                                                      "Hangup_MO<SMType>",
                                                      "InviteAccepted_MO",
                                                      "RemoteConnected_MO",
                                                      "Invite_MO",
                                                      "UnknownRequest_MO<>",
                                                      "InSipLeg",
                                                      "OutSipLeg",
                                                      "VoipMedia",
                                                      "VoipMediaStream",
                                                      "DsSipIncomingCall",
                                                      "DsSipOutgoingCall",
                                                      "DsSipDialog",
                                                      "DsSipServerTransaction",
                                                      "MediaEndpointCapacity",
                                                      "MediaEndpointSpec",
                                                      "VoipSetCapacityMediaEvent",
                                                      "VoipOpStatusMediaEvent"};
    for (const std::string& strName : vPerCall)
    {
        EXPECT_TRUE(Test::waitUntil([&] { return MemAccounts::get(strName).liveObjects() == 0; }))
            << strName << ": " << MemAccounts::get(strName).liveObjects() << " objects";
    }
}

RunningNetIf::RunningNetIf(const std::string& in_strMediaKind)
    : m_uiPort(SipTestPeer::findFreePort()),
      m_pEngine(std::make_unique<ScriptedCallEngine>()),
      m_pNetIf(std::make_unique<DsVoipGatewayNetIf>()),
      m_pProbe(std::make_unique<NetIfProbe>(*m_pNetIf))
{
    EXPECT_TRUE(m_pNetIf->configure(toHandle(makeConfiguration(m_uiPort, mediaLibrary(in_strMediaKind)))));
    m_pNetIf->setCallEngine(m_pEngine.get());
    EXPECT_TRUE(m_pNetIf->start());
    EXPECT_TRUE(m_pProbe->waitForState(Task::RUNNING_STATE));
}

RunningNetIf::~RunningNetIf()
{
    if (m_pNetIf->getTaskState() != Task::STOPPED_STATE)
    {
        m_pNetIf->kill();
        m_pNetIf->waitUntilDone();
    }
    // Legs are deleted before the network interface, as a gateway does.
    m_pEngine->deleteLegs();
    m_pProbe.reset();
    m_pNetIf.reset();
    m_pEngine.reset();
}

bool RunningNetIf::stop()
{
    return m_pNetIf->stop() && m_pProbe->waitForState(Task::STOPPED_STATE) && m_pNetIf->waitUntilDone();
}

}  // namespace Test
}  // namespace Quorvex
