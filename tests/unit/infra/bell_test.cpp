#include "infra/Bell.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <thread>

namespace Quorvex
{
namespace
{

using Clock = FutexBell::Clock;

bool hasRung(const EventBell& in_bell)
{
    pollfd bell = {in_bell.getDescriptor(), POLLIN, 0};
    return ::poll(&bell, 1, 0) == 1;
}

TEST(BellTest, ARingBeforeTheSleepEndsItAtOnceAndOnlyOnce)
{
    FutexBell bell;
    bell.ring();
    bell.ring();
    bell.wait(nullptr);
    const auto deadline = Clock::now() + std::chrono::milliseconds(2);
    bell.wait(&deadline);
    EXPECT_GE(Clock::now(), deadline);
    const Clock::time_point past;
    bell.wait(&past);
}

TEST(BellTest, ABatchKeepsItsThreadsRingsUntilItRings)
{
    const auto pBell = std::make_shared<EventBell>();
    Bell::ringWithBatch(pBell);
    EXPECT_TRUE(hasRung(*pBell)) << "there is no batch";
    EXPECT_TRUE(pBell->clear());
    {
        const Bell::Batch batch;
        Bell::ringWithBatch(pBell);
        EXPECT_FALSE(hasRung(*pBell));
        std::thread([&pBell] { Bell::ringWithBatch(pBell); }).join();
        EXPECT_TRUE(pBell->clear()) << "another thread's ring does not wait";
        Bell::Batch::ring();
        EXPECT_TRUE(pBell->clear());
        EXPECT_FALSE(pBell->clear());
        Bell::ringWithBatch(pBell);
    }
    EXPECT_TRUE(pBell->clear()) << "nothing is lost with the batch";
}

}  // namespace
}  // namespace Quorvex
