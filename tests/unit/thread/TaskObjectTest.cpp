#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

#include "infra/Assertion.h"
#include "infra/MemAccount.h"
#include "infra/Object.h"
#include "quorvex/TaskObjectPool.h"
#include "tests/unit/thread/TestTask.h"
#include "thread/TaskObjectProxy.h"

namespace Quorvex::Test
{

using testing::ElementsAre;

namespace
{

class Machine final : public Object
{
public:
    Machine() { ++s_live; }
    ~Machine() override { --s_live; }
    std::vector<std::string> m_vCalls;
    static int s_live;
};
int Machine::s_live = 0;
using MachinePtr = CountedObjPtr<Machine, ReferenceCount>;
using Pool = TaskObjectPool<Machine, Machine>;

class AssertionCount
{
public:
    std::uint64_t operator()() const { return Assertion::failureCount() - m_uiBefore; }

private:
    const std::uint64_t m_uiBefore = Assertion::failureCount();
};

template <class Generator>
class IDGeneratorTest : public testing::Test
{
};
using Generators = testing::Types<StackIDGenerator, TSStackIDGenerator>;
TYPED_TEST_SUITE(IDGeneratorTest, Generators);

TYPED_TEST(IDGeneratorTest, PrefersTheLatestReturnAndReportsStrangers)
{
    TypeParam generator;
    const AssertionCount assertions;
    EXPECT_EQ(generator.getID(), 0U);
    EXPECT_EQ(generator.getID(), 1U);
    EXPECT_EQ(generator.getID(), 2U);
    generator.takeBack(0);
    generator.takeBack(2);
    EXPECT_EQ(assertions(), 0U);
    generator.takeBack(2);    // twice: it would be handed out twice
    generator.takeBack(700);  // never taken
    EXPECT_EQ(assertions(), 2U);
    EXPECT_EQ(generator.getID(), 2U);
    EXPECT_EQ(generator.getID(), 0U);
    EXPECT_EQ(generator.getID(), 3U);
}

TEST(TSStackIDGenerator, NeverGivesOneIdentifierToTwo)
{
    TSStackIDGenerator generator;
    std::array<std::atomic<int>, 64> users{};
    std::atomic<bool> bTwice{false};
    std::vector<std::thread> vThreads;
    for (int i = 0; i < 4; ++i)
    {
        vThreads.emplace_back(
            [&]
            {
                for (int j = 0; j < 5000; ++j)
                {
                    const std::uint32_t uiID = generator.getID();
                    bTwice = bTwice || uiID >= users.size() || users.at(uiID)++ != 0;
                    --users.at(uiID);
                    generator.takeBack(uiID);
                }
            });
    }
    for (std::thread& thread : vThreads)
    {
        thread.join();
    }
    EXPECT_FALSE(bTwice);
}

class TaskObjectPoolTest : public testing::Test
{
protected:
    ~TaskObjectPoolTest() override { EXPECT_EQ(Machine::s_live, 0); }
    AssertionCount m_assertions;
};

TEST_F(TaskObjectPoolTest, LastContainerGivesTheObjectBack)
{
    Pool pool(2);
    auto& leg = pool.getProxyData(0);
    auto& media = pool.getProxyData(1);
    EXPECT_THROW(pool.getProxyData(2), std::out_of_range);
    MachinePtr pMachine = pool.acquire();
    const std::uint32_t uiLeg = leg.getID();
    const std::uint32_t uiMedia = media.getID();
    leg.addObject(uiLeg, pMachine);
    media.addObject(uiMedia, pMachine);
    pMachine.reset();
    leg.releaseObject(uiLeg);
    leg.releaseObject(uiLeg);
    leg.releaseObject(77);
    EXPECT_EQ(pool.getNumUnused(), 0U);
    EXPECT_FALSE(media.getObject(uiMedia).isNull());
    media.releaseObject(uiMedia);
    EXPECT_EQ(pool.getNumUnused(), 1U);
    EXPECT_TRUE(media.getObject(uiMedia).isNull());
    EXPECT_EQ(m_assertions(), 0U);
}

TEST_F(TaskObjectPoolTest, ReplacedEntryGoesBackAndNullIsReported)
{
    Pool pool(1);
    auto& data = pool.getProxyData(0);
    data.addObject(5, pool.acquire());
    data.addObject(5, pool.acquire());
    EXPECT_EQ(pool.getNumUnused(), 1U);
    EXPECT_EQ(m_assertions(), 0U);
    data.addObject(5, MachinePtr());
    EXPECT_EQ(m_assertions(), 1U);
    EXPECT_EQ(pool.getNumUnused(), 2U);
    data.addObject(1, pool.acquire());
    pool.clear();
    EXPECT_EQ(pool.getNumUnused(), 0U);
    EXPECT_TRUE(data.getObject(1).isNull());
    EXPECT_EQ(Machine::s_live, 0);
}

class Append_MO final : public TaskObjectProxy<Machine>::MethodObject
{
public:
    Append_MO(const TaskObjectProxy<Machine>::ProxyData& in_data, std::string in_strText)
        : MethodObject(in_data), m_strText(std::move(in_strText))
    {
    }

protected:
    int call_i(const MachinePtr& in_pMachine) override
    {
        in_pMachine->m_vCalls.push_back(m_strText);
        return eMO_FAILED;
    }

private:
    std::string m_strText;
};

class Proxy final : public TaskObjectProxy<Machine>
{
public:
    using TaskObjectProxy::TaskObjectProxy;
    ~Proxy() { proxyDestruction(); }
    bool append(const std::string& in_strText)
    {
        return Task::enqueue(getQueue(), new Append_MO(getProxyData(), in_strText), "append");
    }
};

TEST_F(TaskObjectPoolTest, ProxyReachesItsMachineUntilTheRelease)
{
    const auto run = [](TaskQueue& io_queue)
    {
        const TaskQueue::Clock::time_point past;
        const std::unique_ptr<ACE_Method_Request> pMethodObject(io_queue.next(&past));
        const int iResult = pMethodObject->call();
        io_queue.done();
        return iResult;
    };
    Pool pool(1);
    auto& data = pool.getProxyData(0);
    TaskQueue queue;
    std::vector<std::string> vFirst;
    std::uint32_t uiFirst = 0;
    MachinePtr pFirst = pool.acquire();
    {
        Proxy proxy(data, queue.getQueue(), data);
        uiFirst = proxy.getObjectID();
        EXPECT_TRUE(proxy.append("before it is registered"));
        EXPECT_EQ(run(queue), eMO_DONE);
        data.addObject(uiFirst, pFirst);
        EXPECT_TRUE(proxy.append("one"));
    }
    // The identifier is free at once; the queue's order keeps the two proxies apart.
    Proxy second(data, queue.getQueue(), data);
    EXPECT_EQ(second.getObjectID(), uiFirst);
    second.append("after the release");
    EXPECT_EQ(run(queue), eMO_FAILED);
    EXPECT_EQ(run(queue), eMO_DONE);
    EXPECT_EQ(run(queue), eMO_DONE);
    EXPECT_THAT(pFirst->m_vCalls, ElementsAre("one"));
    EXPECT_TRUE(pFirst.unique());
    EXPECT_EQ(m_assertions(), 0U);
}

}  // namespace
}  // namespace Quorvex::Test
