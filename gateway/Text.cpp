#include "Text.h"

#include <algorithm>
#include <charconv>

namespace Quorvex::Text
{

namespace
{

std::size_t editDistance(std::string_view in_a, std::string_view in_b)
{
    std::vector<std::size_t> row(in_b.size() + 1);
    for (std::size_t j = 0; j < row.size(); ++j)
    {
        row[j] = j;
    }
    for (std::size_t i = 1; i <= in_a.size(); ++i)
    {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= in_b.size(); ++j)
        {
            const std::size_t above = row[j];
            row[j] = std::min({above + 1, row[j - 1] + 1, diagonal + (in_a[i - 1] == in_b[j - 1] ? 0U : 1U)});
            diagonal = above;
        }
    }
    return row.back();
}

}  // namespace

std::string nearest(std::string_view in_word, const std::vector<std::string>& in_vCandidates)
{
    const auto it = std::min_element(in_vCandidates.begin(),
                                     in_vCandidates.end(),
                                     [in_word](const std::string& in_a, const std::string& in_b)
                                     { return editDistance(in_word, in_a) < editDistance(in_word, in_b); });
    return it == in_vCandidates.end() ? std::string() : *it;
}

std::string alternatives(const std::vector<std::string>& in_vWords)
{
    std::string text;
    for (std::size_t i = 0; i < in_vWords.size(); ++i)
    {
        if (i > 0)
        {
            text += i + 1 == in_vWords.size() ? " or " : ", ";
        }
        text += in_vWords[i];
    }
    return text;
}

bool parseNumber(std::string_view in_text, long in_lMin, long in_lMax, long& out_lNumber)
{
    long number = 0;
    const char* pEnd = in_text.data() + in_text.size();
    const auto [pStop, error] = std::from_chars(in_text.data(), pEnd, number);
    if (error != std::errc() || pStop != pEnd || number < in_lMin || number > in_lMax)
    {
        return false;
    }
    out_lNumber = number;
    return true;
}

}  // namespace Quorvex::Text
