#include "CommandQueue.h"

namespace Quorvex
{

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
        Bell::ringWithBatch(m_pBell);
    }
    return true;
}

void CommandQueue::take(std::vector<std::unique_ptr<MediaCommand>>& out_vCommands)
{
    static_cast<void>(m_pBell->clear());
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
