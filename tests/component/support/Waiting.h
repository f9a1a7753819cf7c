#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace Quorvex::Test
{

/// How long a test waits for what must come. Long, since it only costs when the test fails.
inline constexpr std::chrono::seconds kDeadline{20};

/// Waits for what nothing reports; false when it does not come.
template <class Condition>
bool waitUntil(Condition in_condition)
{
    const auto end = std::chrono::steady_clock::now() + kDeadline;
    while (!in_condition())
    {
        if (std::chrono::steady_clock::now() > end)
        {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// State that one thread changes and another waits for.
template <class State>
class Awaited
{
public:
    /// Changes the state under its lock and wakes who waits.
    template <class Change>
    auto change(Change in_change)
    {
        const std::lock_guard lock(m_mutex);
        m_changed.notify_all();
        return in_change(m_state);
    }

    /// Reads the state under its lock.
    template <class Read>
    auto read(Read in_read) const
    {
        const std::lock_guard lock(m_mutex);
        return in_read(m_state);
    }

    /// Waits until the condition holds; false when it does not within the time.
    template <class Condition>
    bool waitFor(Condition in_condition, std::chrono::milliseconds in_time = kDeadline) const
    {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, in_time, [&] { return in_condition(m_state); });
    }

private:
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    State m_state{};
};

}  // namespace Quorvex::Test
