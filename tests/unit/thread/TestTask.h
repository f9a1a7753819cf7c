#pragma once

#include <ace/Method_Request.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "thread/UserDefHandlerOrderTaskManager.h"

namespace Quorvex::Test
{

/// A method object that is a function.
class Function_MO final : public ACE_Method_Request
{
public:
    explicit Function_MO(std::function<int()> in_function) : m_function(std::move(in_function)) {}
    int call() override { return m_function(); }

private:
    std::function<int()> m_function;
};

/// What happened, in order, on whatever threads.
class Journal
{
public:
    void add(const std::string& in_strLine)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_vLines.push_back(in_strLine);
        m_added.notify_all();
    }

    /// Waits until the line is there; false after ten seconds.
    bool waitFor(const std::string& in_strLine)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_added.wait_for(
            lock,
            std::chrono::seconds(10),
            [&] { return std::find(m_vLines.begin(), m_vLines.end(), in_strLine) != m_vLines.end(); });
    }

    std::vector<std::string> take()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return std::exchange(m_vLines, {});
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_added;
    std::vector<std::string> m_vLines;
};

/// Waits for a state of a task; false after ten seconds.
class StateWaiter final : public TaskStateObserver
{
public:
    explicit StateWaiter(ManageableTask& in_task) : m_task(in_task)
    {
        m_task.addTaskStateObserver(this, m_state);
    }
    ~StateWaiter() override { m_task.removeTaskStateObserver(this); }

    void taskStateChanged(ManageableTask& /*in_task*/, Task::State in_newState) override
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_state = in_newState;
        m_vSeen.push_back(in_newState);
        m_changed.notify_all();
    }

    bool waitFor(Task::State in_state)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::seconds(10), [&] { return m_state == in_state; });
    }

    std::vector<Task::State> seen()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_vSeen;
    }

private:
    ManageableTask& m_task;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    Task::State m_state = Task::STOPPED_STATE;
    std::vector<Task::State> m_vSeen;
};

/// Runs a function on the task's thread and waits for it.
inline bool runOn(UserDefHandlerTaskManager& in_task, const std::function<void()>& in_function)
{
    const auto pDone = std::make_shared<std::promise<void>>();
    std::future<void> done = pDone->get_future();
    in_task.enqueue(new Function_MO(
                        [in_function, pDone]
                        {
                            in_function();
                            pDone->set_value();
                            return 0;
                        }),
                    "runOn");
    return done.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
}

}  // namespace Quorvex::Test
