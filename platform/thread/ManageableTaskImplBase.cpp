#include "thread/ManageableTaskImplBase.h"

#include <algorithm>
#include <utility>

#include "infra/Assertion.h"

namespace Quorvex
{

namespace
{
const Logger& getLogger()
{
    static const StaticLogger s_logger("quorvex.thread.Task");
    return s_logger;
}

template <class Container, class Value>
bool contains(const Container& in_container, const Value& in_value)
{
    return std::find(in_container.begin(), in_container.end(), in_value) != in_container.end();
}
}  // namespace

ManageableTaskImplBase::ManageableTaskImplBase(std::string in_strName) : m_strName(std::move(in_strName))
{
}

ManageableTaskImplBase::~ManageableTaskImplBase() = default;

bool ManageableTaskImplBase::configure(const TSHandle<ROConfiguration>& in_hConfig)
{
    if (!QUORVEX_ASSERT(getLogger(), !in_hConfig.isNull()) ||
        !QUORVEX_ASSERT(getLogger(), ManageableTaskImplBase::getTaskState() == Task::STOPPED_STATE))
    {
        return false;
    }
    m_hConfig = in_hConfig;
    return true;
}

Task::State ManageableTaskImplBase::getTaskState()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_state;
}

bool ManageableTaskImplBase::addTaskStateObserver(LimitedObjPtr<TaskStateObserver> in_pObserver,
                                                  Task::State& out_state)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (in_pObserver.isNull() || contains(m_vObservers, in_pObserver))
    {
        return false;
    }
    m_vObservers.push_back(in_pObserver);
    out_state = m_state;
    return true;
}

bool ManageableTaskImplBase::removeTaskStateObserver(LimitedObjPtr<TaskStateObserver> in_pObserver)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    const auto found = std::find(m_vObservers.begin(), m_vObservers.end(), in_pObserver);
    if (found == m_vObservers.end())
    {
        return false;
    }
    m_vObservers.erase(found);
    // Another thread may be calling the observer at this moment.
    m_notified.wait(lock,
                    [this]
                    {
                        return std::all_of(m_vNotifying.begin(),
                                           m_vNotifying.end(),
                                           [](std::thread::id in_id)
                                           { return in_id == std::this_thread::get_id(); });
                    });
    return true;
}

void ManageableTaskImplBase::setTaskState(Task::State in_state)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_state != in_state)
    {
        notify(lock, in_state);
    }
}

bool ManageableTaskImplBase::changeTaskState(Task::State in_from, Task::State in_to)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_state != in_from)
    {
        return false;
    }
    notify(lock, in_to);
    return true;
}

void ManageableTaskImplBase::notify(std::unique_lock<std::mutex>& io_lock, Task::State in_state)
{
    QLOG_INFO(
        getLogger(),
        "task \"" << m_strName << "\" " << getTaskStateName(m_state) << " -> " << getTaskStateName(in_state));
    m_state = in_state;
    const std::vector<LimitedObjPtr<TaskStateObserver>> vObservers = m_vObservers;
    m_vNotifying.push_back(std::this_thread::get_id());
    for (const LimitedObjPtr<TaskStateObserver>& pObserver : vObservers)
    {
        // An observer that was called before may have removed this one.
        if (contains(m_vObservers, pObserver))
        {
            io_lock.unlock();
            pObserver->taskStateChanged(*this, in_state);
            io_lock.lock();
        }
    }
    m_vNotifying.erase(std::find(m_vNotifying.begin(), m_vNotifying.end(), std::this_thread::get_id()));
    m_notified.notify_all();
}

}  // namespace Quorvex
