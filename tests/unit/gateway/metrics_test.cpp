#include "gateway/Metrics.h"

#include <gtest/gtest.h>

#include <limits>
#include <regex>
#include <set>
#include <sstream>

#include "infra/MemAccount.h"

namespace Quorvex
{
namespace
{

TEST(MetricsPageTest, SamplesFollowTheirFamilyAndLabelsAreEscaped)
{
    MetricsPage page;
    page.family("quorvex_x", "gauge", "Back\\slash and\nnew line.");
    page.sample(
        std::uint64_t{
            18446744073709551615U
    },
        {{"a", "q\"b\\c\nd"}, {"e", ""}});
    page.sample(0.25);
    page.sample(std::numeric_limits<double>::infinity());
    page.counter("quorvex_y_total", 3, "Y.");
    EXPECT_EQ(page.getText(),
              "# HELP quorvex_x Back\\\\slash and\\nnew line.\n"
              "# TYPE quorvex_x gauge\n"
              "quorvex_x{a=\"q\\\"b\\\\c\\nd\",e=\"\"} 18446744073709551615\n"
              "quorvex_x 0.25\n"
              "quorvex_x +Inf\n"
              "# HELP quorvex_y_total Y.\n"
              "# TYPE quorvex_y_total counter\n"
              "quorvex_y_total 3\n");
}

TEST(HistogramTest, BucketsAreCumulativeAndABoundBelongsToItsBucket)
{
    Histogram histogram({1, 2.5});
    for (const double fValue : {0.5, 1.0, 1.5, 2.5, 100.0})
    {
        histogram.observe(fValue);
    }
    MetricsPage page;
    histogram.write(page, "h", "H.");
    EXPECT_EQ(page.getText(),
              "# HELP h H.\n# TYPE h histogram\n"
              "h_bucket{le=\"1\"} 2\nh_bucket{le=\"2.5\"} 4\nh_bucket{le=\"+Inf\"} 5\n"
              "h_sum 105.5\nh_count 5\n");
}

class FixedSource : public MetricsSource
{
public:
    void collect(MetricsPage& io_page) override { io_page.gauge("quorvex_fixed", 7, "Seven."); }
};

TEST(MetricsTest, ThePageCanBeReadByAScraper)
{
    MemAccounts::get("MetricsTest<Odd \"name\">").charge(48);
    FixedSource source;
    Metrics metrics;
    metrics.addSource(source);
    const std::string strPage = metrics.getPage();
    MemAccounts::get("MetricsTest<Odd \"name\">").discharge(48);

    const std::regex sample(
        R"re([a-z_]+(\{[a-z]+="([^"\\]|\\.)*"(,[a-z]+="([^"\\]|\\.)*")*\})? [-+0-9.eInf]+)re");
    std::istringstream lines(strPage);
    std::set<std::string> families;
    for (std::string strLine; std::getline(lines, strLine);)
    {
        if (strLine.starts_with("# TYPE "))
        {
            EXPECT_TRUE(families.insert(strLine.substr(7, strLine.find(' ', 7) - 7)).second) << strLine;
        }
        else if (!strLine.starts_with("# HELP "))
        {
            EXPECT_TRUE(std::regex_match(strLine, sample)) << strLine;
        }
    }
    for (const char* szLine : {"quorvex_fixed 7\n",
                               "quorvex_memory_objects{account=\"MetricsTest<Odd \\\"name\\\">\"} 1\n",
                               "quorvex_memory_bytes{account=\"MetricsTest<Odd \\\"name\\\">\"} 48\n",
                               "quorvex_assertions_failed_total ",
                               "process_cpu_seconds_total "})
    {
        EXPECT_NE(strPage.find(szLine), std::string::npos) << szLine << "\n" << strPage;
    }
    EXPECT_EQ(strPage.find("process_resident_memory_bytes 0\n"), std::string::npos);
}

}  // namespace
}  // namespace Quorvex
