#include "thread/UserDefHandlerTaskManager.h"

#include <ace/Method_Request.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <utility>

#include "infra/Bell.h"
#include "infra/Logger.h"
#include "infra/ThreadName.h"
#include "infra/TraceScope.h"

namespace Quorvex
{

namespace
{
const Logger& getLogger()
{
    static const StaticLogger s_logger("quorvex.thread.TaskManager");
    return s_logger;
}

/// The tasks that there are.
struct LiveTasks
{
    std::mutex m_mutex;
    std::vector<UserDefHandlerTaskManager*> m_vTasks;
};

LiveTasks& liveTasks()
{
    static LiveTasks s_live;
    return s_live;
}

/// One faulty call must not take the thread, and all other calls, with it.
template <class Function>
void guard(const char* in_szWhat, Function in_function)
{
    try
    {
        in_function();
    }
    catch (const std::exception& exception)
    {
        QLOG_ERROR(getLogger(), in_szWhat << " ended with an exception: " << exception.what());
    }
    catch (...)
    {
        QLOG_ERROR(getLogger(), in_szWhat << " ended with an exception of unknown class");
    }
}
}  // namespace

/// A stop() or kill() that has reached the head of the queue.
class UserDefHandlerTaskManager::End_MO final : public ACE_Method_Request
{
public:
    using Handler = void (UserDefHandlerTaskManager::*)();

    End_MO(UserDefHandlerTaskManager& in_task, Handler in_handler)
        : m_task(in_task), m_handler(in_handler), m_uiRun(in_task.getRun())
    {
    }

    int call() override
    {
        // A kill that crosses the end of the run must not hit the next one.
        if (m_uiRun == m_task.getRun())
        {
            m_task.setTaskState(Task::STOPPING_STATE);
            (m_task.*m_handler)();
        }
        return 0;
    }

private:
    UserDefHandlerTaskManager& m_task;
    const Handler m_handler;
    const std::uint32_t m_uiRun;
};

/// Makes the thread look around.
class UserDefHandlerTaskManager::WakeUp_MO final : public ACE_Method_Request
{
public:
    int call() override { return 0; }
};

UserDefHandlerTaskManager::UserDefHandlerTaskManager(std::string in_strName)
    : ManageableTaskImplBase(std::move(in_strName))
{
    LiveTasks& live = liveTasks();
    const std::lock_guard<std::mutex> lock(live.m_mutex);
    live.m_vTasks.push_back(this);
}

UserDefHandlerTaskManager::~UserDefHandlerTaskManager()
{
    {
        LiveTasks& live = liveTasks();
        const std::lock_guard<std::mutex> lock(live.m_mutex);
        std::erase(live.m_vTasks, this);
    }
    abandon();
}

std::vector<std::pair<std::string, std::size_t>> UserDefHandlerTaskManager::getQueueLengths()
{
    LiveTasks& live = liveTasks();
    const std::lock_guard<std::mutex> lock(live.m_mutex);
    std::vector<std::pair<std::string, std::size_t>> vLengths;
    vLengths.reserve(live.m_vTasks.size());
    for (UserDefHandlerTaskManager* pTask : live.m_vTasks)
    {
        vLengths.emplace_back(pTask->getTaskName(), pTask->getQueueLength());
    }
    return vLengths;
}

void UserDefHandlerTaskManager::abandon()
{
    std::unique_lock<std::mutex> lock(m_threadMutex);
    if (!m_bThreadDone && ManageableTaskImplBase::getTaskState() != Task::STOPPED_STATE)
    {
        QLOG_ERROR(getLogger(), "task \"" << getTaskName() << "\" is destroyed while it runs: stop it first");
        m_bAbandon = true;
        Task::enqueue(getQueue(), new WakeUp_MO, "UserDefHandlerTaskManager::abandon");
    }
    Bell::Batch::ring();
    m_threadDone.wait(lock, [this] { return m_bThreadDone; });
    if (m_thread.joinable())
    {
        m_thread.join();
    }
}

bool UserDefHandlerTaskManager::enqueue(ACE_Method_Request* in_pMethodObject, const char* in_szLabel)
{
    return Task::enqueue(getQueue(), in_pMethodObject, in_szLabel);
}

bool UserDefHandlerTaskManager::addTask(const char* in_szName, const SubTask& in_pTask)
{
    if (ManageableTaskImplBase::getTaskState() != Task::STOPPED_STATE)
    {
        return refuse("addTask");
    }
    const auto bSameName = [in_szName](const NamedSubTask& in_other)
    { return in_other.m_strName == in_szName; };
    if (in_pTask.isNull() || in_szName == nullptr ||
        std::any_of(m_vSubTasks.begin(), m_vSubTasks.end(), bSameName))
    {
        QLOG_ERROR(getLogger(),
                   "task \"" << getTaskName() << "\" cannot add sub-task \""
                             << (in_szName != nullptr ? in_szName : "")
                             << "\": it is null, or the name is taken");
        return false;
    }
    m_vSubTasks.push_back(NamedSubTask{in_szName, in_pTask});
    return true;
}

bool UserDefHandlerTaskManager::clearTasks()
{
    if (ManageableTaskImplBase::getTaskState() != Task::STOPPED_STATE)
    {
        return refuse("clearTasks");
    }
    m_vSubTasks.clear();
    return true;
}

bool UserDefHandlerTaskManager::refuse(const char* in_szOperation)
{
    QLOG_WARN(getLogger(),
              in_szOperation << " refused: task \"" << getTaskName() << "\" is "
                             << getTaskStateName(ManageableTaskImplBase::getTaskState())
                             << (m_bKillRequested.load()   ? ", kill requested"
                                 : m_bStopRequested.load() ? ", stop requested"
                                                           : ""));
    return false;
}

bool UserDefHandlerTaskManager::start()
{
    if (isTaskThread() || !changeTaskState(Task::STOPPED_STATE, Task::STARTING_STATE))
    {
        return refuse("start");
    }
    std::unique_lock<std::mutex> lock(m_threadMutex);
    // The thread of the former run has told its end, and may be on its last steps.
    m_threadDone.wait(lock, [this] { return m_bThreadDone; });
    if (m_thread.joinable())
    {
        m_thread.join();
    }
    try
    {
        m_thread = std::thread(&UserDefHandlerTaskManager::svc, this);
        m_bThreadDone = false;
        return true;
    }
    catch (const std::exception& exception)
    {
        QLOG_ERROR(getLogger(), "task \"" << getTaskName() << "\" has no thread: " << exception.what());
    }
    lock.unlock();
    setTaskState(Task::STOPPED_STATE);
    return false;
}

bool UserDefHandlerTaskManager::stop()
{
    const Task::State state = ManageableTaskImplBase::getTaskState();
    if ((state != Task::STARTING_STATE && state != Task::RUNNING_STATE) || m_bKillRequested.load() ||
        m_bStopRequested.exchange(true))
    {
        return refuse("stop");
    }
    return enqueue(new End_MO(*this, &UserDefHandlerTaskManager::handleMOCallStop),
                   "UserDefHandlerTaskManager::stop");
}

bool UserDefHandlerTaskManager::kill()
{
    if (ManageableTaskImplBase::getTaskState() == Task::STOPPED_STATE || m_bKillRequested.exchange(true))
    {
        return refuse("kill");
    }
    return enqueue(new End_MO(*this, &UserDefHandlerTaskManager::handleMOCallKill),
                   "UserDefHandlerTaskManager::kill");
}

bool UserDefHandlerTaskManager::waitUntilDone()
{
    if (isTaskThread())
    {
        return refuse("waitUntilDone on the task's own thread");
    }
    Bell::Batch::ring();
    std::unique_lock<std::mutex> lock(m_threadMutex);
    m_threadDone.wait(lock, [this] { return m_bThreadDone; });
    if (m_thread.joinable())
    {
        m_thread.join();
    }
    return true;
}

void UserDefHandlerTaskManager::onSvcEntry()
{
    changeTaskState(Task::STARTING_STATE, Task::RUNNING_STATE);
}

void UserDefHandlerTaskManager::onSvcExit()
{
}

void UserDefHandlerTaskManager::onStopCompleted()
{
}

void UserDefHandlerTaskManager::handleMOCallStop()
{
    completeStop();
}

void UserDefHandlerTaskManager::handleMOCallKill()
{
    completeStop();
}

void UserDefHandlerTaskManager::svc()
{
    nameThisThread(getTaskName());
    m_threadId.store(std::this_thread::get_id(), std::memory_order_release);
    m_bStopCompleted = false;
    const Bell::Batch bells;
    onSvcEntry();
    Bell::Batch::ring();
    runQueue();
    if (!m_bAbandon.load())
    {
        setTaskState(Task::STOPPING_STATE);
        // What stood in the queue when the end came; more may come in for as long as its sources live.
        runRemainder(1);
        onStopCompleted();
        constexpr int kRounds = 100;
        runRemainder(kRounds);
        onSvcExit();
    }
    m_uiRun.fetch_add(1);
    m_bStopRequested = false;
    m_bKillRequested = false;
    setTaskState(Task::STOPPED_STATE);
    m_threadId.store(std::thread::id(), std::memory_order_release);

    const std::lock_guard<std::mutex> lock(m_threadMutex);
    m_bThreadDone = true;
    m_threadDone.notify_all();
}

void UserDefHandlerTaskManager::runQueue()
{
    while (!m_bStopCompleted && !m_bAbandon.load(std::memory_order_relaxed))
    {
        TaskQueue::Clock::time_point deadline;
        const TaskQueue::Clock::time_point* pDeadline = nullptr;
        if (!m_timers.empty())
        {
            deadline = m_timers.nextExpiry();
            pDeadline = &deadline;
            const auto now = TaskQueue::Clock::now();
            if (deadline <= now)
            {
                guard("timer", [this, now] { m_timers.expire(now); });
                // Between two rounds of timers one method object gets its turn.
                deadline = now;
            }
        }
        if (!m_bStopCompleted)
        {
            run(m_taskQueue.next(pDeadline));
        }
    }
}

void UserDefHandlerTaskManager::runRemainder(int in_iRounds)
{
    const TaskQueue::Clock::time_point past;
    for (int iRound = 0; iRound < in_iRounds && m_taskQueue.length() > 0; ++iRound)
    {
        for (std::size_t left = m_taskQueue.length(); left > 0; --left)
        {
            run(m_taskQueue.next(&past));
        }
    }
}

void UserDefHandlerTaskManager::run(ACE_Method_Request* in_pMethodObject)
{
    if (in_pMethodObject == nullptr)
    {
        return;
    }
    const std::unique_ptr<ACE_Method_Request> pMethodObject(in_pMethodObject);
    guard("method object",
          [&pMethodObject]
          {
              const int iStatus = pMethodObject->call();
              if (iStatus != 0)
              {
                  QLOG_TRACE(getLogger(), "method object returned " << iStatus);
              }
          });
    m_taskQueue.done();
}

}  // namespace Quorvex
