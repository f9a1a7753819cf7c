#include "RtpMediaEngine.h"

#include <chrono>
#include <future>
#include <utility>

#include "AudioSource.h"
#include "EndpointHandle.h"
#include "MediaThread.h"
#include "infra/Assertion.h"
#include "infra/Bell.h"
#include "infra/ThreadName.h"
#include "media/MediaEndpointCallback.h"

namespace Quorvex
{

namespace
{

const StaticLogger s_logger("quorvex.media.RtpMediaEngine");

}  // namespace

RtpMediaEngine::RtpMediaEngine() : ManageableTaskImplBase("RTP media engine"), m_pQueue(new CommandQueue())
{
}

RtpMediaEngine::~RtpMediaEngine()
{
    RtpMediaEngine::stop();
    Bell::Batch::ring();
    if (m_thread.joinable())
    {
        m_thread.join();
    }
}

bool RtpMediaEngine::configure(const TSHandle<ROConfiguration>& in_hConfig)
{
    if (!ManageableTaskImplBase::configure(in_hConfig))
    {
        return false;
    }
    std::string strError;
    if (!m_config.read(*in_hConfig, strError))
    {
        QLOG_ERROR(s_logger, strError);
        return false;
    }
    for (const std::string& strWarning : {m_config.checkEphemeralPorts(), m_config.raiseDescriptorLimit()})
    {
        if (!strWarning.empty())
        {
            QLOG_WARN(s_logger, strWarning);
        }
    }
    return true;
}

bool RtpMediaEngine::start()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_bRunning || m_config.m_strLocalAddress.empty())
        {
            return false;
        }
        if (m_thread.joinable())
        {
            m_thread.join();
        }
        m_bRunning = true;
        m_pQueue->open();
    }
    setTaskState(STARTING_STATE);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_thread = std::thread([this] { threadMain(); });
    m_threadId = m_thread.get_id();
    return true;
}

void RtpMediaEngine::threadMain()
{
    nameThisThread("rtp-media");
    {
        // The loop is large: on the heap, and as old as the run.
        const auto pThread = std::make_unique<MediaThread>(m_config, m_pQueue);
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            pThread->setObserver(m_pObserver);
        }
        changeTaskState(STARTING_STATE, RUNNING_STATE);
        pThread->run();
    }
    setTaskState(STOPPED_STATE);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_bRunning = false;
    m_ended.notify_all();
}

bool RtpMediaEngine::stop()
{
    if (!changeTaskState(RUNNING_STATE, STOPPING_STATE) && !changeTaskState(STARTING_STATE, STOPPING_STATE))
    {
        return false;
    }
    return m_pQueue->post([](MediaThread& io_thread) { io_thread.requestStop(); });
}

bool RtpMediaEngine::waitUntilDone()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_bRunning && m_threadId == std::this_thread::get_id())
    {
        return false;
    }
    Bell::Batch::ring();
    m_ended.wait(lock, [this] { return !m_bRunning; });
    return true;
}

std::string RtpMediaEngine::generateEptId()
{
    return "rtp-" + std::to_string(m_uiNextEptId.fetch_add(1, std::memory_order_relaxed));
}

MediaEndpoint* RtpMediaEngine::createIdentifiedEndpoint(MediaEndpointCallback* in_pCallback,
                                                        const std::string& in_strCallId,
                                                        const std::string& in_strEptId,
                                                        MediaEndpointSpec* in_pSpec)
{
    std::unique_ptr<MediaEndpointCallback> pCallback(in_pCallback);
    const std::unique_ptr<MediaEndpointSpec> pSpec(in_pSpec);
    if (!QUORVEX_ASSERT(s_logger, pCallback != nullptr) || !QUORVEX_ASSERT(s_logger, pSpec != nullptr) ||
        !QUORVEX_ASSERT(s_logger, !in_strCallId.empty()))
    {
        return nullptr;
    }
    RtpEndpoint::Identity identity;
    identity.m_uiId = m_uiNextEndpoint.fetch_add(1, std::memory_order_relaxed);
    identity.m_strCallId = in_strCallId;
    identity.m_strEptId = in_strEptId;
    identity.m_type = pSpec->getType();
    if (const auto* pRedirect = dynamic_cast<const RedirectRxEndpointSpec*>(pSpec.get()))
    {
        identity.m_strTargetId = pRedirect->getEptId();
    }
    else if (const auto* pFork = dynamic_cast<const ForkTxEndpointSpec*>(pSpec.get()))
    {
        identity.m_strTargetId = pFork->getEptId();
    }
    auto pHandle = std::make_unique<EndpointHandle>(m_pQueue, identity.m_uiId);
    const bool bPosted = m_pQueue->post(
        [identity = std::move(identity), pCallback = std::move(pCallback)](MediaThread& io_thread) mutable
        { io_thread.createEndpoint(std::move(identity), std::move(pCallback)); });
    if (!bPosted)
    {
        QLOG_WARN(s_logger, "no endpoint for call " << in_strCallId << ": the media engine does not run");
        return nullptr;
    }
    return pHandle.release();
}

MediaEndpoint* RtpMediaEngine::createEndpoint(MediaEndpointCallback* in_pCallback,
                                              const std::string& in_strCallId,
                                              MediaEndpointSpec* in_pSpec)
{
    return createIdentifiedEndpoint(in_pCallback, in_strCallId, std::string(), in_pSpec);
}

bool RtpMediaEngine::attachEcho(const std::string& in_strCallId)
{
    return m_pQueue->post([in_strCallId](MediaThread& io_thread) { io_thread.attachEcho(in_strCallId); });
}

bool RtpMediaEngine::attachFile(const std::string& in_strCallId,
                                const std::string& in_strPath,
                                bool in_bRepeat,
                                std::string& out_strError)
{
    std::shared_ptr<const SampleVector> pSamples = m_files.load(in_strPath, out_strError);
    if (pSamples == nullptr)
    {
        return false;
    }
    const bool bPosted = m_pQueue->post(
        [in_strCallId, pRecipe = makeFileRecipe(std::move(pSamples), in_bRepeat)](MediaThread& io_thread)
        { io_thread.attach(in_strCallId, pRecipe); });
    if (!bPosted)
    {
        out_strError = "the media engine does not run";
    }
    return bPosted;
}

bool RtpMediaEngine::attachTone(const std::string& in_strCallId, const ToneDescription& in_tone)
{
    AudioRecipePtr pRecipe = makeToneRecipe(in_tone);
    return pRecipe != nullptr &&
           m_pQueue->post([in_strCallId, pRecipe = std::move(pRecipe)](MediaThread& io_thread)
                          { io_thread.attach(in_strCallId, pRecipe); });
}

bool RtpMediaEngine::detach(const std::string& in_strCallId)
{
    return m_pQueue->post([in_strCallId](MediaThread& io_thread) { io_thread.detach(in_strCallId); });
}

bool RtpMediaEngine::sendDigits(const std::string& in_strCallId,
                                const std::string& in_strDigits,
                                unsigned in_uiDurationMs)
{
    for (const char cDigit : in_strDigits)
    {
        if (TelephoneEvent::codeOf(cDigit) < 0)
        {
            return false;
        }
    }
    return m_pQueue->post([in_strCallId, in_strDigits, in_uiDurationMs](MediaThread& io_thread)
                          { io_thread.sendDigits(in_strCallId, in_strDigits, in_uiDurationMs); });
}

template <class F>
bool RtpMediaEngine::runOnThread(F in_function)
{
    std::promise<void> done;
    std::future<void> future = done.get_future();
    const bool bPosted = m_pQueue->post(
        [&in_function, done = std::move(done)](MediaThread& io_thread) mutable
        {
            in_function(io_thread);
            done.set_value();
        });
    if (!bPosted)
    {
        return false;
    }
    Bell::Batch::ring();
    try
    {
        future.get();
        return true;
    }
    catch (const std::future_error&)
    {
        // The thread ended before it came to it.
        return false;
    }
}

void RtpMediaEngine::setMediaObserver(LimitedObjPtr<MediaObserver> in_pObserver)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_pObserver = in_pObserver;
    }
    runOnThread([in_pObserver](MediaThread& io_thread) { io_thread.setObserver(in_pObserver); });
}

std::vector<StreamStatistics> RtpMediaEngine::getStreamStatistics(const std::string& in_strCallId)
{
    std::vector<StreamStatistics> vStatistics;
    runOnThread([&](MediaThread& io_thread) { vStatistics = io_thread.getStatistics(in_strCallId); });
    return vStatistics;
}

bool RtpMediaEngine::ping(const std::function<void()>& in_done)
{
    return m_pQueue->post([done = in_done](MediaThread&) { done(); });
}

MediaTotals RtpMediaEngine::getTotals()
{
    // Who asks serves others too, and must not wait for a thread that stands still.
    std::promise<MediaTotals> result;
    std::future<MediaTotals> future = result.get_future();
    const bool bPosted = m_pQueue->post([result = std::move(result)](MediaThread& io_thread) mutable
                                        { result.set_value(io_thread.getTotals()); });
    if (!bPosted)
    {
        return MediaTotals();
    }
    Bell::Batch::ring();
    const bool bReady = future.wait_for(std::chrono::seconds(1)) == std::future_status::ready;
    const std::lock_guard<std::mutex> lock(m_mutex);
    try
    {
        m_totals = bReady ? future.get() : m_totals;
    }
    catch (const std::future_error&)
    {
        // The thread ended before it came to it.
    }
    return m_totals;
}

}  // namespace Quorvex
