#include "DsSipGatewayNetIf.h"

#include "DsVoipGatewayNetIf.h"

namespace Quorvex
{

namespace
{
const StaticLogger s_logger("quorvex.voip.DsSipGatewayNetIf");
}

DsSipGatewayNetIf::DsSipGatewayNetIf() : m_pNetIf(new DsVoipGatewayNetIf)
{
    QLOG_TRACE(s_logger, "DsSipGatewayNetIf ctor");
}

DsSipGatewayNetIf::~DsSipGatewayNetIf()
{
    QLOG_TRACE(s_logger, "DsSipGatewayNetIf dtor");
    delete m_pNetIf;
}

bool DsSipGatewayNetIf::configure(const TSHandle<ROConfiguration>& in_hConfig)
{
    return m_pNetIf->configure(in_hConfig);
}

bool DsSipGatewayNetIf::start()
{
    return m_pNetIf->start();
}

bool DsSipGatewayNetIf::stop()
{
    return m_pNetIf->stop();
}

bool DsSipGatewayNetIf::kill()
{
    return m_pNetIf->kill();
}

bool DsSipGatewayNetIf::waitUntilDone()
{
    return m_pNetIf->waitUntilDone();
}

const char* DsSipGatewayNetIf::getTaskName() const
{
    return m_pNetIf->getTaskName();
}

Task::State DsSipGatewayNetIf::getTaskState()
{
    return m_pNetIf->getTaskState();
}

bool DsSipGatewayNetIf::addTaskStateObserver(LimitedObjPtr<TaskStateObserver> in_pObserver,
                                             Task::State& out_state)
{
    return m_pNetIf->addTaskStateObserver(in_pObserver, out_state);
}

bool DsSipGatewayNetIf::removeTaskStateObserver(LimitedObjPtr<TaskStateObserver> in_pObserver)
{
    return m_pNetIf->removeTaskStateObserver(in_pObserver);
}

OutCallLeg* DsSipGatewayNetIf::getOutCallLeg(CallOutInterface* in_pCallOutInterface, const char* in_szCallId)
{
    return m_pNetIf->getOutCallLeg(in_pCallOutInterface, in_szCallId);
}

void DsSipGatewayNetIf::setCallEngine(LimitedObjPtr<CallEngine> in_pCallEngine)
{
    m_pNetIf->setCallEngine(in_pCallEngine);
}

bool DsSipGatewayNetIf::setMediaEngine(const DynLibObjPtr<MediaEngine>& in_pMediaEngine)
{
    return m_pNetIf->setMediaEngine(in_pMediaEngine);
}

bool DsSipGatewayNetIf::getOM(const char* in_szName, OMObserver* in_pObserver)
{
    return m_pNetIf->getOM(in_szName, in_pObserver);
}

bool DsSipGatewayNetIf::executeCommand(const OAMCommand& in_command, OAMCmdExecObserver* in_pObserver)
{
    return m_pNetIf->executeCommand(in_command, in_pObserver);
}

}  // namespace Quorvex
