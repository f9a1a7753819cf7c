#include "Metrics.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <fstream>

#include "infra/Assertion.h"
#include "infra/MemAccount.h"
#include "thread/Task.h"
#include "thread/UserDefHandlerTaskManager.h"

namespace Quorvex
{

namespace
{

std::string toText(double in_fValue)
{
    if (std::isnan(in_fValue))
    {
        return "NaN";
    }
    if (std::isinf(in_fValue))
    {
        return in_fValue > 0 ? "+Inf" : "-Inf";
    }
    char szText[32];
    const auto [pEnd, error] = std::to_chars(std::begin(szText), std::end(szText), in_fValue);
    return {std::begin(szText), pEnd};
}

void appendEscaped(std::string& io_strText, std::string_view in_text, bool in_bQuotes)
{
    for (const char c : in_text)
    {
        if (c == '\n')
        {
            io_strText += "\\n";
            continue;
        }
        if (c == '\\' || (in_bQuotes && c == '"'))
        {
            io_strText += '\\';
        }
        io_strText += c;
    }
}

double secondsOf(const timeval& in_time)
{
    return static_cast<double>(in_time.tv_sec) + static_cast<double>(in_time.tv_usec) / 1e6;
}

std::uint64_t residentBytes()
{
    std::ifstream statm("/proc/self/statm");
    std::uint64_t size = 0;
    std::uint64_t resident = 0;
    return statm >> size >> resident ? resident * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)) : 0;
}

std::uint64_t entriesOf(const char* in_szFolder)
{
    std::error_code error;
    const std::filesystem::directory_iterator first(in_szFolder, error);
    return error ? 0 : static_cast<std::uint64_t>(std::distance(first, {}));
}

void collectProcess(MetricsPage& io_page)
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    io_page.family("process_cpu_seconds_total", "counter", "Processor time used, user and system.");
    io_page.sample(secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime));
    io_page.gauge("process_resident_memory_bytes", static_cast<double>(residentBytes()), "Resident memory.");
    io_page.gauge(
        "process_open_fds", static_cast<double>(entriesOf("/proc/self/fd")), "Open file descriptors.");
    io_page.gauge("process_threads", static_cast<double>(entriesOf("/proc/self/task")), "Threads.");
}

void collectInfrastructure(MetricsPage& io_page)
{
    const auto vBalances = MemAccounts::snapshot();
    io_page.family("quorvex_memory_objects", "gauge", "Live objects of a memory account.");
    for (const auto& balance : vBalances)
    {
        io_page.sample(balance.m_ui64Objects,
                       {
                           {"account", balance.m_strName}
        });
    }
    io_page.family("quorvex_memory_bytes", "gauge", "Live bytes of a memory account.");
    for (const auto& balance : vBalances)
    {
        io_page.sample(balance.m_ui64Bytes,
                       {
                           {"account", balance.m_strName}
        });
    }
    io_page.family("quorvex_queue_length", "gauge", "Method objects that wait in a task's queue.");
    for (const auto& [strTask, length] : UserDefHandlerTaskManager::getQueueLengths())
    {
        io_page.sample(static_cast<std::uint64_t>(length),
                       {
                           {"task", strTask}
        });
    }
    io_page.counter("quorvex_assertions_failed_total",
                    Assertion::failureCount(),
                    "Internal conditions that did not hold; each is a bug and stands in the log.");
    io_page.counter("quorvex_queue_refused_total",
                    Task::getRefusedCount(),
                    "Method objects that a task's queue refused because the task was stopping.");
}

}  // namespace

void MetricsPage::family(std::string_view in_name, std::string_view in_type, std::string_view in_help)
{
    m_strFamily = in_name;
    m_strText.append("# HELP ").append(in_name) += ' ';
    appendEscaped(m_strText, in_help, false);
    m_strText.append("\n# TYPE ").append(in_name).append(" ").append(in_type) += '\n';
}

void MetricsPage::sample(double in_fValue, Labels in_labels, std::string_view in_suffix)
{
    line(toText(in_fValue), in_labels, in_suffix);
}

void MetricsPage::sample(std::uint64_t in_ui64Value, Labels in_labels, std::string_view in_suffix)
{
    line(std::to_string(in_ui64Value), in_labels, in_suffix);
}

void MetricsPage::counter(std::string_view in_name, std::uint64_t in_ui64Value, std::string_view in_help)
{
    family(in_name, "counter", in_help);
    sample(in_ui64Value);
}

void MetricsPage::gauge(std::string_view in_name, double in_fValue, std::string_view in_help)
{
    family(in_name, "gauge", in_help);
    sample(in_fValue);
}

void MetricsPage::line(std::string_view in_value, Labels in_labels, std::string_view in_suffix)
{
    m_strText.append(m_strFamily).append(in_suffix);
    char separator = '{';
    for (const auto& [name, value] : in_labels)
    {
        m_strText += separator;
        m_strText.append(name).append("=\"");
        appendEscaped(m_strText, value, true);
        m_strText += '"';
        separator = ',';
    }
    m_strText.append(in_labels.size() == 0 ? " " : "} ").append(in_value) += '\n';
}

Histogram::Histogram(std::initializer_list<double> in_bounds)
    : m_vBounds(in_bounds), m_vCounts(in_bounds.size() + 1)
{
}

void Histogram::observe(double in_fValue)
{
    const auto it = std::lower_bound(m_vBounds.begin(), m_vBounds.end(), in_fValue);
    m_vCounts[static_cast<std::size_t>(it - m_vBounds.begin())].fetch_add(1, std::memory_order_relaxed);
    m_fSum.fetch_add(in_fValue, std::memory_order_relaxed);
}

void Histogram::write(MetricsPage& io_page, std::string_view in_name, std::string_view in_help) const
{
    io_page.family(in_name, "histogram", in_help);
    std::uint64_t count = 0;
    for (std::size_t i = 0; i < m_vCounts.size(); ++i)
    {
        count += m_vCounts[i].load(std::memory_order_relaxed);
        io_page.sample(count,
                       {
                           {"le", i < m_vBounds.size() ? toText(m_vBounds[i]) : "+Inf"}
        },
                       "_bucket");
    }
    io_page.sample(m_fSum.load(std::memory_order_relaxed), {}, "_sum");
    io_page.sample(count, {}, "_count");
}

void Metrics::addSource(MetricsSource& in_source)
{
    const std::lock_guard lock(m_mutex);
    m_vSources.push_back(&in_source);
}

std::string Metrics::getPage()
{
    std::vector<MetricsSource*> vSources;
    {
        const std::lock_guard lock(m_mutex);
        vSources = m_vSources;
    }
    MetricsPage page;
    collectProcess(page);
    collectInfrastructure(page);
    for (MetricsSource* pSource : vSources)
    {
        pSource->collect(page);
    }
    return page.getText();
}

}  // namespace Quorvex
