#pragma once

#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "infra/Bell.h"
#include "infra/CountedObjPtr.h"
#include "infra/MemAccount.h"

namespace Quorvex
{

class MediaThread;

/// Something another thread wants done on the media thread. Deleted without being run when the thread has
/// ended.
class MediaCommand
{
public:
    QUORVEX_MEM_ACCOUNT("MediaCommand");

    MediaCommand() = default;
    MediaCommand(const MediaCommand&) = delete;
    MediaCommand& operator=(const MediaCommand&) = delete;
    virtual ~MediaCommand() = default;
    virtual void run(MediaThread& io_thread) = 0;
};

/// The media thread's queue. Any thread posts; the media thread drains. It outlives the thread, since
/// endpoints hold it, and is opened and closed with it.
class CommandQueue
{
public:
    CommandQueue() = default;
    CommandQueue(const CommandQueue&) = delete;
    CommandQueue& operator=(const CommandQueue&) = delete;

    /// False when the queue is closed; the command is deleted then.
    bool post(std::unique_ptr<MediaCommand> in_pCommand);
    /// Posts a callable that takes the media thread.
    template <class F>
    bool post(F in_function)
    {
        return post(
            std::unique_ptr<MediaCommand>(std::make_unique<FunctionCommand<F>>(std::move(in_function))));
    }

    /// Becomes readable when something was posted.
    int getWakeDescriptor() const { return m_pBell->getDescriptor(); }
    /// Takes what was posted; leaves the descriptor unreadable.
    void take(std::vector<std::unique_ptr<MediaCommand>>& out_vCommands);

    void open();
    /// Refuses from now on; what was posted before is deleted.
    void close();

private:
    template <class F>
    class FunctionCommand final : public MediaCommand
    {
    public:
        explicit FunctionCommand(F in_function) : m_function(std::move(in_function)) {}
        void run(MediaThread& io_thread) override { m_function(io_thread); }

    private:
        F m_function;
    };

    const std::shared_ptr<EventBell> m_pBell = std::make_shared<EventBell>();
    std::mutex m_mutex;
    std::vector<std::unique_ptr<MediaCommand>> m_vCommands;
    bool m_bOpen = false;
};

using CommandQueuePtr = CountedObjPtr<CommandQueue, TSReferenceCount>;

}  // namespace Quorvex
