#include "thread/TaskObjectProxy.h"

namespace Quorvex
{

const Logger& TaskObjectPoolNoT::getLogger()
{
    static const StaticLogger s_logger("quorvex.thread.TaskObjectPool");
    return s_logger;
}

TaskObjectProxyNoT::TaskObjectProxyNoT(IDGenerator& in_idGenerator, ACE_Activation_Queue& in_queue)
    : m_idGenerator(in_idGenerator), m_uiObjectID(in_idGenerator.getID()), m_queue(in_queue)
{
}

void TaskObjectProxyNoT::proxyDestruction()
{
    m_idGenerator.takeBack(m_uiObjectID);
}

}  // namespace Quorvex
