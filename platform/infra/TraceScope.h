#pragma once

#include "infra/Logger.h"

namespace Quorvex
{

/// Logs the entry and the exit of an operation at TRACE. Off, it costs the load of the level and a branch.
template <class L>
class TraceScope
{
public:
    /// `in_szName` must be a literal.
    TraceScope(const L& in_logger, const char* in_szName, const char* in_szFile, int in_iLine)
        : m_pLogger(in_logger.isEnabled(eTRACE_LEVEL) ? &in_logger : nullptr)
    {
        if (m_pLogger != nullptr) [[unlikely]]
        {
            enter(in_szName, in_szFile, in_iLine);
        }
    }
    TraceScope(const TraceScope&) = delete;
    TraceScope& operator=(const TraceScope&) = delete;
    ~TraceScope()
    {
        if (m_pLogger != nullptr) [[unlikely]]
        {
            m_pLogger->log(eTRACE_LEVEL, std::string("EXIT  ") + m_szName, m_szFile, m_iLine);
        }
    }

private:
    [[gnu::noinline, gnu::cold]] void enter(const char* in_szName, const char* in_szFile, int in_iLine)
    {
        m_szName = in_szName;
        m_szFile = in_szFile;
        m_iLine = in_iLine;
        m_pLogger->log(eTRACE_LEVEL, std::string("ENTER ") + in_szName, in_szFile, in_iLine);
    }

    const L* m_pLogger;
    // Set only when the scope is traced.
    const char* m_szName = nullptr;
    const char* m_szFile = nullptr;
    int m_iLine = 0;
};

}  // namespace Quorvex

/// Opens a trace scope until the end of the block. The logger must outlive the block.
#define TRACE_SCOPE(in_logger, in_szName) \
    const ::Quorvex::TraceScope quorvexTraceScope_((in_logger), "" in_szName, __FILE__, __LINE__)
