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

}  // namespace
}  // namespace Quorvex::Call
