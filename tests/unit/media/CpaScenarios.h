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
/// machines that beep, at a level in dBm0.
std::vector<CpaScenario> makeCpaScenarios(double in_fDbm0, unsigned in_uiVoices);

/// What the analysis says of ten seconds that begin with the samples, in noise of that level.
CpaDetector::Result analyseCpa(SampleVector in_samples, double in_fNoiseDbm0);

}  // namespace Quorvex::Test
