// Call-progress analysis on generated sound: tones at two levels with and without noise, greetings, beeps.

#include <gtest/gtest.h>

#include "CpaScenarios.h"

namespace Quorvex::Test
{

TEST(CpaTest, tellsToneFromToneAndPeopleFromMachines)
{
    for (const double fDbm0 : {-10.0, -28.0})
    {
        for (const double fNoiseDb : {-90.0, fDbm0 - 25})
        {
            for (const CpaScenario& scenario : makeCpaScenarios(fDbm0, 2))
            {
                EXPECT_STREQ(CpaDetector::getResultString(scenario.m_expected),
                             CpaDetector::getResultString(analyseCpa(scenario.m_samples, fNoiseDb)))
                    << scenario.m_szName << " at " << fDbm0 << " dBm0, noise at " << fNoiseDb;
            }
        }
    }
}

}  // namespace Quorvex::Test
