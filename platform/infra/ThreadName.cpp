#include "infra/ThreadName.h"

#include <log4cplus/thread/threads.h>

#include <array>

#ifdef __linux__
#include <pthread.h>
#endif

namespace Quorvex
{

void nameThisThread(std::string_view in_name)
{
    std::array<char, 16> name{};
    in_name.copy(name.data(), name.size() - 1);
    log4cplus::thread::setCurrentThreadName(name.data());
#ifdef __linux__
    ::pthread_setname_np(::pthread_self(), name.data());
#endif
}

}  // namespace Quorvex
