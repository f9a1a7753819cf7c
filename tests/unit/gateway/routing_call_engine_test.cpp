#include <gtest/gtest.h>
#include <unistd.h>

#include <condition_variable>
#include <filesystem>
#include <future>
#include <mutex>
#include <sstream>

#include "gateway/EngineControl.h"
#include "gateway/RoutingCallEngine.h"
#include "infra/TomlConfiguration.h"

namespace Quorvex
{
namespace
{

/// What the legs of a test were told, in order. A handle: the engine may delete a leg after its test has
/// ended.
class Told
{
public:
    void add(const std::string& in_strWord)
    {
        const std::lock_guard lock(m_pState->m_mutex);
        m_pState->m_strWords += (m_pState->m_strWords.empty() ? "" : ", ") + in_strWord;
        m_pState->m_changed.notify_all();
    }
    /// Waits until the words are these; the words at the deadline if they never are.
    std::string waitFor(const std::string& in_strWords)
    {
        std::unique_lock lock(m_pState->m_mutex);
        m_pState->m_changed.wait_for(
            lock, std::chrono::seconds(10), [&] { return m_pState->m_strWords == in_strWords; });
        return m_pState->m_strWords;
    }

private:
    struct State
    {
        std::mutex m_mutex;
        std::condition_variable m_changed;
        std::string m_strWords;
    };
    std::shared_ptr<State> m_pState = std::make_shared<State>();
};

class FakeLeg : public InCallLeg
{
public:
    explicit FakeLeg(Told in_told) : m_told(std::move(in_told)) {}
    ~FakeLeg() override { m_told.add("deleted"); }

    bool hangup() override { return tell("hangup"); }
    bool inviteAccepted(RingType in_ringType) override
    {
        return tell(in_ringType == eRING_WITH_EARLY_MEDIA ? "accepted with early media" : "accepted");
    }
    bool inviteRejected(ConnectionFailureType in_failure) override { return tell("rejected", in_failure); }
    bool remoteConnected(Call::ConnectionType /*in_connectionType*/) override { return tell("connected"); }
    bool remoteConnectionFailed(ConnectionFailureType in_failure) override
    {
        return tell("failed", in_failure);
    }
    bool mediaAvailable() override { return tell("media"); }
    bool sendInfoMsg(const std::vector<Parameter>& in_vParameters) override
    {
        return tell("info " + in_vParameters.front().getName());
    }
    bool transferAccepted(RingType /*in_ringType*/) override { return tell("transfer accepted"); }
    bool transferSuccess() override { return tell("transferred"); }
    bool transferFailure(ConnectionFailureType in_failure) override
    {
        return tell("transfer failed", in_failure);
    }

private:
    bool tell(const std::string& in_strWord)
    {
        m_told.add(in_strWord);
        return true;
    }
    bool tell(const std::string& in_strWord, const ConnectionFailureType& in_failure)
    {
        std::ostringstream text;
        text << in_strWord << ' ' << in_failure;
        if (in_failure.getDetail() != nullptr)
        {
            text << " (" << *in_failure.getDetail() << ')';
        }
        return tell(text.str());
    }

    Told m_told;
};

class RoutingCallEngineTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_engine.start();
        m_engine.takeCalls(true);
    }

    static std::shared_ptr<const RouteTable> readRoute(const std::string& in_strOptions)
    {
        std::string strError;
        const auto hConfig = TomlConfiguration::parse(
            "[[route]]\nname = \"r\"\nmatch = { \"sip.in.requestUri\" = \"^sip:x@\" }\n" + in_strOptions,
            "test",
            strError);
        EXPECT_FALSE(hConfig.isNull()) << strError;
        auto pRoutes = std::make_shared<RouteTable>();
        EXPECT_TRUE(!hConfig.isNull() && pRoutes->read(hConfig->getTrie(), "/", strError)) << strError;
        return pRoutes;
    }
    void setRoute(const std::string& in_strOptions) { m_engine.setRoutes(readRoute(in_strOptions)); }

    std::unique_ptr<CallInInterface> call(const Told& in_told, const std::string& in_strId = "c1")
    {
        return std::unique_ptr<CallInInterface>(m_engine.newInCall(new FakeLeg(in_told), in_strId.c_str()));
    }

    static CallLegInfo legTo(const std::string& in_strUri)
    {
        CallLegInfo leg;
        leg.setParameter("sip.in.requestUri", in_strUri);
        return leg;
    }

    /// Until everything that was queued before has been done.
    void settle()
    {
        std::promise<void> done;
        if (m_engine.post([&done] { done.set_value(); }))
        {
            done.get_future().wait();
        }
    }

    RoutingCallEngine m_engine;
    EngineControl m_control{m_engine};
};

TEST_F(RoutingCallEngineTest, ARouteDecidesWhatACallerGets)
{
    const struct
    {
        const char* m_szRoute;
        const char* m_szTold;
    } cases[] = {
        {"service = \"echo\"",                                           "accepted, connected"                 },
        {"service = \"echo\"\nringing = \"none\"",                       "connected"                           },
        {"service = \"echo\"\nringing = \"earlyMedia\"",                 "accepted with early media, connected"},
        {"service = \"echo\"\nprogress = true",                          "media, accepted, connected"          },
        {"service = \"echo\"\nanswerAfterMs = 20",                       "accepted, connected"                 },
        {"service = \"echo\"\nhangupAfterMs = 20",                       "accepted, connected, hangup"         },
        {"service = \"tone\"\ntone = \"busy\"",                          "accepted, connected"                 },
        {"service = \"ring\"",                                           "accepted"                            },
        {"service = \"ring\"\nhangupAfterMs = 20",                       "accepted, failed 4"                  },
        {"service = \"ring\"\nringing = \"none\"\nhangupAfterMs = 20",   "rejected 4"                          },
        {"service = \"reject\"",                                         "rejected 1 (SIP 486)"                },
        {"service = \"reject\"\nreject = 603",                           "rejected 21 (SIP 603)"               },
        {"service = \"reject\"\nreject = \"unavailable\"",               "rejected 8 (SIP 503)"                },
        {"service = \"reject\"\nreject = \"sdp\"\nanswerAfterMs = 20",   "accepted, failed 3 (SIP 488)"        },
        {"service = \"reject\"\nringing = \"none\"\nanswerAfterMs = 20", "rejected 1 (SIP 486)"                },
    };
    for (const auto& test : cases)
    {
        setRoute(test.m_szRoute);
        Told told;
        auto pCall = call(told);
        ASSERT_TRUE(pCall->invite(legTo("sip:x@h")));
        EXPECT_EQ(told.waitFor(test.m_szTold), test.m_szTold) << test.m_szRoute;
        pCall.reset();
        const std::string strEnd = std::string(test.m_szTold) + ", deleted";
        EXPECT_EQ(told.waitFor(strEnd), strEnd) << test.m_szRoute;
    }
    settle();
    EXPECT_EQ(m_engine.getLiveCalls(), 0U);
    EXPECT_EQ(m_engine.getTotalCalls(), std::size(cases));
}

TEST_F(RoutingCallEngineTest, ANumberWithoutARouteIsInvalid)
{
    setRoute("service = \"echo\"");
    Told told;
    auto pCall = call(told);
    pCall->invite(legTo("sip:nobody@h"));
    EXPECT_EQ(told.waitFor("rejected 5"), "rejected 5");
}

TEST_F(RoutingCallEngineTest, InfoAndTransferOfACallThatIsServed)
{
    setRoute("service = \"echo\"\nanswerAfterMs = 86400000");
    Told told;
    auto pCall = call(told);
    pCall->invite(legTo("sip:x@h"));
    EXPECT_EQ(told.waitFor("accepted"), "accepted");
    EXPECT_EQ(m_control
                  .sendInfo("c1",
                            {
                                {"X-A", "b"}
    })
                  .m_kind,
              CommandResult::WRONG_STATE);

    setRoute("service = \"echo\"");
    Told answered;
    auto pAnswered = call(answered, "c2");
    pAnswered->invite(legTo("sip:x@h"));
    EXPECT_EQ(answered.waitFor("accepted, connected"), "accepted, connected");
    EXPECT_EQ(m_control
                  .sendInfo("c2",
                            {
                                {"X-A", "b"}
    })
                  .m_kind,
              CommandResult::DONE);
    EXPECT_TRUE(pAnswered->infoReceived({
        {"body", "x"}
    }));
    CallLegInfo referTo;
    referTo.setParameter("sip.in.referTo", "sip:nobody@h");
    EXPECT_TRUE(pAnswered->transfer(referTo));
    referTo.setParameter("sip.in.referTo", "sip:x@h?Replaces=1");
    EXPECT_TRUE(pAnswered->transfer(referTo));
    const char* szTold =
        "accepted, connected, info X-A, transfer failed 5, transfer accepted, transferred, media";
    EXPECT_EQ(answered.waitFor(szTold), szTold);

    const auto vCalls = m_control.getCalls();
    ASSERT_EQ(vCalls.size(), 2U);
    EXPECT_EQ(vCalls[0].m_strState, "ringing");
    EXPECT_EQ(vCalls[1].m_strState, "answered");
    EXPECT_EQ(vCalls[1].m_strTo, "sip:x@h");
}

TEST_F(RoutingCallEngineTest, ADrainedEngineRefusesNewCallsAndTellsWhenTheLastHasEnded)
{
    RoutingCallEngine engine;
    std::promise<void> drained;
    engine.setDrainedHandler([&drained] { drained.set_value(); });
    engine.start();
    engine.takeCalls(true);
    engine.setRoutes(std::make_shared<const RouteTable>());
    Told first;
    std::unique_ptr<CallInInterface> pFirst(engine.newInCall(new FakeLeg(first), "first"));
    engine.drain();
    EXPECT_FALSE(engine.takesCalls());
    EXPECT_FALSE(engine.isDrained());
    Told second;
    std::unique_ptr<CallInInterface> pSecond(engine.newInCall(new FakeLeg(second), "second"));
    pSecond->invite(legTo("sip:x@h"));
    EXPECT_EQ(second.waitFor("rejected 8"), "rejected 8");
    pSecond.reset();
    std::future<void> future = drained.get_future();
    EXPECT_EQ(second.waitFor("rejected 8, deleted"), "rejected 8, deleted");
    EXPECT_FALSE(engine.isDrained()) << "one call is left";
    pFirst.reset();
    EXPECT_EQ(future.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_TRUE(engine.isDrained());
}

TEST_F(RoutingCallEngineTest, CallsThatAreOlderThanTheirStateAllowsAreStuck)
{
    // Any age is more than the one, none more than the other.
    constexpr std::chrono::milliseconds kTooLong{-1};
    constexpr std::chrono::milliseconds kShort = std::chrono::hours(1);
    const struct
    {
        const char* m_szOptions;
        bool m_bEnded;
        const char* m_szState;
        std::chrono::milliseconds m_unanswered;
        std::chrono::milliseconds m_ending;
        const char* m_szStuck;
    } rows[] = {
        {"service = \"echo\"\nringing = \"none\"\nanswerAfterMs = 86400000",
         false,                                                                     "arrived",
         kTooLong,                                                                                        kShort,
         "1"                                                                                                           },
        {"service = \"ring\"",                                               false, "ringing",  kTooLong, kShort,   "1"},
        {"service = \"ring\"",                                               false, "ringing",  kShort,   kTooLong, "0"},
        {"service = \"echo\"",                                               false, "answered", kTooLong, kTooLong, "0"},
        {"service = \"echo\"",                                               true,  "ending",   kShort,   kTooLong, "1"},
        {"service = \"ring\"",                                               true,  "ending",   kTooLong, kShort,   "0"},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(std::string(row.m_szOptions) + ", " + row.m_szState);
        RoutingCallEngine engine;
        EngineControl control(engine);
        engine.setPatience(row.m_unanswered, row.m_ending);
        engine.setRoutes(readRoute(row.m_szOptions));
        engine.start();
        engine.takeCalls(true);
        std::unique_ptr<CallInInterface> pCall(engine.newInCall(new FakeLeg(Told()), "c"));
        pCall->invite(legTo("sip:x@h"));
        if (row.m_bEnded)
        {
            EXPECT_EQ(control.hangUp("c").m_kind, CommandResult::DONE);
        }
        MetricsPage page;
        engine.collect(page);
        const auto has = [&page](const std::string& in_strLine)
        { return page.getText().find(in_strLine + "\n") != std::string::npos; };
        EXPECT_TRUE(has(std::string("quorvex_calls_by_state{state=\"") + row.m_szState + "\"} 1"));
        EXPECT_TRUE(has(std::string("quorvex_calls_stuck ") + row.m_szStuck)) << page.getText();
    }
}

TEST_F(RoutingCallEngineTest, AStoppedEngineRecordsWhatIsLeftAndRefusesWhatComes)
{
    const std::string strFile =
        testing::TempDir() + "quorvex-engine-test-" + std::to_string(getpid()) + ".jsonl";
    std::string strError;
    ASSERT_TRUE(m_engine.getCdrWriter().open(strFile, strError)) << strError;
    setRoute("service = \"ring\"");
    Told told;
    auto pCall = call(told);
    pCall->invite(legTo("sip:x@h"));
    EXPECT_EQ(told.waitFor("accepted"), "accepted");
    m_engine.stop();
    EXPECT_EQ(told.waitFor("accepted, deleted"), "accepted, deleted");
    EXPECT_EQ(m_engine.getCdrWriter().getWrittenCount(), 1U);
    std::filesystem::remove(strFile);
    EXPECT_FALSE(pCall->invite(legTo("sip:x@h")));
    Told late;
    EXPECT_EQ(m_engine.newInCall(new FakeLeg(late), "late"), nullptr);
    EXPECT_EQ(late.waitFor("deleted"), "deleted");
    EXPECT_EQ(m_control.hangUp("c1").m_kind, CommandResult::UNAVAILABLE);
    pCall.reset();
}

}  // namespace
}  // namespace Quorvex
