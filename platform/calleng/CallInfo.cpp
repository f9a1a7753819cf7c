#include "calleng/CallInfo.h"

#include <ostream>

namespace Quorvex
{

CallLegInfo& CallInfo::addLeg(const CallLegInfo& in_leg)
{
    m_legs.emplace_back(in_leg.clone());
    return *m_legs.back();
}

bool CallInfo::setCurrentLeg(std::size_t in_index)
{
    if (in_index >= m_legs.size())
    {
        return false;
    }
    m_current = in_index;
    return true;
}

std::ostream& CallInfo::write(std::ostream& out_stream) const
{
    out_stream << m_legs.size() << " legs";
    for (std::size_t i = 0; i < m_legs.size(); ++i)
    {
        out_stream << ", leg " << i << (i == m_current ? " (current):" : ":") << *m_legs[i];
    }
    return out_stream;
}

}  // namespace Quorvex
