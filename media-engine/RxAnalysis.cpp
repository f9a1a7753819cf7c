#include "RxAnalysis.h"

#include <spandsp.h>

#include <algorithm>
#include <array>

#include "RtpPacket.h"

namespace Quorvex
{

namespace
{

// A longer gap in the timestamps is another talk spurt, whose place in time the clock tells.
constexpr std::int32_t MAX_GAP = 400 * SAMPLES_PER_MS;
// Sound that is later than this is not coming any more.
constexpr std::int64_t MAX_DELAY_NS = 200 * NS_PER_MS;

}  // namespace

RxAnalysis::RxAnalysis() = default;

RxAnalysis::~RxAnalysis()
{
    if (m_pDtmf != nullptr)
    {
        dtmf_rx_free(m_pDtmf);
    }
}

void RxAnalysis::startCpa(unsigned in_uiMaxTimeMs, std::int64_t in_i64Now)
{
    m_pCpa = std::make_unique<CpaDetector>(in_uiMaxTimeMs);
    m_i64HeardTo = in_i64Now;
}

void RxAnalysis::startDtmf()
{
    if (m_pDtmf == nullptr)
    {
        m_pDtmf = dtmf_rx_init(nullptr, nullptr, nullptr);
    }
}

void RxAnalysis::process(std::uint32_t in_ui32Timestamp,
                         const std::int16_t* in_pSamples,
                         std::size_t in_uiCount,
                         std::int64_t in_i64Now)
{
    const auto iGap = static_cast<std::int32_t>(in_ui32Timestamp - m_ui32Next);
    if (m_bHeard && iGap < 0 && iGap > -MAX_GAP)
    {
        // Came after its place had been filled.
        return;
    }
    if (m_bHeard && iGap > 0 && iGap <= MAX_GAP)
    {
        feedSilence(static_cast<std::size_t>(iGap));
    }
    m_bHeard = true;
    m_ui32Next = in_ui32Timestamp + static_cast<std::uint32_t>(in_uiCount);
    m_i64HeardTo = in_i64Now;
    feed(in_pSamples, in_uiCount);
}

void RxAnalysis::passTime(std::int64_t in_i64Now)
{
    const std::int64_t i64Missing = in_i64Now - MAX_DELAY_NS - m_i64HeardTo;
    if (i64Missing > 0)
    {
        const std::int64_t i64Samples = i64Missing / NS_PER_SAMPLE;
        m_i64HeardTo += i64Samples * NS_PER_SAMPLE;
        m_bHeard = false;
        feedSilence(static_cast<std::size_t>(i64Samples));
    }
}

void RxAnalysis::feedSilence(std::size_t in_uiCount)
{
    static constexpr std::array<std::int16_t, 800> s_silence{};
    while (in_uiCount > 0)
    {
        const std::size_t uiCount = std::min(in_uiCount, s_silence.size());
        feed(s_silence.data(), uiCount);
        in_uiCount -= uiCount;
    }
}

void RxAnalysis::feed(const std::int16_t* in_pSamples, std::size_t in_uiCount)
{
    if (m_pCpa != nullptr)
    {
        m_pCpa->process(in_pSamples, in_uiCount);
    }
    if (m_pDtmf != nullptr)
    {
        dtmf_rx(m_pDtmf, in_pSamples, static_cast<int>(in_uiCount));
    }
}

CpaDetector::Result RxAnalysis::takeResult()
{
    const CpaDetector::Result result = m_pCpa == nullptr ? CpaDetector::UNDECIDED : m_pCpa->getResult();
    if (result != CpaDetector::UNDECIDED)
    {
        m_pCpa.reset();
    }
    return result;
}

char RxAnalysis::takeDigit()
{
    std::array<char, 2> digit{};
    return m_pDtmf != nullptr && dtmf_rx_get(m_pDtmf, digit.data(), 1) == 1 ? digit[0] : '\0';
}

}  // namespace Quorvex
