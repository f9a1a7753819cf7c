#pragma once

#include "AudioSource.h"
#include "CpaDetector.h"

namespace Quorvex::Bench
{

/// What spandsp's detectors of supervisory tones, with the cadences of several countries, and of fax tones
/// say of ten seconds of sound: the first that they find, NOTHING when they find none. They know no speech.
CpaDetector::Result detectWithSpandsp(const SampleVector& in_samples);

}  // namespace Quorvex::Bench
