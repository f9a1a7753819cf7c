#include "SpandspProgressTones.h"

#include <spandsp.h>

#include <algorithm>
#include <memory>
#include <vector>

namespace Quorvex::Bench
{

namespace
{

/// A frequency of 0 is none.
struct Element
{
    int m_iFirstHz;
    int m_iSecondHz;
    int m_iMs;
};

struct Tone
{
    CpaDetector::Result m_result;
    std::vector<Element> m_vElements;
};

// clang-format off
const std::vector<Tone>& getTones()
{
    static const std::vector<Tone> s_vTones = {
        {CpaDetector::BUSY,     {{480, 620, 500}, {0, 0, 500}}},
        {CpaDetector::BUSY,     {{425, 0, 480}, {0, 0, 480}}},
        {CpaDetector::BUSY,     {{400, 0, 375}, {0, 0, 375}}},
        {CpaDetector::BUSY,     {{440, 0, 500}, {0, 0, 500}}},
        {CpaDetector::REORDER,  {{480, 620, 250}, {0, 0, 250}}},
        {CpaDetector::REORDER,  {{425, 0, 240}, {0, 0, 240}}},
        {CpaDetector::REORDER,  {{400, 0, 400}, {0, 0, 350}, {400, 0, 225}, {0, 0, 525}}},
        {CpaDetector::REORDER,  {{425, 0, 200}, {0, 0, 200}}},
        {CpaDetector::RINGBACK, {{440, 480, 2000}, {0, 0, 4000}}},
        {CpaDetector::RINGBACK, {{425, 0, 1000}, {0, 0, 4000}}},
        {CpaDetector::RINGBACK, {{400, 450, 400}, {0, 0, 200}, {400, 450, 400}, {0, 0, 2000}}},
        {CpaDetector::SIT,      {{950, 0, 330}, {1400, 0, 330}, {1800, 0, 330}}},
        {CpaDetector::SIT,      {{914, 0, 274}, {0, 0, 30}, {1371, 0, 380}, {0, 0, 30}, {1777, 0, 380}}}
    };
    return s_vTones;
}
// clang-format on

/// One tone. Each has a detector of its own: in one, frequencies that are closer than its resolution of some
/// 60 Hz get into each other's way, and all those of different countries are.
class ToneDetector
{
public:
    explicit ToneDetector(const Tone& in_tone) : m_pDescriptor(super_tone_rx_make_descriptor(nullptr))
    {
        const int iTone = super_tone_rx_add_tone(m_pDescriptor);
        for (const Element& element : in_tone.m_vElements)
        {
            const int iTolerance = std::max(30, element.m_iMs / 10);
            super_tone_rx_add_element(m_pDescriptor,
                                      iTone,
                                      element.m_iFirstHz,
                                      element.m_iSecondHz,
                                      element.m_iMs - iTolerance,
                                      element.m_iMs + iTolerance);
        }
        m_pTones = super_tone_rx_init(nullptr, m_pDescriptor, takeTone, this);
    }
    ToneDetector(const ToneDetector&) = delete;
    ToneDetector& operator=(const ToneDetector&) = delete;
    ~ToneDetector()
    {
        super_tone_rx_free(m_pTones);
        super_tone_rx_free_descriptor(m_pDescriptor);
    }
    bool process(const std::int16_t* in_pSamples, int in_iCount)
    {
        super_tone_rx(m_pTones, in_pSamples, in_iCount);
        return m_bFound;
    }

private:
    static void takeTone(void* io_pThis, int in_iTone, int, int)
    {
        static_cast<ToneDetector*>(io_pThis)->m_bFound |= in_iTone >= 0;
    }

    super_tone_rx_descriptor_t* m_pDescriptor;
    super_tone_rx_state_t* m_pTones = nullptr;
    bool m_bFound = false;
};

}  // namespace

CpaDetector::Result detectWithSpandsp(const SampleVector& in_samples)
{
    std::vector<std::unique_ptr<ToneDetector>> vDetectors;
    for (const Tone& tone : getTones())
    {
        vDetectors.push_back(std::make_unique<ToneDetector>(tone));
    }
    modem_connect_tones_rx_state_t* const pCalling =
        modem_connect_tones_rx_init(nullptr, MODEM_CONNECT_TONES_FAX_CNG, nullptr, nullptr);
    modem_connect_tones_rx_state_t* const pAnswering =
        modem_connect_tones_rx_init(nullptr, MODEM_CONNECT_TONES_FAX_CED_OR_PREAMBLE, nullptr, nullptr);
    constexpr std::size_t FRAME = 160;
    CpaDetector::Result result = CpaDetector::NOTHING;
    for (std::size_t i = 0; i + FRAME <= in_samples.size() && result == CpaDetector::NOTHING; i += FRAME)
    {
        const std::int16_t* const pFrame = in_samples.data() + i;
        modem_connect_tones_rx(pCalling, pFrame, FRAME);
        modem_connect_tones_rx(pAnswering, pFrame, FRAME);
        if (modem_connect_tones_rx_get(pCalling) != MODEM_CONNECT_TONES_NONE ||
            modem_connect_tones_rx_get(pAnswering) != MODEM_CONNECT_TONES_NONE)
        {
            result = CpaDetector::FAX;
        }
        for (std::size_t n = 0; n < vDetectors.size() && result == CpaDetector::NOTHING; ++n)
        {
            result = vDetectors[n]->process(pFrame, FRAME) ? getTones()[n].m_result : result;
        }
    }
    modem_connect_tones_rx_free(pCalling);
    modem_connect_tones_rx_free(pAnswering);
    return result;
}

}  // namespace Quorvex::Bench
