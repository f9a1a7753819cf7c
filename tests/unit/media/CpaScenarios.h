#pragma once

#include <vector>

#include "AudioSource.h"
#include "CpaDetector.h"

namespace Quorvex::Test
{

/// Generated sound with what call-progress analysis should make of it.
struct CpaScenario
{
    const char* m_szName;
    SampleVector m_samples;
    CpaDetector::Result m_expected;
};

/// Call-progress tones of several countries, fax tones, and so many greetings of people, of machines, and of
/// machines that beep, at a level in dBm0. The factor moves every tone away from its nominal frequency.
std::vector<CpaScenario> makeCpaScenarios(double in_fDbm0,
                                          unsigned in_uiVoices,
                                          double in_fFrequencyFactor = 1);

/// Ten seconds that begin with the scenario, in noise of that level.
SampleVector makeCpaSound(const CpaScenario& in_scenario, double in_fNoiseDbm0);

/// What the analysis says of ten seconds of sound.
CpaDetector::Result analyseCpa(const SampleVector& in_samples);

}  // namespace Quorvex::Test
