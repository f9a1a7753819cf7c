#include "AudioSource.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>

#include "RtpPacket.h"
#include "media/CTBusTonePlayerFactory.h"

namespace Quorvex
{

namespace
{

class FileSource final : public AudioSource
{
public:
    FileSource(std::shared_ptr<const SampleVector> in_pSamples, bool in_bRepeat)
        : m_pSamples(std::move(in_pSamples)), m_bRepeat(in_bRepeat)
    {
    }

    bool read(std::int16_t* out_pSamples, std::size_t in_uiCount) override
    {
        while (in_uiCount > 0)
        {
            if (m_uiPosition == m_pSamples->size())
            {
                if (!m_bRepeat || m_pSamples->empty())
                {
                    std::fill_n(out_pSamples, in_uiCount, std::int16_t{0});
                    return false;
                }
                m_uiPosition = 0;
            }
            const std::size_t uiCount = std::min(in_uiCount, m_pSamples->size() - m_uiPosition);
            std::copy_n(m_pSamples->data() + m_uiPosition, uiCount, out_pSamples);
            m_uiPosition += uiCount;
            out_pSamples += uiCount;
            in_uiCount -= uiCount;
        }
        return m_bRepeat || m_uiPosition < m_pSamples->size();
    }

private:
    const std::shared_ptr<const SampleVector> m_pSamples;
    const bool m_bRepeat;
    std::size_t m_uiPosition = 0;
};

class FileRecipe final : public AudioRecipe
{
public:
    FileRecipe(std::shared_ptr<const SampleVector> in_pSamples, bool in_bRepeat)
        : m_pSamples(std::move(in_pSamples)), m_bRepeat(in_bRepeat)
    {
    }
    std::unique_ptr<AudioSource> makeSource() const override
    {
        return std::make_unique<FileSource>(m_pSamples, m_bRepeat);
    }

private:
    const std::shared_ptr<const SampleVector> m_pSamples;
    const bool m_bRepeat;
};

constexpr std::size_t MAX_FREQUENCIES = 4;
constexpr double PI = 3.14159265358979323846;
// A sine of full scale is +3.14 dBm0 (ITU-T G.711).
constexpr double FULL_SCALE_DBM0 = 3.14;

/// A sine by its recurrence, which costs one multiplication a sample and is exact enough for minutes.
struct Oscillator
{
    double m_fCoefficient = 0;
    double m_fLast = 0;
    double m_fBeforeLast = 0;

    Oscillator() = default;
    Oscillator(double in_fFrequencyHz, double in_fAmplitude)
    {
        const double fStep = 2 * PI * in_fFrequencyHz / 8000.0;
        m_fCoefficient = 2 * std::cos(fStep);
        m_fLast = -in_fAmplitude * std::sin(fStep);
        m_fBeforeLast = -in_fAmplitude * std::sin(2 * fStep);
    }
    double next()
    {
        const double fNext = m_fCoefficient * m_fLast - m_fBeforeLast;
        m_fBeforeLast = m_fLast;
        m_fLast = fNext;
        return fNext;
    }
};

class ToneRecipe final : public AudioRecipe
{
public:
    explicit ToneRecipe(ToneDescription in_tone)
        : m_pTone(std::make_shared<ToneDescription>(std::move(in_tone)))
    {
    }
    std::unique_ptr<AudioSource> makeSource() const override;

private:
    const std::shared_ptr<const ToneDescription> m_pTone;
};

class ToneSource final : public AudioSource
{
public:
    explicit ToneSource(std::shared_ptr<const ToneDescription> in_pTone)
        : m_pTone(std::move(in_pTone)),
          m_fAmplitude(32767.0 * std::pow(10.0, (m_pTone->m_fLevelDbm0 - FULL_SCALE_DBM0) / 20.0))
    {
        enterSegment();
    }

    bool read(std::int16_t* out_pSamples, std::size_t in_uiCount) override
    {
        for (std::size_t i = 0; i < in_uiCount; ++i)
        {
            if (m_uiLeft == 0 && !m_bForEver && !m_bEnded)
            {
                m_uiSegment = m_uiSegment + 1;
                if (m_uiSegment == m_pTone->m_vSegments.size())
                {
                    m_uiSegment = 0;
                    m_bEnded = !m_pTone->m_bRepeat;
                }
                enterSegment();
            }
            double fSample = 0;
            if (!m_bEnded)
            {
                for (std::size_t f = 0; f < m_uiOscillators; ++f)
                {
                    fSample += m_oscillators[f].next();
                }
                m_uiLeft -= m_bForEver ? 0 : 1;
            }
            out_pSamples[i] = static_cast<std::int16_t>(std::lrint(std::clamp(fSample, -32768.0, 32767.0)));
        }
        return !m_bEnded;
    }

private:
    void enterSegment()
    {
        const ToneDescription::Segment& segment = m_pTone->m_vSegments[m_uiSegment];
        m_bForEver = segment.m_uiDurationMs == 0;
        m_uiLeft = std::size_t{segment.m_uiDurationMs} * SAMPLES_PER_MS;
        m_uiOscillators = segment.m_vFrequencyHz.size();
        for (std::size_t i = 0; i < m_uiOscillators; ++i)
        {
            m_oscillators[i] = Oscillator(segment.m_vFrequencyHz[i], m_fAmplitude);
        }
    }

    const std::shared_ptr<const ToneDescription> m_pTone;
    const double m_fAmplitude;
    std::array<Oscillator, MAX_FREQUENCIES> m_oscillators;
    std::size_t m_uiOscillators = 0;
    std::size_t m_uiSegment = 0;
    std::size_t m_uiLeft = 0;
    bool m_bForEver = false;
    bool m_bEnded = false;
};

std::unique_ptr<AudioSource> ToneRecipe::makeSource() const
{
    return std::make_unique<ToneSource>(m_pTone);
}

}  // namespace

AudioRecipePtr makeFileRecipe(std::shared_ptr<const SampleVector> in_pSamples, bool in_bRepeat)
{
    return AudioRecipePtr(new FileRecipe(std::move(in_pSamples), in_bRepeat));
}

AudioRecipePtr makeToneRecipe(const ToneDescription& in_tone)
{
    const auto isFrequency = [](double in_fHz) { return in_fHz >= 1 && in_fHz <= 3999; };
    const auto isSegment = [&](const ToneDescription::Segment& in_segment)
    {
        return in_segment.m_vFrequencyHz.size() <= MAX_FREQUENCIES &&
               in_segment.m_uiDurationMs <= 3'600'000 &&
               std::all_of(in_segment.m_vFrequencyHz.begin(), in_segment.m_vFrequencyHz.end(), isFrequency);
    };
    if (in_tone.m_vSegments.empty() || !(in_tone.m_fLevelDbm0 >= -60 && in_tone.m_fLevelDbm0 <= 0) ||
        !std::all_of(in_tone.m_vSegments.begin(), in_tone.m_vSegments.end(), isSegment))
    {
        return nullptr;
    }
    return AudioRecipePtr(new ToneRecipe(in_tone));
}

AudioRecipePtr makeDigitRecipe(const std::string& in_strDigits, unsigned in_uiDurationMs)
{
    static constexpr std::string_view s_digits = "123A456B789C*0#D";
    static constexpr std::array<double, 4> s_rows = {697, 770, 852, 941};
    static constexpr std::array<double, 4> s_columns = {1209, 1336, 1477, 1633};
    ToneDescription tone;
    tone.m_fLevelDbm0 = -8;
    tone.m_bRepeat = false;
    const unsigned uiDurationMs = std::clamp(in_uiDurationMs, 60U, 8000U);
    for (const char cDigit : in_strDigits)
    {
        const std::size_t index = s_digits.find(cDigit);
        if (index == std::string_view::npos)
        {
            return nullptr;
        }
        tone.m_vSegments.push_back({
            {s_rows[index / 4], s_columns[index % 4]},
            uiDurationMs
        });
        tone.m_vSegments.push_back({{}, 80});
    }
    return makeToneRecipe(tone);
}

}  // namespace Quorvex
