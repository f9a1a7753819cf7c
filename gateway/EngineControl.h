#pragma once

#include <functional>

#include "CallControl.h"
#include "LoopWatchdog.h"
#include "RoutingCallEngine.h"
#include "oam/OMReporter.h"

namespace Quorvex
{

/// The operators' commands, brought to the call engine's thread and the network interface, which must both
/// outlive it. Any thread but theirs: an answer is waited for, for a bounded time.
class EngineControl : public CallControl
{
public:
    explicit EngineControl(RoutingCallEngine& in_engine) : m_engine(in_engine) {}

    /// The network interface that runs, whose description describe() gives; null while none does. Returns
    /// when nobody asks the former one any more.
    void setReporter(OMReporter* in_pReporter);

    /// What sees to it that every loop runs, which must outlive this object's use. It watches all it will.
    void setWatchdog(const LoopWatchdog& in_watchdog);

    std::string getTrouble() const override;
    bool takesCalls() const override
    {
        const std::lock_guard lock(m_reporterMutex);
        return m_pReporter != nullptr && m_engine.takesCalls();
    }
    std::string describe() override;
    std::vector<CallView> getCalls() override;
    CommandResult placeCall(const CallLegInfo& in_leg, const ParameterTrie& in_options) override;
    CommandResult hangUp(const std::string& in_strId) override;
    CommandResult sendInfo(const std::string& in_strId,
                           const std::vector<Parameter>& in_vParameters) override;
    CommandResult transfer(const std::string& in_strId, const CallLegInfo& in_leg) override;
    CommandResult drain() override;

private:
    CommandResult command(std::function<CommandResult(RoutingCallEngine&)> in_command);

    RoutingCallEngine& m_engine;
    mutable std::mutex m_reporterMutex;
    OMReporter* m_pReporter = nullptr;
    const LoopWatchdog* m_pWatchdog = nullptr;
};

}  // namespace Quorvex
