#pragma once

#include <chrono>
#include <optional>

namespace Quorvex
{

/// The main thread's waiting room: signals and wake-ups from other threads, without polling. Made before any
/// other thread, so that all of them leave the signals alone.
class Signals
{
public:
    enum class Event
    {
        STOP,    ///< SIGTERM or SIGINT
        RELOAD,  ///< SIGHUP
        WOKEN,   ///< wake() was called
        TIMEOUT
    };

    Signals();
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;
    ~Signals();

    /// Waits for the next event; without a deadline, for ever.
    Event wait(std::optional<std::chrono::steady_clock::time_point> in_deadline = std::nullopt);
    /// Ends a wait(), the present one or the next. Any thread.
    void wake();

private:
    int m_iSignalFd;
    int m_iWakeFd;
};

}  // namespace Quorvex
