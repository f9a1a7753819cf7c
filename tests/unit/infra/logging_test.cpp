#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <mutex>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "infra/Assertion.h"
#include "infra/Parameter.h"
#include "infra/RecursivityGuard.h"
#include "infra/ThreadName.h"
#include "infra/TraceScope.h"

using namespace Quorvex;

namespace
{

/// Collects records while it lives.
class Records
{
public:
    Records()
    {
        Logging::setCapture(
            [](void* io_pContext,
               int in_iLevel,
               const std::string& in_strLogger,
               const std::string& in_strText)
            {
                static_cast<Records*>(io_pContext)
                    ->m_vRecords.push_back(std::to_string(in_iLevel) + " " + in_strLogger + " " + in_strText);
            },
            this);
    }
    Records(const Records&) = delete;
    Records& operator=(const Records&) = delete;
    ~Records()
    {
        Logging::setCapture(nullptr, nullptr);
        Logging::clearLevels();
        Logging::setRootLevel(eINFO_LEVEL);
    }
    std::vector<std::string> m_vRecords;
};

TEST(LoggingTest, LevelNames)
{
    int level = -1;
    EXPECT_TRUE(Logging::parseLevel("debug", level));
    EXPECT_EQ(level, eDEBUG_LEVEL);
    EXPECT_FALSE(Logging::parseLevel("verbose", level));
    EXPECT_FALSE(Logging::parseLevel("", level));
    EXPECT_EQ(level, eDEBUG_LEVEL);
}

}  // namespace

TEST(LoggerTest, LevelsComeFromTheNearestConfiguredAncestorAndChangeAtOnce)
{
    const Logger logger("quorvex.test.levels.Leaf");
    const Records records;
    EXPECT_FALSE(logger.isEnabled(eDEBUG_LEVEL));
    Logging::setLevel("quorvex.test", eDEBUG_LEVEL);
    EXPECT_TRUE(logger.isEnabled(eDEBUG_LEVEL));
    EXPECT_FALSE(Logger("quorvex.testing").isEnabled(eDEBUG_LEVEL))
        << "a name is not a prefix of another part";
    Logging::setLevel("quorvex.test.levels", eERROR_LEVEL);
    EXPECT_FALSE(logger.isEnabled(eWARN_LEVEL));
    EXPECT_FALSE(Logger("quorvex.test.levels.Later").isEnabled(eWARN_LEVEL));
    Logging::clearLevels();
    EXPECT_TRUE(logger.isEnabled(eINFO_LEVEL));
}

TEST(LoggerTest, NothingIsFormattedBelowTheLevel)
{
    const Logger logger("quorvex.test.format");
    int evaluated = 0;
    QLOG_DEBUG(logger, ++evaluated);
    EXPECT_EQ(evaluated, 0);
}

TEST(LoggerTest, RecordsAreLinesThatLeaveNothingToTheNext)
{
    const std::string strFile = testing::TempDir() + "quorvex-logging-test.log";
    std::remove(strFile.c_str());
    std::string strError;
    ASSERT_TRUE(Logging::setOutput(strFile, strError)) << strError;
    const Logger logger("quorvex.test.line");
    const auto inner = [&logger]
    {
        QLOG_WARN(logger, "inner " << 10);
        return 11;
    };
    QLOG_INFO(logger, "outer " << std::hex << std::setfill('0') << std::setw(4) << inner());
    QLOG_ERROR(logger, std::setw(6) << 12 << std::string(10000, 'x').size());
    std::thread(
        [&logger]
        {
            QLOG_INFO(logger, "unnamed");
            nameThisThread("a name that is too long");
            QLOG_INFO(
                logger,
                "from \x1b[2J" << '\0' << "\ta\x7f\r\nFrom: b\r\n2031-05-04T10:00:00.123 ERROR forged\r");
        })
        .join();
    ASSERT_TRUE(Logging::setOutput("", strError));
    std::ifstream file(strFile);
    for (const char* szEnd : {"WARN  [main] quorvex.test.line: inner 10",
                              "INFO  [main] quorvex.test.line: outer 000b",
                              "ERROR [main] quorvex.test.line:     1210000",
                              "INFO  [T] quorvex.test.line: unnamed",
                              "INFO  [a name that is ] quorvex.test.line: from ?[2J?\ta?"})
    {
        std::string strLine;
        std::getline(file, strLine);
        strLine = std::regex_replace(strLine, std::regex("\\[[0-9]+\\]"), "[T]");
        EXPECT_TRUE(
            std::regex_match(strLine.substr(0, 24),
                             std::regex("[0-9]{4}-[01][0-9]-[0-3][0-9]T([0-9]{2}:){2}[0-9]{2}\\.[0-9]{3} ")))
            << strLine;
        EXPECT_EQ(strLine.substr(24), szEnd);
    }
    const std::string strRest{std::istreambuf_iterator<char>(file), {}};
    EXPECT_EQ(strRest, "\tFrom: b\n\t2031-05-04T10:00:00.123 ERROR forged?\n");
}

TEST(CallLoggerTest, EveryLineOfACallCarriesItsIdentifiers)
{
    const Records records;
    CallLogger logger("quorvex.test.call");
    logger.addLoggingId("sip_call_id=abc");
    logger.callStart("42");
    const CallLogger copy(logger);
    logger.callEnd();
    logger.clearLoggingIds();
    QLOG_INFO(copy, "hello");
    QLOG_INFO(logger, "bye");
    EXPECT_EQ(records.m_vRecords,
              (std::vector<std::string>{"20000 quorvex.test.call [call=42] [sip_call_id=abc] hello",
                                        "20000 quorvex.test.call bye"}));
    EXPECT_EQ(copy.getCallId(), "42");
}

TEST(LoggingTest, UnwritableFileIsRefusedWithAReason)
{
    std::string error;
    EXPECT_FALSE(Logging::setOutput("/nonexistent/dir/file.log", error));
    EXPECT_EQ(error, "No such file or directory");

    const std::string path = ::testing::TempDir() + "/quorvex_logging_test.log";
    std::remove(path.c_str());
    ASSERT_TRUE(Logging::setOutput(path, error)) << error;
    QLOG_INFO(Logger("quorvex.test.file"), "to the file");
    ASSERT_TRUE(Logging::setOutput("", error));
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    EXPECT_NE(line.find("INFO  ["), std::string::npos) << line;
    EXPECT_NE(line.find("quorvex.test.file: to the file"), std::string::npos) << line;
}
