#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "infra/MemAccount.h"

namespace Quorvex
{

/// The last half second of what an endpoint received, by timestamp: packets may come in any order, each
/// listener reads at its own pace. What has not come is silence. One thread.
class JitterBuffer
{
public:
    QUORVEX_MEM_ACCOUNT("MediaJitterBuffer");

    static constexpr std::uint32_t SAMPLES = 4096;

    /// A listener's place.
    struct Cursor
    {
        std::uint32_t m_ui32Position = 0;
        std::uint32_t m_ui32Generation = 0;
        bool m_bPlaying = false;
    };

    JitterBuffer() = default;

    /// Takes what a packet held.
    void write(std::uint32_t in_ui32Timestamp, const std::int16_t* in_pSamples, std::size_t in_uiCount);
    /// Adds the next samples at the cursor to the output; they are `in_uiDelay` samples behind the newest
    /// when the listener starts, and again after the buffer has run empty or the listener has fallen far
    /// behind. False when there was nothing to add.
    bool mix(Cursor& io_cursor,
             std::int32_t* io_pSum,
             std::size_t in_uiCount,
             std::uint32_t in_uiDelay) const;

private:
    static constexpr std::uint32_t MASK = SAMPLES - 1;
    // A listener that is further behind than this has missed its chance to catch up by itself.
    static constexpr std::uint32_t MAX_DELAY = SAMPLES / 2;

    void clear(std::uint32_t in_ui32From, std::uint32_t in_ui32To);

    bool m_bStarted = false;
    // Behind the newest sample; and the first sample since the last restart.
    std::uint32_t m_ui32End = 0;
    std::uint32_t m_ui32Begin = 0;
    std::uint32_t m_ui32Generation = 0;
    std::array<std::int16_t, SAMPLES> m_samples{};
};

}  // namespace Quorvex
