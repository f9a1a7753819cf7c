#pragma once

#include <ace/Activation_Queue.h>
#include <ace/Message_Queue.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>

#include "infra/Bell.h"

class ACE_Method_Request;

namespace Quorvex
{

/// The message queue below a task's activation queue. Never full, so that it never blocks the thread that
/// offers something; strictly first in, first out, since a call's method objects must not overtake each
/// other; its waits follow the steady clock, since a task's timers must not follow corrections of the time of
/// day.
class TaskMessageQueue final : public ACE_Message_Queue<ACE_MT_SYNCH>
{
public:
    using Clock = std::chrono::steady_clock;

    TaskMessageQueue();
    TaskMessageQueue(const TaskMessageQueue&) = delete;
    TaskMessageQueue& operator=(const TaskMessageQueue&) = delete;
    ~TaskMessageQueue() override;

    /// Returns the number of messages, or -1 when the queue is deactivated. The priority and the time-out are
    /// ignored.
    int enqueue_prio(ACE_Message_Block* in_pItem, ACE_Time_Value* in_pTimeout = nullptr) override;
    int enqueue_tail(ACE_Message_Block* in_pItem, ACE_Time_Value* in_pTimeout = nullptr) override;
    int enqueue(ACE_Message_Block* in_pItem, ACE_Time_Value* in_pTimeout = nullptr) override;
    int dequeue_head(ACE_Message_Block*& out_pItem, ACE_Time_Value* in_pTimeout = nullptr) override;
    int dequeue(ACE_Message_Block*& out_pItem, ACE_Time_Value* in_pTimeout = nullptr) override;
    bool is_full() override { return false; }
    bool is_empty() override { return message_count() == 0; }
    size_t message_count() override { return m_uiCount.load(std::memory_order_relaxed); }
    int deactivate() override;
    int activate() override;

    /// Moves all messages behind the caller's, waiting for one until the deadline (null: for ever). One
    /// consumer. The messages count as queued until taken() says otherwise.
    void takeAll(std::deque<ACE_Message_Block*>& io_messages, const Clock::time_point* in_pDeadline);
    /// One of the messages of takeAll has been dealt with.
    void taken() { m_uiCount.fetch_sub(1, std::memory_order_relaxed); }

private:
    void waitForMessage(std::unique_lock<std::mutex>& io_lock,
                        const Clock::time_point* in_pDeadline,
                        bool in_bEvenRefusing);

    std::mutex m_mutex;
    std::deque<ACE_Message_Block*> m_messages;
    std::atomic<std::size_t> m_uiCount{0};
    // Rung for the first message that comes while the consumer waits.
    const std::shared_ptr<FutexBell> m_pBell = std::make_shared<FutexBell>();
    bool m_bWaiting = false;
    bool m_bRefusing = false;
};

/// A task's activation queue. Any thread offers; one thread runs. Method objects that were never run are
/// deleted with the queue.
class TaskQueue final
{
public:
    using Clock = TaskMessageQueue::Clock;

    TaskQueue() : m_queue(&m_messageQueue) {}
    TaskQueue(const TaskQueue&) = delete;
    TaskQueue& operator=(const TaskQueue&) = delete;
    ~TaskQueue();

    ACE_Activation_Queue& getQueue() { return m_queue; }

    /// How many method objects wait, the one that is running included: the load of an atomic.
    std::size_t length() { return m_messageQueue.message_count(); }

    /// The next method object, waiting for it until the deadline (null: for ever); null when the deadline
    /// passed. The caller deletes it. Rings the bells of the thread's batch before it waits, and now and
    /// then.
    ACE_Method_Request* next(const Clock::time_point* in_pDeadline);

    /// What next() gave has been run.
    void done() { m_messageQueue.taken(); }

    /// From now on every method object is refused, or accepted again.
    void refuse() { m_messageQueue.deactivate(); }
    void accept() { m_messageQueue.activate(); }

private:
    TaskMessageQueue m_messageQueue;
    ACE_Activation_Queue m_queue;
    // Taken from the message queue in one go, run one by one.
    std::deque<ACE_Message_Block*> m_batch;
    unsigned m_uiSinceRing = 0;
};

}  // namespace Quorvex
