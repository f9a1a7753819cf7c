#include "sipstack/base/SofiaLog.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "infra/Logger.h"
#include "sipstack/base/Sofia.h"

namespace Quorvex
{

namespace
{

StaticLogger s_logger("quorvex.sip.base");
StaticLogger s_garbageLogger("quorvex.sip.Stack");

// The base library's own words for what it drops without looking further; the source follows.
constexpr const char* kGarbage = "nta_agent: received garbage from ";

thread_local bool t_bMuted = false;

constexpr std::chrono::seconds kGarbageInterval{60};
constexpr std::size_t kGarbageSources = 1024;

struct GarbageSource
{
    std::chrono::steady_clock::time_point m_next;
    std::uint64_t m_ulSilent = 0;
};

// One line per source address and interval, however much it sends. The table is bounded: when it is full of
// sources that sent within the interval, further ones are only counted by the statistics.
void warnOf(const char* in_szWhat, const std::string& in_strSource)
{
    static std::mutex s_mutex;  // two stacks may run
    static std::map<std::string, GarbageSource> s_sources;
    const std::string source = in_szWhat + (" from " + in_strSource);
    const auto now = std::chrono::steady_clock::now();
    std::uint64_t silent = 0;
    {
        const std::lock_guard<std::mutex> lock(s_mutex);
        auto known = s_sources.find(source);
        if (known != s_sources.end() && now < known->second.m_next)
        {
            ++known->second.m_ulSilent;
            return;
        }
        if (known == s_sources.end())
        {
            if (s_sources.size() >= kGarbageSources)
            {
                std::erase_if(s_sources,
                              [&](const auto& in_source) { return now >= in_source.second.m_next; });
            }
            if (s_sources.size() >= kGarbageSources)
            {
                return;
            }
            known = s_sources.emplace(source, GarbageSource()).first;
        }
        silent = std::exchange(known->second.m_ulSilent, 0);
        known->second.m_next = now + kGarbageInterval;
    }
    QLOG_WARN(s_garbageLogger,
              source << " (" << silent << " more since the last such line; the next comes in "
                     << kGarbageInterval.count() << " s at the earliest)");
}

void warnOfGarbage(const std::string& in_strLine)
{
    const std::size_t begin = std::strlen(kGarbage);
    const std::size_t colon = in_strLine.rfind(':');
    if (colon != std::string::npos && colon > begin)
    {
        // transport and host, not the port
        warnOf("dropped what is no SIP message", in_strLine.substr(begin, colon - begin));
    }
}

void logLine(void*, const char* in_szFormat, va_list in_arguments)
{
    const bool garbage = s_garbageLogger.isEnabled(eWARN_LEVEL) &&
                         std::strncmp(in_szFormat, kGarbage, std::strlen(kGarbage)) == 0;
    if (garbage && std::exchange(t_bMuted, false))
    {
        return;
    }
    if (!garbage && !s_logger.isEnabled(eDEBUG_LEVEL))
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
    if (garbage)
    {
        warnOfGarbage(line);
    }
    if (s_logger.isEnabled(eDEBUG_LEVEL))
    {
        s_logger.log(eDEBUG_LEVEL, line, __FILE__, __LINE__);
    }
}

tport_stun_server_t* createNoServer(su_root_t*, const tagi_t*)
{
    return nullptr;
}
void destroyNoServer(tport_stun_server_t*)
{
}
int ignoreSocket(tport_stun_server_t*, su_socket_t)
{
    return -1;
}
void ignoreRequest(tport_stun_server_t*, su_socket_t, void*, ssize_t, void*, socklen_t)
{
}

}  // namespace

void muteNextGarbage()
{
    t_bMuted = true;
}

void warnOfUnreadableHeader(const std::string& in_strSource)
{
    if (s_garbageLogger.isEnabled(eWARN_LEVEL))
    {
        warnOf("took a header that cannot be read for absent in a response", in_strSource);
    }
}

void redirectSofiaLog()
{
    static std::once_flag s_once;
    std::call_once(s_once, [] { su_log_redirect(nullptr, logLine, nullptr); });
}

void unplugStunServer()
{
    // The base library takes a size that is larger than its own only.
    static const tport_stun_server_vtable_t s_noServer = {sizeof(tport_stun_server_vtable_t) + 1,
                                                          createNoServer,
                                                          destroyNoServer,
                                                          ignoreSocket,
                                                          ignoreSocket,
                                                          ignoreRequest};
    static std::once_flag s_once;
    std::call_once(s_once, [] { tport_plug_in_stun_server(&s_noServer); });
}

}  // namespace Quorvex
