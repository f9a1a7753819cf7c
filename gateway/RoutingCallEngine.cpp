#include "RoutingCallEngine.h"

#include <array>
#include <future>
#include <utility>

#include "infra/RegistrationSingleton.h"
#include "infra/UUID.h"

namespace Quorvex
{

namespace
{

constexpr std::chrono::seconds kPatience{2};
constexpr const char* kTakesNoCalls = "The gateway takes no calls.";

}  // namespace

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
        m_engine.post([&engine = m_engine, ulCall = m_ulCall] { engine.ended(ulCall); });
    }

    bool invite(const CallLegInfo& in_leg) override
    {
        return post(
            [&engine = m_engine, leg = in_leg](GatewayCall& io_call)
            {
                if (!engine.takesCalls())
                {
                    io_call.refused(leg);
                    return;
                }
                io_call.invited(leg, engine.findRoute(leg));
            });
    }

    void sayAgain() override
    {
        post([](GatewayCall& io_call) { io_call.sayAgain(); });
    }

    void notOffered(const CallLegInfo& in_leg) override
    {
        post([leg = in_leg](GatewayCall& io_call) { io_call.notOffered(leg); });
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

    void ended(unsigned int in_uiStatus, Ending in_ending) override
    {
        post([in_uiStatus, in_ending](GatewayCall& io_call)
             { io_call.answeredFinally(in_uiStatus, in_ending); });
    }

private:
    template <class CallJob>
    bool post(CallJob in_job)
    {
        return m_engine.post(
            [&engine = m_engine, ulCall = m_ulCall, job = std::move(in_job)]
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
    m_loop.post(
        [this]
        {
            for (const auto& [ulCall, pCall] : m_calls)
            {
                if (!pCall->isReleased())
                {
                    record(*pCall);
                }
            }
            m_calls.clear();
            m_numbers.clear();
            m_ulLive.store(0, std::memory_order_relaxed);
            m_journal.flush();
        });
    m_loop.stop();
    m_journal.getWriter().close();
}

void RoutingCallEngine::drain()
{
    takeCalls(false);
    m_bDraining = true;
    post(
        [this]
        {
            if (isDrained() && m_drainedHandler)
            {
                m_drainedHandler();
            }
        });
}

GatewayCall* RoutingCallEngine::find(std::uint64_t in_ulCall)
{
    const auto it = m_calls.find(in_ulCall);
    return it == m_calls.end() ? nullptr : it->second.get();
}

GatewayCall* RoutingCallEngine::find(const std::string& in_strId)
{
    const auto it = m_numbers.find(in_strId);
    return it == m_numbers.end() ? nullptr : find(it->second);
}

CallInInterface* RoutingCallEngine::newInCall(InCallLeg* in_pLeg, const char* in_szCallId)
{
    const std::uint64_t ulCall = m_ulTotal.fetch_add(1, std::memory_order_relaxed) + 1;
    m_ulLive.fetch_add(1, std::memory_order_relaxed);
    // Shared, since a job must be copyable; the call takes the leg out.
    auto pHolder = std::make_shared<std::unique_ptr<InCallLeg>>(in_pLeg);
    const bool bPosted = post(
        [this, ulCall, pHolder, strCallId = std::string(in_szCallId)]
        {
            m_journal.opened(strCallId, 0);
            m_numbers.emplace(strCallId, ulCall);
            m_calls.emplace(
                ulCall,
                std::make_unique<GatewayCall>(m_loop, owner(), ulCall, strCallId, std::move(*pHolder)));
        });
    if (!bPosted)
    {
        m_ulLive.fetch_sub(1, std::memory_order_relaxed);
        return nullptr;
    }
    return new Incoming(*this, ulCall);
}

void RoutingCallEngine::ended(std::uint64_t in_ulCall)
{
    const auto it = m_calls.find(in_ulCall);
    if (it == m_calls.end())
    {
        return;
    }
    record(*it->second);
    eraseIfOver(in_ulCall);
}

void RoutingCallEngine::eraseIfOver(std::uint64_t in_ulCall)
{
    const auto it = m_calls.find(in_ulCall);
    if (it == m_calls.end())
    {
        return;
    }
    it->second->dropGone();
    if (!it->second->isOver())
    {
        return;
    }
    m_numbers.erase(it->second->getCallId());
    m_calls.erase(it);
    m_ulLive.fetch_sub(1, std::memory_order_relaxed);
    if (isDrained() && m_drainedHandler)
    {
        m_drainedHandler();
    }
}

std::optional<OutboundParty::Context> RoutingCallEngine::getOutbound()
{
    if (m_pOutLegEngine == nullptr)
    {
        return std::nullopt;
    }
    return OutboundParty::Context{m_loop, *m_pOutLegEngine, m_uiResolveMs};
}

std::shared_ptr<const Route> RoutingCallEngine::findRoute(const CallLegInfo& in_leg) const
{
    const std::shared_ptr<const RouteTable> pRoutes = routes();
    const Route* pRoute = pRoutes->find(in_leg);
    // The route keeps its table alive: a reload must not change a call that runs.
    return pRoute == nullptr ? nullptr : std::shared_ptr<const Route>(pRoutes, pRoute);
}

void RoutingCallEngine::legOpened(const std::string& in_strCallId, unsigned int in_uiLeg)
{
    m_journal.opened(in_strCallId, in_uiLeg);
}

void RoutingCallEngine::legEnded(CallRecord in_record, bool in_bHadMedia)
{
    m_journal.closed(std::move(in_record), in_bHadMedia);
}

void RoutingCallEngine::partyGone(std::uint64_t in_ulNumber)
{
    // The call is still at work.
    post([this, in_ulNumber] { eraseIfOver(in_ulNumber); });
}

CommandResult RoutingCallEngine::placeCall(CallLegInfo in_leg, std::shared_ptr<const Route> in_pRoute)
{
    if (!in_leg.getParameterOr("sip.out.requestUri", "").starts_with("sip:"))
    {
        return {CommandResult::BAD_REQUEST, "The leg says no \"sip.out.requestUri\"; a SIP URI is expected."};
    }
    if (!takesCalls() || m_pOutLegEngine == nullptr)
    {
        return {CommandResult::UNAVAILABLE, kTakesNoCalls};
    }
    if (in_leg.getNode("media.rtp") == nullptr)
    {
        in_leg.addRtpSendReceiveParameters(0);
    }
    const std::string strCallId = UUID().toString();
    const std::uint64_t ulCall = m_ulTotal.fetch_add(1, std::memory_order_relaxed) + 1;
    m_ulLive.fetch_add(1, std::memory_order_relaxed);
    m_numbers.emplace(strCallId, ulCall);
    GatewayCall& call = *m_calls
                             .emplace(ulCall,
                                      std::make_unique<GatewayCall>(
                                          m_loop, owner(), ulCall, strCallId, std::unique_ptr<InCallLeg>()))
                             .first->second;
    static_cast<void>(call.place(in_leg, std::move(in_pRoute)));
    return {CommandResult::DONE, strCallId};
}

void RoutingCallEngine::record(GatewayCall& io_call)
{
    const bool bHadMedia = io_call.hadMedia();
    m_journal.closed(io_call.released(), bHadMedia);
}

std::vector<CallView> RoutingCallEngine::viewCalls() const
{
    std::vector<CallView> vCalls;
    vCalls.reserve(m_calls.size());
    for (const auto& [ulCall, pCall] : m_calls)
    {
        vCalls.push_back(pCall->getView());
    }
    return vCalls;
}

CommandResult RoutingCallEngine::hangUp(const std::string& in_strId)
{
    GatewayCall* pCall = find(in_strId);
    if (pCall == nullptr)
    {
        return {CommandResult::NO_SUCH_CALL, "There is no call " + in_strId + "."};
    }
    // One that is ending already has what was asked for.
    pCall->hangup();
    return {};
}

CommandResult RoutingCallEngine::sendInfo(const std::string& in_strId,
                                          const std::vector<Parameter>& in_vParameters)
{
    GatewayCall* pCall = find(in_strId);
    if (pCall == nullptr)
    {
        return {CommandResult::NO_SUCH_CALL, "There is no call " + in_strId + "."};
    }
    if (pCall->getState() != CallState::ANSWERED)
    {
        return {CommandResult::WRONG_STATE,
                std::string("INFO goes to answered calls; this one is ") + toText(pCall->getState()) + "."};
    }
    if (!pCall->sendInfo(in_vParameters))
    {
        return {CommandResult::UNAVAILABLE, "The network interface takes no commands any more."};
    }
    return {};
}

CommandResult RoutingCallEngine::transfer(const std::string& in_strId, CallLegInfo in_leg)
{
    GatewayCall* pCall = find(in_strId);
    if (pCall == nullptr)
    {
        return {CommandResult::NO_SUCH_CALL, "There is no call " + in_strId + "."};
    }
    if (pCall->getState() != CallState::ANSWERED)
    {
        return {CommandResult::WRONG_STATE,
                std::string("Only answered calls are transferred; this one is ") + toText(pCall->getState()) +
                    "."};
    }
    if (!takesCalls() || m_pOutLegEngine == nullptr)
    {
        return {CommandResult::UNAVAILABLE, kTakesNoCalls};
    }
    if (in_leg.getNode("media.rtp") == nullptr)
    {
        in_leg.addRtpSendReceiveParameters(0);
    }
    const std::string strWhyNot = pCall->transfer(std::move(in_leg));
    return {strWhyNot.empty() ? CommandResult::DONE : CommandResult::WRONG_STATE, strWhyNot};
}

void RoutingCallEngine::streamEnded(const StreamStatistics& in_statistics)
{
    post([this, statistics = in_statistics] { m_journal.streamEnded(statistics); });
}

void RoutingCallEngine::playEnded(const std::string& /*in_strCallId*/)
{
    // Files of services are repeated, so none ends.
}

void RoutingCallEngine::digitReceived(const std::string& in_strCallId, unsigned in_uiIndex, char in_cDigit)
{
    static const Logger s_logger("quorvex.gateway.CallEngine");
    QLOG_DEBUG(s_logger, "call " << in_strCallId << ", leg " << in_uiIndex << ": digit " << in_cDigit);
}

void RoutingCallEngine::collectStates(MetricsPage& io_page)
{
    struct Count
    {
        std::array<std::uint64_t, 4> m_states{};
        std::uint64_t m_ui64Stuck = 0;
    };
    // The scraper may have given up when the count comes.
    const auto pPromise = std::make_shared<std::promise<Count>>();
    std::future<Count> future = pPromise->get_future();
    const bool bPosted = post(
        [this, pPromise]
        {
            Count count;
            for (const auto& [ulCall, pCall] : m_calls)
            {
                const CallState state = pCall->getState();
                ++count.m_states[static_cast<std::size_t>(state)];
                const bool bStuck = state == CallState::ENDING
                                        ? pCall->getStateAge() > m_ending
                                        : state != CallState::ANSWERED && pCall->getStateAge() > m_unanswered;
                count.m_ui64Stuck += bStuck ? 1 : 0;
            }
            pPromise->set_value(count);
        });
    if (!bPosted || future.wait_for(kPatience) != std::future_status::ready)
    {
        return;
    }
    const Count count = future.get();
    io_page.family("quorvex_calls_by_state", "gauge", "Calls that are alive, by state.");
    for (const CallState state :
         {CallState::ARRIVED, CallState::RINGING, CallState::ANSWERED, CallState::ENDING})
    {
        io_page.sample(count.m_states[static_cast<std::size_t>(state)],
                       {
                           {"state", toText(state)}
        });
    }
    io_page.gauge("quorvex_calls_stuck",
                  static_cast<double>(count.m_ui64Stuck),
                  "Calls that have been unanswered or ending for longer than can be; each is a bug.");
}

void RoutingCallEngine::collect(MetricsPage& io_page)
{
    collectStates(io_page);
    io_page.gauge("quorvex_engine_queue_length",
                  static_cast<double>(m_loop.getQueueLength()),
                  "Jobs that wait for the call engine's thread.");
    io_page.gauge("quorvex_calls", static_cast<double>(getLiveCalls()), "Calls that are alive.");
    io_page.counter("quorvex_calls_total", getTotalCalls(), "Calls since the start.");
    io_page.gauge("quorvex_takes_calls", takesCalls() ? 1 : 0, "Whether new calls are taken.");
    io_page.counter(
        "quorvex_cdr_written_total", m_journal.getWriter().getWrittenCount(), "Call records written.");
    io_page.counter("quorvex_cdr_lost_total",
                    m_journal.getWriter().getLostCount(),
                    "Call records that could not be written.");
    m_journal.getMetrics().collect(io_page);
}

}  // namespace Quorvex
