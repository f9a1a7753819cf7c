#pragma once

#include <string>
#include <string_view>

namespace Quorvex
{

/// The text of the SIP object layer: a std::string, any bytes, that takes a null pointer for the empty text.
class DsString : public std::string
{
public:
    DsString() = default;
    // Texts of every kind are texts here.
    // NOLINTBEGIN(google-explicit-constructor)
    DsString(const char* in_sz) : std::string(in_sz == nullptr ? "" : in_sz) {}
    DsString(const std::string& in_str) : std::string(in_str) {}
    DsString(std::string&& in_str) noexcept : std::string(std::move(in_str)) {}
    DsString(std::string_view in_text) : std::string(in_text) {}
    // NOLINTEND(google-explicit-constructor)
    DsString(const char* in_p, std::size_t in_length) : std::string(in_p, in_length) {}

    bool isEmpty() const noexcept { return empty(); }

    /// Equality that takes ASCII letters of either case for equal.
    bool equalsIgnoreCase(std::string_view in_other) const;
};

}  // namespace Quorvex
