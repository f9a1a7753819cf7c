#include "thread/TaskQueue.h"

#include <ace/Message_Block.h>
#include <ace/Method_Request.h>
#include <ace/OS_NS_sys_time.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <memory>
#include <utility>

namespace Quorvex
{

namespace
{
// How an activation queue wraps a method object.
ACE_Method_Request* unwrap(ACE_Message_Block* in_pItem)
{
    auto* const pMethodObject = reinterpret_cast<ACE_Method_Request*>(in_pItem->base());
    in_pItem->release();
    return pMethodObject;
}
}  // namespace

TaskMessageQueue::TaskMessageQueue()
    : ACE_Message_Queue<ACE_MT_SYNCH>(std::numeric_limits<std::size_t>::max(),
                                      std::numeric_limits<std::size_t>::max())
{
}

TaskMessageQueue::~TaskMessageQueue()
{
    for (ACE_Message_Block* pItem : m_messages)
    {
        pItem->release();
    }
}

int TaskMessageQueue::enqueue_prio(ACE_Message_Block* in_pItem, ACE_Time_Value* /*in_pTimeout*/)
{
    bool bWake = false;
    int iCount = 0;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_bRefusing)
        {
            errno = ESHUTDOWN;
            return -1;
        }
        m_messages.push_back(in_pItem);
        iCount = static_cast<int>(m_uiCount.fetch_add(1, std::memory_order_relaxed) + 1);
        bWake = std::exchange(m_bWaiting, false);
    }
    if (bWake)
    {
        Bell::ringWithBatch(m_pBell);
    }
    return iCount;
}

int TaskMessageQueue::enqueue_tail(ACE_Message_Block* in_pItem, ACE_Time_Value* in_pTimeout)
{
    return enqueue_prio(in_pItem, in_pTimeout);
}

int TaskMessageQueue::enqueue(ACE_Message_Block* in_pItem, ACE_Time_Value* in_pTimeout)
{
    return enqueue_prio(in_pItem, in_pTimeout);
}

int TaskMessageQueue::dequeue_head(ACE_Message_Block*& out_pItem, ACE_Time_Value* in_pTimeout)
{
    Clock::time_point deadline;
    if (in_pTimeout != nullptr)
    {
        // ACE's deadline is a time of day.
        const ACE_Time_Value left = *in_pTimeout - ACE_OS::gettimeofday();
        deadline = Clock::now() + std::chrono::seconds(left.sec()) + std::chrono::microseconds(left.usec());
    }
    std::unique_lock<std::mutex> lock(m_mutex);
    waitForMessage(lock, in_pTimeout != nullptr ? &deadline : nullptr, false);
    if (m_messages.empty())
    {
        errno = m_bRefusing ? ESHUTDOWN : EWOULDBLOCK;
        return -1;
    }
    out_pItem = m_messages.front();
    m_messages.pop_front();
    return static_cast<int>(m_uiCount.fetch_sub(1, std::memory_order_relaxed) - 1);
}

int TaskMessageQueue::dequeue(ACE_Message_Block*& out_pItem, ACE_Time_Value* in_pTimeout)
{
    return dequeue_head(out_pItem, in_pTimeout);
}

int TaskMessageQueue::deactivate()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const int iFormer = m_bRefusing ? DEACTIVATED : ACTIVATED;
    m_bRefusing = true;
    m_pBell->ring();
    return iFormer;
}

int TaskMessageQueue::activate()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const int iFormer = m_bRefusing ? DEACTIVATED : ACTIVATED;
    m_bRefusing = false;
    return iFormer;
}

void TaskMessageQueue::waitForMessage(std::unique_lock<std::mutex>& io_lock,
                                      const Clock::time_point* in_pDeadline,
                                      bool in_bEvenRefusing)
{
    while (m_messages.empty() && (in_bEvenRefusing || !m_bRefusing) &&
           (in_pDeadline == nullptr || Clock::now() < *in_pDeadline))
    {
        // Set anew for each wait: a wake-up clears it.
        m_bWaiting = true;
        io_lock.unlock();
        m_pBell->wait(in_pDeadline);
        io_lock.lock();
    }
    m_bWaiting = false;
}

void TaskMessageQueue::takeAll(std::deque<ACE_Message_Block*>& io_messages,
                               const Clock::time_point* in_pDeadline)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    waitForMessage(lock, in_pDeadline, true);
    if (io_messages.empty())
    {
        io_messages.swap(m_messages);
        return;
    }
    io_messages.insert(io_messages.end(), m_messages.begin(), m_messages.end());
    m_messages.clear();
}

TaskQueue::~TaskQueue()
{
    const Clock::time_point past = Clock::time_point();
    m_messageQueue.takeAll(m_batch, &past);
    for (ACE_Message_Block* pItem : m_batch)
    {
        delete unwrap(pItem);
    }
}

ACE_Method_Request* TaskQueue::next(const Clock::time_point* in_pDeadline)
{
    // A long batch must not keep the others waiting.
    constexpr unsigned kMostBeforeRing = 16;
    if (m_batch.empty() || ++m_uiSinceRing >= kMostBeforeRing)
    {
        m_uiSinceRing = 0;
        Bell::Batch::ring();
    }
    if (m_batch.empty())
    {
        m_messageQueue.takeAll(m_batch, in_pDeadline);
        if (m_batch.empty())
        {
            return nullptr;
        }
    }
    ACE_Message_Block* const pItem = m_batch.front();
    m_batch.pop_front();
    return unwrap(pItem);
}

}  // namespace Quorvex
