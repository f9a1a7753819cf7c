#include "CommandQueue.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

namespace Quorvex
{

CommandQueue::CommandQueue() : m_iWake(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))
{
}

CommandQueue::~CommandQueue()
{
    if (m_iWake >= 0)
    {
        ::close(m_iWake);
    }
}

bool CommandQueue::post(std::unique_ptr<MediaCommand> in_pCommand)
{
    bool bWake = false;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_bOpen)
        {
            return false;
        }
        bWake = m_vCommands.empty();
        m_vCommands.push_back(std::move(in_pCommand));
    }
    if (bWake)
    {
        const std::uint64_t ui64One = 1;
        static_cast<void>(::write(m_iWake, &ui64One, sizeof ui64One));
    }
    return true;
}

void CommandQueue::take(std::vector<std::unique_ptr<MediaCommand>>& out_vCommands)
{
    std::uint64_t ui64Count = 0;
    static_cast<void>(::read(m_iWake, &ui64Count, sizeof ui64Count));
    const std::lock_guard<std::mutex> lock(m_mutex);
    out_vCommands.swap(m_vCommands);
}

void CommandQueue::open()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_bOpen = true;
}

void CommandQueue::close()
{
    std::vector<std::unique_ptr<MediaCommand>> vRefused;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_bOpen = false;
    vRefused.swap(m_vCommands);
}

}  // namespace Quorvex
