#include "infra/Assertion.h"

#include <atomic>

namespace Quorvex
{

namespace
{
std::atomic<std::uint64_t> s_ui64Failures{0};
}

std::uint64_t Assertion::failureCount()
{
    return s_ui64Failures.load(std::memory_order_relaxed);
}

void Assertion::count()
{
    s_ui64Failures.fetch_add(1, std::memory_order_relaxed);
}

std::string Assertion::makeText(const char* in_szText, const char* in_szFile, int in_iLine)
{
    return std::string("Assertion failed: ") + in_szText + " (" + in_szFile + ":" + std::to_string(in_iLine) +
           ")";
}

}  // namespace Quorvex
