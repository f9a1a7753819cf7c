#pragma once

namespace Quorvex
{

/// Gives the calling thread a nice value of its own: -20 (first) to 19 (last), 0 is normal. Threads that it
/// starts inherit it. False where the system does not allow it (RLIMIT_NICE, CAP_SYS_NICE) or has none for
/// single threads; the thread then runs on as before.
bool setThisThreadsNice(int in_iNice);

}  // namespace Quorvex
