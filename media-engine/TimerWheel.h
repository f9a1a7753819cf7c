#pragma once

#include <array>
#include <cstdint>
#include <utility>
#include <vector>

#include "RtpPacket.h"

namespace Quorvex
{

/// Coarse one-shot timers for what does not mind a tenth of a second: entries are only numbers, so nothing
/// has to be cancelled. It ticks only while it has entries, and allocates only when it has more of them than
/// ever before. One thread.
class TimerWheel
{
public:
    static constexpr std::int64_t TICK_NS = 100 * NS_PER_MS;
    static constexpr unsigned SLOTS = 128;

    TimerWheel() { m_slots.fill(NONE); }

    bool empty() const { return m_uiEntries == 0; }
    std::int64_t getNext() const { return m_i64Next; }

    /// After that many ticks, 1 to 127.
    void schedule(std::uint64_t in_ui64Entry, unsigned in_uiTicks, std::int64_t in_i64Now)
    {
        if (empty())
        {
            m_i64Next = in_i64Now + TICK_NS;
        }
        if (m_uiFree == NONE)
        {
            m_uiFree = static_cast<std::uint32_t>(m_vNodes.size());
            m_vNodes.push_back({0, NONE});
        }
        Node& node = m_vNodes[m_uiFree];
        std::uint32_t& uiHead = m_slots[(m_uiSlot + in_uiTicks) % SLOTS];
        const std::uint32_t uiNode = std::exchange(m_uiFree, node.m_uiNext);
        node = {in_ui64Entry, std::exchange(uiHead, uiNode)};
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
            std::uint32_t uiDue = std::exchange(m_slots[m_uiSlot], NONE);
            while (uiDue != NONE)
            {
                const Node node = m_vNodes[uiDue];
                m_vNodes[uiDue].m_uiNext = std::exchange(m_uiFree, uiDue);
                uiDue = node.m_uiNext;
                --m_uiEntries;
                in_function(node.m_ui64Entry);
            }
        }
    }

private:
    static constexpr std::uint32_t NONE = 0xffffffff;

    struct Node
    {
        std::uint64_t m_ui64Entry;
        std::uint32_t m_uiNext;
    };

    unsigned m_uiSlot = 0;
    std::size_t m_uiEntries = 0;
    std::int64_t m_i64Next = 0;
    // The slots, and those that are free, are lists through the nodes.
    std::array<std::uint32_t, SLOTS> m_slots{};
    std::vector<Node> m_vNodes;
    std::uint32_t m_uiFree = NONE;
};

}  // namespace Quorvex
