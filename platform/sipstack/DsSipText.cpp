#include "sipstack/DsSipText.h"

#include <algorithm>
#include <charconv>

#include "sipstack/DsString.h"

namespace Quorvex
{

bool DsString::equalsIgnoreCase(std::string_view in_other) const
{
    return SipText::equalsIgnoreCase(*this, in_other);
}

namespace SipText
{

namespace
{

constexpr std::string_view kBlanks = " \t\r\n";

bool isBlank(char in_char)
{
    return in_char == ' ' || in_char == '\t' || in_char == '\r' || in_char == '\n';
}

char lower(char in_char)
{
    return in_char >= 'A' && in_char <= 'Z' ? static_cast<char>(in_char - 'A' + 'a') : in_char;
}

}  // namespace

bool equalsIgnoreCase(std::string_view in_lhs, std::string_view in_rhs)
{
    return in_lhs.size() == in_rhs.size() &&
           std::equal(in_lhs.begin(),
                      in_lhs.end(),
                      in_rhs.begin(),
                      [](char in_a, char in_b) { return lower(in_a) == lower(in_b); });
}

std::string toLower(std::string_view in_text)
{
    std::string text(in_text);
    std::transform(text.begin(), text.end(), text.begin(), lower);
    return text;
}

std::string_view trim(std::string_view in_text)
{
    while (!in_text.empty() && isBlank(in_text.front()))
    {
        in_text.remove_prefix(1);
    }
    while (!in_text.empty() && isBlank(in_text.back()))
    {
        in_text.remove_suffix(1);
    }
    return in_text;
}

bool isFolded(std::string_view in_text)
{
    // Two searches that the processor does in wide steps.
    return in_text.find('\r') != std::string_view::npos || in_text.find('\n') != std::string_view::npos;
}

std::string unfold(std::string_view in_text)
{
    if (!isFolded(in_text))
    {
        return std::string(in_text);
    }
    std::string text;
    text.reserve(in_text.size());
    for (std::size_t i = 0; i < in_text.size();)
    {
        const std::size_t end = std::min(in_text.find_first_of("\r\n", i), in_text.size());
        text.append(in_text.substr(i, end - i));
        if (end == in_text.size())
        {
            break;
        }
        // The blanks on both sides of the fold belong to it.
        text.erase(text.find_last_not_of(" \t") + 1);
        text.push_back(' ');
        i = std::min(in_text.find_first_not_of(kBlanks, end), in_text.size());
    }
    return text;
}

bool isDigit(char in_char)
{
    return in_char >= '0' && in_char <= '9';
}

bool isToken(std::string_view in_text)
{
    return !in_text.empty() &&
           std::all_of(in_text.begin(),
                       in_text.end(),
                       [](char in_char)
                       {
                           const char c = lower(in_char);
                           return (c >= 'a' && c <= 'z') || isDigit(c) ||
                                  std::string_view("-.!%*_+`'~").find(c) != std::string_view::npos;
                       });
}

bool parseNumber(std::string_view in_text, std::uint32_t in_uiMax, std::uint32_t& out_uiNumber)
{
    std::uint32_t number = 0;
    if (in_text.empty() || !isDigit(in_text.front()))
    {
        return false;
    }
    const char* const end = in_text.data() + in_text.size();
    const auto result = std::from_chars(in_text.data(), end, number);
    if (result.ec != std::errc() || result.ptr != end || number > in_uiMax)
    {
        return false;
    }
    out_uiNumber = number;
    return true;
}

std::size_t endOfQuoted(std::string_view in_text, std::size_t in_pos)
{
    for (std::size_t i = in_pos + 1; i < in_text.size(); ++i)
    {
        if (in_text[i] == '\\')
        {
            ++i;
        }
        else if (in_text[i] == '"')
        {
            return i + 1;
        }
    }
    return std::string_view::npos;
}

std::size_t findOutside(std::string_view in_text, char in_char, std::size_t in_pos)
{
    for (std::size_t i = in_pos; i < in_text.size(); ++i)
    {
        const char c = in_text[i];
        if (c == in_char)
        {
            return i;
        }
        if (c == '"')
        {
            const std::size_t end = endOfQuoted(in_text, i);
            if (end == std::string_view::npos)
            {
                return std::string_view::npos;
            }
            i = end - 1;
        }
        else if (c == '<')
        {
            i = in_text.find('>', i);
            if (i == std::string_view::npos)
            {
                return std::string_view::npos;
            }
        }
    }
    return std::string_view::npos;
}

std::string unquote(std::string_view in_text)
{
    if (in_text.size() < 2 || in_text.front() != '"' || in_text.back() != '"')
    {
        return std::string(in_text);
    }
    std::string text;
    text.reserve(in_text.size());
    for (std::size_t i = 1; i + 1 < in_text.size(); ++i)
    {
        if (in_text[i] == '\\' && i + 2 < in_text.size())
        {
            ++i;
        }
        text.push_back(in_text[i]);
    }
    return text;
}

std::string quote(std::string_view in_text)
{
    std::string text = "\"";
    for (const char c : in_text)
    {
        if (c == '"' || c == '\\')
        {
            text.push_back('\\');
        }
        // A line end would end the header.
        text.push_back(c == '\r' || c == '\n' ? ' ' : c);
    }
    text.push_back('"');
    return text;
}

std::vector<std::string_view> splitList(std::string_view in_text)
{
    std::vector<std::string_view> values;
    for (std::size_t begin = 0; begin <= in_text.size();)
    {
        const std::size_t end = std::min(findOutside(in_text, ',', begin), in_text.size());
        const std::string_view value = trim(in_text.substr(begin, end - begin));
        if (!value.empty())
        {
            values.push_back(value);
        }
        begin = end + 1;
    }
    return values;
}

std::string excerpt(std::string_view in_text)
{
    constexpr std::size_t kMax = 80;
    std::string text = "\"";
    for (const char c : in_text.substr(0, kMax))
    {
        text.push_back(c >= ' ' && c < 127 ? c : '?');
    }
    text.append(in_text.size() > kMax ? "...\"" : "\"");
    return text;
}

}  // namespace SipText

}  // namespace Quorvex
