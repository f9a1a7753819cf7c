#include "ScriptedCallEngine.h"

#include <future>
#include <utility>

namespace Quorvex::Test
{

/// The engine's side of an inbound call.
class ScriptedCallEngine::In final : public CallInInterface
{
public:
    In(ScriptedCallEngine& in_engine, std::shared_ptr<ScriptedCall> in_pCall)
        : m_engine(in_engine), m_pCall(std::move(in_pCall))
    {
    }
    In(const In&) = delete;
    In& operator=(const In&) = delete;
    ~In() override { m_engine.tell(m_pCall, "gone"); }

    bool invite(const CallLegInfo&) override
    {
        const bool bAccept = m_engine.m_state.read([](const State& in_state) { return in_state.m_bAccept; });
        m_engine.tell(m_pCall, "invite");
        return bAccept;
    }
    bool transfer(const CallLegInfo&) override { return m_engine.tell(m_pCall, "transfer"); }
    void disconnected() override { m_engine.tell(m_pCall, "disconnected"); }
    bool infoReceived(const std::vector<Parameter>&) override { return m_engine.tell(m_pCall, "info"); }

private:
    ScriptedCallEngine& m_engine;
    const std::shared_ptr<ScriptedCall> m_pCall;
};

/// The engine's side of an outbound call.
class ScriptedCallEngine::Out final : public CallOutInterface
{
public:
    Out(ScriptedCallEngine& in_engine, std::shared_ptr<ScriptedCall> in_pCall)
        : m_engine(in_engine), m_pCall(std::move(in_pCall))
    {
    }
    Out(const Out&) = delete;
    Out& operator=(const Out&) = delete;
    ~Out() override { tell("gone"); }

    bool redirected(const CallInfo& in_targets) override
    {
        m_engine.post([pCall = m_pCall, pTargets = std::make_shared<CallInfo>(in_targets)]
                      { pCall->m_targets = *pTargets; });
        return tell("redirected");
    }
    void proceeding() override { tell("proceeding"); }
    void ringing(RingType in_ringType) override { tell("ringing " + std::to_string(in_ringType)); }
    void connectFailed(const ConnectionFailureType& in_failure) override
    {
        tell("connectFailed " + std::to_string(in_failure.getFailure()));
    }
    void connected(Call::ConnectionType in_type) override { tell("connected " + std::to_string(in_type)); }
    void callFailed(const ConnectionFailureType& in_failure) override
    {
        tell("callFailed " + std::to_string(in_failure.getFailure()));
    }
    bool transfer(const CallLegInfo&) override { return tell("transfer"); }
    void disconnected() override { tell("disconnected"); }
    void earlyMedia() override { tell("earlyMedia"); }
    bool infoReceived(const std::vector<Parameter>&) override { return tell("info"); }

private:
    bool tell(const std::string& in_strWhat) { return m_engine.tell(m_pCall, in_strWhat); }

    ScriptedCallEngine& m_engine;
    const std::shared_ptr<ScriptedCall> m_pCall;
};

ScriptedCallEngine::ScriptedCallEngine() : m_thread(&ScriptedCallEngine::svc, this)
{
}

ScriptedCallEngine::~ScriptedCallEngine()
{
    deleteLegs();
    m_state.change([](State& io_state) { io_state.m_bEnd = true; });
    m_thread.join();
}

void ScriptedCallEngine::svc()
{
    for (;;)
    {
        std::vector<std::function<void()>> vJobs;
        bool bEnd = false;
        static_cast<void>(m_state.waitFor([](const State& in_state)
                                          { return !in_state.m_vJobs.empty() || in_state.m_bEnd; },
                                          std::chrono::hours(1)));
        m_state.change(
            [&](State& io_state)
            {
                vJobs.swap(io_state.m_vJobs);
                bEnd = io_state.m_bEnd;
            });
        for (const auto& job : vJobs)
        {
            job();
        }
        if (bEnd && vJobs.empty())
        {
            m_vCalls.clear();
            return;
        }
    }
}

void ScriptedCallEngine::setScript(Script in_script)
{
    m_state.change([&](State& io_state) { io_state.m_script = std::move(in_script); });
}

void ScriptedCallEngine::acceptInvitations(bool in_bAccept)
{
    m_state.change([&](State& io_state) { io_state.m_bAccept = in_bAccept; });
}

void ScriptedCallEngine::takeCalls(bool in_bTake)
{
    m_state.change([&](State& io_state) { io_state.m_bTake = in_bTake; });
}

void ScriptedCallEngine::post(std::function<void()> in_job)
{
    m_state.change([&](State& io_state) { io_state.m_vJobs.push_back(std::move(in_job)); });
}

void ScriptedCallEngine::run(const std::function<void()>& in_job)
{
    std::promise<void> done;
    post(
        [&]
        {
            in_job();
            done.set_value();
        });
    done.get_future().wait();
}

bool ScriptedCallEngine::runWithCall(const std::string& in_strCallId,
                                     const std::function<void(ScriptedCall&)>& in_job)
{
    bool bFound = false;
    run(
        [&]
        {
            const auto found = std::find_if(m_vCalls.begin(),
                                            m_vCalls.end(),
                                            [&](const std::shared_ptr<ScriptedCall>& in_pCall)
                                            { return in_pCall->m_strCallId == in_strCallId; });
            bFound = found != m_vCalls.end();
            if (bFound)
            {
                in_job(**found);
            }
        });
    return bFound;
}

void ScriptedCallEngine::deleteLegs()
{
    run(
        [this]
        {
            for (const auto& pCall : m_vCalls)
            {
                pCall->deleteLeg();
            }
            m_vCalls.clear();
        });
}

void ScriptedCallEngine::placeCall(OutLegEngine& in_engine,
                                   const std::string& in_strCallId,
                                   std::function<void(ScriptedCall&)> in_action)
{
    post(
        [this, &in_engine, in_strCallId, action = std::move(in_action)]
        {
            auto pCall = std::make_shared<ScriptedCall>();
            pCall->m_strCallId = in_strCallId;
            m_vCalls.push_back(pCall);
            m_state.change([&](State& io_state) { io_state.m_vCallIds.push_back(in_strCallId); });
            pCall->m_pLeg.reset(in_engine.getOutCallLeg(new Out(*this, pCall), in_strCallId.c_str()));
            if (action)
            {
                action(*pCall);
            }
        });
}

CallInInterface* ScriptedCallEngine::newInCall(InCallLeg* in_pLeg, const char* in_szCallId)
{
    auto pCall = std::make_shared<ScriptedCall>();
    pCall->m_strCallId = in_szCallId;
    pCall->m_pLeg.reset(in_pLeg);
    const bool bTake = m_state.change(
        [&](State& io_state)
        {
            io_state.m_vCallIds.emplace_back(in_szCallId);
            return io_state.m_bTake;
        });
    post([this, pCall] { m_vCalls.push_back(pCall); });
    tell(pCall, "newInCall");
    return bTake ? new In(*this, pCall) : nullptr;
}

bool ScriptedCallEngine::tell(const std::shared_ptr<ScriptedCall>& in_pCall, const std::string& in_strWhat)
{
    m_state.change(
        [&](State& io_state)
        {
            io_state.m_vTold.push_back({in_pCall->m_strCallId, in_strWhat});
            if (io_state.m_script)
            {
                io_state.m_vJobs.push_back([script = io_state.m_script, in_pCall, in_strWhat]
                                           { script(*in_pCall, in_strWhat); });
            }
        });
    return true;
}

std::vector<std::string> ScriptedCallEngine::getTold(const std::string& in_strCallId) const
{
    return m_state.read(
        [&](const State& in_state)
        {
            std::vector<std::string> vTold;
            for (const Told& told : in_state.m_vTold)
            {
                if (in_strCallId.empty() || told.m_strCallId == in_strCallId)
                {
                    vTold.push_back(told.m_strWhat);
                }
            }
            return vTold;
        });
}

bool ScriptedCallEngine::waitForTold(const std::string& in_strWhat, std::size_t in_count) const
{
    return m_state.waitFor(
        [&](const State& in_state)
        {
            return static_cast<std::size_t>(std::count_if(
                       in_state.m_vTold.begin(),
                       in_state.m_vTold.end(),
                       [&](const Told& in_told) { return in_told.m_strWhat == in_strWhat; })) >= in_count;
        });
}

std::size_t ScriptedCallEngine::count(const std::string& in_strWhat) const
{
    const auto vTold = getTold();
    return static_cast<std::size_t>(std::count(vTold.begin(), vTold.end(), in_strWhat));
}

std::vector<std::string> ScriptedCallEngine::getCallIds() const
{
    return m_state.read([](const State& in_state) { return in_state.m_vCallIds; });
}

}  // namespace Quorvex::Test
