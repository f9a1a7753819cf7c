#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "EngineControl.h"
#include "HttpServer.h"
#include "LoopWatchdog.h"
#include "Metrics.h"
#include "Options.h"
#include "RoutingCallEngine.h"
#include "Signals.h"
#include "infra/DynLibObjPtr.h"
#include "infra/ROConfiguration.h"
#include "quorvex/GatewayNetIf.h"

namespace Quorvex
{

/// The exit codes of the program.
enum ExitCode : int
{
    eEXIT_CLEAN = 0,
    eEXIT_FORCED = 1,  ///< a kill, or a start that failed at run time
    eEXIT_CONFIGURATION = 2
};

/// The host program: configuration, network interface and call engine, from the start to the stop. Used on
/// the main thread.
class Host : private TaskStateObserver
{
public:
    explicit Host(Options in_options);
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;
    ~Host() override;

    /// Runs until it is stopped; the exit code.
    int run();

private:
    /// Reads and checks the configuration file; false with one line in `out_strError`.
    bool loadConfiguration(TSHandle<MapConfiguration>& out_hConfig,
                           std::shared_ptr<const RouteTable>& out_pRoutes,
                           std::string& out_strError) const;
    static void applyLevels(const ROConfiguration& in_config);
    bool prepare(std::string& out_strError);
    bool start(std::string& out_strError);
    bool startHttp(std::string& out_strError);
    bool startNetIf(std::string& out_strError);
    static void observeMedia(LimitedObjPtr<MediaObserver> in_pObserver);
    void watchLoops();
    void announce() const;
    int serve();
    int stop();
    void reload();
    void tearDown();
    void logMemoryAccounts();

    void taskStateChanged(ManageableTask& in_task, Task::State in_newState) override;
    Task::State netIfState() const;

    const Options m_options;
    const Logger m_logger;
    Signals m_signals;
    TSHandle<MapConfiguration> m_hConfig;
    std::shared_ptr<const RouteTable> m_pRoutes;
    RoutingCallEngine m_engine;
    EngineControl m_control{m_engine};
    MediaMetrics m_mediaMetrics;
    SipMetrics m_sipMetrics;
    LoopWatchdog m_watchdog;
    Metrics m_metrics;
    HttpServer m_http{m_control, m_metrics};
    DynLibObjPtr<OAMGatewayNetIf> m_pNetIf;
    mutable std::mutex m_mutex;
    Task::State m_netIfState = Task::STOPPED_STATE;
};

}  // namespace Quorvex
