#include "thread/UserDefHandlerOrderTaskManager.h"

#include <ace/Method_Request.h>

#include <algorithm>
#include <utility>

#include "infra/Logger.h"

namespace Quorvex
{

namespace
{
const Logger& getLogger()
{
    static const StaticLogger s_logger("quorvex.thread.OrderTaskManager");
    return s_logger;
}

// How long a kill waits for the sub-tasks.
constexpr int kKillWaitS = 5;
}  // namespace

/// News of a sub-task, taken from the queue.
class UserDefHandlerOrderTaskManager::SubTaskState_MO final : public ACE_Method_Request
{
public:
    SubTaskState_MO(UserDefHandlerOrderTaskManager& in_manager,
                    std::uint32_t in_uiRun,
                    std::size_t in_index,
                    Task::State in_state)
        : m_manager(in_manager), m_uiRun(in_uiRun), m_index(in_index), m_state(in_state)
    {
    }

    int call() override
    {
        m_manager.subTaskStateChanged(m_uiRun, m_index, m_state);
        return 0;
    }

private:
    UserDefHandlerOrderTaskManager& m_manager;
    const std::uint32_t m_uiRun;
    const std::size_t m_index;
    const Task::State m_state;
};

/// Queues what a sub-task tells, on whatever thread.
class UserDefHandlerOrderTaskManager::SubTaskObserver final : public TaskStateObserver
{
public:
    SubTaskObserver(UserDefHandlerOrderTaskManager& in_manager, std::size_t in_index)
        : m_manager(in_manager), m_uiRun(in_manager.getRun()), m_index(in_index)
    {
    }

    void taskStateChanged(ManageableTask& /*in_task*/, Task::State in_newState) override
    {
        m_manager.enqueue(new SubTaskState_MO(m_manager, m_uiRun, m_index, in_newState),
                          "UserDefHandlerOrderTaskManager::SubTaskObserver");
    }

private:
    UserDefHandlerOrderTaskManager& m_manager;
    const std::uint32_t m_uiRun;
    const std::size_t m_index;
};

class UserDefHandlerOrderTaskManager::KillTimeout final : public TimeoutProcessor
{
public:
    explicit KillTimeout(UserDefHandlerOrderTaskManager& in_manager) : m_manager(in_manager) {}

    bool processTimeout(const ACE_Time_Value& /*in_expiryTime*/, TimeoutData* /*in_pData*/) override
    {
        m_manager.killTimedOut();
        return true;
    }

private:
    UserDefHandlerOrderTaskManager& m_manager;
};

struct UserDefHandlerOrderTaskManager::Watched
{
    Watched(UserDefHandlerOrderTaskManager& in_manager, std::size_t in_index, NamedSubTask in_subTask)
        : m_subTask(std::move(in_subTask)), m_observer(in_manager, in_index)
    {
    }

    ManageableTask& task() const { return *m_subTask.m_pTask; }
    const std::string& name() const { return m_subTask.m_strName; }

    NamedSubTask m_subTask;
    SubTaskObserver m_observer;
    bool m_bStopAsked = false;
};

UserDefHandlerOrderTaskManager::UserDefHandlerOrderTaskManager(std::string in_strName)
    : UserDefHandlerTaskManager(std::move(in_strName)), m_pKillTimeout(std::make_unique<KillTimeout>(*this))
{
}

UserDefHandlerOrderTaskManager::~UserDefHandlerOrderTaskManager()
{
    abandon();
    unwatchSubTasks();
}

void UserDefHandlerOrderTaskManager::watchSubTasks()
{
    unwatchSubTasks();
    for (const NamedSubTask& subTask : getSubTasks())
    {
        m_vWatched.push_back(std::make_unique<Watched>(*this, m_vWatched.size(), subTask));
        Task::State state = Task::STOPPED_STATE;
        m_vWatched.back()->task().addTaskStateObserver(&m_vWatched.back()->m_observer, state);
    }
}

void UserDefHandlerOrderTaskManager::unwatchSubTasks()
{
    for (const auto& pWatched : m_vWatched)
    {
        pWatched->task().removeTaskStateObserver(&pWatched->m_observer);
    }
    m_vWatched.clear();
}

void UserDefHandlerOrderTaskManager::onSvcEntry()
{
    watchSubTasks();
    m_phase = Phase::STARTING;
    m_position = 0;
    startNext();
}

void UserDefHandlerOrderTaskManager::startNext()
{
    for (; m_position < m_vWatched.size(); ++m_position)
    {
        Watched& watched = *m_vWatched[m_position];
        const Task::State state = watched.task().getTaskState();
        if (state == Task::RUNNING_STATE)
        {
            continue;
        }
        if (state != Task::STARTING_STATE)
        {
            QLOG_DEBUG(getLogger(), getTaskName() << " starts sub-task " << watched.name());
            if (!watched.task().start())
            {
                giveUp("sub-task " + watched.name() + " cannot be started");
            }
        }
        // Its running state comes as a method object, and leads on.
        return;
    }
    m_phase = Phase::RUNNING;
    changeTaskState(Task::STARTING_STATE, Task::RUNNING_STATE);
}

void UserDefHandlerOrderTaskManager::subTaskStateChanged(std::uint32_t in_uiRun,
                                                         std::size_t in_index,
                                                         Task::State in_state)
{
    if (in_uiRun != getRun() || in_index >= m_vWatched.size())
    {
        return;
    }
    const bool bEnding = in_state == Task::STOPPED_STATE || in_state == Task::STOPPING_STATE;
    switch (m_phase)
    {
        case Phase::IDLE:
            return;
        case Phase::STARTING:
        case Phase::RUNNING:
            if (bEnding)
            {
                giveUp("sub-task " + m_vWatched[in_index]->name() + " ends by itself");
            }
            else if (m_phase == Phase::STARTING && in_state == Task::RUNNING_STATE && in_index == m_position)
            {
                startNext();
            }
            return;
        case Phase::STOPPING:
            if (in_state == Task::STOPPED_STATE && in_index + 1 == m_position)
            {
                stopNext();
            }
            return;
        case Phase::KILLING:
            if (allStopped())
            {
                endRun();
            }
            return;
    }
}

void UserDefHandlerOrderTaskManager::giveUp(const std::string& in_strReason)
{
    QLOG_ERROR(getLogger(), "task " << getTaskName() << " stops: " << in_strReason);
    if (!isStopRequested())
    {
        stop();
    }
}

void UserDefHandlerOrderTaskManager::handleMOCallStop()
{
    if (m_phase == Phase::STOPPING || m_phase == Phase::KILLING)
    {
        return;
    }
    setTaskState(Task::STOPPING_STATE);
    m_phase = Phase::STOPPING;
    m_position = m_vWatched.size();
    stopNext();
}

void UserDefHandlerOrderTaskManager::stopNext()
{
    for (; m_position > 0; --m_position)
    {
        Watched& watched = *m_vWatched[m_position - 1];
        const auto bStopped = [&watched] { return watched.task().getTaskState() == Task::STOPPED_STATE; };
        if (bStopped())
        {
            continue;
        }
        if (!watched.m_bStopAsked)
        {
            QLOG_DEBUG(getLogger(), getTaskName() << " stops sub-task " << watched.name());
            watched.m_bStopAsked = true;
            // One that refuses may have been told by somebody else, or have come to its end by itself.
            if (!watched.task().stop() && watched.task().getTaskState() != Task::STOPPING_STATE &&
                !bStopped())
            {
                QLOG_ERROR(getLogger(), "sub-task " << watched.name() << " refuses to stop and is killed");
                watched.task().kill();
            }
        }
        // Its end comes as a method object, and leads on.
        return;
    }
    endRun();
}

void UserDefHandlerOrderTaskManager::handleMOCallKill()
{
    if (m_phase == Phase::KILLING)
    {
        return;
    }
    setTaskState(Task::STOPPING_STATE);
    m_phase = Phase::KILLING;
    for (auto ppWatched = m_vWatched.rbegin(); ppWatched != m_vWatched.rend(); ++ppWatched)
    {
        if ((*ppWatched)->task().getTaskState() != Task::STOPPED_STATE)
        {
            (*ppWatched)->task().kill();
        }
    }
    if (allStopped())
    {
        endRun();
        return;
    }
    m_killTimer =
        getTimerScheduler().scheduleTimer(m_pKillTimeout.get(), nullptr, ACE_Time_Value(kKillWaitS));
}

void UserDefHandlerOrderTaskManager::killTimedOut()
{
    for (const auto& pWatched : m_vWatched)
    {
        if (pWatched->task().getTaskState() != Task::STOPPED_STATE)
        {
            QLOG_ERROR(getLogger(),
                       "sub-task " << pWatched->name() << " has not ended " << kKillWaitS
                                   << " s after it was killed, and is left behind");
        }
    }
    endRun();
}

void UserDefHandlerOrderTaskManager::endRun()
{
    getTimerScheduler().cancelTimer(m_killTimer);
    m_phase = Phase::IDLE;
    unwatchSubTasks();
    completeStop();
}

bool UserDefHandlerOrderTaskManager::allStopped() const
{
    return std::all_of(m_vWatched.begin(),
                       m_vWatched.end(),
                       [](const auto& in_pWatched)
                       { return in_pWatched->task().getTaskState() == Task::STOPPED_STATE; });
}

}  // namespace Quorvex
