#include <gtest/gtest.h>

#include <future>

#include "gateway/EngineLoop.h"
#include "gateway/LoopWatchdog.h"
#include "tests/component/netif/LogCapture.h"

namespace Quorvex
{
namespace
{

using namespace std::chrono_literals;

bool comesTrue(const std::function<bool()>& in_condition)
{
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (!in_condition() && std::chrono::steady_clock::now() < deadline)
    {
        std::this_thread::sleep_for(1ms);
    }
    return in_condition();
}

TEST(LoopWatchdogTest, ALoopThatStandsStillIsReportedOnceAndSoIsItsReturn)
{
    const Quorvex::Test::LogCapture log;
    EngineLoop stuck;
    EngineLoop sound;
    stuck.start();
    sound.start();
    LoopWatchdog watchdog(5ms, 50ms);
    watchdog.watch("stuck", "the-thread", [&](auto in_done) { return stuck.post(std::move(in_done)); });
    watchdog.watch("sound", "another", [&](auto in_done) { return sound.post(std::move(in_done)); });
    watchdog.watch("ended", "a-third", [](const auto&) { return false; });
    std::promise<void> release;
    stuck.post([future = release.get_future().share()] { future.wait(); });
    watchdog.start();

    EXPECT_TRUE(comesTrue([&] { return log.count("the stuck loop stands still", eERROR_LEVEL) == 1; }));
    MetricsPage page;
    watchdog.collect(page);
    EXPECT_NE(page.getText().find("quorvex_loop_stalled{loop=\"stuck\"} 1\n"), std::string::npos);
    EXPECT_NE(page.getText().find("quorvex_loop_stalled{loop=\"sound\"} 0\n"), std::string::npos);

    EXPECT_NE(watchdog.getStalled().find("the stuck loop stands still (thread \"the-thread\")."),
              std::string::npos);

    release.set_value();
    EXPECT_TRUE(comesTrue([&] { return log.count("the stuck loop runs again", eINFO_LEVEL) == 1; }));
    EXPECT_EQ(watchdog.getStalled(), "");
    watchdog.stop();
    EXPECT_EQ(log.count("stands still", eERROR_LEVEL), 1U);
    EXPECT_EQ(log.count("\"the-thread\"", eERROR_LEVEL), 1U);
    stuck.stop();
    sound.stop();
}

}  // namespace
}  // namespace Quorvex
