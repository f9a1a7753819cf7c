#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "oam/OAMCmdExecuterTaskImpl.h"
#include "oam/OMReporterTaskImpl.h"
#include "tests/unit/thread/TestTask.h"

namespace Quorvex::Test
{

using testing::ElementsAre;

namespace
{

class Reporter final : public OMReporterTaskImpl,
                       protected UserDefHandlerTaskManager,
                       public OAMCmdExecuterTaskImpl,
                       public OutputStreamable
{
public:
    Reporter() : UserDefHandlerTaskManager("reporter"), OAMCmdExecuterTaskImpl(getQueue()) {}

    using UserDefHandlerTaskManager::start;
    using UserDefHandlerTaskManager::stop;
    using UserDefHandlerTaskManager::waitUntilDone;

    bool getOM(const char* in_szName, OMObserver* in_pObserver) override
    {
        return enqueue(new GetOM_MO(*this, in_szName, in_pObserver), "getOM");
    }

    std::ostream& write(std::ostream& out_stream) const override
    {
        return out_stream << (isTaskThread() ? "on the task's thread" : "elsewhere");
    }

protected:
    OAMCmdExecHandler findCmdExecHandler_i(const std::string& in_strName) override
    {
        if (in_strName != "echo")
        {
            return {};
        }
        return [](const OAMCommand& in_command, std::string& out_strText)
        {
            out_strText = in_command.getArguments().empty() ? "nothing to say" : in_command.getArguments()[0];
            return !in_command.getArguments().empty();
        };
    }
    std::vector<std::string> getSupportedCmdNames_i() const override { return {"echo", "other"}; }
};

class Observer final : public OMObserver, public OAMCmdExecObserver
{
public:
    void omReport(const std::string& in_strName, const std::string& in_strReport) override
    {
        m_journal.add("report " + in_strName + ": " + in_strReport);
    }
    void omUnavailable(const std::string& in_strName, const std::string& in_strReason) override
    {
        m_journal.add("no " + in_strName + ": " + in_strReason);
    }
    void cmdSucceeded(const OAMCommand& in_command, const std::string& in_strResult) override
    {
        m_journal.add("done " + in_command.getName() + ": " + in_strResult);
    }
    void cmdFailed(const OAMCommand& in_command, const std::string& in_strReason) override
    {
        m_journal.add("failed " + in_command.getName() + ": " + in_strReason);
    }
    Journal m_journal;
};

TEST(OAM, ReportsAndExecutesOnTheTaskThread)
{
    Observer observer;
    Reporter reporter;
    ASSERT_TRUE(reporter.start());
    EXPECT_TRUE(reporter.getOM("status", &observer));
    EXPECT_TRUE(reporter.getOM("status", nullptr));
    EXPECT_TRUE(reporter.executeCommand(OAMCommand("echo", {"hello"}), &observer));
    EXPECT_TRUE(reporter.executeCommand(OAMCommand("echo"), &observer));
    EXPECT_TRUE(reporter.executeCommand(OAMCommand("echo"), nullptr));
    EXPECT_TRUE(reporter.executeCommand(OAMCommand("dance"), &observer));
    ASSERT_TRUE(reporter.stop());
    ASSERT_TRUE(reporter.waitUntilDone());
    EXPECT_THAT(observer.m_journal.take(),
                ElementsAre("report status: on the task's thread",
                            "done echo: hello",
                            "failed echo: nothing to say",
                            "failed dance: unknown command \"dance\"; known commands: echo other"));
    EXPECT_EQ(MemAccounts::get("OMReporterTaskImpl::GetOM_MO").liveObjects(), 0U);
}

TEST(OAM, WhoeverAsksAStoppedTaskIsToldWhenItGoes)
{
    Observer observer;
    {
        Reporter reporter;
        reporter.getOM("status", &observer);
        reporter.executeCommand(OAMCommand("echo", {"hello"}), &observer);
    }
    EXPECT_THAT(observer.m_journal.take(),
                ElementsAre("no status: the task has ended", "failed echo: the task has ended"));
}

}  // namespace
}  // namespace Quorvex::Test
