#pragma once

#include <cstddef>
#include <cstdint>

#include "infra/LimitedObjPtr.h"
#include "thread/Stoppable.h"

class ACE_Activation_Queue;
class ACE_Method_Request;

namespace Quorvex
{

/// Something with a life of its own: started, stopped in good order, or killed.
class Task : public virtual Stoppable
{
public:
    enum State
    {
        STOPPED_STATE = 0,
        STARTING_STATE = 1,
        RUNNING_STATE = 2,
        STOPPING_STATE = 3
    };

    /// Starts the task and returns before it runs. False when it is not stopped.
    virtual bool start() = 0;

    /// Ends the task without waiting for what it has in hand. False when it is stopped, or was killed
    /// already.
    virtual bool kill() = 0;

    /// Puts a method object on a task's activation queue. Never blocks; any thread. The queue owns the object
    /// from now on, also when it refuses it: a refused object is deleted and counted, logged with the label
    /// (a literal, may be null), and false comes back.
    static bool enqueue(ACE_Activation_Queue& in_queue,
                        ACE_Method_Request* in_pMethodObject,
                        const char* in_szLabel = nullptr);

    /// How many method objects queues have refused since the process started: a metric.
    static std::uint64_t getRefusedCount();
};

/// The printed name of a state: "STOPPED", "STARTING", "RUNNING" or "STOPPING".
const char* getTaskStateName(Task::State in_state);

class TaskWithState : public virtual Task
{
public:
    /// The state at this moment; any thread.
    virtual Task::State getTaskState() = 0;
};

class ManageableTask;

/// Is told of every change of a task's state.
class TaskStateObserver
{
public:
    TaskStateObserver() = default;
    TaskStateObserver(const TaskStateObserver&) = delete;
    TaskStateObserver& operator=(const TaskStateObserver&) = delete;
    virtual ~TaskStateObserver() = default;

    /// Called on the thread that changes the state, usually the observed task's own: hand the news to a queue
    /// and return. The task must not be waited for in here.
    virtual void taskStateChanged(ManageableTask& in_task, Task::State in_newState) = 0;
};

/// A task that a task manager can start, watch and stop.
class ManageableTask : public virtual TaskWithState
{
public:
    /// Tells the observer of every later change; the state of this moment is the out-parameter. No change is
    /// missed between the two. False when the observer is null or already there.
    virtual bool addTaskStateObserver(LimitedObjPtr<TaskStateObserver> in_pObserver,
                                      Task::State& out_state) = 0;

    /// After the return the observer is not called any more. False when it is not there.
    virtual bool removeTaskStateObserver(LimitedObjPtr<TaskStateObserver> in_pObserver) = 0;

    /// The name under which the task is managed and logged; fixed for its life.
    virtual const char* getTaskName() const = 0;

    /// What kind of task it is, where several bear their own names.
    virtual const char* getTaskTypeName() const { return getTaskName(); }
};

}  // namespace Quorvex
