#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace Quorvex
{

/// A random identifier (RFC 4122, version 4), unique for all purposes. May be made on any thread; costs no
/// system call.
class UUID
{
public:
    /// A fresh identifier.
    UUID();

    /// "xxxxxxxx-xxxx-4xxx-yxxx-xxxxxxxxxxxx", lower case.
    std::string toString() const;

    friend bool operator==(const UUID&, const UUID&) = default;

private:
    std::array<std::uint8_t, 16> m_bytes{};
};

}  // namespace Quorvex
