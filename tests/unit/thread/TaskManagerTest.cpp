#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "infra/Logger.h"
#include "tests/unit/thread/TestTask.h"

namespace Quorvex::Test
{

using testing::ElementsAre;

namespace
{

using Manager = UserDefHandlerOrderTaskManager;
template <class T>
using TSPtr = CountedObjPtr<T, TSReferenceCount>;

/// A sub-task whose ends can be held back and made to fail.
class SubTask final : public ManageableTaskImplBase
{
public:
    SubTask(const std::string& in_strName, Journal& in_journal)
        : ManageableTaskImplBase(in_strName), m_strName(in_strName), m_journal(in_journal)
    {
    }

    bool start() override
    {
        const bool bHold = m_bHold;  // before anybody is told, who may change it
        m_journal.add("start " + m_strName);
        if (m_bFailStart)
        {
            return false;
        }
        setTaskState(STARTING_STATE);
        if (!bHold)
        {
            setTaskState(RUNNING_STATE);
        }
        return true;
    }

    bool stop() override
    {
        const bool bHold = m_bHold;  // before anybody is told, who may change it
        m_journal.add("stop " + m_strName);
        if (m_bRefuseStop)
        {
            return false;
        }
        setTaskState(STOPPING_STATE);
        if (!bHold)
        {
            setTaskState(STOPPED_STATE);
        }
        return true;
    }

    bool kill() override
    {
        const bool bHold = m_bHold;  // before anybody is told, who may change it
        m_journal.add("kill " + m_strName);
        if (!bHold)
        {
            setTaskState(STOPPED_STATE);
        }
        return true;
    }

    bool waitUntilDone() override { return true; }

    void enter(Task::State in_state) { setTaskState(in_state); }

    std::atomic<bool> m_bHold{false};
    std::atomic<bool> m_bFailStart{false};
    std::atomic<bool> m_bRefuseStop{false};

private:
    const std::string m_strName;
    Journal& m_journal;
};

class TestManager final : public Manager
{
public:
    explicit TestManager(Journal& in_journal) : Manager("manager"), m_journal(in_journal) {}
    ~TestManager() override { abandon(); }

    using Manager::completeStop;

    std::function<void()> m_onStopCompleted;
    std::function<void()> m_onStop;

protected:
    void onSvcEntry() override
    {
        m_journal.add("onSvcEntry");
        Manager::onSvcEntry();
    }
    void onSvcExit() override { m_journal.add("onSvcExit"); }
    void onStopCompleted() override
    {
        m_journal.add("onStopCompleted");
        if (m_onStopCompleted)
        {
            m_onStopCompleted();
        }
    }
    void handleMOCallStop() override
    {
        m_journal.add("handleMOCallStop");
        if (m_onStop)
        {
            m_onStop();
        }
        Manager::handleMOCallStop();
    }
    void handleMOCallKill() override
    {
        m_journal.add("handleMOCallKill");
        Manager::handleMOCallKill();
    }

private:
    Journal& m_journal;
};

class TaskManagerTest : public testing::Test
{
protected:
    TaskManagerTest() : m_manager(m_journal), m_waiter(m_manager)
    {
        for (const char* szName : {"a", "b", "c"})
        {
            TSPtr<SubTask> pTask(new SubTask(szName, m_journal));
            m_vTasks.push_back(pTask.get());
            m_manager.addTask(TSPtr<ManageableTask>(pTask));
        }
    }

    SubTask& task(std::size_t in_index) { return *m_vTasks[in_index]; }

    Journal m_journal;
    TestManager m_manager;
    StateWaiter m_waiter;
    std::vector<SubTask*> m_vTasks;
};

TEST_F(TaskManagerTest, EachSubTaskWaitsForTheOneBeforeWhileTheQueueIsServed)
{
    task(0).m_bHold = true;
    ASSERT_TRUE(m_manager.start());
    ASSERT_TRUE(m_journal.waitFor("start a"));
    ASSERT_TRUE(runOn(m_manager, [] {}));
    EXPECT_THAT(m_journal.take(), ElementsAre("onSvcEntry", "start a"));
    EXPECT_EQ(m_manager.getTaskState(), Task::STARTING_STATE);
    task(0).m_bHold = false;
    task(0).enter(Task::RUNNING_STATE);
    ASSERT_TRUE(m_waiter.waitFor(Task::RUNNING_STATE));

    task(2).m_bHold = true;
    ASSERT_TRUE(m_manager.stop());
    ASSERT_TRUE(m_journal.waitFor("stop c"));
    ASSERT_TRUE(runOn(m_manager, [this] { m_journal.add("served"); }));
    EXPECT_THAT(m_journal.take(), ElementsAre("start b", "start c", "handleMOCallStop", "stop c", "served"));
    EXPECT_EQ(m_manager.getTaskState(), Task::STOPPING_STATE);
    task(2).enter(Task::STOPPED_STATE);
    ASSERT_TRUE(m_manager.waitUntilDone());
    EXPECT_THAT(m_journal.take(), ElementsAre("stop b", "stop a", "onStopCompleted", "onSvcExit"));
}

TEST_F(TaskManagerTest, StopDuringTheStartStopsWhatHasBegun)
{
    task(1).m_bHold = true;
    ASSERT_TRUE(m_manager.start());
    ASSERT_TRUE(m_journal.waitFor("start b"));
    task(1).m_bHold = false;
    ASSERT_TRUE(m_manager.stop());
    ASSERT_TRUE(m_manager.waitUntilDone());
    EXPECT_THAT(m_journal.take(),
                ElementsAre("onSvcEntry",
                            "start a",
                            "start b",
                            "handleMOCallStop",
                            "stop b",
                            "stop a",
                            "onStopCompleted",
                            "onSvcExit"));
}

TEST_F(TaskManagerTest, FailingSubTaskStopsTheManager)
{
    task(1).m_bFailStart = true;
    ASSERT_TRUE(m_manager.start());
    ASSERT_TRUE(m_journal.waitFor("onSvcExit"));
    ASSERT_TRUE(m_manager.waitUntilDone());
    EXPECT_THAT(m_journal.take(),
                ElementsAre("onSvcEntry",
                            "start a",
                            "start b",
                            "handleMOCallStop",
                            "stop a",
                            "onStopCompleted",
                            "onSvcExit"));

    task(1).m_bFailStart = false;
    ASSERT_TRUE(m_manager.start());
    ASSERT_TRUE(m_waiter.waitFor(Task::RUNNING_STATE));
    m_journal.take();
    task(0).enter(Task::STOPPED_STATE);  // it dies
    ASSERT_TRUE(m_journal.waitFor("onSvcExit"));
    ASSERT_TRUE(m_manager.waitUntilDone());
    EXPECT_THAT(m_journal.take(),
                ElementsAre("handleMOCallStop", "stop c", "stop b", "onStopCompleted", "onSvcExit"));
}

TEST_F(TaskManagerTest, SubTaskThatRefusesToStopIsKilled)
{
    ASSERT_TRUE(m_manager.start());
    ASSERT_TRUE(m_waiter.waitFor(Task::RUNNING_STATE));
    m_journal.take();
    task(1).m_bRefuseStop = true;
    ASSERT_TRUE(m_manager.stop());
    ASSERT_TRUE(m_manager.waitUntilDone());
    EXPECT_THAT(
        m_journal.take(),
        ElementsAre(
            "handleMOCallStop", "stop c", "stop b", "kill b", "stop a", "onStopCompleted", "onSvcExit"));
}

TEST_F(TaskManagerTest, KillOvertakesAStopThatHangs)
{
    ASSERT_TRUE(m_manager.start());
    ASSERT_TRUE(m_waiter.waitFor(Task::RUNNING_STATE));
    task(2).m_bHold = true;
    ASSERT_TRUE(m_manager.stop());
    ASSERT_TRUE(m_journal.waitFor("stop c"));
    m_journal.take();
    task(2).m_bHold = false;
    ASSERT_TRUE(m_manager.kill());
    ASSERT_TRUE(m_manager.waitUntilDone());
    EXPECT_THAT(
        m_journal.take(),
        ElementsAre("handleMOCallKill", "kill c", "kill b", "kill a", "onStopCompleted", "onSvcExit"));
}

TEST_F(TaskManagerTest, KillLeavesASubTaskBehindThatDoesNotEnd)
{
    ASSERT_TRUE(m_manager.start());
    ASSERT_TRUE(m_waiter.waitFor(Task::RUNNING_STATE));
    task(1).m_bHold = true;
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_TRUE(m_manager.kill());
    ASSERT_TRUE(m_manager.waitUntilDone());
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(4));
    task(1).enter(Task::STOPPED_STATE);  // nobody listens any more
}

TEST_F(TaskManagerTest, CallsFromWrongStatesAreRefused)
{
    EXPECT_FALSE(m_manager.stop());
    EXPECT_FALSE(m_manager.kill());
    EXPECT_TRUE(m_manager.waitUntilDone());
    EXPECT_FALSE(m_manager.addTask(TSPtr<ManageableTask>(new SubTask("a", m_journal))));  // the name is taken
    EXPECT_FALSE(m_manager.addTask(TSPtr<ManageableTask>()));
    task(2).m_bHold = true;
    ASSERT_TRUE(m_manager.start());
    EXPECT_FALSE(m_manager.start());
    EXPECT_FALSE(m_manager.clearTasks());
    EXPECT_FALSE(m_manager.addTask(TSPtr<ManageableTask>(new SubTask("d", m_journal))));
    EXPECT_FALSE(m_manager.configure(TSHandle<ROConfiguration>(new MapConfiguration)));
    bool bWaited = true;
    ASSERT_TRUE(runOn(m_manager, [&] { bWaited = m_manager.waitUntilDone(); }));
    EXPECT_FALSE(bWaited);
    ASSERT_TRUE(m_journal.waitFor("start c"));
    ASSERT_TRUE(m_manager.stop());
    EXPECT_FALSE(m_manager.stop());
    ASSERT_TRUE(m_journal.waitFor("stop c"));
    EXPECT_FALSE(m_manager.start());
    task(2).m_bHold = false;
    ASSERT_TRUE(m_manager.kill());
    EXPECT_FALSE(m_manager.kill());
    ASSERT_TRUE(m_manager.waitUntilDone());
    EXPECT_TRUE(m_manager.clearTasks());
    EXPECT_TRUE(m_manager.configure(TSHandle<ROConfiguration>(new MapConfiguration)));
}

TEST_F(TaskManagerTest, ManagerOfManagersStopsWithoutBlocking)
{
    Journal journal;
    TSPtr<TestManager> pInner(new TestManager(journal));
    m_manager.addTask("inner", TSPtr<ManageableTask>(pInner));
    for (int i = 0; i < 20; ++i)
    {
        ASSERT_TRUE(m_manager.start());
        ASSERT_TRUE(m_waiter.waitFor(Task::RUNNING_STATE));
        EXPECT_EQ(pInner->getTaskState(), Task::RUNNING_STATE);
        ASSERT_TRUE(i % 2 == 0 ? m_manager.stop() : m_manager.kill());
        ASSERT_TRUE(m_manager.waitUntilDone());
        EXPECT_EQ(pInner->getTaskState(), Task::STOPPED_STATE);
    }
}

TEST_F(TaskManagerTest, RemainderOfTheQueueIsRunBeforeTheEnd)
{
    m_manager.clearTasks();
    ASSERT_TRUE(m_manager.start());
    m_manager.m_onStop = [this]
    {
        m_manager.enqueue(new Function_MO(
                              [this]
                              {
                                  m_journal.add("queued at stop");
                                  return 0;
                              }),
                          "test");
    };
    m_manager.m_onStopCompleted = [this]
    {
        m_manager.enqueue(new Function_MO(
                              [this]
                              {
                                  m_journal.add("queued at end");
                                  return 0;
                              }),
                          "test");
    };
    ASSERT_TRUE(m_manager.stop());
    ASSERT_TRUE(m_manager.waitUntilDone());
    EXPECT_THAT(m_journal.take(),
                ElementsAre("onSvcEntry",
                            "handleMOCallStop",
                            "queued at stop",
                            "onStopCompleted",
                            "queued at end",
                            "onSvcExit"));
}

TEST_F(TaskManagerTest, ExceptionOfAMethodObjectHurtsNobodyElse)
{
    ASSERT_TRUE(m_manager.start());
    m_manager.enqueue(new Function_MO([]() -> int { throw std::runtime_error("test"); }), "test");
    m_manager.enqueue(new Function_MO([]() -> int { throw 1; }), "test");
    EXPECT_TRUE(runOn(m_manager, [] {}));
    ASSERT_TRUE(m_manager.stop());
    ASSERT_TRUE(m_manager.waitUntilDone());
}

TEST_F(TaskManagerTest, StopsFromManyThreadsCountOnce)
{
    for (int i = 0; i < 20; ++i)
    {
        ASSERT_TRUE(m_manager.start());
        std::atomic<int> accepted{0};
        std::vector<std::thread> vThreads;
        for (int j = 0; j < 4; ++j)
        {
            vThreads.emplace_back([&] { accepted += m_manager.stop() ? 1 : 0; });
            vThreads.emplace_back([&] { m_manager.waitUntilDone(); });
        }
        for (std::thread& thread : vThreads)
        {
            thread.join();
        }
        EXPECT_EQ(accepted, 1);
        EXPECT_EQ(m_manager.getTaskState(), Task::STOPPED_STATE);
    }
}

/// Removes itself, and others, while it is being told.
class RemovingObserver final : public TaskStateObserver
{
public:
    void taskStateChanged(ManageableTask& in_task, Task::State /*in_newState*/) override
    {
        ++m_calls;
        in_task.removeTaskStateObserver(m_pOther);
        in_task.removeTaskStateObserver(this);
    }
    TaskStateObserver* m_pOther = nullptr;
    std::atomic<int> m_calls{0};
};

TEST_F(TaskManagerTest, RemovedObserverIsNotToldAnyMore)
{
    RemovingObserver first;
    RemovingObserver second;
    first.m_pOther = &second;
    second.m_pOther = &first;
    Task::State state = Task::RUNNING_STATE;
    ASSERT_TRUE(m_manager.addTaskStateObserver(&first, state));
    EXPECT_EQ(state, Task::STOPPED_STATE);
    ASSERT_TRUE(m_manager.addTaskStateObserver(&second, state));
    EXPECT_FALSE(m_manager.addTaskStateObserver(&second, state));
    EXPECT_FALSE(m_manager.addTaskStateObserver(nullptr, state));
    ASSERT_TRUE(m_manager.start());
    EXPECT_EQ(first.m_calls, 1);
    EXPECT_EQ(second.m_calls, 0);
    EXPECT_FALSE(m_manager.removeTaskStateObserver(&first));
    ASSERT_TRUE(m_manager.stop());
    ASSERT_TRUE(m_manager.waitUntilDone());
}

}  // namespace
}  // namespace Quorvex::Test
