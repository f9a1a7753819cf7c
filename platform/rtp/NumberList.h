#pragma once

#include <string_view>
#include <vector>

namespace Quorvex
{

/// Reads decimal numbers of a range, separated by blanks or commas; a number that comes twice is kept once.
/// False, with the output cleared, when there is none or anything else is in the text.
bool parseNumberList(std::string_view in_list,
                     unsigned in_uiMin,
                     unsigned in_uiMax,
                     std::vector<unsigned>& out_vNumber);

}  // namespace Quorvex
