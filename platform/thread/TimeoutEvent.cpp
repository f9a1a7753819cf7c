#include "thread/TimeoutEvent.h"

#include <array>
#include <cstdio>
#include <ostream>

namespace Quorvex
{

TimeoutEvent::TimeoutEvent(const ACE_Time_Value& in_expiryTime, TimeoutData* in_pData)
    : m_expiryTime(in_expiryTime),
      m_pData(in_pData),
      m_uiGeneration(in_pData != nullptr ? in_pData->getTimerGeneration() : 0)
{
}

std::ostream& TimeoutEvent::write(std::ostream& out_stream) const
{
    std::array<char, 48> szTime{};
    std::snprintf(szTime.data(),
                  szTime.size(),
                  "%lld.%06ld",
                  static_cast<long long>(m_expiryTime.sec()),
                  static_cast<long>(m_expiryTime.usec()));
    return out_stream << "timeout at " << szTime.data() << " s";
}

}  // namespace Quorvex
