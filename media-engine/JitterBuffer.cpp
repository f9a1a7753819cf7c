#include "JitterBuffer.h"

#include <algorithm>

namespace Quorvex
{

void JitterBuffer::clear(std::uint32_t in_ui32From, std::uint32_t in_ui32To)
{
    for (std::uint32_t i = in_ui32From; i != in_ui32To; ++i)
    {
        m_samples[i & MASK] = 0;
    }
}

void JitterBuffer::write(std::uint32_t in_ui32Timestamp,
                         const std::int16_t* in_pSamples,
                         std::size_t in_uiCount)
{
    if (in_uiCount > MAX_DELAY)
    {
        return;
    }
    const auto iAhead = static_cast<std::int32_t>(in_ui32Timestamp - m_ui32End);
    if (!m_bStarted || iAhead > static_cast<std::int32_t>(MAX_DELAY) ||
        iAhead < -static_cast<std::int32_t>(MAX_DELAY))
    {
        // Another range of timestamps: nothing of the old one fits before or behind it.
        m_bStarted = true;
        ++m_ui32Generation;
        m_ui32Begin = in_ui32Timestamp;
        m_ui32End = in_ui32Timestamp;
        clear(in_ui32Timestamp - SAMPLES, in_ui32Timestamp);
    }
    else if (iAhead > 0)
    {
        clear(m_ui32End, in_ui32Timestamp);
    }
    for (std::size_t i = 0; i < in_uiCount; ++i)
    {
        m_samples[(in_ui32Timestamp + i) & MASK] = in_pSamples[i];
    }
    const std::uint32_t ui32End = in_ui32Timestamp + static_cast<std::uint32_t>(in_uiCount);
    if (static_cast<std::int32_t>(ui32End - m_ui32End) > 0)
    {
        m_ui32End = ui32End;
    }
}

bool JitterBuffer::mix(Cursor& io_cursor,
                       std::int32_t* io_pSum,
                       std::size_t in_uiCount,
                       std::uint32_t in_uiDelay) const
{
    if (!m_bStarted)
    {
        return false;
    }
    const bool bSameRange = io_cursor.m_ui32Generation == m_ui32Generation;
    std::uint32_t ui32Available = m_ui32End - (bSameRange ? io_cursor.m_ui32Position : m_ui32Begin);
    if (!io_cursor.m_bPlaying || !bSameRange || ui32Available > MAX_DELAY)
    {
        if (ui32Available < in_uiDelay)
        {
            return false;
        }
        io_cursor = {m_ui32End - in_uiDelay, m_ui32Generation, true};
        ui32Available = in_uiDelay;
    }
    const std::size_t uiCount = std::min<std::size_t>(in_uiCount, ui32Available);
    for (std::size_t i = 0; i < uiCount; ++i)
    {
        io_pSum[i] += m_samples[(io_cursor.m_ui32Position + i) & MASK];
    }
    io_cursor.m_ui32Position += static_cast<std::uint32_t>(uiCount);
    io_cursor.m_bPlaying = uiCount == in_uiCount;
    return uiCount != 0;
}

}  // namespace Quorvex
