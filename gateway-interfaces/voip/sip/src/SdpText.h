#pragma once

#include <algorithm>
#include <string_view>

namespace Quorvex::SdpText
{

constexpr char lower(char in_c)
{
    return in_c >= 'A' && in_c <= 'Z' ? static_cast<char>(in_c - 'A' + 'a') : in_c;
}

/// Whether two texts are equal but for the case of ASCII letters.
constexpr bool equalsIgnoreCase(std::string_view in_a, std::string_view in_b)
{
    return std::equal(in_a.begin(),
                      in_a.end(),
                      in_b.begin(),
                      in_b.end(),
                      [](char in_cA, char in_cB) { return lower(in_cA) == lower(in_cB); });
}

/// The text without the blanks and tabs around it.
constexpr std::string_view trimBlanks(std::string_view in_text)
{
    const auto begin = in_text.find_first_not_of(" \t");
    return begin == std::string_view::npos
               ? std::string_view()
               : in_text.substr(begin, in_text.find_last_not_of(" \t") - begin + 1);
}

/// The type of a body that is a session description.
constexpr std::string_view kSdpBodyType = "application/sdp";

}  // namespace Quorvex::SdpText
