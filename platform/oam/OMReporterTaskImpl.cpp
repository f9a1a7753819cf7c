#include "oam/OMReporterTaskImpl.h"

#include <sstream>
#include <utility>

#include "infra/Object.h"

namespace Quorvex
{

OMReporterTaskImpl::GetOM_MO::GetOM_MO(OMReporterTaskImpl& in_reporter,
                                       const char* in_szName,
                                       OMObserver* in_pObserver)
    : m_reporter(in_reporter), m_strName(in_szName != nullptr ? in_szName : ""), m_pObserver(in_pObserver)
{
}

OMReporterTaskImpl::GetOM_MO::~GetOM_MO()
{
    if (m_pObserver != nullptr)
    {
        m_pObserver->omUnavailable(m_strName, "the task has ended");
    }
}

int OMReporterTaskImpl::GetOM_MO::call()
{
    if (m_pObserver == nullptr)
    {
        return 0;
    }
    std::string strText;
    const bool bReported = m_reporter.makeReport(m_strName, strText);
    OMObserver* const pObserver = std::exchange(m_pObserver, nullptr);
    if (bReported)
    {
        pObserver->omReport(m_strName, strText);
        return 0;
    }
    pObserver->omUnavailable(m_strName, strText);
    return 1;
}

bool OMReporterTaskImpl::makeReport(const std::string& in_strName, std::string& out_strReport) const
{
    const auto* const pStreamable = dynamic_cast<const OutputStreamable*>(this);
    if (pStreamable == nullptr)
    {
        out_strReport = "no report named \"" + in_strName + '"';
        return false;
    }
    std::ostringstream text;
    pStreamable->write(text);
    out_strReport = std::move(text).str();
    return true;
}

}  // namespace Quorvex
