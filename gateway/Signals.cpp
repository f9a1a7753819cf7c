#include "Signals.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <system_error>

namespace Quorvex
{

Signals::Signals()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int iSignal : {SIGTERM, SIGINT, SIGHUP})
    {
        sigaddset(&set, iSignal);
    }
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    // A peer that closes its connection, and a file that may not grow, are told by the write that fails.
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, nullptr);
    sigaction(SIGXFSZ, &ignore, nullptr);
    m_iSignalFd = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    m_iWakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (m_iSignalFd < 0 || m_iWakeFd < 0)
    {
        throw std::system_error(errno, std::generic_category(), "signalfd");
    }
}

Signals::~Signals()
{
    close(m_iSignalFd);
    close(m_iWakeFd);
}

Signals::Event Signals::wait(std::optional<std::chrono::steady_clock::time_point> in_deadline)
{
    for (;;)
    {
        signalfd_siginfo info{};
        if (read(m_iSignalFd, &info, sizeof info) == static_cast<ssize_t>(sizeof info))
        {
            return info.ssi_signo == SIGHUP ? Event::RELOAD : Event::STOP;
        }
        std::uint64_t count = 0;
        if (read(m_iWakeFd, &count, sizeof count) == static_cast<ssize_t>(sizeof count))
        {
            return Event::WOKEN;
        }
        int iTimeoutMs = -1;
        if (in_deadline.has_value())
        {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                *in_deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0)
            {
                return Event::TIMEOUT;
            }
            iTimeoutMs = static_cast<int>(std::min<std::int64_t>(left.count() + 1, 3600000));
        }
        pollfd fds[] = {
            {m_iSignalFd, POLLIN, 0},
            {m_iWakeFd,   POLLIN, 0}
        };
        poll(fds, 2, iTimeoutMs);
    }
}

void Signals::wake()
{
    const std::uint64_t one = 1;
    // Cannot fail but when the counter is full, and then a wake-up is under way.
    static_cast<void>(!write(m_iWakeFd, &one, sizeof one));
}

}  // namespace Quorvex
