#pragma once

#include <string>

namespace Quorvex
{

/// Receives a report that was asked for.
class OMObserver
{
public:
    OMObserver() = default;
    OMObserver(const OMObserver&) = delete;
    OMObserver& operator=(const OMObserver&) = delete;
    virtual ~OMObserver() = default;

    /// The report. Called on the reporter's thread: hand it on and return.
    virtual void omReport(const std::string& in_strName, const std::string& in_strReport) = 0;

    /// There will be no report: the reporter does not know the name, or ended before it could report.
    virtual void omUnavailable(const std::string& in_strName, const std::string& in_strReason) = 0;
};

/// Something that can describe itself to an operator.
class OMReporter
{
public:
    OMReporter() = default;
    OMReporter(const OMReporter&) = delete;
    OMReporter& operator=(const OMReporter&) = delete;
    virtual ~OMReporter() = default;

    /// Asks for the report of that name; returns at once. The observer is called exactly once, later or
    /// before this returns, also when false comes back, and must live until then.
    virtual bool getOM(const char* in_szName, OMObserver* in_pObserver) = 0;
};

}  // namespace Quorvex
