#include "EngineControl.h"

#include <chrono>
#include <future>
#include <optional>

namespace Quorvex
{

namespace
{

constexpr std::chrono::seconds kPatience{2};
constexpr const char* kTooLate = "The call engine did not answer in time.";

/// Runs a function on the engine's thread and waits for its result; nothing when it did not come in time.
template <class Function>
auto ask(RoutingCallEngine& io_engine, Function in_function)
    -> std::optional<decltype(in_function(io_engine))>
{
    using Result = decltype(in_function(io_engine));
    const auto pPromise = std::make_shared<std::promise<Result>>();
    std::future<Result> future = pPromise->get_future();
    const bool bPosted = io_engine.post([&io_engine, pPromise, function = std::move(in_function)]
                                        { pPromise->set_value(function(io_engine)); });
    if (!bPosted || future.wait_for(kPatience) != std::future_status::ready)
    {
        return std::nullopt;
    }
    return future.get();
}

/// Hands a report to whoever waits; deletes itself, since the report may come long after the waiting ended.
class ReportObserver final : public OMObserver
{
public:
    static std::future<std::string> ask(OMReporter& io_reporter)
    {
        auto* pObserver = new ReportObserver;
        std::future<std::string> future = pObserver->m_promise.get_future();
        static_cast<void>(io_reporter.getOM("status", pObserver));
        return future;
    }

    void omReport(const std::string& /*in_strName*/, const std::string& in_strReport) override
    {
        m_promise.set_value(in_strReport + '\n');
        delete this;
    }
    void omUnavailable(const std::string& /*in_strName*/, const std::string& in_strReason) override
    {
        m_promise.set_value("There is no description: " + in_strReason + ".\n");
        delete this;
    }

private:
    std::promise<std::string> m_promise;
};

}  // namespace

void EngineControl::setReporter(OMReporter* in_pReporter)
{
    const std::lock_guard lock(m_reporterMutex);
    m_pReporter = in_pReporter;
}

void EngineControl::setWatchdog(const LoopWatchdog& in_watchdog)
{
    const std::lock_guard lock(m_reporterMutex);
    m_pWatchdog = &in_watchdog;
}

std::string EngineControl::getTrouble() const
{
    const std::lock_guard lock(m_reporterMutex);
    return m_pWatchdog != nullptr ? m_pWatchdog->getStalled() : "";
}

std::string EngineControl::describe()
{
    std::future<std::string> report;
    {
        const std::lock_guard lock(m_reporterMutex);
        if (m_pReporter == nullptr)
        {
            return "The network interface does not run.\n";
        }
        report = ReportObserver::ask(*m_pReporter);
    }
    return report.wait_for(kPatience) == std::future_status::ready
               ? report.get()
               : "The network interface did not answer in time.\n";
}

std::vector<CallView> EngineControl::getCalls()
{
    return ask(m_engine, [](const RoutingCallEngine& in_engine) { return in_engine.viewCalls(); })
        .value_or(std::vector<CallView>());
}

CommandResult EngineControl::command(std::function<CommandResult(RoutingCallEngine&)> in_command)
{
    return ask(m_engine, std::move(in_command)).value_or(CommandResult{CommandResult::UNAVAILABLE, kTooLate});
}

CommandResult EngineControl::placeCall(const CallLegInfo& in_leg, const ParameterTrie& in_options)
{
    auto pRoute = std::make_shared<Route>();
    std::string strError;
    if (!pRoute->readPlaced(in_options.root(), "", strError))
    {
        return {CommandResult::BAD_REQUEST, strError};
    }
    return command([leg = in_leg, pRoute](RoutingCallEngine& io_engine)
                   { return io_engine.placeCall(leg, pRoute); });
}

CommandResult EngineControl::hangUp(const std::string& in_strId)
{
    return command([in_strId](RoutingCallEngine& io_engine) { return io_engine.hangUp(in_strId); });
}

CommandResult EngineControl::sendInfo(const std::string& in_strId,
                                      const std::vector<Parameter>& in_vParameters)
{
    return command([in_strId, in_vParameters](RoutingCallEngine& io_engine)
                   { return io_engine.sendInfo(in_strId, in_vParameters); });
}

CommandResult EngineControl::transfer(const std::string& in_strId, const CallLegInfo& in_leg)
{
    return command([in_strId, in_leg](RoutingCallEngine& io_engine)
                   { return io_engine.transfer(in_strId, in_leg); });
}

CommandResult EngineControl::drain()
{
    m_engine.drain();
    return {};
}

}  // namespace Quorvex
