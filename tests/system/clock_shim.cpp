// Preloaded into a gateway by a test: the time of day is shifted by what a file says, so that the clock jumps
// for this one process. Nothing else is shifted, as when somebody sets a machine's clock.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <ctime>

namespace
{

/// Seconds, in a file that both sides have mapped; null without one.
const std::atomic<std::int64_t>* mapShift()
{
    const char* const szFile = std::getenv("QUORVEX_TEST_CLOCK");
    const int iFile = szFile != nullptr ? ::open(szFile, O_RDONLY | O_CLOEXEC) : -1;
    if (iFile < 0)
    {
        return nullptr;
    }
    void* const pShift = ::mmap(nullptr, sizeof(std::int64_t), PROT_READ, MAP_SHARED, iFile, 0);
    ::close(iFile);
    return pShift == MAP_FAILED ? nullptr : static_cast<const std::atomic<std::int64_t>*>(pShift);
}

std::int64_t getShift()
{
    static const std::atomic<std::int64_t>* const s_pShift = mapShift();
    return s_pShift != nullptr ? s_pShift->load(std::memory_order_relaxed) : 0;
}

}  // namespace

extern "C"
{
    int clock_gettime(clockid_t in_clock, timespec* out_pTime) noexcept
    {
        static const auto s_real =
            reinterpret_cast<int (*)(clockid_t, timespec*)>(::dlsym(RTLD_NEXT, "clock_gettime"));
        const int iResult = s_real(in_clock, out_pTime);
        if (iResult == 0 && (in_clock == CLOCK_REALTIME || in_clock == CLOCK_REALTIME_COARSE))
        {
            out_pTime->tv_sec += getShift();
        }
        return iResult;
    }

    int gettimeofday(timeval* out_pTime, void* /*in_pZone*/) noexcept
    {
        timespec time{};
        clock_gettime(CLOCK_REALTIME, &time);
        out_pTime->tv_sec = time.tv_sec;
        out_pTime->tv_usec = time.tv_nsec / 1000;
        return 0;
    }

    std::time_t time(std::time_t* out_pTime) noexcept
    {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        if (out_pTime != nullptr)
        {
            *out_pTime = now.tv_sec;
        }
        return now.tv_sec;
    }
}
