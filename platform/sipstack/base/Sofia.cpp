#include "sipstack/base/Sofia.h"

#include <chrono>

#include "infra/Logger.h"
#include "sipstack/base/StackThread.h"

// Called with the time of day before the base library uses it; exported, though no header declares it.
extern "C"
{
    extern void (*_su_time)(su_time_t* io_pTime);  // NOLINT(readability-identifier-naming)
}

namespace Quorvex
{

namespace
{

// The base library deletes its thread key when the process ends, whether it ever made one or not: then it is
// the process's first, somebody else's (an allocator's, for one). Asked for a number it makes its own.
[[maybe_unused]] const int s_iKeyIsMade = su_randint(0, 1);

/// The time of day when it was first asked for, and what has passed since. The base library's timers go by
/// the time of day: once the clock had been set back, nothing would be sent again and nothing would time out.
/// In whole milliseconds: its loop sleeps for so many, and would not sleep at all through the rest of one.
void steadyTime(su_time_t* io_pTime)
{
    using namespace std::chrono;
    if (io_pTime == nullptr)
    {
        return;
    }
    static const su_time_t s_begunAt = *io_pTime;
    static const auto s_begun = steady_clock::now();
    const auto passed = duration_cast<microseconds>(steady_clock::now() - s_begun);
    const unsigned long ulMs = (s_begunAt.tv_usec + static_cast<unsigned long>(passed.count())) / 1000;
    io_pTime->tv_sec = s_begunAt.tv_sec + ulMs / 1000;
    io_pTime->tv_usec = ulMs % 1000 * 1000;
}
[[maybe_unused]] const bool s_bTimeIsSteady = (_su_time = steadyTime, true);

StaticLogger s_logger("quorvex.sip.Stack");

// No exception may travel through the frames of the base library.
template <class Function>
int guarded(Function in_function)
{
    try
    {
        return in_function();
    }
    catch (const std::exception& exception)
    {
        QLOG_ERROR(s_logger, "exception in a SIP callback: " << exception.what());
    }
    catch (...)
    {
        QLOG_ERROR(s_logger, "exception of an unknown kind in a SIP callback");
    }
    return 500;
}

}  // namespace

int LegHandler::callback(LegHandler* in_pThis,
                         nta_leg_t* in_pLeg,
                         nta_incoming_t* in_pIrq,
                         const sip_t* in_pSip)
{
    return guarded([&] { return in_pThis->onLegRequest(in_pLeg, in_pIrq, in_pSip); });
}

int IncomingHandler::callback(IncomingHandler* in_pThis, nta_incoming_t* in_pIrq, const sip_t* in_pSip)
{
    guarded(
        [&]
        {
            in_pThis->onIncoming(in_pIrq, in_pSip);
            return 0;
        });
    return 0;
}

int OutgoingHandler::callback(OutgoingHandler* in_pThis, nta_outgoing_t* in_pOrq, const sip_t* in_pSip)
{
    guarded(
        [&]
        {
            in_pThis->onOutgoing(in_pOrq, in_pSip);
            return 0;
        });
    return 0;
}

int ReliableHandler::callback(ReliableHandler* in_pThis,
                              nta_reliable_t* in_pReliable,
                              nta_incoming_t* in_pIrq,
                              const sip_t* in_pSip)
{
    return guarded([&] { return in_pThis->onPrack(in_pReliable, in_pIrq, in_pSip); });
}

}  // namespace Quorvex
