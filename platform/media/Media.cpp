#include "media/Media.h"

#include <algorithm>
#include <array>

namespace Quorvex
{

namespace
{

constexpr std::array<const char*, 4> s_names = {"sendonly", "recvonly", "sendrecv", "inactive"};

char toLower(char in_c)
{
    return in_c >= 'A' && in_c <= 'Z' ? static_cast<char>(in_c - 'A' + 'a') : in_c;
}

}  // namespace

Media::StreamMode Media::parseMediaMode(std::string_view in_text)
{
    for (std::size_t i = 0; i < s_names.size(); ++i)
    {
        const std::string_view name = s_names[i];
        if (std::equal(in_text.begin(),
                       in_text.end(),
                       name.begin(),
                       name.end(),
                       [](char in_a, char in_b) { return toLower(in_a) == in_b; }))
        {
            return static_cast<StreamMode>(i);
        }
    }
    return UNKNOWN_MODE;
}

const char* Media::getMediaModeString(StreamMode in_mode)
{
    const auto index = static_cast<std::size_t>(in_mode);
    return index < s_names.size() ? s_names[index] : "unknown";
}

}  // namespace Quorvex
