#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Quorvex::Text
{

/// The candidate with the smallest edit distance to a word; empty when there are no candidates.
std::string nearest(std::string_view in_word, const std::vector<std::string>& in_vCandidates);

/// "a, b or c".
std::string alternatives(const std::vector<std::string>& in_vWords);

/// Reads a decimal number that fills the whole text; false when it is none or outside the range.
bool parseNumber(std::string_view in_text, long in_lMin, long in_lMax, long& out_lNumber);

}  // namespace Quorvex::Text
