#include "CpaScenarios.h"

#include <algorithm>
#include <cmath>
#include <random>

#include "media/CTBusTonePlayerFactory.h"

namespace Quorvex::Test
{

namespace
{

using Segments = std::vector<ToneDescription::Segment>;

SampleVector makeTone(const Segments& in_vSegments, double in_fDbm0, unsigned in_uiMs)
{
    ToneDescription tone;
    tone.m_vSegments = in_vSegments;
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

}  // namespace

std::vector<CpaScenario> makeCpaScenarios(double in_fDbm0, unsigned in_uiVoices)
{
    std::vector<CpaScenario> vScenarios = {
        {"busy",                 makeTone({{{480, 620}, 500}, {{}, 500}}, in_fDbm0,                                      8000), CpaDetector::BUSY},
        {"busy, 425 Hz",     makeTone({{{425}, 480}, {{}, 480}},                                            in_fDbm0,                                                                            8000), CpaDetector::BUSY},
        {"busy, 400 Hz",              makeTone({{{400}, 375}, {{}, 375}},     in_fDbm0,8000), CpaDetector::BUSY},
        {"reorder",         makeTone({{{480, 620}, 250}, {{}, 250}}, in_fDbm0,                                  8000), CpaDetector::REORDER},
        {"reorder, 425 Hz",     makeTone({{{425}, 200}, {{}, 200}},                                            in_fDbm0,                                                                                 8000), CpaDetector::REORDER},
        {"ringback",              makeTone({{{440, 480}, 2000}, {{}, 4000}},                                                in_fDbm0,                                        10000), CpaDetector::RINGBACK},
        {"ringback, 425 Hz",      makeTone({{{425}, 1000}, {{}, 4000}},       in_fDbm0, 10000), CpaDetector::RINGBACK},
        {"special information",
         makeTone({{{950}, 330}, {{1400}, 330}, {{1800}, 330}, {{}, 1000}},                                         in_fDbm0,                                                                             3000),
         CpaDetector::SIT},
        {"special information, long and short",
         makeTone(
             {{{914}, 274}, {{}, 30}, {{1371}, 380}, {{}, 30}, {{1777}, 380}, {{}, 1000}},in_fDbm0,3000),
         CpaDetector::SIT},
        {"calling fax",     makeTone({{{1100}, 500}, {{}, 3000}},   in_fDbm0,                                  8000), CpaDetector::FAX},
        {"answering fax", makeTone({{{}, 500}, {{2100}, 3000}},                                        in_fDbm0,                                                                 3500), CpaDetector::FAX},
        {"silence",              {},        CpaDetector::NOTHING                                                                                              }
    };
    for (unsigned uiSeed = 1; uiSeed <= in_uiVoices; ++uiSeed)
    {
        SampleVector greeting(3200, 0);
        append(greeting, makeSpeech(300 + 400 * (uiSeed % 4), in_fDbm0, uiSeed));
        vScenarios.push_back({"person", greeting, CpaDetector::VOICE});
        SampleVector machine(3200, 0);
        append(machine, makeSpeech(4000, in_fDbm0, 100 + uiSeed));
        vScenarios.push_back({"machine", machine, CpaDetector::MACHINE});
        SampleVector beep(3200, 0);
        append(beep, makeSpeech(1500, in_fDbm0, 200 + uiSeed));
        append(beep, SampleVector(2400, 0));
        append(beep,
               makeTone(
                   {
                       {{1000}, 500 },
                       {{},     5000}
        },
                   in_fDbm0,
                   2000));
        vScenarios.push_back({"short greeting and a beep", beep, CpaDetector::MACHINE});
    }
    return vScenarios;
}

CpaDetector::Result analyseCpa(SampleVector in_samples, double in_fNoiseDbm0)
{
    std::mt19937 random(1);
    std::normal_distribution<double> noise(0,
                                           32767 / std::sqrt(2) * std::pow(10, (in_fNoiseDbm0 - 3.14) / 20));
    in_samples.resize(10 * 8000, 0);
    for (std::int16_t& iSample : in_samples)
    {
        iSample = static_cast<std::int16_t>(std::clamp(iSample + noise(random), -32768.0, 32767.0));
    }
    CpaDetector detector(10000);
    return detector.process(in_samples.data(), in_samples.size());
}

}  // namespace Quorvex::Test
