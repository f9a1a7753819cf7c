#pragma once

#include <ace/Method_Request.h>

#include <string>

#include "infra/MemAccount.h"
#include "oam/OMReporter.h"

namespace Quorvex
{

/// Produces reports on a task's thread. The task enqueues a GetOM_MO; its execution calls makeReport.
class OMReporterTaskImpl : public virtual OMReporter
{
public:
    /// One request for a report. Deleted without having been run, it tells the observer that no report will
    /// come.
    class GetOM_MO final : public ACE_Method_Request
    {
    public:
        QUORVEX_MEM_ACCOUNT("OMReporterTaskImpl::GetOM_MO");

        /// The observer may be null: nothing is reported then.
        GetOM_MO(OMReporterTaskImpl& in_reporter, const char* in_szName, OMObserver* in_pObserver);
        ~GetOM_MO() override;
        int call() override;

    private:
        OMReporterTaskImpl& m_reporter;
        std::string m_strName;
        OMObserver* m_pObserver;
    };

protected:
    /// The report of that name, on the task's thread. The default knows one report, under any name: what the
    /// object writes of itself (OutputStreamable). False, with the reason as text, when there is none.
    virtual bool makeReport(const std::string& in_strName, std::string& out_strReport) const;
};

}  // namespace Quorvex
