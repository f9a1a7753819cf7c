#include "sipstack/DsException.h"

#include <ostream>
#include <utility>

namespace Quorvex
{

DsException::DsException(std::string in_strReason) : m_strReason(std::move(in_strReason))
{
}

const char* DsException::what() const noexcept
{
    return m_strReason.c_str();
}

std::ostream& operator<<(std::ostream& out_stream, const DsException& in_exception)
{
    return out_stream << in_exception.getReason();
}

}  // namespace Quorvex
