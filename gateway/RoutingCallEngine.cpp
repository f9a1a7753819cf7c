#include "RoutingCallEngine.h"

#include <utility>

namespace Quorvex
{

/// The engine's side of one call, as the network interface holds it: every word is queued to the engine's
/// thread. Its deletion is the call's end.
class RoutingCallEngine::Incoming final : public CallInInterface
{
public:
    QUORVEX_MEM_ACCOUNT("RoutingCallEngine::Incoming");

    Incoming(RoutingCallEngine& in_engine, std::uint64_t in_ulCall) : m_engine(in_engine), m_ulCall(in_ulCall)
    {
    }
    Incoming(const Incoming&) = delete;
    Incoming& operator=(const Incoming&) = delete;

    ~Incoming() override
    {
        RoutingCallEngine& engine = m_engine;
        m_engine.m_loop.post(
            [&engine, ulCall = m_ulCall]
            {
                if (GatewayCall* pCall = engine.find(ulCall))
                {
                    engine.m_cdrWriter.write(pCall->released());
                    engine.m_calls.erase(ulCall);
                    engine.m_ulLive.fetch_sub(1, std::memory_order_relaxed);
                }
            });
    }

    bool invite(const CallLegInfo& in_leg) override
    {
        RoutingCallEngine& engine = m_engine;
        return engine.m_loop.post(
            [&engine, ulCall = m_ulCall, leg = in_leg]
            {
                if (GatewayCall* pCall = engine.find(ulCall))
                {
                    const std::shared_ptr<const RouteTable> pRoutes = engine.routes();
                    const Route* pRoute = pRoutes->find(leg);
                    // The route keeps its table alive: a reload must not change a call that runs.
                    pCall->invited(
                        leg, pRoute == nullptr ? nullptr : std::shared_ptr<const Route>(pRoutes, pRoute));
                }
            });
    }

    bool transfer(const CallLegInfo& in_leg) override
    {
        return post([leg = in_leg](GatewayCall& io_call) { io_call.transferRequested(leg); });
    }

    void disconnected() override
    {
        post([](GatewayCall& io_call) { io_call.disconnected(); });
    }

    bool infoReceived(const std::vector<Parameter>& in_vParameters) override
    {
        return post([parameters = in_vParameters](GatewayCall& io_call)
                    { io_call.infoReceived(parameters); });
    }

private:
    bool post(std::function<void(GatewayCall&)> in_job)
    {
        RoutingCallEngine& engine = m_engine;
        return engine.m_loop.post(
            [&engine, ulCall = m_ulCall, job = std::move(in_job)]
            {
                if (GatewayCall* pCall = engine.find(ulCall))
                {
                    job(*pCall);
                }
            });
    }

    RoutingCallEngine& m_engine;
    const std::uint64_t m_ulCall;
};

RoutingCallEngine::RoutingCallEngine()
    : m_logger("quorvex.gateway.CallEngine"), m_pRoutes(std::make_shared<const RouteTable>())
{
}

RoutingCallEngine::~RoutingCallEngine()
{
    stop();
}

void RoutingCallEngine::setRoutes(std::shared_ptr<const RouteTable> in_pRoutes)
{
    const std::lock_guard guard(m_routesMutex);
    m_pRoutes = std::move(in_pRoutes);
}

std::shared_ptr<const RouteTable> RoutingCallEngine::routes() const
{
    const std::lock_guard guard(m_routesMutex);
    return m_pRoutes;
}

void RoutingCallEngine::start()
{
    m_loop.start();
}

void RoutingCallEngine::stop()
{
    m_loop.post([this] { m_calls.clear(); });
    m_loop.stop();
}

GatewayCall* RoutingCallEngine::find(std::uint64_t in_ulCall)
{
    const auto it = m_calls.find(in_ulCall);
    return it == m_calls.end() ? nullptr : it->second.get();
}

CallInInterface* RoutingCallEngine::newInCall(InCallLeg* in_pLeg, const char* in_szCallId)
{
    const std::uint64_t ulCall = m_ulTotal.fetch_add(1, std::memory_order_relaxed) + 1;
    // Shared, since a job must be copyable; the call takes the leg out.
    auto pHolder = std::make_shared<std::unique_ptr<InCallLeg>>(in_pLeg);
    const bool bPosted = m_loop.post(
        [this, ulCall, pHolder, strCallId = std::string(in_szCallId)] {
            m_calls.emplace(ulCall,
                            std::make_unique<GatewayCall>(m_loop, ulCall, strCallId, std::move(*pHolder)));
        });
    if (!bPosted)
    {
        return nullptr;
    }
    m_ulLive.fetch_add(1, std::memory_order_relaxed);
    return new Incoming(*this, ulCall);
}

bool RoutingCallEngine::snapshot(std::function<void(std::vector<CallSnapshot>)> in_receiver)
{
    return m_loop.post(
        [this, receiver = std::move(in_receiver)]
        {
            std::vector<CallSnapshot> calls;
            calls.reserve(m_calls.size());
            for (const auto& [number, pCall] : m_calls)
            {
                calls.push_back({number,
                                 GatewayCall::getStateName(pCall->getState()),
                                 pCall->getLeg().getParameterOr("sip.in.from.uri", ""),
                                 pCall->getLeg().getParameterOr("sip.in.requestUri", ""),
                                 pCall->getRouteName(),
                                 pCall->getInvited()});
            }
            receiver(std::move(calls));
        });
}

bool RoutingCallEngine::hangup(std::uint64_t in_ulCall, std::function<void(bool)> in_receiver)
{
    return m_loop.post(
        [this, in_ulCall, receiver = std::move(in_receiver)]
        {
            GatewayCall* pCall = find(in_ulCall);
            if (pCall != nullptr)
            {
                pCall->hangup();
            }
            receiver(pCall != nullptr);
        });
}

}  // namespace Quorvex
