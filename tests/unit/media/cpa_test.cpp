// Call-progress analysis on generated sound: tones off their frequencies, at two levels, with and
// without noise; greetings, beeps.

#include <gtest/gtest.h>

#include "CpaScenarios.h"

namespace Quorvex::Test
{

TEST(CpaTest, tellsToneFromToneAndPeopleFromMachines)
{
    for (const double fDbm0 : {-10.0, -30.0})
    {
        for (const auto& [fNoiseDb, fFactor] : std::vector<std::pair<double, double>>{
                 {-90,        0.985},
                 {fDbm0 - 20, 1.015}
        })
        {
            for (const CpaScenario& scenario : makeCpaScenarios(fDbm0, 2, fFactor))
            {
                EXPECT_STREQ(CpaDetector::getResultString(scenario.m_expected),
                             CpaDetector::getResultString(analyseCpa(makeCpaSound(scenario, fNoiseDb))))
                    << scenario.m_szName << " at " << fDbm0 << " dBm0, noise at " << fNoiseDb;
            }
        }
    }
}

}  // namespace Quorvex::Test
