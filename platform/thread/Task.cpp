#include "thread/Task.h"

#include <ace/Activation_Queue.h>
#include <ace/Method_Request.h>

#include <atomic>
#include <memory>

#include "infra/Logger.h"

namespace Quorvex
{

namespace
{
std::atomic<std::uint64_t> s_uiRefused{0};

const Logger& getLogger()
{
    static const StaticLogger s_logger("quorvex.thread.Task");
    return s_logger;
}
}  // namespace

bool Task::enqueue(ACE_Activation_Queue& in_queue,
                   ACE_Method_Request* in_pMethodObject,
                   const char* in_szLabel)
{
    std::unique_ptr<ACE_Method_Request> pMethodObject(in_pMethodObject);
    // A time that has passed: a queue that is full says so instead of waiting.
    ACE_Time_Value noWait = ACE_Time_Value::zero;
    if (pMethodObject == nullptr || in_queue.enqueue(pMethodObject.get(), &noWait) < 0)
    {
        s_uiRefused.fetch_add(1, std::memory_order_relaxed);
        QLOG_WARN(getLogger(),
                  "queue refused a method object of " << (in_szLabel ? in_szLabel : "(no label)"));
        return false;
    }
    static_cast<void>(pMethodObject.release());
    return true;
}

std::uint64_t Task::getRefusedCount()
{
    return s_uiRefused.load(std::memory_order_relaxed);
}

const char* getTaskStateName(Task::State in_state)
{
    switch (in_state)
    {
        case Task::STOPPED_STATE:
            return "STOPPED";
        case Task::STARTING_STATE:
            return "STARTING";
        case Task::RUNNING_STATE:
            return "RUNNING";
        case Task::STOPPING_STATE:
            return "STOPPING";
    }
    return "???";
}

}  // namespace Quorvex
