#include <gtest/gtest.h>

#include <future>
#include <string>

#include "gateway/EngineLoop.h"

namespace Quorvex
{
namespace
{

class EngineLoopTest : public testing::Test
{
protected:
    void SetUp() override { m_loop.start(); }

    /// Runs on the loop's thread, and waits for it.
    template <class Job>
    void run(Job in_job)
    {
        std::promise<void> done;
        ASSERT_TRUE(m_loop.post(
            [&]
            {
                in_job();
                done.set_value();
            }));
        done.get_future().wait();
    }

    EngineLoop m_loop;
};

TEST_F(EngineLoopTest, TimersFireInTheOrderOfTheirTimesAndCancelledOnesNever)
{
    std::string strOrder;
    std::promise<void> last;
    run(
        [&]
        {
            m_loop.schedule(40, [&] { last.set_value(); });
            m_loop.schedule(20, [&] { strOrder += "c"; });
            m_loop.schedule(0, [&] { strOrder += "a"; });
            EngineLoop::TimerId victim = m_loop.schedule(15, [&] { strOrder += "x"; });
            // One timer may cancel another, or start one.
            m_loop.schedule(10,
                            [&, victim]() mutable
                            {
                                strOrder += "b";
                                m_loop.cancel(victim);
                                EXPECT_EQ(victim, EngineLoop::kNoTimer);
                                m_loop.schedule(0, [&] { strOrder += "+"; });
                            });
            EngineLoop::TimerId none = EngineLoop::kNoTimer;
            m_loop.cancel(none);
        });
    ASSERT_EQ(last.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_EQ(strOrder, "ab+c");
}

TEST_F(EngineLoopTest, AStopRunsWhatIsQueuedAndRefusesWhatComes)
{
    int iRuns = 0;
    std::promise<void> go;
    std::shared_future<void> gone = go.get_future().share();
    m_loop.post([gone] { gone.wait(); });
    for (int i = 0; i < 100; ++i)
    {
        EXPECT_TRUE(m_loop.post([&iRuns] { ++iRuns; }));
    }
    EXPECT_TRUE(m_loop.post([this, &iRuns] { m_loop.schedule(60000, [&iRuns] { iRuns = -1; }); }));
    go.set_value();
    m_loop.stop();
    EXPECT_EQ(iRuns, 100);
    EXPECT_FALSE(m_loop.post([] {}));
    m_loop.stop();
    m_loop.start();
    run([&iRuns] { ++iRuns; });
    EXPECT_EQ(iRuns, 101) << "it can be started again";
}

}  // namespace
}  // namespace Quorvex
