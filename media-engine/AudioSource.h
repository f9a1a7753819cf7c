#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "infra/MemAccount.h"

namespace Quorvex
{

struct ToneDescription;

/// Sound made by the engine itself, read in order by one listener. One thread.
class AudioSource
{
public:
    QUORVEX_MEM_ACCOUNT("MediaAudioSource");

    AudioSource() = default;
    AudioSource(const AudioSource&) = delete;
    AudioSource& operator=(const AudioSource&) = delete;
    virtual ~AudioSource() = default;

    /// The next samples, silence after the end. False once there is nothing more to come.
    virtual bool read(std::int16_t* out_pSamples, std::size_t in_uiCount) = 0;
};

using SampleVector = std::vector<std::int16_t>;

/// What may be attached to a call, as a recipe: each listener gets a source of its own.
class AudioRecipe
{
public:
    QUORVEX_MEM_ACCOUNT("MediaAudioRecipe");

    AudioRecipe() = default;
    AudioRecipe(const AudioRecipe&) = delete;
    AudioRecipe& operator=(const AudioRecipe&) = delete;
    virtual ~AudioRecipe() = default;
    virtual std::unique_ptr<AudioSource> makeSource() const = 0;
};

using AudioRecipePtr = std::shared_ptr<const AudioRecipe>;

/// A recording in memory, shared by all that listen to it.
AudioRecipePtr makeFileRecipe(std::shared_ptr<const SampleVector> in_pSamples, bool in_bRepeat);

/// Null when the description is out of range.
AudioRecipePtr makeToneRecipe(const ToneDescription& in_tone);

/// Digits as pairs of tones (ITU-T Q.23), one after another with pauses. Null when there is none, or another
/// character.
AudioRecipePtr makeDigitRecipe(const std::string& in_strDigits, unsigned in_uiDurationMs);

}  // namespace Quorvex
