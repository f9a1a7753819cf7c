#include "rtp/NumberList.h"

#include <algorithm>
#include <charconv>

namespace Quorvex
{

bool parseNumberList(std::string_view in_list,
                     unsigned in_uiMin,
                     unsigned in_uiMax,
                     std::vector<unsigned>& out_vNumber)
{
    static constexpr std::string_view s_separators = " \t\r\n,";
    out_vNumber.clear();
    std::size_t pos = in_list.find_first_not_of(s_separators);
    while (pos != std::string_view::npos)
    {
        const std::size_t end = std::min(in_list.find_first_of(s_separators, pos), in_list.size());
        unsigned uiValue = 0;
        const auto result = std::from_chars(in_list.data() + pos, in_list.data() + end, uiValue);
        if (result.ec != std::errc() || result.ptr != in_list.data() + end || uiValue < in_uiMin ||
            uiValue > in_uiMax)
        {
            out_vNumber.clear();
            return false;
        }
        if (std::find(out_vNumber.begin(), out_vNumber.end(), uiValue) == out_vNumber.end())
        {
            out_vNumber.push_back(uiValue);
        }
        pos = in_list.find_first_not_of(s_separators, end);
    }
    return !out_vNumber.empty();
}

}  // namespace Quorvex
