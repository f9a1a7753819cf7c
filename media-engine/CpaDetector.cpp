#include "CpaDetector.h"

#include <algorithm>
#include <cmath>

namespace Quorvex
{

namespace
{

constexpr double PI = 3.14159265358979323846;
constexpr unsigned FIRST_BIN_HZ = 200;
constexpr unsigned BIN_HZ = 25;
constexpr std::size_t BINS = 91;
constexpr std::size_t WINDOW_SIZE = 320;

// Level of a sample of full scale as a sine, in dBm0 (ITU-T G.711).
constexpr double FULL_SCALE_DBM0 = 3.14;
constexpr double MIN_ACTIVE_DBM0 = -45;
constexpr double ABOVE_NOISE_DB = 6;
// Sound whose level stays within this for a third of a second, and is no tone, is noise.
constexpr double STEADY_DB = 5;
// Share of the energy in the two strongest peaks.
constexpr double TONE_SHARE = 0.72;
// Below it there is neither a tone nor a voice, only noise, or a consonant.
constexpr double VOICE_SHARE = 0.38;

constexpr unsigned MIN_RUN_MS = 60;
constexpr unsigned GREETING_OF_MACHINE_MS = 2200;
constexpr unsigned PAUSE_AFTER_GREETING_MS = 1000;
constexpr unsigned MIN_GREETING_MS = 120;
constexpr unsigned MAX_RUNS = 32;

struct Transform
{
    std::array<std::array<float, WINDOW_SIZE>, BINS> m_cos{};
    std::array<std::array<float, WINDOW_SIZE>, BINS> m_sin{};

    Transform()
    {
        for (std::size_t k = 0; k < BINS; ++k)
        {
            const double fStep = 2 * PI * static_cast<double>(FIRST_BIN_HZ + k * BIN_HZ) / 8000.0;
            for (std::size_t n = 0; n < WINDOW_SIZE; ++n)
            {
                const double fHann = 0.5 - 0.5 * std::cos(2 * PI * static_cast<double>(n) / WINDOW_SIZE);
                m_cos[k][n] = static_cast<float>(fHann * std::cos(fStep * static_cast<double>(n)));
                m_sin[k][n] = static_cast<float>(fHann * std::sin(fStep * static_cast<double>(n)));
            }
        }
    }

    static const Transform& instance()
    {
        static const Transform s_transform;
        return s_transform;
    }
};

using Spectrum = std::array<double, BINS>;

/// Adds up the energy of a peak and takes it out of the spectrum; its centre in Hz is the result.
double takePeak(Spectrum& io_spectrum, double& out_fEnergy)
{
    constexpr std::ptrdiff_t HALF_LOBE = 2;
    const std::ptrdiff_t iPeak =
        std::max_element(io_spectrum.begin(), io_spectrum.end()) - io_spectrum.begin();
    double fWeighted = 0;
    out_fEnergy = 0;
    for (std::ptrdiff_t k = std::max<std::ptrdiff_t>(iPeak - HALF_LOBE, 0);
         k <= std::min<std::ptrdiff_t>(iPeak + HALF_LOBE, BINS - 1);
         ++k)
    {
        double& fPower = io_spectrum[static_cast<std::size_t>(k)];
        out_fEnergy += fPower;
        fWeighted += fPower * static_cast<double>(FIRST_BIN_HZ + static_cast<std::size_t>(k) * BIN_HZ);
        fPower = 0;
    }
    return out_fEnergy > 0 ? fWeighted / out_fEnergy : 0;
}

bool isWithin(unsigned in_uiValue, unsigned in_uiMin, unsigned in_uiMax)
{
    return in_uiValue >= in_uiMin && in_uiValue <= in_uiMax;
}

}  // namespace

const char* CpaDetector::getResultString(Result in_result)
{
    static constexpr std::array<const char*, 9> s_names = {
        "undecided", "voice", "machine", "fax", "busy", "reorder", "sit", "ringback", "nothing"};
    return s_names[in_result];
}

CpaDetector::CpaDetector(unsigned in_uiMaxTimeMs) : m_uiMaxTimeMs(in_uiMaxTimeMs)
{
    m_vRuns.reserve(MAX_RUNS);
    m_vRuns.push_back({SILENCE, 0});
}

CpaDetector::Result CpaDetector::process(const std::int16_t* in_pSamples, std::size_t in_uiCount)
{
    while (in_uiCount > 0 && m_result == UNDECIDED)
    {
        const std::size_t uiTaken = std::min(in_uiCount, HOP - m_uiFilled);
        std::copy_n(in_pSamples, uiTaken, m_window.data() + (WINDOW - HOP) + m_uiFilled);
        in_pSamples += uiTaken;
        in_uiCount -= uiTaken;
        m_uiFilled += uiTaken;
        if (m_uiFilled == HOP)
        {
            m_uiFilled = 0;
            processFrame();
            std::copy(m_window.begin() + HOP, m_window.end(), m_window.begin());
        }
    }
    return m_result;
}

void CpaDetector::processFrame()
{
    m_uiTimeMs += FRAME_MS;
    const Label label = labelFrame();
    addFrame(label);
    decideTones();
    decideSpeech(label);
    if (m_result == UNDECIDED && m_uiTimeMs >= m_uiMaxTimeMs)
    {
        m_result = m_bRingback ? RINGBACK : m_uiSpeechMs >= MIN_GREETING_MS ? VOICE : NOTHING;
    }
}

CpaDetector::Label CpaDetector::labelFrame()
{
    double fEnergy = 1e-3;
    for (std::size_t i = WINDOW - HOP; i < WINDOW; ++i)
    {
        fEnergy += static_cast<double>(m_window[i]) * static_cast<double>(m_window[i]);
    }
    const double fLevel =
        10 * std::log10(fEnergy / static_cast<double>(HOP) / (32768.0 * 32768.0 / 2)) + FULL_SCALE_DBM0;

    const Transform& transform = Transform::instance();
    Spectrum spectrum{};
    double fTotal = 1e-9;
    for (std::size_t k = 0; k < BINS; ++k)
    {
        float fReal = 0;
        float fImaginary = 0;
        for (std::size_t n = 0; n < WINDOW; ++n)
        {
            fReal += m_window[n] * transform.m_cos[k][n];
            fImaginary += m_window[n] * transform.m_sin[k][n];
        }
        spectrum[k] = static_cast<double>(fReal) * static_cast<double>(fReal) +
                      static_cast<double>(fImaginary) * static_cast<double>(fImaginary);
        fTotal += spectrum[k];
    }
    double fFirst = 0;
    double fSecond = 0;
    const double fFirstHz = takePeak(spectrum, fFirst);
    const double fSecondHz = takePeak(spectrum, fSecond);
    const bool bDual = fSecond > 0.1 * fFirst;
    const bool bTone = (bDual ? fFirst + fSecond : fFirst) / fTotal > TONE_SHARE;
    const bool bVoice = (fFirst + fSecond) / fTotal > VOICE_SHARE;
    const bool bSteady = isSteady(fLevel, bTone);
    if (fLevel < std::max(MIN_ACTIVE_DBM0, m_fNoiseDb + ABOVE_NOISE_DB) || (!bTone && (bSteady || !bVoice)))
    {
        return SILENCE;
    }
    if (!bTone)
    {
        return SPEECH;
    }
    const Label label = toneLabel(fFirstHz);
    // Two peaks that are not both those of a call-progress tone are a voice.
    return bDual && (label != LOW_TONE || toneLabel(fSecondHz) != LOW_TONE) ? SPEECH : label;
}

bool CpaDetector::isSteady(double in_fLevel, bool in_bTone)
{
    m_levels[m_uiFrames % m_levels.size()] = static_cast<float>(in_fLevel);
    ++m_uiFrames;
    if (in_bTone)
    {
        // A tone is steady without being noise; what came before it does not count any more.
        m_uiFrames = 0;
        return false;
    }
    if (in_fLevel < m_fNoiseDb)
    {
        m_fNoiseDb = std::max(in_fLevel, -70.0);
    }
    if (m_uiFrames < m_levels.size())
    {
        return false;
    }
    const auto [low, high] = std::minmax_element(m_levels.begin(), m_levels.end());
    if (static_cast<double>(*high - *low) > STEADY_DB)
    {
        return false;
    }
    m_fNoiseDb = std::max(static_cast<double>(*high + *low) / 2, -70.0);
    return true;
}

CpaDetector::Label CpaDetector::toneLabel(double in_fFrequencyHz) const
{
    struct Band
    {
        double m_fLowHz;
        double m_fHighHz;
        Label m_label;
    };
    static constexpr std::array<Band, 6> s_bands = {
        {{300, 700, LOW_TONE},
         {890, 1010, SIT_1_TONE},
         {1075, 1125, CNG_TONE},
         {1340, 1460, SIT_2_TONE},
         {1750, 1830, SIT_3_TONE},
         {2060, 2140, CED_TONE}}
    };
    for (const Band& band : s_bands)
    {
        if (in_fFrequencyHz >= band.m_fLowHz && in_fFrequencyHz <= band.m_fHighHz)
        {
            return band.m_label;
        }
    }
    return OTHER_TONE;
}

void CpaDetector::addFrame(Label in_label)
{
    if (in_label == m_vRuns.back().m_label)
    {
        m_vRuns.back().m_uiMs += m_uiPendingMs + FRAME_MS;
        m_uiPendingMs = 0;
        return;
    }
    // A tone that is cut at its edges, or a syllable, has frames of other kinds for a moment.
    m_uiPendingMs = in_label == m_pending ? m_uiPendingMs + FRAME_MS : FRAME_MS;
    m_pending = in_label;
    if (m_uiPendingMs >= MIN_RUN_MS)
    {
        if (m_vRuns.size() == MAX_RUNS)
        {
            m_vRuns.erase(m_vRuns.begin());
        }
        m_vRuns.push_back({in_label, m_uiPendingMs});
        m_uiPendingMs = 0;
    }
}

unsigned CpaDetector::runMs(std::size_t in_uiFromEnd) const
{
    return in_uiFromEnd < m_vRuns.size() ? m_vRuns[m_vRuns.size() - 1 - in_uiFromEnd].m_uiMs : 0;
}

CpaDetector::Label CpaDetector::runLabel(std::size_t in_uiFromEnd) const
{
    return in_uiFromEnd < m_vRuns.size() ? m_vRuns[m_vRuns.size() - 1 - in_uiFromEnd].m_label : SPEECH;
}

void CpaDetector::decideTones()
{
    const Label label = runLabel(0);
    const unsigned uiMs = runMs(0);
    if ((label == CNG_TONE || label == CED_TONE) && uiMs >= 360)
    {
        m_result = FAX;
    }
    else if (label == SIT_3_TONE && uiMs >= 180)
    {
        // Gaps between the three are allowed, and so are the frames in which one passes into the next.
        unsigned uiWanted = 2;
        for (std::size_t i = 1; i <= 5 && uiWanted > 0; ++i)
        {
            if (runLabel(i) == (uiWanted == 2 ? SIT_2_TONE : SIT_1_TONE) && isWithin(runMs(i), 180, 480))
            {
                --uiWanted;
            }
            else if (runMs(i) > 120)
            {
                break;
            }
        }
        m_result = uiWanted == 0 ? SIT : m_result;
    }
    else if ((label == SIT_1_TONE || label == OTHER_TONE) && uiMs >= 200 && m_uiSpeechMs >= 400)
    {
        m_result = MACHINE;
    }
    else if (label == SILENCE && uiMs >= MIN_RUN_MS && runLabel(1) == LOW_TONE)
    {
        const unsigned uiOn = runMs(1);
        m_bRingback = m_bRingback || (isWithin(uiOn, 800, 3000) && uiMs >= 1200);
        const bool bTwice = runLabel(2) == SILENCE && runLabel(3) == LOW_TONE &&
                            isWithin(runMs(2), 140, 700) &&
                            isWithin(runMs(3), uiOn * 3 / 4, uiOn * 4 / 3 + 40);
        const bool bEven = isWithin(runMs(2), uiOn * 3 / 5, uiOn * 8 / 5);
        // Rings that come in pairs.
        m_bRingback = m_bRingback ||
                      (bTwice && isWithin(uiOn, 300, 500) && isWithin(runMs(2), 120, 300) && uiMs >= 1200);
        if (bTwice && bEven && isWithin(uiOn, 340, 700))
        {
            m_result = BUSY;
        }
        else if ((bTwice && bEven && isWithin(uiOn, 140, 339) && runLabel(4) == SILENCE &&
                  runLabel(5) == LOW_TONE && isWithin(runMs(5), uiOn * 3 / 4, uiOn * 4 / 3 + 40)) ||
                 isLimping())
        {
            m_result = REORDER;
        }
    }
}

bool CpaDetector::isLimping() const
{
    // A long and a short tone, as British networks send when they are congested.
    const auto isTone = [this](std::size_t in_uiFromEnd, unsigned in_uiMin, unsigned in_uiMax)
    { return runLabel(in_uiFromEnd) == LOW_TONE && isWithin(runMs(in_uiFromEnd), in_uiMin, in_uiMax); };
    const auto isPause = [this](std::size_t in_uiFromEnd, unsigned in_uiMin, unsigned in_uiMax)
    { return runLabel(in_uiFromEnd) == SILENCE && isWithin(runMs(in_uiFromEnd), in_uiMin, in_uiMax); };
    return isTone(1, 340, 470) && isPause(2, 430, 620) && isTone(3, 150, 310) && isPause(4, 260, 429) &&
           isTone(5, 340, 470);
}

void CpaDetector::decideSpeech(Label in_label)
{
    if (m_result != UNDECIDED)
    {
        return;
    }
    if (in_label == SPEECH)
    {
        m_uiSpeechMs += FRAME_MS;
    }
    // A vowel may look like a tone for a moment: within a greeting, only silence is a pause.
    const bool bTalking = in_label == SPEECH || (m_uiGreetingMs > 0 && in_label != SILENCE && runMs(0) < 300);
    if (bTalking)
    {
        m_uiGreetingMs += FRAME_MS + m_uiPauseMs;
        m_uiPauseMs = 0;
    }
    else if (m_uiGreetingMs > 0)
    {
        m_uiPauseMs += FRAME_MS;
    }
    if (m_uiGreetingMs >= GREETING_OF_MACHINE_MS && m_uiSpeechMs * 3 >= m_uiGreetingMs)
    {
        m_result = MACHINE;
    }
    else if (m_uiPauseMs >= PAUSE_AFTER_GREETING_MS)
    {
        if (m_uiSpeechMs >= MIN_GREETING_MS && runLabel(0) == SILENCE)
        {
            m_result = VOICE;
        }
        m_uiGreetingMs = 0;
        m_uiPauseMs = 0;
        m_uiSpeechMs = m_result == VOICE ? m_uiSpeechMs : 0;
    }
}

}  // namespace Quorvex
