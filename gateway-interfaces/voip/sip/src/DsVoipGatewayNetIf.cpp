#include "DsVoipGatewayNetIf.h"

#include <limits>
#include <sstream>
#include <utility>

#include "InStateMachine.h"
#include "NewSipCallInterface.h"
#include "OutStateMachine.h"
#include "infra/Assertion.h"
#include "infra/RegistrationSingleton.h"
#include "infra/TraceScope.h"
#include "media/CTBusTonePlayerFactory.h"
#include "media/MediaEngine.h"
#include "net/Net.h"
#include "quorvex/DynlibObjectFactory.h"
#include "sip-client-reg/ClientRegistrationFactory.h"
#include "sip-client-reg/ClientRegistrator.h"
#include "sip-common/SipStack.h"

namespace Quorvex
{

namespace
{

constexpr const char* kTaskName = "Sip Gateway Network Interface";
constexpr const char* kMediaLibKey = "quorvex.sip.mediaLibName";
constexpr const char* kTonePlayerFactoryName = "TONE_PLAYER_FACTORY";
constexpr std::size_t kHashBuckets = 100;

const StaticLogger& staticLogger()
{
    static const StaticLogger s_logger("quorvex.voip.DsVoipGatewayNetIf");
    return s_logger;
}

}  // namespace

DsVoipGatewayNetIf::DsVoipGatewayNetIf()
    : UserDefHandlerOrderTaskManager(kTaskName),
      OAMCmdExecuterTaskImpl(UserDefHandlerOrderTaskManager::getQueue()),
      ObjectWithLogger<LoggingIdLogger>(LoggingIdLogger(staticLogger())),
      m_outSMPool(eNUM_OUT_KINDS),
      m_activeOutSMHash(kHashBuckets),
      m_inSMPool(eNUM_IN_KINDS),
      m_activeInSMHash(kHashBuckets),
      m_pClientRegistrator(std::make_unique<ClientRegistrator>()),
      m_callDataHash(kHashBuckets)
{
    TRACE_SCOPE(getLogger(), "DsVoipGatewayNetIf::DsVoipGatewayNetIf");
}

DsVoipGatewayNetIf::~DsVoipGatewayNetIf()
{
    if (getTaskState() != STOPPED_STATE)
    {
        QLOG_ERROR(getLogger(), "destroyed while it runs: stop it first");
        static_cast<void>(kill());
        static_cast<void>(waitUntilDone());
    }
    withdrawTonePlayerFactory();
    TRACE_SCOPE(getLogger(), "DsVoipGatewayNetIf::~DsVoipGatewayNetIf");
}

bool DsVoipGatewayNetIf::configure(const TSHandle<ROConfiguration>& in_hConfig)
{
    TRACE_SCOPE(getLogger(), "DsVoipGatewayNetIf::configure");
    if (!QUORVEX_ASSERT_TEXT(getLogger(), !in_hConfig.isNull(), "! in_hConfig.isNull()") ||
        !QUORVEX_ASSERT(getLogger(), getTaskState() == STOPPED_STATE))
    {
        return false;
    }
    if (isMaxCountExceeded())
    {
        QLOG_ERROR(getLogger(),
                   "there is a SIP network interface in this process already, and can be only one");
        return false;
    }
    static_cast<void>(ManageableTaskImplBase::configure(in_hConfig));
    m_hMachineConfig = in_hConfig;
    clearTasks();
    if (m_pMediaEngine.isNull() && !loadMediaEngine(in_hConfig))
    {
        return false;
    }
    return addSubTasks(in_hConfig);
}

bool DsVoipGatewayNetIf::loadMediaEngine(const TSHandle<ROConfiguration>& in_hConfig)
{
    std::string strLibName;
    if (!in_hConfig->getString(kMediaLibKey, strLibName))
    {
        Parameter::logUndefinedParameter(kMediaLibKey, ParameterValue::STRING_TYPE);
        return false;
    }
    DynlibObjectFactory<MediaEngine> factory;
    if (!factory.openDynlib(strLibName))
    {
        QLOG_ERROR(getLogger(), "Failed to load SIP Media Engine from library " << strLibName);
        QLOG_ERROR(getLogger(), factory.getOpenError());
        return false;
    }
    m_pMediaEngine = factory.create("LoadMethod", in_hConfig);
    if (m_pMediaEngine.isNull())
    {
        QLOG_ERROR(getLogger(), "Failed to get SIP Media Engine from library " << strLibName);
        return false;
    }
    QLOG_INFO(getLogger(),
              "Loaded SIP Media Engine from " << kMediaLibKey << " parameter value = " << strLibName);
    return true;
}

bool DsVoipGatewayNetIf::addSubTasks(const TSHandle<ROConfiguration>& in_hConfig)
{
    const SubTask hManageableTask = m_pMediaEngine.as<ManageableTask>();
    if (!QUORVEX_ASSERT_TEXT(getLogger(), !hManageableTask.isNull(), "! hManageableTask.isNull()"))
    {
        return false;
    }
    QLOG_DEBUG(getLogger(),
               "About to add task " << hManageableTask->getTaskName() << " to Sip netif task manager");
    static_cast<void>(addTask(hManageableTask));
    publishTonePlayerFactory();

    m_hClientRegFactory.reset(new ClientRegistrationFactory);
    static_cast<void>(addTask(SubTask(m_hClientRegFactory)));
    static_cast<void>(m_pClientRegistrator->configure(in_hConfig, m_hClientRegFactory));
    return true;
}

void DsVoipGatewayNetIf::publishTonePlayerFactory()
{
    // What an earlier configuration published may not be the engine of this one.
    withdrawTonePlayerFactory();
    if (m_pMediaEngine.as<CTBusTonePlayerFactory>().isNull())
    {
        return;
    }
    QLOG_DEBUG(getLogger(), "Tone Player factory is publicized");
    static_cast<void>(RegistrationSingleton::instance().registerInstance(kTonePlayerFactoryName,
                                                                         m_pMediaEngine.as<Object>()));
    m_bTonePlayerFactoryRegistered = true;
}

void DsVoipGatewayNetIf::withdrawTonePlayerFactory()
{
    if (m_bTonePlayerFactoryRegistered)
    {
        static_cast<void>(RegistrationSingleton::instance().deregister(kTonePlayerFactoryName));
        m_bTonePlayerFactoryRegistered = false;
    }
}

void DsVoipGatewayNetIf::setCallEngine(LimitedObjPtr<CallEngine> in_pCallEngine)
{
    if (!(m_pCallEngine == in_pCallEngine))
    {
        m_pCallEngine = in_pCallEngine;
    }
}

bool DsVoipGatewayNetIf::setMediaEngine(const DynLibObjPtr<MediaEngine>& in_pMediaEngine)
{
    if (!QUORVEX_ASSERT(getLogger(), getTaskState() == STOPPED_STATE))
    {
        return false;
    }
    if (in_pMediaEngine.get() != m_pMediaEngine.get())
    {
        m_pMediaEngine = in_pMediaEngine;
    }
    return true;
}

bool DsVoipGatewayNetIf::getOM(const char* in_szName, OMObserver* in_pObserver)
{
    return enqueue(new GetOM_MO(*this, in_szName, in_pObserver), "DsVoipGatewayNetIf::getOM");
}

bool DsVoipGatewayNetIf::makeReport(const std::string& in_strName, std::string& out_strReport) const
{
    // Asked for every second by a watchdog: says only that this thread runs.
    if (in_strName == "alive")
    {
        out_strReport = in_strName;
        return true;
    }
    std::ostringstream stream;
    write(stream);
    out_strReport = std::move(stream).str();
    return true;
}

OAMCmdExecuterTaskImpl::OAMCmdExecHandler DsVoipGatewayNetIf::findCmdExecHandler_i(
    const std::string& /*in_strName*/)
{
    return {};
}

std::vector<std::string> DsVoipGatewayNetIf::getSupportedCmdNames_i() const
{
    return {};
}

void DsVoipGatewayNetIf::onSvcEntry()
{
    TRACE_SCOPE(getLogger(), "DsVoipGatewayNetIf::onSvcEntry");
    m_bStopForwarded = false;
    static_cast<void>(Net::initializeLibrary());
    if (!initializeSipStack())
    {
        QLOG_ERROR(getLogger(), "failed to initialize Sip stack");
        stop();
        return;
    }
    UserDefHandlerOrderTaskManager::onSvcEntry();
    static_cast<void>(m_pClientRegistrator->registerAll());
}

bool DsVoipGatewayNetIf::initializeSipStack()
{
    // Beyond this many waiting method objects new calls are turned away, so that those that are up are
    // served.
    constexpr std::int64_t kDefaultMaxQueueLength = 2000;
    std::int64_t iMaxQueueLength =
        getConfig().getIntegerOr("quorvex.sip.maxQueueLength", kDefaultMaxQueueLength);
    if (iMaxQueueLength < 1)
    {
        QLOG_ERROR(getLogger(),
                   "quorvex.sip.maxQueueLength must be at least 1; taking " << kDefaultMaxQueueLength);
        iMaxQueueLength = kDefaultMaxQueueLength;
    }
    SipStack::instance()->setOverloadCheck([this, uiMax = static_cast<std::size_t>(iMaxQueueLength)]
                                           { return getQueueLength() > uiMax; });
    return SipStack::instance()->initialize(getConfigHandle(),
                                            DsHandle<DsSipNewCallinterface>(new NewSipCallInterface(*this)));
}

void DsVoipGatewayNetIf::onSvcExit()
{
    TRACE_SCOPE(getLogger(), "DsVoipGatewayNetIf::onSvcExit");
    dropAllStateMachines();
    Net::closeLibrary();
}

void DsVoipGatewayNetIf::handleMOCallStop()
{
    TRACE_SCOPE(getLogger(), "DsVoipGatewayNetIf::handleMOCallStop");
    // Calls that keep coming must not keep the stop from ending: the stack itself turns them away from here
    // on.
    SipStack::instance()->drain();
    static_cast<void>(m_pClientRegistrator->unregisterAll());
    if (m_uiNumSMOutOfService != getNumActive())
    {
        stopAllStateMachines();
        // Machines that wait in an early dialog send no final response themselves.
        SipStack::instance()->refuseUnanswered();
        return;
    }
    QLOG_DEBUG(getLogger(), "All active state machines are already stopped.");
    if (!m_bStopForwarded)
    {
        m_bStopForwarded = true;
        UserDefHandlerOrderTaskManager::handleMOCallStop();
    }
}

void DsVoipGatewayNetIf::handleMOCallKill()
{
    TRACE_SCOPE(getLogger(), "DsVoipGatewayNetIf::handleMOCallKill");
    static_cast<void>(m_pClientRegistrator->unregisterAll());
    if (m_uiNumSMOutOfService != getNumActive())
    {
        stopAllStateMachines();
        UserDefHandlerOrderTaskManager::handleMOCallKill();
        return;
    }
    QLOG_DEBUG(getLogger(), "All active state machines are already stopped.");
    if (!m_bStopForwarded)
    {
        m_bStopForwarded = true;
        UserDefHandlerOrderTaskManager::handleMOCallKill();
    }
}

void DsVoipGatewayNetIf::onStopCompleted()
{
    TRACE_SCOPE(getLogger(), "DsVoipGatewayNetIf::onStopCompleted");
    // After a kill there may be calls left: their far ends hear of it while the stack can still tell them.
    // Their ends carry nothing on any more.
    m_bStopForwarded = true;
    killAllStateMachines();
    QLOG_DEBUG(getLogger(), "Performing SIP stack shutdown");
    static_cast<void>(SipStack::instance()->stop());
    static_cast<void>(SipStack::instance()->waitUntilDone());
    SipStack::instance()->setOverloadCheck({});
}

int DsVoipGatewayNetIf::Enqueue(ACE_Method_Request* in_pMethodObject)
{
    return Task::enqueue(getQueue(), in_pMethodObject) ? 0 : -1;
}

}  // namespace Quorvex
