#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// The lexical rules of SIP headers (RFC 3261 section 25): helpers of the message classes.
namespace Quorvex::SipText
{

/// Equality that takes ASCII letters of either case for equal.
bool equalsIgnoreCase(std::string_view in_lhs, std::string_view in_rhs);
std::string toLower(std::string_view in_text);

/// Without the blanks, tabs and line ends at both sides.
std::string_view trim(std::string_view in_text);
/// Line folds become single blanks.
std::string unfold(std::string_view in_text);
/// Whether unfold() would change the text.
bool isFolded(std::string_view in_text);

/// A token: not empty, and only of the characters that may stand in one.
bool isToken(std::string_view in_text);
/// True for "0" to "9".
bool isDigit(char in_char);

/// A decimal number and nothing else; false when it is none, or beyond the maximum.
bool parseNumber(std::string_view in_text, std::uint32_t in_uiMax, std::uint32_t& out_uiNumber);

/// Where the quoted string that begins at `in_pos` ends (behind the closing quote); npos when it does not
/// close.
std::size_t endOfQuoted(std::string_view in_text, std::size_t in_pos);
/// Where `in_char` stands outside quotes and angle brackets, from `in_pos` on; npos when it does not.
std::size_t findOutside(std::string_view in_text, char in_char, std::size_t in_pos = 0);

/// The content of a quoted string; other texts as they are.
std::string unquote(std::string_view in_text);
std::string quote(std::string_view in_text);

/// The values of a comma list, trimmed; empty ones are left out.
std::vector<std::string_view> splitList(std::string_view in_text);

/// The beginning of a foreign text for an error message: printable, not longer than a line of a log bears.
std::string excerpt(std::string_view in_text);

}  // namespace Quorvex::SipText
