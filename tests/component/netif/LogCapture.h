#pragma once

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "infra/Logger.h"

namespace Quorvex::Test
{

/// Collects what is logged while it lives; one at a time.
class LogCapture
{
public:
    LogCapture() { Logging::setCapture(&LogCapture::take, this); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
    ~LogCapture() { Logging::setCapture(nullptr, nullptr); }

    /// How many records of at least that level contain the text.
    std::size_t count(const std::string& in_strText, int in_iLevel = eTRACE_LEVEL) const
    {
        const std::lock_guard lock(m_mutex);
        std::size_t count = 0;
        for (const auto& [iLevel, strText] : m_vRecords)
        {
            count += iLevel >= in_iLevel && strText.find(in_strText) != std::string::npos ? 1 : 0;
        }
        return count;
    }

private:
    static void take(void* io_pContext, int in_iLevel, const std::string&, const std::string& in_strText)
    {
        auto* pThis = static_cast<LogCapture*>(io_pContext);
        const std::lock_guard lock(pThis->m_mutex);
        pThis->m_vRecords.emplace_back(in_iLevel, in_strText);
    }

    mutable std::mutex m_mutex;
    std::vector<std::pair<int, std::string>> m_vRecords;
};

}  // namespace Quorvex::Test
