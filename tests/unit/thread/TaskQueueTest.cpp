#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "infra/MemAccount.h"
#include "tests/unit/thread/TestTask.h"
#include "thread/TaskQueue.h"

namespace Quorvex::Test
{
namespace
{

class Counted_MO final : public ACE_Method_Request
{
public:
    explicit Counted_MO(int in_iNumber, unsigned long in_priority = 0)
        : ACE_Method_Request(in_priority), m_iNumber(in_iNumber)
    {
        ++s_live;
    }
    ~Counted_MO() override { --s_live; }
    int call() override { return m_iNumber; }
    static std::atomic<int> s_live;

private:
    int m_iNumber;
};
std::atomic<int> Counted_MO::s_live{0};

int runNext(TaskQueue& io_queue)
{
    const TaskQueue::Clock::time_point past;
    ACE_Method_Request* const pMethodObject = io_queue.next(&past);
    const int iResult = pMethodObject != nullptr ? pMethodObject->call() : -1;
    delete pMethodObject;
    if (iResult >= 0)
    {
        io_queue.done();
    }
    return iResult;
}

// A queue of the library's default size is full, and blocks, long before this.
constexpr int kMany = 20000;

TEST(TaskQueue, IsNeverFullAndNeverLetsAnythingOvertake)
{
    TaskQueue queue;
    for (int i = 0; i < kMany; ++i)
    {
        ASSERT_TRUE(Task::enqueue(queue.getQueue(), new Counted_MO(i, i % 3 == 0 ? 5 : 0), "test"));
    }
    EXPECT_EQ(queue.length(), std::size_t{kMany});
    EXPECT_EQ(queue.getQueue().method_count(), std::size_t{kMany});
    for (int i = 0; i < kMany; ++i)
    {
        ASSERT_EQ(runNext(queue), i);
        ASSERT_EQ(queue.length(), static_cast<std::size_t>(kMany - 1 - i));
    }
    EXPECT_EQ(runNext(queue), -1);
    EXPECT_EQ(Counted_MO::s_live, 0);
}

TEST(TaskQueue, RefusedMethodObjectIsDeletedAndCounted)
{
    TaskQueue queue;
    const std::uint64_t uiBefore = Task::getRefusedCount();
    ASSERT_TRUE(Task::enqueue(queue.getQueue(), new Counted_MO(1), "test"));
    queue.refuse();
    EXPECT_FALSE(Task::enqueue(queue.getQueue(), new Counted_MO(2), "test"));
    EXPECT_FALSE(Task::enqueue(queue.getQueue(), new Counted_MO(3)));
    EXPECT_FALSE(Task::enqueue(queue.getQueue(), nullptr, "test"));
    EXPECT_EQ(Counted_MO::s_live, 1);
    EXPECT_EQ(Task::getRefusedCount(), uiBefore + 3);
    queue.accept();
    EXPECT_TRUE(Task::enqueue(queue.getQueue(), new Counted_MO(4), "test"));
    EXPECT_EQ(runNext(queue), 1);
    EXPECT_EQ(runNext(queue), 4);
}

TEST(TaskQueue, FullQueueOfAnotherKindRefusesInsteadOfBlocking)
{
    ACE_Message_Queue<ACE_MT_SYNCH> messages;
    ACE_Activation_Queue queue(&messages);
    int iAccepted = 0;
    while (Task::enqueue(queue, new Counted_MO(iAccepted), "test"))
    {
        ASSERT_LT(++iAccepted, kMany);
    }
    EXPECT_EQ(Counted_MO::s_live, iAccepted);
    for (; iAccepted > 0; --iAccepted)
    {
        delete queue.dequeue();
    }
}

TEST(TaskQueue, DeletesWhatWasNeverRun)
{
    {
        TaskQueue queue;
        for (int i = 0; i < 10; ++i)
        {
            Task::enqueue(queue.getQueue(), new Counted_MO(i), "test");
        }
        runNext(queue);
        Task::enqueue(queue.getQueue(), new Counted_MO(10), "test");
    }
    EXPECT_EQ(Counted_MO::s_live, 0);
}

TEST(TaskQueue, EachProducersOrderSurvives)
{
    constexpr int kThreads = 4;
    constexpr int kEach = 5000;
    TaskQueue queue;
    std::vector<std::thread> vThreads;
    for (int i = 0; i < kThreads; ++i)
    {
        vThreads.emplace_back(
            [&queue, i]
            {
                for (int j = 0; j < kEach; ++j)
                {
                    Task::enqueue(queue.getQueue(), new Counted_MO(i * kEach + j), "test");
                }
            });
    }
    std::vector<int> vNext(kThreads, 0);
    for (int i = 0; i < kThreads * kEach; ++i)
    {
        ACE_Method_Request* const pMethodObject = queue.next(nullptr);
        const int iNumber = pMethodObject->call();
        delete pMethodObject;
        queue.done();
        ASSERT_EQ(iNumber % kEach, vNext[static_cast<std::size_t>(iNumber / kEach)]++);
    }
    for (std::thread& thread : vThreads)
    {
        thread.join();
    }
    EXPECT_EQ(queue.length(), 0U);
}

}  // namespace
}  // namespace Quorvex::Test
