#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "RtpPacket.h"

namespace Quorvex
{

/// Coarse one-shot timers for what does not mind a tenth of a second: entries are only numbers, so nothing
/// has to be cancelled. It ticks only while it has entries. One thread.
class TimerWheel
{
public:
    static constexpr std::int64_t TICK_NS = 100 * NS_PER_MS;
    static constexpr unsigned SLOTS = 128;

    bool empty() const { return m_uiEntries == 0; }
    std::int64_t getNext() const { return m_i64Next; }

    /// After that many ticks, 1 to 127.
    void schedule(std::uint64_t in_ui64Entry, unsigned in_uiTicks, std::int64_t in_i64Now)
    {
        if (empty())
        {
            m_i64Next = in_i64Now + TICK_NS;
        }
        m_slots[(m_uiSlot + in_uiTicks) % SLOTS].push_back(in_ui64Entry);
        ++m_uiEntries;
    }

    /// Calls the callable with each entry that is due; it may schedule.
    template <class F>
    void run(std::int64_t in_i64Now, F in_function)
    {
        while (!empty() && m_i64Next <= in_i64Now)
        {
            m_i64Next += TICK_NS;
            m_uiSlot = (m_uiSlot + 1) % SLOTS;
            m_vDue.swap(m_slots[m_uiSlot]);
            m_uiEntries -= m_vDue.size();
            for (const std::uint64_t ui64Entry : m_vDue)
            {
                in_function(ui64Entry);
            }
            m_vDue.clear();
        }
    }

private:
    unsigned m_uiSlot = 0;
    std::size_t m_uiEntries = 0;
    std::int64_t m_i64Next = 0;
    std::array<std::vector<std::uint64_t>, SLOTS> m_slots;
    std::vector<std::uint64_t> m_vDue;
};

}  // namespace Quorvex
