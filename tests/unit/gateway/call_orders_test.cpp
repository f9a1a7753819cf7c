// Whatever happens to a call, in whatever order: each of its legs ends exactly once, is told nothing after
// its end, and leaves one record. Every order of three events is gone through from every stage of a call.

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <map>
#include <nlohmann/json.hpp>

#include "gateway/RoutingCallEngine.h"
#include "infra/TomlConfiguration.h"

namespace Quorvex
{
namespace
{

/// A leg as the network interface knows it, with what the engine may not have asked of it.
struct Leg
{
    /// Lets go of the engine's side.
    std::function<void()> m_release;
    CallInInterface* m_pIn = nullptr;
    CallOutInterface* m_pOut = nullptr;
    bool m_bAnswered = false;
    bool m_bEndedByEngine = false;
    bool m_bEndedByFarEnd = false;
    bool m_bReleased = false;
    bool m_bReferPending = false;
    bool m_bTransferred = false;
    unsigned int m_uiInfos = 0;
    std::string m_strFaults;

    bool isUp() const { return !m_bEndedByEngine && !m_bEndedByFarEnd; }
    bool mayRefer() const { return isUp() && m_bAnswered && !m_bReferPending && !m_bTransferred; }
    bool told(const char* in_szWhat, bool in_bAllowed = true)
    {
        if (!isUp() || !in_bAllowed)
        {
            m_strFaults +=
                std::string(" ") + in_szWhat + (isUp() ? ", which does not fit;" : " after its end;");
        }
        return true;
    }
    bool end(const char* in_szWhat, bool in_bAllowed = true)
    {
        told(in_szWhat, in_bAllowed);
        m_bEndedByEngine = true;
        return true;
    }
    bool transferEnds(const char* in_szWhat)
    {
        told(in_szWhat, m_bReferPending);
        m_bReferPending = false;
        return true;
    }
};

template <class Base>
class FakeLeg : public Base
{
public:
    explicit FakeLeg(std::shared_ptr<Leg> in_pLeg) : m_pLeg(std::move(in_pLeg)) {}

    bool hangup() override { return m_pLeg->end("hangup"); }
    bool sendInfoMsg(const std::vector<Parameter>& /*in_vParameters*/) override
    {
        ++m_pLeg->m_uiInfos;
        return m_pLeg->told("INFO", m_pLeg->m_bAnswered);
    }
    bool mediaAvailable() override
    {
        m_pLeg->told("media", !m_pLeg->m_bAnswered || m_pLeg->m_bTransferred);
        m_pLeg->m_bTransferred = false;
        return true;
    }
    bool transferAccepted(RingType /*in_ringType*/) override
    {
        return m_pLeg->told("transfer accepted", m_pLeg->m_bReferPending);
    }
    bool transferFailure(ConnectionFailureType /*in_failure*/) override
    {
        return m_pLeg->transferEnds("transfer failed");
    }
    bool transferSuccess() override
    {
        m_pLeg->m_bTransferred = true;
        return m_pLeg->transferEnds("transferred");
    }

protected:
    const std::shared_ptr<Leg> m_pLeg;
};

class FakeInLeg : public FakeLeg<InCallLeg>
{
public:
    using FakeLeg::FakeLeg;
    bool inviteAccepted(RingType /*in_ringType*/) override
    {
        return m_pLeg->told("accepted", !m_pLeg->m_bAnswered);
    }
    bool remoteConnected(Call::ConnectionType /*in_connectionType*/) override
    {
        m_pLeg->told("connected", !m_pLeg->m_bAnswered);
        m_pLeg->m_bAnswered = true;
        return true;
    }
    bool inviteRejected(ConnectionFailureType /*in_failure*/) override
    {
        return m_pLeg->end("rejected", !m_pLeg->m_bAnswered);
    }
    bool remoteConnectionFailed(ConnectionFailureType /*in_failure*/) override
    {
        return m_pLeg->end("failed", !m_pLeg->m_bAnswered);
    }
};

class FakeOutLeg : public FakeLeg<OutCallLeg>
{
public:
    using FakeLeg::FakeLeg;
    bool invite(const CallInfo& /*in_callInfo*/) override
    {
        return m_pLeg->told("invite", !m_pLeg->m_bAnswered);
    }
};

class CallOrdersTest : public testing::Test, private OutLegEngine
{
protected:
    /// The legs of one call: the caller's, then those that were placed.
    using Legs = std::vector<std::shared_ptr<Leg>>;
    using Event = void (CallOrdersTest::*)();
    struct NamedEvent
    {
        const char* m_szName;
        Event m_event;
    };

    void SetUp() override
    {
        std::string strError;
        const auto hConfig = TomlConfiguration::parse(
            "[[route]]\nname = \"x\"\nmatch = { \"sip.in.requestUri\" = \"^sip:x@\" }\n"
            "leg = { \"sip.out.requestUri\" = \"sip:x@127.0.0.1\" }\n"
            "[[route]]\nname = \"c\"\nmatch = { \"sip.in.requestUri\" = \"^sip:c@\" }\n"
            "legs = [{ \"sip.out.requestUri\" = \"sip:c@127.0.0.1\" }, { \"sip.out.requestUri\" = "
            "\"sip:d@127.0.0.1\" }]\n"
            "[[route]]\nname = \"echo\"\nmatch = { \"sip.in.requestUri\" = \"^sip:echo@\" }\nservice = "
            "\"echo\"\n",
            "test",
            strError);
        ASSERT_FALSE(hConfig.isNull()) << strError;
        auto pRoutes = std::make_shared<RouteTable>();
        ASSERT_TRUE(pRoutes->read(hConfig->getTrie(), "/", strError)) << strError;
        m_engine.setRoutes(pRoutes);
        m_nobody.m_bEndedByFarEnd = true;
        m_engine.setOutLegEngine(this, 0);
        ASSERT_TRUE(m_engine.getCdrWriter().open(m_strFile, strError)) << strError;
        Logging::setRootLevel(eWARN_LEVEL);
        m_engine.start();
        m_engine.takeCalls(true);
    }
    void TearDown() override
    {
        m_engine.stop();
        Logging::setRootLevel(eINFO_LEVEL);
        std::filesystem::remove(m_strFile);
    }

    OutCallLeg* getOutCallLeg(CallOutInterface* in_pOut, const char* /*in_szCallId*/) override
    {
        auto pLeg = std::make_shared<Leg>();
        pLeg->m_pOut = in_pOut;
        pLeg->m_release = [in_pOut] { delete in_pOut; };
        m_vLegs.push_back(pLeg);
        return new FakeOutLeg(pLeg);
    }

    void settle()
    {
        std::promise<void> done;
        ASSERT_TRUE(m_engine.post([&done] { done.set_value(); }));
        done.get_future().wait();
    }

    template <class Function>
    auto ask(Function in_function)
    {
        std::promise<decltype(in_function(m_engine))> result;
        m_engine.post([&] { result.set_value(in_function(m_engine)); });
        return result.get_future().get();
    }

    void releaseEnded()
    {
        for (std::size_t i = 0; i < m_vLegs.size(); ++i)
        {
            if (!m_vLegs[i]->isUp() && !std::exchange(m_vLegs[i]->m_bReleased, true))
            {
                m_vLegs[i]->m_release();
                settle();
            }
        }
    }

    void farEndLeaves(Leg& io_leg)
    {
        if (!io_leg.isUp())
        {
            return;
        }
        io_leg.m_bEndedByFarEnd = true;
        if (io_leg.m_pIn != nullptr)
        {
            io_leg.m_pIn->disconnected();
        }
        else if (io_leg.m_bAnswered)
        {
            io_leg.m_pOut->disconnected();
        }
        else
        {
            io_leg.m_pOut->connectFailed(eBUSY_FAILURE);
        }
    }
    void answers(Leg& io_leg)
    {
        if (io_leg.isUp() && !io_leg.m_bAnswered)
        {
            io_leg.m_pOut->ringing(eRING_WITHOUT_EARLY_MEDIA);
            io_leg.m_bAnswered = true;
            io_leg.m_pOut->connected(Call::eCONNECTION_NONE);
        }
    }
    void refers(Leg& io_leg, const char* in_szTarget)
    {
        if (io_leg.mayRefer())
        {
            io_leg.m_bReferPending = true;
            CallLegInfo leg;
            leg.setParameter("sip.in.referTo", in_szTarget);
            io_leg.m_pIn != nullptr ? io_leg.m_pIn->transfer(leg) : io_leg.m_pOut->transfer(leg);
        }
    }
    /// The caller, the party that it called, and the one that was placed last; nobody when there is none.
    Leg& leg(std::size_t in_index) { return in_index < m_vLegs.size() ? *m_vLegs[in_index] : m_nobody; }
    Leg& last() { return m_vLegs.size() > 2 ? *m_vLegs.back() : m_nobody; }

    void callerLeaves() { farEndLeaves(leg(0)); }
    void calleeAnswers() { answers(leg(1)); }
    void calleeLeaves() { farEndLeaves(leg(1)); }
    void newAnswers() { answers(last()); }
    void newLeaves() { farEndLeaves(last()); }
    void callerRefers() { refers(leg(0), "sip:c@h"); }
    void calleeRefers() { refers(leg(1), "sip:c@h"); }
    void newRefersToService() { refers(last(), "sip:echo@h"); }
    void callerRefersToService() { refers(leg(0), "sip:echo@h"); }
    void operatorTransfers()
    {
        CallLegInfo leg;
        leg.setParameter("sip.out.requestUri", "sip:o@127.0.0.1");
        ask([&](RoutingCallEngine& io_engine) { return io_engine.transfer(m_strCall, leg); });
    }
    void operatorHangsUp()
    {
        ask([&](RoutingCallEngine& io_engine) { return io_engine.hangUp(m_strCall); });
    }

    void happens(Event in_event, bool in_bReleaseLate)
    {
        (this->*in_event)();
        settle();
        if (!in_bReleaseLate)
        {
            releaseEnded();
        }
    }

    /// Two who are left talk to each other, and nobody is left alone unless a service may be there.
    void checkWhoTalks(bool in_bService)
    {
        Legs talking;
        bool bCalling = false;
        for (const auto& pLeg : m_vLegs)
        {
            if (pLeg->isUp() && pLeg->m_bAnswered && !pLeg->m_bTransferred)
            {
                talking.push_back(pLeg);
            }
            bCalling = bCalling || (pLeg->isUp() && !pLeg->m_bAnswered);
        }
        EXPECT_LE(talking.size(), 2U);
        EXPECT_TRUE(talking.size() != 1 || bCalling || in_bService) << "one is left alone";
        for (std::size_t i = 0; i < 2 && talking.size() == 2; ++i)
        {
            const std::vector<Parameter> vInfo = {
                {"body", "x"}
            };
            const unsigned int uiBefore = talking[1 - i]->m_uiInfos;
            talking[i]->m_pIn != nullptr ? talking[i]->m_pIn->infoReceived(vInfo)
                                         : talking[i]->m_pOut->infoReceived(vInfo);
            settle();
            EXPECT_EQ(talking[1 - i]->m_uiInfos, uiBefore + 1) << "they do not hear each other";
        }
    }

    /// One call, from its INVITE to its end.
    void run(const char* in_szTo, const std::vector<NamedEvent>& in_vEvents, bool in_bReleaseLate)
    {
        m_strCall =
            std::to_string(m_mapExpected.size()) + ": to " + in_szTo + (in_bReleaseLate ? ", late" : "");
        for (const NamedEvent& event : in_vEvents)
        {
            m_strCall += std::string(", ") + event.m_szName;
        }
        SCOPED_TRACE(m_strCall);
        m_vLegs = {std::make_shared<Leg>()};
        CallInInterface* pIn = m_engine.newInCall(new FakeInLeg(m_vLegs[0]), m_strCall.c_str());
        m_vLegs[0]->m_pIn = pIn;
        m_vLegs[0]->m_release = [pIn] { delete pIn; };
        CallLegInfo offer;
        offer.setParameter("sip.in.requestUri", in_szTo);
        pIn->invite(offer);
        settle();
        for (const NamedEvent& event : in_vEvents)
        {
            happens(event.m_event, in_bReleaseLate);
        }
        checkWhoTalks(m_strCall.find("echo") != std::string::npos ||
                      m_strCall.find("service") != std::string::npos);
        operatorHangsUp();
        settle();
        releaseEnded();
        for (std::size_t i = 0; i < m_vLegs.size(); ++i)
        {
            const Leg& leg = *m_vLegs[i];
            EXPECT_FALSE(leg.isUp()) << "leg " << i << " was left behind";
            EXPECT_EQ(leg.m_strFaults, "") << "leg " << i;
            EXPECT_FALSE(leg.m_bReferPending && !leg.m_bEndedByFarEnd)
                << "leg " << i << " never heard of its transfer";
            // The record waits for the figures of the leg's stream.
            StreamStatistics statistics;
            statistics.m_strCallId = m_strCall;
            statistics.m_uiIndex = static_cast<unsigned>(i);
            m_engine.streamEnded(statistics);
        }
        settle();
        EXPECT_EQ(m_engine.getLiveCalls(), 0U);
        m_mapExpected[m_strCall] = m_vLegs;
    }

    /// The records that are there are those of the legs, one for each.
    void checkRecords()
    {
        m_engine.stop();
        std::ifstream file(m_strFile);
        std::map<std::string, Legs> left = m_mapExpected;
        for (std::string strLine; std::getline(file, strLine);)
        {
            const auto record = nlohmann::json::parse(strLine);
            Legs& legs = left[record["call"]];
            const std::size_t uiLeg = record["leg"];
            ASSERT_LT(uiLeg, legs.size()) << strLine;
            ASSERT_NE(legs[uiLeg], nullptr) << "a second record: " << strLine;
            const Leg& leg = *std::exchange(legs[uiLeg], nullptr);
            EXPECT_EQ(record["endedBy"], leg.m_bEndedByFarEnd ? "remote" : "local") << strLine;
            EXPECT_EQ(record["status"] == 200, leg.m_bAnswered) << strLine;
        }
        for (const auto& [strCall, legs] : left)
        {
            EXPECT_TRUE(
                std::all_of(legs.begin(), legs.end(), [](const auto& in_pLeg) { return in_pLeg == nullptr; }))
                << "a record is missing: " << strCall;
        }
    }

    const std::string m_strFile =
        testing::TempDir() + "quorvex-orders-" + std::to_string(getpid()) + ".jsonl";
    Leg m_nobody;
    Legs m_vLegs;
    std::string m_strCall;
    std::map<std::string, Legs> m_mapExpected;
    RoutingCallEngine m_engine;

    // clang-format off
    const std::vector<NamedEvent> m_vEvents = {
        {"caller leaves", &CallOrdersTest::callerLeaves},
        {"callee answers", &CallOrdersTest::calleeAnswers},
        {"callee leaves", &CallOrdersTest::calleeLeaves},
        {"new answers", &CallOrdersTest::newAnswers},
        {"new leaves", &CallOrdersTest::newLeaves},
        {"caller refers", &CallOrdersTest::callerRefers},
        {"callee refers", &CallOrdersTest::calleeRefers},
        {"new refers to service", &CallOrdersTest::newRefersToService},
        {"caller refers to service", &CallOrdersTest::callerRefersToService},
        {"operator transfers", &CallOrdersTest::operatorTransfers},
        {"operator hangs up", &CallOrdersTest::operatorHangsUp},
    };
    // clang-format on
};

TEST_F(CallOrdersTest, EveryLegEndsOnceWhateverTheOrder)
{
    const NamedEvent answer = m_vEvents[1];
    const struct
    {
        const char* m_szTo;
        std::vector<NamedEvent> m_vBefore;
    } stages[] = {
        {"sip:x@h",    {}                                  },
        {"sip:x@h",    {answer}                            },
        {"sip:x@h",    {answer, m_vEvents[5]}              },
        {"sip:x@h",    {answer, m_vEvents[6]}              },
        {"sip:x@h",    {answer, m_vEvents[6], m_vEvents[3]}},
        {"sip:echo@h", {}                                  },
        {"sip:echo@h", {m_vEvents[5], answer}              },
    };
    for (const auto& stage : stages)
    {
        for (const NamedEvent& first : m_vEvents)
        {
            for (const NamedEvent& second : m_vEvents)
            {
                for (const NamedEvent& third : m_vEvents)
                {
                    std::vector<NamedEvent> vEvents = stage.m_vBefore;
                    vEvents.insert(vEvents.end(), {first, second, third});
                    run(stage.m_szTo, vEvents, false);
                    run(stage.m_szTo, vEvents, true);
                    ASSERT_FALSE(HasFailure());
                }
            }
        }
    }
    checkRecords();
}

}  // namespace
}  // namespace Quorvex
