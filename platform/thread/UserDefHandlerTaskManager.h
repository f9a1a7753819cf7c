#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "thread/ManageableTaskImplBase.h"
#include "thread/TaskManager.h"
#include "thread/TaskQueue.h"
#include "thread/TimerQueue.h"

namespace Quorvex
{

/// A task with a thread, an activation queue and timers of its own, and a list of sub-tasks. The thread
/// sleeps until a method object comes or a timer expires. What the task does when it starts, stops or is
/// killed is said by five hooks, all called on its thread:
///
///   onSvcEntry        first thing on the thread. The default makes the task running.
///   handleMOCallStop  a stop() has reached the head of the queue; the state is stopping. The queue goes on
///   being
///                     served until completeStop(), which is all that the default does.
///   handleMOCallKill  the same for a kill().
///   onStopCompleted   the last method object of the run has been taken; what the hook itself causes to be
///   queued is
///                     still run after it.
///   onSvcExit         last thing on the thread.
///
/// start(), stop(), kill() and waitUntilDone() may be called on any thread. A stopped task can be started
/// again. The task must be stopped before it is destroyed.
class UserDefHandlerTaskManager : public TaskManager, public ManageableTaskImplBase
{
public:
    explicit UserDefHandlerTaskManager(std::string in_strName);
    ~UserDefHandlerTaskManager() override;

    bool start() override;
    bool stop() override;
    bool kill() override;
    bool waitUntilDone() override;

    using TaskManager::addTask;
    bool addTask(const char* in_szName, const SubTask& in_pTask) override;
    bool clearTasks() override;

    /// The queue whose method objects the task's thread runs.
    ACE_Activation_Queue& getQueue() { return m_taskQueue.getQueue(); }
    /// How many method objects wait; any thread, the load of an atomic.
    std::size_t getQueueLength() { return m_taskQueue.length(); }
    /// The name and the queue length of every such task there is; any thread.
    static std::vector<std::pair<std::string, std::size_t>> getQueueLengths();
    /// The timers of the task's thread.
    TimerScheduler& getTimerScheduler() { return m_timers; }

    /// Queues a method object on this task's queue; see Task::enqueue.
    bool enqueue(ACE_Method_Request* in_pMethodObject, const char* in_szLabel);
    using Task::enqueue;

    bool isTaskThread() const
    {
        return std::this_thread::get_id() == m_threadId.load(std::memory_order_acquire);
    }

protected:
    struct NamedSubTask
    {
        std::string m_strName;
        SubTask m_pTask;
    };

    virtual void onSvcEntry();
    virtual void onSvcExit();
    virtual void onStopCompleted();
    virtual void handleMOCallStop();
    virtual void handleMOCallKill();

    /// Ends the run: the queue is served no more once the present method object or timer has returned. Task
    /// thread.
    void completeStop() { m_bStopCompleted = true; }

    /// Whether a stop or a kill has been asked for in this run.
    bool isStopRequested() const { return m_bStopRequested.load() || m_bKillRequested.load(); }

    /// Counts the runs: tells what an earlier run left in the queue from what belongs to this one. Any
    /// thread.
    std::uint32_t getRun() const { return m_uiRun.load(); }

    /// For destructors: says so if the task has not been stopped, and ends its thread. Nothing queued is run.
    void abandon();

    const std::vector<NamedSubTask>& getSubTasks() const { return m_vSubTasks; }

private:
    class End_MO;
    class WakeUp_MO;

    bool refuse(const char* in_szOperation);
    void svc();
    void runQueue();
    void runRemainder(int in_iRounds);
    void run(ACE_Method_Request* in_pMethodObject);

    TaskQueue m_taskQueue;
    TimerQueue m_timers;
    std::vector<NamedSubTask> m_vSubTasks;

    // Guards the thread object and m_bThreadDone.
    std::mutex m_threadMutex;
    std::condition_variable m_threadDone;
    std::thread m_thread;
    bool m_bThreadDone = true;
    std::atomic<std::thread::id> m_threadId{};

    std::atomic<bool> m_bStopRequested{false};
    std::atomic<bool> m_bKillRequested{false};
    std::atomic<bool> m_bAbandon{false};
    std::atomic<std::uint32_t> m_uiRun{1};
    bool m_bStopCompleted = false;
};

}  // namespace Quorvex
