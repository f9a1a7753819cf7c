#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>

#include "gateway/CdrWriter.h"
#include "infra/Logger.h"

namespace Quorvex
{
namespace
{

namespace fs = std::filesystem;

class CdrWriterTest : public testing::Test
{
protected:
    void SetUp() override
    {
        std::string strTemplate = (fs::temp_directory_path() / "quorvex-cdr-XXXXXX").string();
        ASSERT_NE(mkdtemp(strTemplate.data()), nullptr);
        m_folder = strTemplate;
    }
    void TearDown() override { fs::remove_all(m_folder); }

    static CallRecord makeRecord(const std::string& in_strCall)
    {
        CallRecord record;
        record.m_strCall = in_strCall;
        return record;
    }

    static std::vector<std::string> callsIn(const fs::path& in_file)
    {
        std::vector<std::string> vCalls;
        std::ifstream file(in_file);
        for (std::string strLine; std::getline(file, strLine);)
        {
            vCalls.push_back(nlohmann::json::parse(strLine)["call"]);
        }
        return vCalls;
    }

    fs::path m_folder;
    CdrWriter m_writer;
    std::string m_strError;
};

using Calls = std::vector<std::string>;

TEST_F(CdrWriterTest, RecordsAreAppendedInOrderAndAllOfThemAtTheEnd)
{
    const fs::path file = m_folder / "cdr.jsonl";
    for (const char* szRun : {"first", "second"})
    {
        ASSERT_TRUE(m_writer.open(file, m_strError)) << m_strError;
        m_writer.write(makeRecord(std::string(szRun) + "-a"));
        m_writer.write(makeRecord(std::string(szRun) + "-b"));
        m_writer.close();
    }
    m_writer.write(makeRecord("too late"));
    m_writer.close();
    EXPECT_EQ(callsIn(file), (Calls{"first-a", "first-b", "second-a", "second-b"}));
    EXPECT_EQ(m_writer.getWrittenCount(), 4U);
    EXPECT_EQ(m_writer.getLostCount(), 0U);
}

TEST_F(CdrWriterTest, RecordsOfSeveralThreadsDoNotMix)
{
    constexpr int kThreads = 4;
    constexpr int kRecords = 500;
    const fs::path file = m_folder / "cdr.jsonl";
    ASSERT_TRUE(m_writer.open(file, m_strError)) << m_strError;
    std::vector<std::thread> vThreads;
    for (int i = 0; i < kThreads; ++i)
    {
        vThreads.emplace_back(
            [this, i]
            {
                for (int j = 0; j < kRecords; ++j)
                {
                    m_writer.write(makeRecord(std::to_string(i) + "-" + std::to_string(j)));
                }
            });
    }
    for (std::thread& thread : vThreads)
    {
        thread.join();
    }
    m_writer.close();
    const Calls calls = callsIn(file);
    EXPECT_EQ(std::set<std::string>(calls.begin(), calls.end()).size(), std::size_t{kThreads} * kRecords);
    EXPECT_EQ(calls.size(), std::size_t{kThreads} * kRecords);
}

TEST_F(CdrWriterTest, AfterReopenARotatedFileIsLetGo)
{
    const fs::path file = m_folder / "cdr.jsonl";
    ASSERT_TRUE(m_writer.open(file, m_strError)) << m_strError;
    m_writer.write(makeRecord("before"));
    m_writer.close();
    ASSERT_TRUE(m_writer.open(file, m_strError)) << m_strError;
    fs::rename(file, m_folder / "cdr.1");
    m_writer.reopen();
    m_writer.write(makeRecord("after"));
    m_writer.close();
    EXPECT_EQ(callsIn(m_folder / "cdr.1"), Calls{"before"});
    EXPECT_EQ(callsIn(file), Calls{"after"});
}

TEST_F(CdrWriterTest, WhatTheDiskRefusesIsCountedAndReportedOnce)
{
    static int s_iErrors = 0;
    s_iErrors = 0;
    Logging::setCapture(
        [](void*, int in_iLevel, const std::string& in_strLogger, const std::string& in_strText)
        {
            s_iErrors += in_iLevel == eERROR_LEVEL && in_strLogger == "quorvex.gateway.CdrWriter" &&
                                 in_strText.find("No space left") != std::string::npos
                             ? 1
                             : 0;
        },
        nullptr);
    ASSERT_TRUE(m_writer.open("/dev/full", m_strError)) << m_strError;
    for (int i = 0; i < 100; ++i)
    {
        m_writer.write(makeRecord("lost"));
    }
    m_writer.close();
    Logging::setCapture(nullptr, nullptr);
    EXPECT_EQ(m_writer.getLostCount(), 100U);
    EXPECT_EQ(m_writer.getWrittenCount(), 0U);
    EXPECT_EQ(s_iErrors, 1);
}

TEST_F(CdrWriterTest, AFileThatCannotBeWrittenIsRefusedWithTheReason)
{
    EXPECT_FALSE(m_writer.open(m_folder / "missing" / "cdr.jsonl", m_strError));
    EXPECT_EQ(m_strError, "No such file or directory");
    EXPECT_TRUE(m_writer.open("", m_strError)) << "no name turns records off";
    m_writer.write(makeRecord("nowhere"));
    m_writer.close();
    EXPECT_EQ(m_writer.getLostCount(), 0U);
}

}  // namespace
}  // namespace Quorvex
