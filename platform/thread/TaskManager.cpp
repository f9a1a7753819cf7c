#include "thread/TaskManager.h"

#include "infra/Assertion.h"

namespace Quorvex
{

bool TaskManager::addTask(const SubTask& in_pTask)
{
    static const StaticLogger s_logger("quorvex.thread.TaskManager");
    if (!QUORVEX_ASSERT(s_logger, !in_pTask.isNull()))
    {
        return false;
    }
    return addTask(in_pTask->getTaskName(), in_pTask);
}

}  // namespace Quorvex
