#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "CallControl.h"
#include "CallJournal.h"
#include "EngineLoop.h"
#include "GatewayCall.h"
#include "ListenAddresses.h"
#include "Route.h"
#include "infra/Logger.h"
#include "media/MediaStatistics.h"
#include "quorvex/CallInterface.h"

namespace Quorvex
{

/// The gateway's call engine: routes the calls that arrive to services and to other parties, and places
/// calls. All its work is done on a thread of its own; what comes from the network interface's and the media
/// engine's threads is only queued.
class RoutingCallEngine : public CallEngine,
                          public MediaObserver,
                          public MetricsSource,
                          private GatewayCall::Owner
{
public:
    RoutingCallEngine() = default;
    RoutingCallEngine(const RoutingCallEngine&) = delete;
    RoutingCallEngine& operator=(const RoutingCallEngine&) = delete;
    ~RoutingCallEngine() override;

    /// Where records of ended calls go. Before start().
    CdrWriter& getCdrWriter() { return m_journal.getWriter(); }
    /// Routes for the calls that come from now on; any thread.
    void setRoutes(std::shared_ptr<const RouteTable> in_pRoutes);
    /// Called on the engine's thread when the last call has ended after drain(). Before start().
    void setDrainedHandler(EngineLoop::Job in_handler) { m_drainedHandler = std::move(in_handler); }

    /// What places calls, which must outlive this object's run, and how long host names may take to resolve.
    /// Before start().
    void setOutLegEngine(OutLegEngine* in_pOutLegEngine, unsigned int in_uiResolveMs)
    {
        m_pOutLegEngine = in_pOutLegEngine;
        m_uiResolveMs = in_uiResolveMs;
    }

    /// How long a call may stay unanswered, and how long it may take to end, before it counts as one that is
    /// stuck. Before start().
    void setPatience(std::chrono::milliseconds in_unanswered, std::chrono::milliseconds in_ending)
    {
        m_unanswered = in_unanswered;
        m_ending = in_ending;
    }

    /// Where the gateway itself is called. Before start().
    void setListenAddresses(ListenAddresses in_addresses) { m_listenAddresses = std::move(in_addresses); }

    void start();
    /// Records what calls are left and ends the thread; the network interface has ended before. Repeatable.
    void stop();

    /// From now on new calls are taken, or refused as unavailable (as they are at first). Any thread.
    void takeCalls(bool in_bTake) { m_bTakesCalls.store(in_bTake, std::memory_order_relaxed); }
    bool takesCalls() const override { return m_bTakesCalls.load(std::memory_order_relaxed); }
    /// Takes no new calls for good; the handler is called when there are none left. Any thread.
    void drain();
    /// Whether it is drained: no call is left and none will come.
    bool isDrained() const { return m_bDraining && getLiveCalls() == 0; }

    /// Calls that are alive, and all since the start; any thread.
    std::uint64_t getLiveCalls() const { return m_ulLive.load(std::memory_order_relaxed); }
    std::uint64_t getTotalCalls() const { return m_ulTotal.load(std::memory_order_relaxed); }

    /// Runs a job on the engine's thread. False when it does not run. The operations below are for such jobs.
    bool post(EngineLoop::Job in_job) { return m_loop.post(std::move(in_job)); }
    std::vector<CallView> viewCalls() const;
    CommandResult placeCall(CallLegInfo in_leg, std::shared_ptr<const Route> in_pRoute);
    CommandResult hangUp(const std::string& in_strId);
    CommandResult sendInfo(const std::string& in_strId, const std::vector<Parameter>& in_vParameters);
    CommandResult transfer(const std::string& in_strId, CallLegInfo in_leg);

    CallInInterface* newInCall(InCallLeg* in_pLeg, const char* in_szCallId) override;

    void streamEnded(const StreamStatistics& in_statistics) override;
    void playEnded(const std::string& in_strCallId) override;
    void digitReceived(const std::string& in_strCallId, unsigned in_uiIndex, char in_cDigit) override;

    void collect(MetricsPage& io_page) override;

private:
    class Incoming;

    GatewayCall::Owner& owner() { return *this; }
    GatewayCall* find(std::uint64_t in_ulCall);
    GatewayCall* find(const std::string& in_strId);
    void ended(std::uint64_t in_ulCall);
    void eraseIfOver(std::uint64_t in_ulCall);

    std::optional<OutboundParty::Context> getOutbound() override;
    std::shared_ptr<const Route> findRoute(const CallLegInfo& in_leg) const override;
    std::string getTransportToSelf(const std::string& in_strUri) const override
    {
        return m_listenAddresses.getTransportTo(in_strUri);
    }
    void legOpened(const std::string& in_strCallId, unsigned int in_uiLeg) override;
    void legEnded(CallRecord in_record, bool in_bHadMedia) override;
    void transferEnded(bool in_bByParty, bool in_bDone) override
    {
        m_journal.getMetrics().transferEnded(in_bByParty, in_bDone);
    }
    void partyGone(std::uint64_t in_ulNumber) override;
    void record(GatewayCall& io_call);
    std::shared_ptr<const RouteTable> routes() const;
    void collectStates(MetricsPage& io_page);

    mutable std::mutex m_routesMutex;
    std::shared_ptr<const RouteTable> m_pRoutes = std::make_shared<const RouteTable>();
    std::atomic<std::uint64_t> m_ulLive{0};
    std::atomic<std::uint64_t> m_ulTotal{0};
    std::atomic<bool> m_bTakesCalls{false};
    std::atomic<bool> m_bDraining{false};
    EngineLoop::Job m_drainedHandler;
    OutLegEngine* m_pOutLegEngine = nullptr;
    unsigned int m_uiResolveMs = 250;
    std::chrono::milliseconds m_unanswered{200'000};
    std::chrono::milliseconds m_ending{40'000};
    ListenAddresses m_listenAddresses;
    EngineLoop m_loop;
    // The loop's own.
    CallJournal m_journal{m_loop};
    std::map<std::uint64_t, std::unique_ptr<GatewayCall>> m_calls;
    std::map<std::string, std::uint64_t, std::less<>> m_numbers;
};

}  // namespace Quorvex
