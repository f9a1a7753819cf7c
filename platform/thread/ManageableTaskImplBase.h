#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "infra/Handle.h"
#include "infra/ROConfiguration.h"
#include "thread/Task.h"

namespace Quorvex
{

/// Name, state, observers and configuration of a task. All operations may be called on any thread.
class ManageableTaskImplBase : public virtual ManageableTask
{
public:
    explicit ManageableTaskImplBase(std::string in_strName);
    ~ManageableTaskImplBase() override;

    /// Keeps the configuration for the task's life. False when it is null or the task is not stopped.
    virtual bool configure(const TSHandle<ROConfiguration>& in_hConfig);

    /// What configure was given, which must have come before.
    const ROConfiguration& getConfig() const { return *m_hConfig; }
    const TSHandle<ROConfiguration>& getConfigHandle() const { return m_hConfig; }

    Task::State getTaskState() override;
    bool addTaskStateObserver(LimitedObjPtr<TaskStateObserver> in_pObserver, Task::State& out_state) override;
    bool removeTaskStateObserver(LimitedObjPtr<TaskStateObserver> in_pObserver) override;
    const char* getTaskName() const override { return m_strName.c_str(); }

protected:
    /// Enters the state and tells the observers, without a lock held. Nothing when the task is in it already.
    void setTaskState(Task::State in_state);
    /// The same if the task is in `in_from`; false otherwise.
    bool changeTaskState(Task::State in_from, Task::State in_to);

private:
    void notify(std::unique_lock<std::mutex>& io_lock, Task::State in_state);

    const std::string m_strName;
    TSHandle<ROConfiguration> m_hConfig;
    std::mutex m_mutex;
    std::condition_variable m_notified;
    Task::State m_state = Task::STOPPED_STATE;
    std::vector<LimitedObjPtr<TaskStateObserver>> m_vObservers;
    // Threads that are calling an observer now.
    std::vector<std::thread::id> m_vNotifying;
};

}  // namespace Quorvex
