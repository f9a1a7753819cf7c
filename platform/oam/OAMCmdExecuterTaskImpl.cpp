#include "oam/OAMCmdExecuterTaskImpl.h"

#include <ace/Method_Request.h>

#include <utility>

#include "infra/MemAccount.h"
#include "thread/Task.h"

namespace Quorvex
{

/// One command on its way to the task's thread. Deleted without having been run, it tells the observer.
class OAMCmdExecuterTaskImpl::ExecuteCommand_MO final : public ACE_Method_Request
{
public:
    QUORVEX_MEM_ACCOUNT("OAMCmdExecuterTaskImpl::ExecuteCommand_MO");

    ExecuteCommand_MO(OAMCmdExecuterTaskImpl& in_executer,
                      OAMCommand in_command,
                      OAMCmdExecObserver* in_pObserver)
        : m_executer(in_executer), m_command(std::move(in_command)), m_pObserver(in_pObserver)
    {
    }

    ~ExecuteCommand_MO() override
    {
        if (!m_bCalled && m_pObserver != nullptr)
        {
            m_pObserver->cmdFailed(m_command, "the task has ended");
        }
    }

    int call() override
    {
        m_bCalled = true;
        m_executer.execute(m_command, m_pObserver);
        return 0;
    }

private:
    OAMCmdExecuterTaskImpl& m_executer;
    const OAMCommand m_command;
    OAMCmdExecObserver* const m_pObserver;
    bool m_bCalled = false;
};

bool OAMCmdExecuterTaskImpl::executeCommand(const OAMCommand& in_command, OAMCmdExecObserver* in_pObserver)
{
    return Task::enqueue(m_queue,
                         new ExecuteCommand_MO(*this, in_command, in_pObserver),
                         "OAMCmdExecuterTaskImpl::executeCommand");
}

void OAMCmdExecuterTaskImpl::execute(const OAMCommand& in_command, OAMCmdExecObserver* in_pObserver)
{
    std::string strText;
    bool bDone = false;
    if (const OAMCmdExecHandler handler = findCmdExecHandler_i(in_command.getName()))
    {
        bDone = handler(in_command, strText);
    }
    else
    {
        strText = "unknown command \"" + in_command.getName() + "\"; known commands:";
        const std::vector<std::string> vNames = getSupportedCmdNames_i();
        for (const std::string& strName : vNames)
        {
            strText += ' ' + strName;
        }
        strText += vNames.empty() ? " none" : "";
    }
    if (in_pObserver != nullptr)
    {
        bDone ? in_pObserver->cmdSucceeded(in_command, strText)
              : in_pObserver->cmdFailed(in_command, strText);
    }
}

}  // namespace Quorvex
