#include "infra/Bell.h"

#include <linux/futex.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <vector>

namespace Quorvex
{

namespace
{

struct Gathered
{
    bool m_bBatch = false;
    std::vector<std::shared_ptr<Bell>> m_vBells;
};

thread_local Gathered s_gathered;

}  // namespace

void Bell::ringWithBatch(const std::shared_ptr<Bell>& in_pBell)
{
    Gathered& gathered = s_gathered;
    if (!gathered.m_bBatch)
    {
        in_pBell->ring();
        return;
    }
    auto& vBells = gathered.m_vBells;
    if (std::find(vBells.begin(), vBells.end(), in_pBell) == vBells.end())
    {
        vBells.push_back(in_pBell);
    }
}

Bell::Batch::Batch()
{
    s_gathered.m_bBatch = true;
}

Bell::Batch::~Batch()
{
    ring();
    s_gathered.m_bBatch = false;
}

void Bell::Batch::ring()
{
    auto& vBells = s_gathered.m_vBells;
    for (const auto& pBell : vBells)
    {
        pBell->ring();
    }
    vBells.clear();
}

void FutexBell::ring()
{
    if (m_iState.exchange(RUNG) == SLEEPING)
    {
        static_cast<void>(::syscall(SYS_futex, &m_iState, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0));
    }
}

void FutexBell::wait(const Clock::time_point* in_pDeadline)
{
    int iState = SILENT;
    if (m_iState.compare_exchange_strong(iState, SLEEPING))
    {
        timespec deadline{};
        if (in_pDeadline != nullptr)
        {
            const auto ns = std::max<std::int64_t>(
                std::chrono::duration_cast<std::chrono::nanoseconds>(in_pDeadline->time_since_epoch())
                    .count(),
                0);
            deadline.tv_sec = static_cast<time_t>(ns / 1000000000);
            deadline.tv_nsec = static_cast<long>(ns % 1000000000);
        }
        // With a bitset the deadline is a time of the steady clock; without, it would be a duration.
        while (m_iState.load() == SLEEPING && (::syscall(SYS_futex,
                                                         &m_iState,
                                                         FUTEX_WAIT_BITSET_PRIVATE,
                                                         SLEEPING,
                                                         in_pDeadline != nullptr ? &deadline : nullptr,
                                                         nullptr,
                                                         FUTEX_BITSET_MATCH_ANY) == 0 ||
                                               errno != ETIMEDOUT))
        {
        }
    }
    m_iState.store(SILENT);
}

EventBell::EventBell() : m_iDescriptor(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))
{
}

EventBell::~EventBell()
{
    if (m_iDescriptor >= 0)
    {
        ::close(m_iDescriptor);
    }
}

void EventBell::ring()
{
    // It fails when the counter is full: then it is readable anyway.
    const std::uint64_t ui64One = 1;
    static_cast<void>(::write(m_iDescriptor, &ui64One, sizeof ui64One) > 0);
}

bool EventBell::clear()
{
    std::uint64_t ui64Count = 0;
    return ::read(m_iDescriptor, &ui64Count, sizeof ui64Count) > 0;
}

}  // namespace Quorvex
