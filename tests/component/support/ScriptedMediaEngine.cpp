#include "ScriptedMediaEngine.h"

#include <atomic>
#include <map>
#include <mutex>
#include <utility>

#include "Job_MO.h"
#include "media/MediaEndpointCapacity.h"

namespace Quorvex::Test
{

namespace
{

std::atomic<ScriptedMediaEngine*> s_pCurrent{nullptr};

}  // namespace

/// What the engine and its endpoints share, since endpoints may be deleted after the engine.
struct ScriptedMediaEngine::Shared
{
    struct State
    {
        std::vector<Request> m_vRequests;
        std::map<std::uint32_t, std::shared_ptr<MediaEndpointCallback>> m_callbacks;
        std::uint32_t m_uiLastEndpoint = 0;
        std::uint32_t m_uiLastEptId = 0;
        Answer m_answer = &ScriptedMediaEngine::answerWithSuccess;
    };
    Awaited<State> m_state;
    std::mutex m_engineMutex;
    ScriptedMediaEngine* m_pEngine = nullptr;

    /// Runs a job on the engine's thread; here, when there is no engine any more.
    void post(std::function<void()> in_job)
    {
        const std::lock_guard lock(m_engineMutex);
        if (m_pEngine != nullptr && m_pEngine->getTaskState() != Task::STOPPED_STATE)
        {
            m_pEngine->enqueue(new Job_MO(std::move(in_job)), "ScriptedMediaEngine");
            return;
        }
        in_job();
    }

    std::shared_ptr<MediaEndpointCallback> find(std::uint32_t in_uiEndpoint)
    {
        return m_state.read(
            [&](const State& in_state)
            {
                const auto found = in_state.m_callbacks.find(in_uiEndpoint);
                return found == in_state.m_callbacks.end() ? nullptr : found->second;
            });
    }

    static void ask(const std::shared_ptr<Shared>& in_pShared, const Request& in_request)
    {
        in_pShared->m_state.change([&](State& io_state) { io_state.m_vRequests.push_back(in_request); });
        in_pShared->post(
            [pShared = in_pShared, request = in_request]
            {
                const auto pCallback = pShared->find(request.m_uiEndpoint);
                const Answer answer =
                    pShared->m_state.read([](const State& in_state) { return in_state.m_answer; });
                if (pCallback != nullptr && answer != nullptr)
                {
                    answer(request, *pCallback);
                }
            });
    }
};

class ScriptedMediaEngine::Endpoint final : public MediaEndpoint
{
public:
    Endpoint(std::shared_ptr<Shared> in_pShared, Request in_request)
        : m_pShared(std::move(in_pShared)), m_request(std::move(in_request))
    {
    }
    Endpoint(const Endpoint&) = delete;
    Endpoint& operator=(const Endpoint&) = delete;
    ~Endpoint() override
    {
        m_request.m_strOperation = "delete";
        m_pShared->m_state.change([this](Shared::State& io_state)
                                  { io_state.m_vRequests.push_back(m_request); });
        m_pShared->post(
            [pShared = m_pShared, uiEndpoint = m_request.m_uiEndpoint]
            {
                // Deleted outside the lock: it calls the network interface's queue.
                const auto pCallback = pShared->find(uiEndpoint);
                pShared->m_state.change([&](Shared::State& io_state)
                                        { io_state.m_callbacks.erase(uiEndpoint); });
            });
    }

    bool configure(Direction in_direction, const MediaEndpointConfig&) override
    {
        return ask("configure", in_direction);
    }
    bool start(Direction in_direction) override { return ask("start", in_direction); }
    bool stop(Direction in_direction) override { return ask("stop", in_direction); }

private:
    bool ask(const char* in_szOperation, Direction in_direction)
    {
        Request request = m_request;
        request.m_strOperation = in_szOperation;
        request.m_direction = in_direction;
        Shared::ask(m_pShared, request);
        return true;
    }

    const std::shared_ptr<Shared> m_pShared;
    Request m_request;
};

ScriptedMediaEngine::ScriptedMediaEngine()
    : UserDefHandlerTaskManager("Scripted Media Engine"), m_pShared(std::make_shared<Shared>())
{
    m_pShared->m_pEngine = this;
    s_pCurrent = this;
}

ScriptedMediaEngine::~ScriptedMediaEngine()
{
    ScriptedMediaEngine* pThis = this;
    s_pCurrent.compare_exchange_strong(pThis, nullptr);
    const std::lock_guard lock(m_pShared->m_engineMutex);
    m_pShared->m_pEngine = nullptr;
}

ScriptedMediaEngine* ScriptedMediaEngine::current()
{
    return s_pCurrent;
}

void ScriptedMediaEngine::onSvcExit()
{
    // The engine's end is the end of the reports; callbacks of endpoints that are still held go now.
    std::map<std::uint32_t, std::shared_ptr<MediaEndpointCallback>> callbacks;
    m_pShared->m_state.change([&](Shared::State& io_state) { callbacks.swap(io_state.m_callbacks); });
}

void ScriptedMediaEngine::setAnswer(Answer in_answer)
{
    m_pShared->m_state.change([&](Shared::State& io_state)
                              { io_state.m_answer = in_answer ? std::move(in_answer) : &answerWithSuccess; });
}

void ScriptedMediaEngine::answerWithSuccess(const Request& in_request, MediaEndpointCallback& io_callback)
{
    constexpr auto eOK = MediaEndpointCallback::SUCCESS_STATUS;
    if (in_request.m_strOperation == "configure")
    {
        io_callback.configureStatus(in_request.m_direction, eOK);
    }
    else if (in_request.m_strOperation == "start")
    {
        io_callback.startStatus(in_request.m_direction, eOK);
    }
    else if (in_request.m_strOperation == "stop")
    {
        io_callback.stopStatus(in_request.m_direction, eOK);
    }
    else
    {
        auto pCapacity = std::make_unique<MediaEndpointCapacity>();
        pCapacity->set(MediaEndpointCapacity::IPV4_ADDRESS, "127.0.0.1");
        pCapacity->set(MediaEndpointCapacity::UDP_PORT, 16384 + 2 * (in_request.m_uiEndpoint % 8000));
        pCapacity->set(MediaEndpointCapacity::PAYLOAD_TYPE, std::vector<unsigned>{0, 8});
        pCapacity->set(MediaEndpointCapacity::PAYLOAD_SIZE, std::vector<unsigned>{20});
        pCapacity->set(MediaEndpointCapacity::RFC2833_SUPPORT, MediaValue(true));
        pCapacity->set(MediaEndpointCapacity::RFC2833_PAYLOAD_TYPE, 101U);
        io_callback.setCapacity(MediaEndpoint::RX_DIRECTION, pCapacity.release());
    }
}

std::vector<ScriptedMediaEngine::Request> ScriptedMediaEngine::getRequests() const
{
    return m_pShared->m_state.read([](const Shared::State& in_state) { return in_state.m_vRequests; });
}

std::size_t ScriptedMediaEngine::count(const std::string& in_strOperation) const
{
    std::size_t count = 0;
    for (const Request& request : getRequests())
    {
        count += request.m_strOperation == in_strOperation ? 1 : 0;
    }
    return count;
}

bool ScriptedMediaEngine::waitForRequests(const std::string& in_strOperation, std::size_t in_count) const
{
    return m_pShared->m_state.waitFor(
        [&](const Shared::State& in_state)
        {
            std::size_t count = 0;
            for (const Request& request : in_state.m_vRequests)
            {
                count += request.m_strOperation == in_strOperation ? 1 : 0;
            }
            return count >= in_count;
        });
}

void ScriptedMediaEngine::report(std::uint32_t in_uiEndpoint,
                                 std::function<void(MediaEndpointCallback&)> in_report)
{
    m_pShared->post(
        [pShared = m_pShared, in_uiEndpoint, report = std::move(in_report)]
        {
            if (const auto pCallback = pShared->find(in_uiEndpoint); pCallback != nullptr)
            {
                report(*pCallback);
            }
        });
}

std::size_t ScriptedMediaEngine::getNumCallbacks() const
{
    return m_pShared->m_state.read([](const Shared::State& in_state) { return in_state.m_callbacks.size(); });
}

std::string ScriptedMediaEngine::generateEptId()
{
    return m_pShared->m_state.change([](Shared::State& io_state)
                                     { return "ept-" + std::to_string(++io_state.m_uiLastEptId); });
}

MediaEndpoint* ScriptedMediaEngine::createIdentifiedEndpoint(MediaEndpointCallback* in_pCallback,
                                                             const std::string& in_strCallId,
                                                             const std::string& in_strEptId,
                                                             MediaEndpointSpec* in_pSpec)
{
    Request request{
        "createIdentified", 0, in_strCallId, in_strEptId, in_pSpec->getType(), MediaEndpoint::NO_DIRECTION};
    return create(in_pCallback, std::move(request), in_pSpec);
}

MediaEndpoint* ScriptedMediaEngine::createEndpoint(MediaEndpointCallback* in_pCallback,
                                                   const std::string& in_strCallId,
                                                   MediaEndpointSpec* in_pSpec)
{
    Request request{"create", 0, in_strCallId, "", in_pSpec->getType(), MediaEndpoint::NO_DIRECTION};
    if (const auto* pRedirect = dynamic_cast<const RedirectRxEndpointSpec*>(in_pSpec))
    {
        request.m_strEptId = pRedirect->getEptId();
    }
    if (const auto* pFork = dynamic_cast<const ForkTxEndpointSpec*>(in_pSpec))
    {
        request.m_strEptId = pFork->getEptId();
    }
    return create(in_pCallback, std::move(request), in_pSpec);
}

MediaEndpoint* ScriptedMediaEngine::create(MediaEndpointCallback* in_pCallback,
                                           Request in_request,
                                           MediaEndpointSpec* in_pSpec)
{
    delete in_pSpec;
    std::shared_ptr<MediaEndpointCallback> pCallback(in_pCallback);
    if (getTaskState() != Task::RUNNING_STATE)
    {
        return nullptr;
    }
    m_pShared->m_state.change(
        [&](Shared::State& io_state)
        {
            in_request.m_uiEndpoint = ++io_state.m_uiLastEndpoint;
            io_state.m_callbacks[in_request.m_uiEndpoint] = std::move(pCallback);
        });
    Shared::ask(m_pShared, in_request);
    return new Endpoint(m_pShared, in_request);
}

}  // namespace Quorvex::Test
