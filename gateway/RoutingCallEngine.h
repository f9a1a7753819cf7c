#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "CdrWriter.h"
#include "EngineLoop.h"
#include "GatewayCall.h"
#include "Route.h"
#include "infra/Logger.h"
#include "quorvex/CallInterface.h"

namespace Quorvex
{

/// What is told of a call to those who watch from outside.
struct CallSnapshot
{
    std::uint64_t m_ulNumber = 0;
    std::string m_strState;
    std::string m_strFrom;
    std::string m_strTo;
    std::string m_strRoute;
    std::chrono::system_clock::time_point m_invited;
};

/// The gateway's call engine: routes the calls that arrive to services. All its work is done on a thread of
/// its own; what comes from the network interface's thread is only queued.
class RoutingCallEngine : public CallEngine
{
public:
    RoutingCallEngine();
    RoutingCallEngine(const RoutingCallEngine&) = delete;
    RoutingCallEngine& operator=(const RoutingCallEngine&) = delete;
    ~RoutingCallEngine() override;

    /// Before start().
    bool openCdr(const std::string& in_strFile, std::string& out_strError)
    {
        return m_cdrWriter.open(in_strFile, out_strError);
    }
    /// Routes for the calls that come from now on; any thread.
    void setRoutes(std::shared_ptr<const RouteTable> in_pRoutes);

    void start();
    /// Deletes what calls are left and ends the thread; the network interface has ended before.
    void stop();

    CallInInterface* newInCall(InCallLeg* in_pLeg, const char* in_szCallId) override;

    /// Asks for a description of all calls; the answer is given on the engine's thread. False when it does
    /// not run.
    bool snapshot(std::function<void(std::vector<CallSnapshot>)> in_receiver);
    /// Hangs a call up; the answer says whether there is such a call. False when the engine does not run.
    bool hangup(std::uint64_t in_ulCall, std::function<void(bool)> in_receiver);
    /// Calls that are alive, and all since the start; any thread.
    std::uint64_t getLiveCalls() const { return m_ulLive.load(std::memory_order_relaxed); }
    std::uint64_t getTotalCalls() const { return m_ulTotal.load(std::memory_order_relaxed); }
    /// Runs a job on the engine's thread. False when it does not run.
    bool post(EngineLoop::Job in_job) { return m_loop.post(std::move(in_job)); }

private:
    class Incoming;

    GatewayCall* find(std::uint64_t in_ulCall);
    std::shared_ptr<const RouteTable> routes() const;

    const Logger m_logger;
    mutable std::mutex m_routesMutex;
    std::shared_ptr<const RouteTable> m_pRoutes;
    std::atomic<std::uint64_t> m_ulLive{0};
    std::atomic<std::uint64_t> m_ulTotal{0};
    // The loop's own.
    CdrWriter m_cdrWriter;
    std::map<std::uint64_t, std::unique_ptr<GatewayCall>> m_calls;
    EngineLoop m_loop;
};

}  // namespace Quorvex
