#pragma once

#include <cstdint>
#include <string>

#include "infra/Logger.h"

namespace Quorvex
{

/// Reports internal conditions that do not hold: logged at ERROR with the condition, the file and the line.
/// The process goes on; the caller returns its failure value.
class Assertion
{
public:
    template <class L>
    static void report(const char* in_szText, const L& in_logger, const char* in_szFile, int in_iLine)
    {
        count();
        in_logger.log(eERROR_LEVEL, makeText(in_szText, in_szFile, in_iLine), in_szFile, in_iLine);
    }

    /// How many assertions have failed since the process started: a metric, and what tests look at.
    static std::uint64_t failureCount();

private:
    static void count();
    static std::string makeText(const char* in_szText, const char* in_szFile, int in_iLine);
};

}  // namespace Quorvex

/// Yields whether the condition holds, and reports it when it does not:
/// if (!QUORVEX_ASSERT(getLogger(), pEvent != nullptr)) { return false; }
#define QUORVEX_ASSERT(in_logger, in_condition) QUORVEX_ASSERT_TEXT(in_logger, in_condition, #in_condition)

/// The same, reported under another text.
#define QUORVEX_ASSERT_TEXT(in_logger, in_condition, in_szText) \
    (static_cast<bool>(in_condition)                            \
         ? true                                                 \
         : (::Quorvex::Assertion::report(in_szText, (in_logger), __FILE__, __LINE__), false))
