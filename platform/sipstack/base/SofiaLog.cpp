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
