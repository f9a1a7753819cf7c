#include "CpaScenarios.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>

#include "media/CTBusTonePlayerFactory.h"

namespace Quorvex::Test
{

namespace
{

using Segments = std::vector<ToneDescription::Segment>;

SampleVector makeTone(const Segments& in_vSegments,
                      double in_fDbm0,
                      unsigned in_uiMs,
                      double in_fFrequencyFactor = 1)
{
    ToneDescription tone;
    tone.m_vSegments = in_vSegments;
    for (ToneDescription::Segment& segment : tone.m_vSegments)
    {
        for (auto& frequency : segment.m_vFrequencyHz)
        {
            frequency *= in_fFrequencyFactor;
        }
    }
    tone.m_fLevelDbm0 = in_fDbm0;
    SampleVector samples(std::size_t{in_uiMs} * 8);
    makeToneRecipe(tone)->makeSource()->read(samples.data(), samples.size());
    return samples;
}

/// Sound that is built like speech: a gliding pitch with harmonics shaped by formants, syllables of uneven
/// length, and unvoiced noise between them.
SampleVector makeSpeech(unsigned in_uiMs, double in_fDbm0, unsigned in_uiSeed)
{
    std::mt19937 random(in_uiSeed);
    std::uniform_real_distribution<double> uniform(0, 1);
    std::normal_distribution<double> normal(0, 1);
    SampleVector samples;
    const double fScale = 32767 * std::pow(10, (in_fDbm0 - 3.14) / 20);
    double fPhase = 0;
    while (samples.size() < std::size_t{in_uiMs} * 8)
    {
        const auto uiLength = static_cast<std::size_t>((90 + 160 * uniform(random)) * 8);
        const double fPitch = 100 + 80 * uniform(random);
        const double fGlide = (uniform(random) - 0.5) * 40;
        const double fFormant1 = 300 + 500 * uniform(random);
        const double fFormant2 = 900 + 1300 * uniform(random);
        for (std::size_t i = 0; i < uiLength; ++i)
        {
            const double fPlace = static_cast<double>(i) / static_cast<double>(uiLength);
            const double fHz = fPitch + fGlide * fPlace;
            fPhase += 2 * M_PI * fHz / 8000;
            double fSample = 0;
            for (int h = 1; h * fHz < 3400; ++h)
            {
                const double fA = 1 / (1 + std::pow((h * fHz - fFormant1) / 90, 2));
                const double fB = 0.6 / (1 + std::pow((h * fHz - fFormant2) / 120, 2));
                fSample += (fA + fB + 0.03) * std::sin(h * fPhase);
            }
            fSample *= std::sin(M_PI * fPlace);
            samples.push_back(static_cast<std::int16_t>(std::clamp(fScale * fSample, -32768.0, 32767.0)));
        }
        const auto uiUnvoiced = static_cast<std::size_t>((30 + 60 * uniform(random)) * 8);
        for (std::size_t i = 0; i < uiUnvoiced; ++i)
        {
            samples.push_back(
                static_cast<std::int16_t>(std::clamp(fScale * 0.1 * normal(random), -32768.0, 32767.0)));
        }
    }
    samples.resize(std::size_t{in_uiMs} * 8);
    return samples;
}

void append(SampleVector& io_samples, const SampleVector& in_more)
{
    io_samples.insert(io_samples.end(), in_more.begin(), in_more.end());
}

// clang-format off
/// What networks of North America, the United Kingdom, Germany and others send.
struct Pattern
{
    const char* m_szName;
    CpaDetector::Result m_expected;
    unsigned m_uiMs;
    Segments m_vSegments;
};

const std::vector<Pattern>& getPatterns()
{
    static const std::vector<Pattern> s_vPatterns = {
        {"busy, North America",      CpaDetector::BUSY,     8000,  {{{480, 620}, 500}, {{}, 500}}},
        {"busy, Germany",            CpaDetector::BUSY,     8000,  {{{425}, 480}, {{}, 480}}},
        {"busy, United Kingdom",     CpaDetector::BUSY,     8000,  {{{400}, 375}, {{}, 375}}},
        {"busy, France",             CpaDetector::BUSY,     8000,  {{{440}, 500}, {{}, 500}}},
        {"reorder, North America",   CpaDetector::REORDER,  8000,  {{{480, 620}, 250}, {{}, 250}}},
        {"reorder, Germany",         CpaDetector::REORDER,  8000,  {{{425}, 240}, {{}, 240}}},
        {"reorder, United Kingdom",  CpaDetector::REORDER,  8000,
         {{{400}, 400}, {{}, 350}, {{400}, 225}, {{}, 525}}},
        {"reorder, 200 ms",          CpaDetector::REORDER,  8000,  {{{425}, 200}, {{}, 200}}},
        {"ringback, North America",  CpaDetector::RINGBACK, 10000, {{{440, 480}, 2000}, {{}, 4000}}},
        {"ringback, Germany",        CpaDetector::RINGBACK, 10000, {{{425}, 1000}, {{}, 4000}}},
        {"ringback, United Kingdom", CpaDetector::RINGBACK, 10000,
         {{{400, 450}, 400}, {{}, 200}, {{400, 450}, 400}, {{}, 2000}}},
        {"special information",      CpaDetector::SIT,      3000,
         {{{950}, 330}, {{1400}, 330}, {{1800}, 330}, {{}, 1000}}},
        {"special information, long and short", CpaDetector::SIT, 3000,
         {{{914}, 274}, {{}, 30}, {{1371}, 380}, {{}, 30}, {{1777}, 380}, {{}, 1000}}},
        {"calling fax",              CpaDetector::FAX,      8000,  {{{1100}, 500}, {{}, 3000}}},
        {"answering fax",            CpaDetector::FAX,      3500,  {{{}, 500}, {{2100}, 3000}}},
        {"silence",                  CpaDetector::NOTHING,  100,   {{{}, 100}}}
    };
    return s_vPatterns;
}
// clang-format on

/// Cut off at so many decibels below the highest peak, as an overdriven amplifier does.
SampleVector clip(SampleVector in_samples, double in_fDb)
{
    int iPeak = 0;
    for (const std::int16_t iSample : in_samples)
    {
        iPeak = std::max(iPeak, std::abs(int{iSample}));
    }
    const int iLimit = static_cast<int>(iPeak * std::pow(10, -in_fDb / 20));
    for (std::int16_t& iSample : in_samples)
    {
        iSample = static_cast<std::int16_t>(std::clamp(int{iSample}, -iLimit, iLimit));
    }
    return in_samples;
}

}  // namespace

std::vector<CpaScenario> makeCpaScenarios(double in_fDbm0, unsigned in_uiVoices, double in_fFrequencyFactor)
{
    std::vector<CpaScenario> vScenarios;
    for (const Pattern& pattern : getPatterns())
    {
        vScenarios.push_back({pattern.m_szName,
                              makeTone(pattern.m_vSegments, in_fDbm0, pattern.m_uiMs, in_fFrequencyFactor),
                              pattern.m_expected});
    }
    for (unsigned uiSeed = 1; uiSeed <= in_uiVoices; ++uiSeed)
    {
        // Every other voice is overdriven.
        const double fClipDb = uiSeed % 2 == 0 ? 12 : 0;
        const auto speak = [&](SampleVector& io_samples, unsigned in_uiMs, unsigned in_uiVoice)
        {
            io_samples.resize(3200, 0);
            append(io_samples, clip(makeSpeech(in_uiMs, in_fDbm0, in_uiVoice), fClipDb));
        };
        SampleVector greeting;
        speak(greeting, 300 + 400 * (uiSeed % 4), uiSeed);
        vScenarios.push_back({"person", greeting, CpaDetector::VOICE});
        SampleVector machine;
        speak(machine, 4000, 100 + uiSeed);
        vScenarios.push_back({"machine", machine, CpaDetector::MACHINE});
        SampleVector beep;
        speak(beep, 1500, 200 + uiSeed);
        append(beep, SampleVector(2400, 0));
        const Segments vBeep = {
            {{1000}, 500 },
            {{},     5000}
        };
        append(beep, makeTone(vBeep, in_fDbm0, 2000, in_fFrequencyFactor));
        vScenarios.push_back({"short greeting and a beep", beep, CpaDetector::MACHINE});
    }
    return vScenarios;
}

SampleVector makeCpaSound(const CpaScenario& in_scenario, double in_fNoiseDbm0)
{
    std::mt19937 random(1);
    std::normal_distribution<double> noise(0,
                                           32767 / std::sqrt(2) * std::pow(10, (in_fNoiseDbm0 - 3.14) / 20));
    SampleVector samples = in_scenario.m_samples;
    samples.resize(10 * 8000, 0);
    for (std::int16_t& iSample : samples)
    {
        iSample = static_cast<std::int16_t>(std::clamp(iSample + noise(random), -32768.0, 32767.0));
    }
    return samples;
}

CpaDetector::Result analyseCpa(const SampleVector& in_samples)
{
    CpaDetector detector(10000);
    return detector.process(in_samples.data(), in_samples.size());
}

}  // namespace Quorvex::Test
