#include "infra/ThreadPriority.h"

#ifdef __linux__
#include <sys/resource.h>
#include <unistd.h>
#endif

namespace Quorvex
{

bool setThisThreadsNice([[maybe_unused]] int in_iNice)
{
#ifdef __linux__
    // Elsewhere it would be the whole process's.
    return ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), in_iNice) == 0;
#else
    return false;
#endif
}

}  // namespace Quorvex
