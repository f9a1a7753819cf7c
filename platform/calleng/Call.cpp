#include "calleng/Call.h"

#include <strings.h>

namespace Quorvex::Call
{

// The texts of the tables are literals, so data() is terminated.

const char* getCPDResultString(ConnectionType in_type)
{
    return getConnectionTypeEntry(in_type).m_cpdResult.data();
}

const char* getCPDResultString(ConnectionFailureEnum in_failure)
{
    return getFailureEntry(in_failure).m_cpdResult.data();
}

const char* getCPDResultString(const ConnectionFailureType& in_failure)
{
    return getFailureEntry(in_failure.getFailure()).m_cpdResult.data();
}

Fallible<ConnectionType> parseCPDResult(std::string_view in_text)
{
    for (const ConnectionTypeEntry& entry : kConnectionTypes)
    {
        if (entry.m_cpdResult.size() == in_text.size() &&
            strncasecmp(entry.m_cpdResult.data(), in_text.data(), in_text.size()) == 0)
        {
            return entry.m_type;
        }
    }
    return {};
}

}  // namespace Quorvex::Call
