// The way into the plug-in: LoadMethod and configure, with good and bad media engine libraries.

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <sstream>

#include "DsSipGatewayNetIf.h"
#include "LogCapture.h"
#include "NetIfFixture.h"
#include "infra/Assertion.h"
#include "infra/RegistrationSingleton.h"
#include "quorvex/DynlibObjectFactory.h"

using namespace Quorvex;
using namespace Quorvex::Test;

extern "C" std::int32_t LoadMethod(OAMGatewayNetIf**, const TSHandle<ROConfiguration>&);

namespace
{

constexpr const char* kTonePlayerFactory = "TONE_PLAYER_FACTORY";

std::unique_ptr<OAMGatewayNetIf> load(const TSHandle<ROConfiguration>& in_hConfig)
{
    auto* pNetIf = reinterpret_cast<OAMGatewayNetIf*>(1);
    EXPECT_EQ(LoadMethod(&pNetIf, in_hConfig), 0);
    return std::unique_ptr<OAMGatewayNetIf>(pNetIf);
}

}  // namespace

TEST(LoadMethodTest, FailuresAreReportedAndLeaveNoInstance)
{
    struct Case
    {
        const char* m_szName;
        std::function<void(MapConfiguration&)> m_change;
        std::vector<std::string> m_vErrors;
    };
    const std::string strMissing = "/nowhere/libnone.so";
    const auto withLibrary = [](const std::string& in_strName)
    {
        return [in_strName](MapConfiguration& io_config)
        { io_config.set("quorvex.sip.mediaLibName", in_strName); };
    };
    const std::vector<Case> vCases = {
        {"library missing",
         withLibrary(strMissing),
         {"Failed to load SIP Media Engine from library " + strMissing}                                                   },
        {"no LoadMethod",
         withLibrary(mediaLibrary("empty")),
         {"Creation method \"LoadMethod\" not found",
          "Failed to get SIP Media Engine from library " + mediaLibrary("empty")}                                         },
        {"LoadMethod fails",
         withLibrary(mediaLibrary("failing")),
         {"Error calling creation method \"LoadMethod\"",
          "Failed to get SIP Media Engine from library " + mediaLibrary("failing")}                                       },
        {"not a task",       withLibrary(mediaLibrary("no_task")),                          {"! hManageableTask.isNull()"}},
        {"wrong type",
         [](MapConfiguration& io_config) { io_config.set("quorvex.sip.mediaLibName", 7); },
         {"quorvex.sip.mediaLibName"}                                                                                     },
    };
    for (const Case& testCase : vCases)
    {
        SCOPED_TRACE(testCase.m_szName);
        const LogCapture log;
        const auto pConfiguration = makeConfiguration(5060, "");
        testCase.m_change(*pConfiguration);
        EXPECT_EQ(load(toHandle(pConfiguration)), nullptr);
        for (const std::string& strError : testCase.m_vErrors)
        {
            EXPECT_GE(log.count(strError, eERROR_LEVEL), 1U) << strError;
        }
        EXPECT_EQ(log.count("failed to configure sip network interface", eERROR_LEVEL), 1U);
        // One that was left alive would be in the way of this one.
        EXPECT_NE(load(toHandle(makeConfiguration(5060, mediaLibrary("plain")))), nullptr);
    }
}

TEST(LoadMethodTest, NoLibraryNamedAndNoConfigurationAtAll)
{
    {
        const LogCapture log;
        EXPECT_EQ(load(TSHandle<ROConfiguration>(new MapConfiguration)), nullptr);
        EXPECT_GE(log.count("quorvex.sip.mediaLibName", eERROR_LEVEL), 1U);
    }
    {
        const LogCapture log;
        EXPECT_EQ(load(TSHandle<ROConfiguration>()), nullptr);
        EXPECT_EQ(log.count("! in_hConfig.isNull()", eERROR_LEVEL), 1U);
    }
}

TEST(LoadMethodTest, SecondInstanceIsReportedAndRefused)
{
    const auto pFirst = load(toHandle(makeConfiguration(5060, mediaLibrary("plain"))));
    ASSERT_NE(pFirst, nullptr);
    const LogCapture log;
    EXPECT_EQ(load(toHandle(makeConfiguration(5062, mediaLibrary("plain")))), nullptr);
    EXPECT_EQ(log.count("too many instances: 2", eERROR_LEVEL), 1U);
}

TEST(LoadMethodTest, TonePlayerFactoryIsPublishedForItsLifeAndOnlyIfItIsOne)
{
    for (const bool bTone : {true, false})
    {
        SCOPED_TRACE(bTone);
        auto pNetIf = load(toHandle(makeConfiguration(5060, mediaLibrary(bTone ? "tone" : "plain"))));
        ASSERT_NE(pNetIf, nullptr);
        const auto hFactory = RegistrationSingleton::instance().lookup(kTonePlayerFactory);
        EXPECT_EQ(dynamic_cast<CTBusTonePlayerFactory*>(hFactory.get()) != nullptr, bTone);
        pNetIf.reset();
        EXPECT_TRUE(RegistrationSingleton::instance().lookup(kTonePlayerFactory).isNull());
    }
}

TEST(LoadMethodTest, ConfiguredTwiceItKeepsItsEngineAndItsSubTasks)
{
    DsVoipGatewayNetIf netIf;
    const auto hConfig = toHandle(makeConfiguration(SipTestPeer::findFreePort(), mediaLibrary("tone")));
    ASSERT_TRUE(netIf.configure(hConfig));
    const ScriptedMediaEngine* pEngine = ScriptedMediaEngine::current();
    const LogCapture log;
    ASSERT_TRUE(netIf.configure(hConfig));
    EXPECT_EQ(ScriptedMediaEngine::current(), pEngine);
    // A sub-task that is added twice is refused, and that is logged.
    EXPECT_EQ(log.count("", eWARN_LEVEL), 0U);
    // The engine in force is what is published, also when it was replaced between the two.
    const DynLibObjPtr<MediaEngine> pOther(TSHandle<MediaEngine>(new ScriptedToneMediaEngine),
                                           TSHandle<DynLib>());
    ASSERT_TRUE(netIf.setMediaEngine(pOther));
    ASSERT_TRUE(netIf.configure(hConfig));
    EXPECT_EQ(dynamic_cast<MediaEngine*>(RegistrationSingleton::instance().lookup(kTonePlayerFactory).get()),
              pOther.get());

    NetIfProbe probe(netIf);
    ASSERT_TRUE(netIf.start());
    ASSERT_TRUE(probe.waitForState(Task::RUNNING_STATE));
    EXPECT_EQ(ScriptedMediaEngine::current()->getTaskState(), Task::RUNNING_STATE);
    EXPECT_FALSE(netIf.setMediaEngine(pOther)) << "while it runs";
    EXPECT_FALSE(netIf.configure(hConfig)) << "while it runs";
    ASSERT_TRUE(netIf.stop());
    ASSERT_TRUE(netIf.waitUntilDone());
    EXPECT_EQ(ScriptedMediaEngine::current()->getTaskState(), Task::STOPPED_STATE);
}

TEST(LoadMethodTest, LibraryIsEnteredByName)
{
    DynlibObjectFactory<OAMGatewayNetIf> factory;
    ASSERT_TRUE(factory.openDynlib(NETIF_LIB)) << factory.getOpenError();
    auto pNetIf = factory.create("LoadMethod", toHandle(makeConfiguration(5060, mediaLibrary("plain"))));
    ASSERT_FALSE(pNetIf.isNull());
    EXPECT_STREQ(pNetIf->getTaskName(), "Sip Gateway Network Interface");
}

TEST(LoadMethodTest, LinkedClassForwardsToOneInterface)
{
    DsSipGatewayNetIf netIf;
    const std::uint16_t uiPort = SipTestPeer::findFreePort();
    ASSERT_TRUE(netIf.configure(toHandle(makeConfiguration(uiPort, mediaLibrary("plain")))));
    EXPECT_STREQ(netIf.getTaskName(), "Sip Gateway Network Interface");
    ScriptedCallEngine engine;
    netIf.setCallEngine(&engine);
    ASSERT_TRUE(netIf.start());
    SipTestPeer peer;
    // Sent again until the socket is open.
    bool bAnswered = false;
    for (int iTry = 0; iTry < 100 && !bAnswered; ++iTry)
    {
        const std::string strMe = "127.0.0.1:" + std::to_string(peer.getPort());
        peer.send(uiPort,
                  "OPTIONS sip:gateway@127.0.0.1 SIP/2.0\r\nVia: SIP/2.0/UDP " + strMe + ";branch=z9hG4bK" +
                      std::to_string(iTry) + "\r\nFrom: <sip:peer@" + strMe +
                      ">;tag=1\r\nTo: <sip:gateway@127.0.0.1>\r\nCall-ID: options\r\nCSeq: " +
                      std::to_string(iTry + 1) + " OPTIONS\r\nContent-Length: 0\r\n\r\n");
        bAnswered = !peer.receive("200", std::chrono::milliseconds(200)).empty();
    }
    EXPECT_TRUE(bAnswered);
    EXPECT_EQ(netIf.getTaskState(), Task::RUNNING_STATE);
    EXPECT_TRUE(netIf.stop());
    EXPECT_TRUE(netIf.waitUntilDone());
    EXPECT_EQ(netIf.getTaskState(), Task::STOPPED_STATE);
}
