#include "sipstack/base/SofiaLog.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>

#include "infra/Logger.h"
#include "sipstack/base/Sofia.h"

namespace Quorvex
{

namespace
{

StaticLogger s_logger("quorvex.sip.base");

void logLine(void*, const char* in_szFormat, va_list in_arguments)
{
    if (!s_logger.isEnabled(eDEBUG_LEVEL))
    {
        return;
    }
    std::array<char, 2048> text{};
    const int length = std::vsnprintf(text.data(), text.size(), in_szFormat, in_arguments);
    std::string line(
        text.data(),
        length < 0 ? 0 : std::min<std::size_t>(static_cast<std::size_t>(length), text.size() - 1));
    while (!line.empty() && line.back() == '\n')
    {
        line.pop_back();
    }
    s_logger.log(eDEBUG_LEVEL, line, __FILE__, __LINE__);
}

}  // namespace

void redirectSofiaLog()
{
    static std::once_flag s_once;
    std::call_once(s_once, [] { su_log_redirect(nullptr, logLine, nullptr); });
}

}  // namespace Quorvex
