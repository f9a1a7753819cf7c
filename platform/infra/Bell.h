#pragma once

#include <atomic>
#include <chrono>
#include <memory>

namespace Quorvex
{

/// What wakes a thread that sleeps for want of work. Rings from any thread; a bell that was rung while nobody
/// slept ends the next sleep at once.
class Bell
{
public:
    class Batch;

    Bell() = default;
    Bell(const Bell&) = delete;
    Bell& operator=(const Bell&) = delete;
    virtual ~Bell() = default;

    virtual void ring() = 0;

    /// Rings at once, or, once for all, when the calling thread's batch does.
    static void ringWithBatch(const std::shared_ptr<Bell>& in_pBell);
};

/// While it lives, its thread's ringWithBatch() waits for ring(). A thread that hands out work piece by piece
/// wakes the others once this way, when it has done its own, instead of being interrupted by each of them.
/// One for a thread.
class Bell::Batch
{
public:
    Batch();
    Batch(const Batch&) = delete;
    Batch& operator=(const Batch&) = delete;
    ~Batch();

    /// Rings what the calling thread's batch has gathered: to be called before anything that blocks.
    static void ring();
};

/// The bell of a thread that waits for nothing else. Leaner than a condition variable, whose waiter has to
/// take a lock that it does not need.
class FutexBell final : public Bell
{
public:
    using Clock = std::chrono::steady_clock;

    void ring() override;
    /// Sleeps until it rings or the deadline (null: for ever) has passed. One thread.
    void wait(const Clock::time_point* in_pDeadline);

private:
    enum State : int
    {
        SILENT,
        RUNG,
        SLEEPING
    };
    std::atomic<int> m_iState{SILENT};
};

/// The bell of a thread that waits for sockets too.
class EventBell final : public Bell
{
public:
    /// The descriptor is -1 when the system gives none.
    EventBell();
    ~EventBell() override;

    /// Readable from the first ring() to clear().
    int getDescriptor() const { return m_iDescriptor; }
    void ring() override;
    /// False when it had not rung.
    bool clear();

private:
    const int m_iDescriptor;
};

}  // namespace Quorvex
