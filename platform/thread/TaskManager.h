#pragma once

#include "infra/CountedObjPtr.h"
#include "thread/Task.h"

namespace Quorvex
{

/// Keeps sub-tasks.
class TaskManager
{
public:
    using SubTask = CountedObjPtr<ManageableTask, TSReferenceCount>;

    TaskManager() = default;
    TaskManager(const TaskManager&) = delete;
    TaskManager& operator=(const TaskManager&) = delete;
    virtual ~TaskManager() = default;

    /// Adds a sub-task under its own name; see the other addTask.
    bool addTask(const SubTask& in_pTask);

    /// Adds a sub-task under a name. False, with a log line, when the manager is not stopped, the task is
    /// null, or the name is taken.
    virtual bool addTask(const char* in_szName, const SubTask& in_pTask) = 0;

    /// Drops all sub-tasks. False, with a log line, when the manager is not stopped.
    virtual bool clearTasks() = 0;
};

}  // namespace Quorvex
