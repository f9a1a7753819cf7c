#pragma once

#include <string>
#include <utility>
#include <vector>

namespace Quorvex
{

/// An operator's command.
class OAMCommand
{
public:
    explicit OAMCommand(std::string in_strName, std::vector<std::string> in_vArguments = {})
        : m_strName(std::move(in_strName)), m_vArguments(std::move(in_vArguments))
    {
    }

    const std::string& getName() const { return m_strName; }
    const std::vector<std::string>& getArguments() const { return m_vArguments; }

private:
    std::string m_strName;
    std::vector<std::string> m_vArguments;
};

/// Is told how a command ended.
class OAMCmdExecObserver
{
public:
    OAMCmdExecObserver() = default;
    OAMCmdExecObserver(const OAMCmdExecObserver&) = delete;
    OAMCmdExecObserver& operator=(const OAMCmdExecObserver&) = delete;
    virtual ~OAMCmdExecObserver() = default;

    /// Called on the executer's thread: hand it on and return.
    virtual void cmdSucceeded(const OAMCommand& in_command, const std::string& in_strResult) = 0;
    virtual void cmdFailed(const OAMCommand& in_command, const std::string& in_strReason) = 0;
};

/// Something that executes an operator's commands.
class OAMCmdExecuter
{
public:
    OAMCmdExecuter() = default;
    OAMCmdExecuter(const OAMCmdExecuter&) = delete;
    OAMCmdExecuter& operator=(const OAMCmdExecuter&) = delete;
    virtual ~OAMCmdExecuter() = default;

    /// Has the command executed; returns at once. The observer (may be null) is called exactly once, later or
    /// before this returns, also when false comes back, and must live until then.
    virtual bool executeCommand(const OAMCommand& in_command, OAMCmdExecObserver* in_pObserver) = 0;
};

}  // namespace Quorvex
