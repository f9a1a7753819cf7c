#include "Host.h"

#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <iostream>
#include <system_error>

#include "Announcement.h"
#include "ConfigSchema.h"
#include "FirstError.h"
#include "NetIfLoader.h"
#include "infra/DynLib.h"
#include "infra/MemAccount.h"
#include "infra/RegistrationSingleton.h"
#include "infra/TomlConfiguration.h"
#include "sip-common/SipStack.h"

namespace Quorvex
{

namespace
{

constexpr std::chrono::seconds kStartTimeout{30};
constexpr std::chrono::seconds kKillTimeout{10};

/// Empty when a file can be written, or made; else the system's reason. Makes none.
std::string whyNotWritable(const std::string& in_strFile)
{
    const std::filesystem::path file(in_strFile);
    std::error_code ignored;
    const std::filesystem::path asked = std::filesystem::exists(file, ignored) ? file : file.parent_path();
    return in_strFile.empty() || access(asked.c_str(), W_OK) == 0
               ? ""
               : std::error_code(errno, std::generic_category()).message();
}

/// A report that the network interface's task thread makes at once. Deletes itself with the answer.
class TaskProbe final : public OMObserver
{
public:
    static bool ask(OMReporter& io_reporter, LoopWatchdog::Done in_done)
    {
        return io_reporter.getOM("alive", new TaskProbe(std::move(in_done)));
    }

    void omReport(const std::string& /*in_strName*/, const std::string& /*in_strReport*/) override
    {
        m_done();
        delete this;
    }
    void omUnavailable(const std::string& /*in_strName*/, const std::string& /*in_strReason*/) override
    {
        delete this;
    }

private:
    explicit TaskProbe(LoopWatchdog::Done in_done) : m_done(std::move(in_done)) {}
    const LoopWatchdog::Done m_done;
};

void complain(const std::string& in_strText)
{
    std::cerr << "quorvex-gateway: " << in_strText << std::endl;
}

}  // namespace

Host::Host(Options in_options) : m_options(std::move(in_options)), m_logger("quorvex.gateway.Host")
{
    std::error_code error;
    const std::filesystem::path program = std::filesystem::canonical("/proc/self/exe", error);
    if (!error)
    {
        DynLib::addSearchFolder((program.parent_path().parent_path() / "lib").string());
    }
}

Host::~Host()
{
    tearDown();
}

bool Host::loadConfiguration(TSHandle<MapConfiguration>& out_hConfig,
                             std::shared_ptr<const RouteTable>& out_pRoutes,
                             std::string& out_strError) const
{
    const std::string& file = m_options.m_strConfigFile;
    TSHandle<MapConfiguration> hConfig = TomlConfiguration::load(file, out_strError);
    if (hConfig.isNull())
    {
        return false;
    }
    std::string error;
    auto pRoutes = std::make_shared<RouteTable>();
    const std::string folder = std::filesystem::absolute(file).parent_path().string();
    if (!ConfigSchema::check(*hConfig, error) || !pRoutes->read(hConfig->getTrie(), folder, error))
    {
        out_strError = file + ": " + error;
        return false;
    }
    ConfigSchema::resolvePaths(*hConfig, file);
    out_hConfig = hConfig;
    out_pRoutes = pRoutes;
    return true;
}

void Host::applyLevels(const ROConfiguration& in_config)
{
    int level = eINFO_LEVEL;
    Logging::parseLevel(in_config.getStringOr("quorvex.log.level", "INFO"), level);
    Logging::clearLevels();
    Logging::setRootLevel(level);
    const ParameterTrieNode* pLevels = in_config.getNode("quorvex.log.levels");
    if (pLevels != nullptr)
    {
        auto visitor = [pLevels](const ParameterTrieNode& in_node)
        {
            int leafLevel = eINFO_LEVEL;
            if (Logging::parseLevel(in_node.getValue().toText(), leafLevel))
            {
                Logging::setLevel(in_node.getFullName().substr(pLevels->getFullName().size() + 1), leafLevel);
            }
        };
        ParameterTrie::visit(*pLevels, visitor);
    }
}

bool Host::prepare(std::string& out_strError)
{
    // Quiet until the configuration has proved good: its one line comes before anything else.
    static_cast<void>(Logging::setOutput("/dev/null", out_strError));
    if (!loadConfiguration(m_hConfig, m_pRoutes, out_strError))
    {
        return false;
    }
    m_pNetIf = NetIfLoader::load(m_hConfig, out_strError);
    if (m_pNetIf.isNull())
    {
        out_strError = m_options.m_strConfigFile + ": " + out_strError;
        return false;
    }
    const std::string cdrFile = m_hConfig->getStringOr("quorvex.gateway.cdrFile", "");
    const std::string logFile = m_hConfig->getStringOr("quorvex.log.file", "");
    for (const auto& [szKey, strFile] :
         {std::pair("quorvex.gateway.cdrFile", cdrFile), std::pair("quorvex.log.file", logFile)})
    {
        const std::string strReason = whyNotWritable(strFile);
        if (!strReason.empty())
        {
            out_strError = m_options.m_strConfigFile;
            out_strError.append(": ").append(szKey).append(": ").append(strFile);
            out_strError.append(" cannot be written: ").append(strReason);
            return false;
        }
    }
    if (m_options.m_bCheckOnly)
    {
        return true;
    }
    if (!m_engine.getCdrWriter().open(cdrFile, out_strError) || !Logging::setOutput(logFile, out_strError))
    {
        out_strError = m_options.m_strConfigFile + ": " + out_strError;
        return false;
    }
    applyLevels(*m_hConfig);
    return true;
}

int Host::run()
{
    std::string error;
    if (!prepare(error))
    {
        complain(error);
        return eEXIT_CONFIGURATION;
    }
    if (m_options.m_bCheckOnly)
    {
        std::cout << m_options.m_strConfigFile << ": good\n";
        return eEXIT_CLEAN;
    }
    if (!start(error))
    {
        complain(error);
        tearDown();
        return eEXIT_FORCED;
    }
    announce();
    const int iExitCode = serve();
    tearDown();
    logMemoryAccounts();
    return iExitCode;
}

bool Host::start(std::string& out_strError)
{
    m_engine.setRoutes(m_pRoutes);
    m_engine.setDrainedHandler([this] { m_signals.wake(); });
    m_engine.setOutLegEngine(
        m_pNetIf.get(),
        static_cast<unsigned int>(m_hConfig->getIntegerOr("quorvex.sip.getHostByNameTimeoutMs", 250)));
    const auto milliseconds = [this](const char* in_szKey, std::int64_t in_iDefault)
    { return std::chrono::milliseconds(m_hConfig->getIntegerOr(in_szKey, in_iDefault)); };
    // RFC 3261: what is not acknowledged is given up after 64*T1.
    const auto acknowledged = 64 * milliseconds("quorvex.sip.t1Ms", 500) + std::chrono::seconds(5);
    m_engine.setPatience(milliseconds("quorvex.sip.timerCMs", 180'000) + acknowledged,
                         milliseconds("quorvex.sip.state.Disconnecting.timeoutMs", 5000) + acknowledged);
    m_engine.setListenAddresses(ListenAddresses(*m_hConfig));
    m_engine.start();
    m_metrics.addSource(m_engine);
    m_metrics.addSource(m_mediaMetrics);
    m_metrics.addSource(m_sipMetrics);
    return startHttp(out_strError) && startNetIf(out_strError);
}

bool Host::startHttp(std::string& out_strError)
{
    const std::string listen = m_hConfig->getStringOr("quorvex.gateway.httpListen", "");
    if (!listen.empty() && !m_http.start(listen, out_strError))
    {
        out_strError = m_options.m_strConfigFile + ": quorvex.gateway.httpListen: " + out_strError;
        return false;
    }
    return true;
}

void Host::observeMedia(LimitedObjPtr<MediaObserver> in_pObserver)
{
    const auto hSource =
        RegistrationSingleton::instance().lookup("TONE_PLAYER_FACTORY").dynamicCast<MediaStatisticsSource>();
    if (!hSource.isNull())
    {
        hSource->setMediaObserver(in_pObserver);
    }
}

bool Host::startNetIf(std::string& out_strError)
{
    const FirstError firstError;
    observeMedia(&m_engine);
    m_pNetIf->setCallEngine(&m_engine);
    // The first call may come before this thread hears that the network interface runs.
    m_engine.takeCalls(true);
    Task::State state = Task::STOPPED_STATE;
    m_pNetIf->addTaskStateObserver(this, state);
    const auto deadline = std::chrono::steady_clock::now() + kStartTimeout;
    bool bStarted = m_pNetIf->start();
    while (bStarted && netIfState() != Task::RUNNING_STATE)
    {
        const Signals::Event event = m_signals.wait(deadline);
        const Task::State now = netIfState();
        bStarted =
            event == Signals::Event::WOKEN && (now == Task::STARTING_STATE || now == Task::RUNNING_STATE);
        if (event == Signals::Event::TIMEOUT)
        {
            out_strError =
                "the network interface does not start within " + std::to_string(kStartTimeout.count()) + " s";
            return false;
        }
        if (event == Signals::Event::STOP)
        {
            out_strError = "stopped while starting";
            return false;
        }
    }
    if (!bStarted)
    {
        out_strError = "the network interface cannot be started: " + firstError.getText();
        return false;
    }
    m_control.setReporter(m_pNetIf.get());
    watchLoops();
    return true;
}

void Host::watchLoops()
{
    using Done = LoopWatchdog::Done;
    m_watchdog.watch(
        "sip", "sip-stack", [](Done in_done) { return SipStack::instance()->post(std::move(in_done)); });
    m_watchdog.watch("task",
                     m_pNetIf->getTaskName(),
                     [this](Done in_done) { return TaskProbe::ask(*m_pNetIf, std::move(in_done)); });
    m_watchdog.watch("media",
                     "rtp-media",
                     [](const Done& in_done)
                     {
                         const auto hSource = RegistrationSingleton::instance()
                                                  .lookup("TONE_PLAYER_FACTORY")
                                                  .dynamicCast<MediaStatisticsSource>();
                         return !hSource.isNull() && hSource->ping(in_done);
                     });
    m_watchdog.watch(
        "call engine", "call-engine", [this](Done in_done) { return m_engine.post(std::move(in_done)); });
    m_metrics.addSource(m_watchdog);
    m_control.setWatchdog(m_watchdog);
    m_watchdog.start();
}

void Host::announce() const
{
    std::cout << makeAnnouncement(*m_hConfig, *m_pRoutes) << std::flush;
    sd_notify(0, "READY=1");
}

int Host::serve()
{
    for (;;)
    {
        switch (m_signals.wait())
        {
            case Signals::Event::STOP:
                return stop();
            case Signals::Event::RELOAD:
                reload();
                break;
            case Signals::Event::WOKEN:
                if (netIfState() == Task::STOPPED_STATE)
                {
                    QLOG_ERROR(m_logger, "the network interface has ended by itself");
                    return eEXIT_FORCED;
                }
                if (m_engine.isDrained())
                {
                    QLOG_INFO(m_logger, "drained: the last call has ended");
                    return stop();
                }
                break;
            case Signals::Event::TIMEOUT:
                break;
        }
    }
}

int Host::stop()
{
    sd_notify(0, "STOPPING=1");
    // A stop has time limits of its own.
    m_watchdog.stop();
    m_engine.takeCalls(false);
    const auto timeout = std::chrono::seconds(m_hConfig->getIntegerOr("quorvex.gateway.stopTimeoutS", 30));
    QLOG_INFO(
        m_logger,
        "stopping: " << m_engine.getLiveCalls() << " calls are ended, at most " << timeout.count() << " s");
    std::cout << "stopping; a second signal kills" << std::endl;
    auto deadline = std::chrono::steady_clock::now() + timeout;
    int iExitCode = eEXIT_CLEAN;
    m_pNetIf->stop();
    while (netIfState() != Task::STOPPED_STATE)
    {
        const Signals::Event event = m_signals.wait(deadline);
        if (event == Signals::Event::WOKEN || event == Signals::Event::RELOAD)
        {
            continue;
        }
        if (iExitCode == eEXIT_FORCED)
        {
            QLOG_ERROR(m_logger, "the network interface does not end, not even killed");
            std::cout << std::flush;
            std::_Exit(eEXIT_FORCED);
        }
        QLOG_WARN(m_logger,
                  (event == Signals::Event::TIMEOUT ? "the stop has taken too long" : "a second signal")
                      << ": killing the network interface, " << m_engine.getLiveCalls()
                      << " calls are cut off");
        iExitCode = eEXIT_FORCED;
        deadline = std::chrono::steady_clock::now() + kKillTimeout;
        m_pNetIf->kill();
    }
    QLOG_INFO(m_logger, "stopped");
    return iExitCode;
}

void Host::reload()
{
    std::string error;
    // Whoever rotates the files asks for a reload too; a mistake in the configuration must not hold that up.
    m_engine.getCdrWriter().reopen();
    const std::string logFile = m_hConfig->getStringOr("quorvex.log.file", "");
    if (!logFile.empty() && !Logging::setOutput(logFile, error))
    {
        QLOG_ERROR(m_logger,
                   "log file " << logFile << " cannot be opened anew, the former one stays: " << error);
    }
    TSHandle<MapConfiguration> hConfig;
    std::shared_ptr<const RouteTable> pRoutes;
    if (!loadConfiguration(hConfig, pRoutes, error))
    {
        QLOG_ERROR(m_logger, "not reloaded, what was in force stays: " << error);
        return;
    }
    m_pRoutes = pRoutes;
    m_engine.setRoutes(pRoutes);
    applyLevels(*hConfig);
    QLOG_INFO(m_logger, "routes and log levels reloaded: " << pRoutes->getRoutes().size() << " routes");
}

void Host::tearDown()
{
    m_watchdog.stop();
    m_control.setReporter(nullptr);
    if (!m_pNetIf.isNull())
    {
        if (m_pNetIf->getTaskState() != Task::STOPPED_STATE)
        {
            m_pNetIf->kill();
        }
        m_pNetIf->waitUntilDone();
        m_pNetIf->removeTaskStateObserver(this);
    }
    // Before the network interface goes: the legs that are left are its objects.
    m_engine.stop();
    m_http.stop();
    observeMedia(nullptr);
    m_pNetIf = DynLibObjPtr<OAMGatewayNetIf>();
}

void Host::logMemoryAccounts()
{
    // The configuration is the last of what lives from the start to the end.
    m_hConfig.reset();
    static const Logger s_logger("quorvex.gateway.memory");
    const auto vBalances = MemAccounts::snapshot();
    const auto left =
        std::count_if(vBalances.begin(),
                      vBalances.end(),
                      [](const MemAccounts::Balance& in_balance) { return in_balance.m_ui64Objects != 0; });
    if (left == 0)
    {
        QLOG_INFO(s_logger, "all " << vBalances.size() << " memory accounts are back to zero");
    }
    else
    {
        QLOG_WARN(s_logger, left << " of " << vBalances.size() << " memory accounts are not back to zero");
    }
    for (const MemAccounts::Balance& balance : vBalances)
    {
        QLOG_DEBUG(s_logger,
                   "memory account " << balance.m_strName << ": " << balance.m_ui64Objects << " objects, "
                                     << balance.m_ui64Bytes << " bytes");
    }
}

void Host::taskStateChanged(ManageableTask& /*in_task*/, Task::State in_newState)
{
    {
        const std::lock_guard guard(m_mutex);
        m_netIfState = in_newState;
    }
    m_signals.wake();
}

Task::State Host::netIfState() const
{
    const std::lock_guard guard(m_mutex);
    return m_netIfState;
}

}  // namespace Quorvex
