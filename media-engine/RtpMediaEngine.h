#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "CommandQueue.h"
#include "EngineConfig.h"
#include "FileCache.h"
#include "media/CTBusTonePlayerFactory.h"
#include "media/MediaEngine.h"
#include "media/MediaStatistics.h"
#include "thread/ManageableTaskImplBase.h"

namespace Quorvex
{

class MediaThread;

/// The RTP media engine: a managed task whose thread is a MediaThread. Any thread.
class RtpMediaEngine final : public virtual MediaEngine,
                             public ManageableTaskImplBase,
                             public virtual CTBusTonePlayerFactory,
                             public virtual MediaStatisticsSource
{
public:
    RtpMediaEngine();
    RtpMediaEngine(const RtpMediaEngine&) = delete;
    RtpMediaEngine& operator=(const RtpMediaEngine&) = delete;
    /// Kills the task if it runs.
    ~RtpMediaEngine() override;

    /// False, with one line logged at ERROR, when a key is wrong.
    bool configure(const TSHandle<ROConfiguration>& in_hConfig) override;

    bool start() override;
    bool stop() override;
    bool kill() override { return stop(); }
    bool waitUntilDone() override;

    std::string generateEptId() override;
    MediaEndpoint* createIdentifiedEndpoint(MediaEndpointCallback* in_pCallback,
                                            const std::string& in_strCallId,
                                            const std::string& in_strEptId,
                                            MediaEndpointSpec* in_pSpec) override;
    MediaEndpoint* createEndpoint(MediaEndpointCallback* in_pCallback,
                                  const std::string& in_strCallId,
                                  MediaEndpointSpec* in_pSpec) override;

    bool attachEcho(const std::string& in_strCallId) override;
    bool attachFile(const std::string& in_strCallId,
                    const std::string& in_strPath,
                    bool in_bRepeat,
                    std::string& out_strError) override;
    bool attachTone(const std::string& in_strCallId, const ToneDescription& in_tone) override;
    bool detach(const std::string& in_strCallId) override;
    bool sendDigits(const std::string& in_strCallId,
                    const std::string& in_strDigits,
                    unsigned in_uiDurationMs) override;

    void setMediaObserver(LimitedObjPtr<MediaObserver> in_pObserver) override;
    std::vector<StreamStatistics> getStreamStatistics(const std::string& in_strCallId) override;
    MediaTotals getTotals() override;
    bool ping(const std::function<void()>& in_done) override;

private:
    /// Runs a callable on the media thread and waits for it; false when no thread runs.
    template <class F>
    bool runOnThread(F in_function);
    void threadMain();

    EngineConfig m_config;
    const CommandQueuePtr m_pQueue;
    FileCache m_files;
    std::atomic<std::uint32_t> m_uiNextEndpoint{1};
    std::atomic<std::uint32_t> m_uiNextEptId{1};

    // Guards what follows: starting, ending and waiting.
    std::mutex m_mutex;
    std::condition_variable m_ended;
    bool m_bRunning = false;
    std::thread m_thread;
    std::thread::id m_threadId;
    LimitedObjPtr<MediaObserver> m_pObserver;
    MediaTotals m_totals;  // as asked for last
};

}  // namespace Quorvex
