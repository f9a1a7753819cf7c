// The engine as its users see it: operations, reports, ports, end.

#include <gmock/gmock.h>

#include <thread>

#include "MediaFixture.h"

namespace Quorvex::Test
{

using testing::HasSubstr;
using testing::StartsWith;

class EngineTest : public MediaFixture
{
};

TEST_F(EngineTest, refusesWrongConfigurations)
{
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"quorvex.rtp.localAddress", "0.0.0.0"     },
        {"quorvex.rtp.localAddress", "localhost"   },
        {"quorvex.rtp.localAddress", "192.0.2.200" },
        {"quorvex.rtp.portRange",    "20000"       },
        {"quorvex.rtp.portRange",    "20001-20001" },
        {"quorvex.rtp.portRange",    "30000-20000" },
        {"quorvex.rtp.portRange",    "100-200"     },
        {"quorvex.rtp.portRange",    "60000-70000" },
        {"quorvex.rtp.portRange",    "20000-20010x"}
    };
    for (const auto& [strKey, strValue] : cases)
    {
        MapConfiguration config;
        config.set(strKey, strValue);
        EngineConfig engineConfig;
        std::string strError;
        EXPECT_FALSE(engineConfig.read(config, strError)) << strKey << "=" << strValue;
        EXPECT_THAT(strError, HasSubstr(strKey));
        EXPECT_THAT(strError, HasSubstr("expected"));
    }
}

TEST_F(EngineTest, reportsCapacityOnceBoundAndGivesThePortBack)
{
    startEngine({
        {"quorvex.rtp.portRange", freeRange(4)}
    });
    auto pLeg = makeLeg("call");
    const MediaEndpointCapacity& capacity = *pLeg->m_pReports->m_pCapacity;
    std::string strAddress;
    EXPECT_TRUE(capacity.getString("IPv4 Address", strAddress));
    EXPECT_EQ("127.0.0.1", strAddress);
    EXPECT_EQ(0U, pLeg->m_uiPort % 2);
    EXPECT_EQ(3U, m_pEngine->getTotals().m_ui64FreePortPairs);

    pLeg->m_pEndpoint.reset();
    EXPECT_TRUE(pLeg->m_pReports->waitReleased());
    EXPECT_EQ(4U, m_pEngine->getTotals().m_ui64FreePortPairs);
}

TEST_F(EngineTest, reportsFailureWhenTheRangeIsExhausted)
{
    startEngine({
        {"quorvex.rtp.portRange", freeRange(2)}
    });
    auto pFirst = makeLeg("a");
    auto pSecond = makeLeg("b");
    Leg third;
    third.m_pEndpoint.reset(
        m_pEngine->createEndpoint(new TestCallback(third.m_pReports), "c", new SndRecvEndpointSpec()));
    ASSERT_NE(nullptr, third.m_pEndpoint);
    EXPECT_EQ("failure", third.m_pReports->next());
    EXPECT_TRUE(third.m_pEndpoint->start(MediaEndpoint::RX_DIRECTION));
    EXPECT_EQ("start RX RESOURCE", third.m_pReports->next());
    EXPECT_EQ(1U, m_pEngine->getTotals().m_ui64CapacityFailures);

    // A port that was given back serves the next call.
    pFirst->m_pEndpoint.reset();
    EXPECT_NE(0U, makeLeg("d")->m_uiPort);
}

TEST_F(EngineTest, reportsEveryOperationInOrder)
{
    startEngine();
    auto pLeg = makeLeg("call");
    EXPECT_TRUE(pLeg->m_pEndpoint->start(MediaEndpoint::TX_DIRECTION));
    EXPECT_EQ("start TX INVALID_STATE", pLeg->m_pReports->next());

    struct Case
    {
        const char* m_szName;
        unsigned m_uiPayloadType;
        unsigned m_uiPacketSize;
        const char* m_szAddress;
        unsigned m_uiPort;
        unsigned m_uiEventType;
    };
    for (const Case& wrong : {
             Case{"codec",                 18, 20, "127.0.0.1", 4000,  101},
             Case{"packet size",           0,  25, "127.0.0.1", 4000,  101},
             Case{"packet size",           0,  0,  "127.0.0.1", 4000,  101},
             Case{"host name",             0,  20, "localhost", 4000,  101},
             Case{"port",                  0,  20, "127.0.0.1", 65536, 101},
             Case{"port",                  0,  20, "127.0.0.1", 0,     101},
             Case{"event type",            0,  20, "127.0.0.1", 4000,  128},
             Case{"event type of a codec", 0,  20, "127.0.0.1", 4000,  8  }
    })
    {
        MediaEndpointConfig config(MediaEndpoint::TX_DIRECTION);
        config.set("Payload type", wrong.m_uiPayloadType);
        config.set("Payload size", wrong.m_uiPacketSize);
        config.set("IPv4 Address", wrong.m_szAddress);
        config.set("UDP Port", wrong.m_uiPort);
        config.set("Rfc 2833 support", true);
        config.set("Rfc 2833 payload type", wrong.m_uiEventType);
        EXPECT_TRUE(pLeg->m_pEndpoint->configure(MediaEndpoint::TX_DIRECTION, config));
        EXPECT_EQ("configure TX INVALID_CONFIG", pLeg->m_pReports->next()) << wrong.m_szName;
    }

    startLeg(*pLeg, {});
    // Both directions with one request, and again: nothing is lost, nothing breaks.
    for (int i = 0; i < 2; ++i)
    {
        EXPECT_TRUE(pLeg->m_pEndpoint->stop(MediaEndpoint::RXTX_DIRECTION));
        EXPECT_EQ("stop RX SUCCESS", pLeg->m_pReports->next());
        EXPECT_EQ("stop TX SUCCESS", pLeg->m_pReports->next());
        if (i == 0)
        {
            EXPECT_THAT(pLeg->m_pReports->next(), StartsWith("notify Stream statistics: codec=PCMU"));
        }
    }
    EXPECT_FALSE(pLeg->m_pEndpoint->start(MediaEndpoint::NO_DIRECTION));
}

TEST_F(EngineTest, endsWithEndpointsOpen)
{
    startEngine();
    std::vector<std::unique_ptr<Leg>> vLegs;
    for (int i = 0; i < 20; ++i)
    {
        vLegs.push_back(makeStartedLeg("call" + std::to_string(i / 2)));
    }
    stopEngine();
    EXPECT_EQ(Task::STOPPED_STATE, m_pEngine->getTaskState());
    for (const auto& pLeg : vLegs)
    {
        EXPECT_TRUE(pLeg->m_pReports->waitReleased());
        EXPECT_FALSE(pLeg->m_pEndpoint->stop(MediaEndpoint::RX_DIRECTION));
    }
    auto pReports = std::make_shared<Reports>();
    EXPECT_EQ(nullptr, m_pEngine->createEndpoint(new TestCallback(pReports), "x", new SndRecvEndpointSpec()));
    EXPECT_TRUE(pReports->waitReleased());

    // It can be started again, and what is left of its first life does no harm.
    ASSERT_TRUE(m_pEngine->start());
    EXPECT_FALSE(m_pEngine->start());
    auto pLeg = makeStartedLeg("again");
    vLegs.clear();
    EXPECT_EQ(1U, m_pEngine->getTotals().m_ui64Endpoints);
}

TEST_F(EngineTest, survivesCreationAndDeletionOnManyThreadsWhileItStops)
{
    for (int iRound = 0; iRound < 5; ++iRound)
    {
        startEngine();
        std::vector<std::thread> vThreads;
        for (int i = 0; i < 4; ++i)
        {
            vThreads.emplace_back(
                [this, i]
                {
                    for (int n = 0; n < 200; ++n)
                    {
                        auto pReports = std::make_shared<Reports>();
                        std::unique_ptr<MediaEndpoint> pEndpoint(
                            m_pEngine->createEndpoint(new TestCallback(pReports),
                                                      "call" + std::to_string(i),
                                                      new SndRecvEndpointSpec()));
                        if (pEndpoint == nullptr)
                        {
                            break;
                        }
                        pEndpoint->start(MediaEndpoint::RXTX_DIRECTION);
                        m_pEngine->attachEcho("call" + std::to_string(i));
                        m_pEngine->getStreamStatistics("call" + std::to_string(i));
                    }
                });
        }
        EXPECT_GE(m_pEngine->getTotals().m_ui64PortPairs, 1U);
        m_pEngine->stop();
        for (std::thread& thread : vThreads)
        {
            thread.join();
        }
        stopEngine();
    }
}

}  // namespace Quorvex::Test
