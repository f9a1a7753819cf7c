#pragma once

#include <exception>
#include <iosfwd>
#include <string>

namespace Quorvex
{

/// What the SIP object layer throws when it cannot do what it was asked for. The reason is one line for the
/// log: what was wrong, and what was expected.
class DsException : public std::exception
{
public:
    explicit DsException(std::string in_strReason);

    const std::string& getReason() const noexcept { return m_strReason; }
    const char* what() const noexcept override;

private:
    std::string m_strReason;
};

std::ostream& operator<<(std::ostream& out_stream, const DsException& in_exception);

}  // namespace Quorvex
