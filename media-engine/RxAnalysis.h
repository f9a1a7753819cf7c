#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "CpaDetector.h"
#include "infra/MemAccount.h"

struct dtmf_rx_state_s;

namespace Quorvex
{

/// Listens to what an endpoint receives: call-progress analysis, and digits as tones. Gaps in the packets are
/// silence. One thread.
class RxAnalysis
{
public:
    QUORVEX_MEM_ACCOUNT("MediaRxAnalysis");

    RxAnalysis();
    RxAnalysis(const RxAnalysis&) = delete;
    RxAnalysis& operator=(const RxAnalysis&) = delete;
    ~RxAnalysis();

    void startCpa(unsigned in_uiMaxTimeMs, std::int64_t in_i64Now);
    void startDtmf();
    bool isEmpty() const { return m_pCpa == nullptr && m_pDtmf == nullptr; }

    /// Takes the sound of one packet.
    void process(std::uint32_t in_ui32Timestamp,
                 const std::int16_t* in_pSamples,
                 std::size_t in_uiCount,
                 std::int64_t in_i64Now);
    /// To be called every few hundred milliseconds while isAnalysing(): time passes without packets, too.
    void passTime(std::int64_t in_i64Now);
    bool isAnalysing() const { return m_pCpa != nullptr; }

    CpaDetector::Result getResult() const
    {
        return m_pCpa == nullptr ? CpaDetector::UNDECIDED : m_pCpa->getResult();
    }
    /// The verdict, once; the analysis is over then. UNDECIDED while there is none.
    CpaDetector::Result takeResult();
    /// The next digit that was heard, or 0.
    char takeDigit();

private:
    void feed(const std::int16_t* in_pSamples, std::size_t in_uiCount);
    void feedSilence(std::size_t in_uiCount);

    std::unique_ptr<CpaDetector> m_pCpa;
    dtmf_rx_state_s* m_pDtmf = nullptr;
    bool m_bHeard = false;
    std::uint32_t m_ui32Next = 0;
    // The moment up to which the analysis has heard.
    std::int64_t m_i64HeardTo = 0;
};

}  // namespace Quorvex
