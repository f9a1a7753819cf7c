#pragma once

#include <ace/Time_Value.h>

#include <cstdint>
#include <iosfwd>

#include "infra/Object.h"
#include "thread/TimerScheduler.h"

namespace Quorvex
{

/// The expiry of a timer as an event: made from the arguments of TimeoutProcessor::processTimeout, at once.
/// May be copied and kept for later; the data is only compared after that, never followed.
class TimeoutEvent : public virtual OutputStreamable
{
public:
    TimeoutEvent(const ACE_Time_Value& in_expiryTime, TimeoutData* in_pData);

    /// The moment for which the timer was set, on the scheduler's clock.
    const ACE_Time_Value& getExpiryTime() const { return m_expiryTime; }
    TimeoutData* getTimeoutData() const { return m_pData; }
    /// The data's timer generation when the timer expired.
    std::uint32_t getTimerGeneration() const { return m_uiGeneration; }

    /// "timeout at 1234.567890 s".
    std::ostream& write(std::ostream& out_stream) const override;

private:
    ACE_Time_Value m_expiryTime;
    TimeoutData* m_pData;
    std::uint32_t m_uiGeneration;
};

}  // namespace Quorvex
