#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "thread/UserDefHandlerTaskManager.h"

namespace Quorvex
{

/// A task manager that starts its sub-tasks in the order in which they were added, each once the one before
/// it runs, and stops them in reverse order, each once the one after it has stopped. The task is running when
/// all its sub-tasks are, and its own run ends when all have stopped. Its thread never waits for a sub-task:
/// changes of their states come as method objects. A sub-task that cannot be started, or that ends by itself,
/// makes the manager stop.
///
/// A kill is handed to all sub-tasks at once and does not wait for them longer than a few seconds.
class UserDefHandlerOrderTaskManager : public UserDefHandlerTaskManager
{
public:
    explicit UserDefHandlerOrderTaskManager(std::string in_strName);
    ~UserDefHandlerOrderTaskManager() override;

protected:
    /// Begins to start the sub-tasks.
    void onSvcEntry() override;
    /// Begins to stop the sub-tasks; the last one's end is the task's.
    void handleMOCallStop() override;
    void handleMOCallKill() override;

private:
    class SubTaskObserver;
    class KillTimeout;
    class SubTaskState_MO;
    struct Watched;
    enum class Phase
    {
        IDLE,
        STARTING,
        RUNNING,
        STOPPING,
        KILLING
    };

    void watchSubTasks();
    void unwatchSubTasks();
    void startNext();
    void stopNext();
    void subTaskStateChanged(std::uint32_t in_uiRun, std::size_t in_index, Task::State in_state);
    void giveUp(const std::string& in_strReason);
    void endRun();
    bool allStopped() const;
    void killTimedOut();

    std::vector<std::unique_ptr<Watched>> m_vWatched;
    Phase m_phase = Phase::IDLE;
    // STARTING: the sub-task being started. STOPPING: one beyond the sub-task being stopped.
    std::size_t m_position = 0;
    std::unique_ptr<KillTimeout> m_pKillTimeout;
    TimerScheduler::TimerId m_killTimer = TimerScheduler::NO_TIMER;
};

}  // namespace Quorvex
