#pragma once

#include <functional>
#include <string>
#include <vector>

#include "oam/OAMCmdExecuter.h"

class ACE_Activation_Queue;

namespace Quorvex
{

/// Executes commands on a task's thread. The class that derives from it says which commands there are.
class OAMCmdExecuterTaskImpl : public virtual OAMCmdExecuter
{
public:
    /// Executes one command; false when it failed. The text is the result, or the reason.
    using OAMCmdExecHandler = std::function<bool(const OAMCommand& in_command, std::string& out_strText)>;

    bool executeCommand(const OAMCommand& in_command, OAMCmdExecObserver* in_pObserver) override;

protected:
    /// The queue of the task on whose thread commands are executed.
    explicit OAMCmdExecuterTaskImpl(ACE_Activation_Queue& in_queue) : m_queue(in_queue) {}

    /// What executes a command of that name; empty when there is no such command. Task thread.
    virtual OAMCmdExecHandler findCmdExecHandler_i(const std::string& in_strName) = 0;
    /// The names of all commands, for the answer to an unknown one. Task thread.
    virtual std::vector<std::string> getSupportedCmdNames_i() const = 0;

private:
    class ExecuteCommand_MO;

    void execute(const OAMCommand& in_command, OAMCmdExecObserver* in_pObserver);

    ACE_Activation_Queue& m_queue;
};

}  // namespace Quorvex
