#pragma once

#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Quorvex
{

/// Builds a page of metrics in Prometheus' text format, version 0.0.4. Samples of one family stand together:
/// begin a family, then add its samples.
class MetricsPage
{
public:
    using Labels = std::initializer_list<std::pair<std::string_view, std::string_view>>;

    /// `in_type` is "counter", "gauge" or "histogram".
    void family(std::string_view in_name, std::string_view in_type, std::string_view in_help);
    void sample(double in_fValue, Labels in_labels = {}, std::string_view in_suffix = {});
    void sample(std::uint64_t in_ui64Value, Labels in_labels = {}, std::string_view in_suffix = {});

    /// A family of one sample without labels.
    void counter(std::string_view in_name, std::uint64_t in_ui64Value, std::string_view in_help);
    void gauge(std::string_view in_name, double in_fValue, std::string_view in_help);

    const std::string& getText() const { return m_strText; }

private:
    void line(std::string_view in_value, Labels in_labels, std::string_view in_suffix);

    std::string m_strFamily;
    std::string m_strText;
};

/// Counts observations in buckets. Any thread; an observation is a few relaxed atomic additions.
class Histogram
{
public:
    /// Upper bounds in ascending order, without the last, unbounded bucket.
    Histogram(std::initializer_list<double> in_bounds);

    void observe(double in_fValue);
    /// Adds the family's samples to a page.
    void write(MetricsPage& io_page, std::string_view in_name, std::string_view in_help) const;

private:
    std::vector<double> m_vBounds;
    std::vector<std::atomic<std::uint64_t>> m_vCounts;
    std::atomic<double> m_fSum{0};
};

/// Adds samples to the page. Called on an HTTP thread.
class MetricsSource
{
public:
    MetricsSource() = default;
    MetricsSource(const MetricsSource&) = delete;
    MetricsSource& operator=(const MetricsSource&) = delete;
    virtual ~MetricsSource() = default;
    virtual void collect(MetricsPage& io_page) = 0;
};

/// All metrics of the process: what the process knows of itself (memory accounts, failed assertions, refused
/// method objects, memory, processor time, files), and what its sources add. Sources stay until the end of
/// the object.
class Metrics
{
public:
    /// Does not take ownership. Any thread.
    void addSource(MetricsSource& in_source);
    /// The page at this moment. Any thread.
    std::string getPage();

private:
    std::mutex m_mutex;
    std::vector<MetricsSource*> m_vSources;
};

}  // namespace Quorvex
