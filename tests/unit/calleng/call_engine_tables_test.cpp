#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>

#include "calleng/Call.h"

namespace Quorvex::Call
{
namespace
{

const char* const kPage = DOCS_DIR "/call-engine.md";

/// The tables as the page prints them.
std::string printTables()
{
    std::ostringstream page;
    page << "### Failure codes\n\n| code | name | meaning | SIP status | CPD-Result "
            "|\n|---|---|---|---|---|\n";
    for (const FailureEntry& entry : kFailures)
    {
        page << "| " << entry.m_failure << " | " << entry.m_name << " | " << entry.m_meaning << " | "
             << entry.m_uiSipStatus << " | " << entry.m_cpdResult << " |\n";
    }
    page << "\n### Connection types\n\n| type | name | meaning | SIP status | CPD-Result "
            "|\n|---|---|---|---|---|\n";
    for (const ConnectionTypeEntry& entry : kConnectionTypes)
    {
        page << "| " << entry.m_type << " | " << entry.m_name << " | " << entry.m_meaning << " | "
             << entry.m_uiSipStatus << " | " << entry.m_cpdResult << " |\n";
    }
    page << "\n### Ring types\n\n| type | name | meaning |\n|---|---|---|\n";
    for (const RingTypeEntry& entry : kRingTypes)
    {
        page << "| " << entry.m_type << " | " << entry.m_name << " | " << entry.m_meaning << " |\n";
    }
    return page.str();
}

/// The tables stand between two marks. With QUORVEX_UPDATE_DOCS set, the test writes them there.
TEST(CallEngineTablesTest, ThePageShowsTheTablesAsTheyAre)
{
    const std::string strBegin = "<!-- tables -->\n";
    const std::string strEnd = "<!-- end of tables -->\n";
    std::ifstream file(kPage);
    std::stringstream text;
    text << file.rdbuf();
    std::string strPage = text.str();
    const std::size_t begin = strPage.find(strBegin);
    const std::size_t end = strPage.find(strEnd);
    ASSERT_TRUE(begin != std::string::npos && end != std::string::npos) << kPage << " lacks its marks";
    const std::size_t first = begin + strBegin.size();
    if (std::getenv("QUORVEX_UPDATE_DOCS") != nullptr)
    {
        strPage.replace(first, end - first, printTables());
        std::ofstream(kPage) << strPage;
        return;
    }
    EXPECT_EQ(strPage.substr(first, end - first), printTables())
        << "run this test once with QUORVEX_UPDATE_DOCS=1 in the environment";
}

TEST(CallEngineTablesTest, NumbersAndNamesAreUnambiguous)
{
    std::set<int> failures;
    std::set<std::string_view> names;
    for (const FailureEntry& entry : kFailures)
    {
        EXPECT_TRUE(failures.insert(entry.m_failure).second) << entry.m_name;
        EXPECT_TRUE(names.insert(entry.m_name).second) << entry.m_name;
        EXPECT_GE(entry.m_uiSipStatus, 400U);
        const auto parsed = parseFailureName(entry.m_name);
        ASSERT_TRUE(parsed.valid()) << entry.m_name;
        EXPECT_EQ(parsed.value(), entry.m_failure);
    }
    std::set<int> types;
    for (const ConnectionTypeEntry& entry : kConnectionTypes)
    {
        EXPECT_TRUE(types.insert(entry.m_type).second) << entry.m_name;
        const auto parsed = parseCPDResult(entry.m_cpdResult);
        ASSERT_TRUE(parsed.valid()) << entry.m_name;
        EXPECT_EQ(parsed.value(), entry.m_type) << "a text stands for two types: " << entry.m_cpdResult;
    }
}

TEST(CallEngineTablesTest, WhatIsInNoTableHasADefinedMeaning)
{
    EXPECT_EQ(getFailureEntry(4711).m_failure, eOTHER_FAILURE);
    EXPECT_EQ(getFailureEntry(eNO_FAILURE).m_failure, eOTHER_FAILURE);
    EXPECT_EQ(getConnectionTypeEntry(static_cast<ConnectionType>(99)).m_type, eCONNECTION_NONE);
    for (const char* szText : {"", "Busy ", "Bus", "unheard of"})
    {
        EXPECT_FALSE(parseCPDResult(szText).valid()) << szText;
        EXPECT_FALSE(parseFailureName(szText).valid()) << szText;
    }
    EXPECT_EQ(parseCPDResult("bUSY").value(), eCONNECTION_BUSY);
    EXPECT_STREQ(getCPDResultString(ConnectionFailureType(eBUSY_FAILURE)), getCPDResultString(eBUSY_FAILURE));
}

}  // namespace
}  // namespace Quorvex::Call
