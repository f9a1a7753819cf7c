#pragma once

#include <array>
#include <string>

#include "AudioSource.h"

namespace Quorvex
{

/// RIFF WAVE files.
class WavFile
{
public:
    static constexpr unsigned MAX_SECONDS = 600;

    /// Reads PCM of 8 or 16 bits, or G.711, of any rate from 4 to 192 kHz and up to 8 channels, and converts
    /// it to one channel of 8 kHz. False, with one sentence naming the file and what was expected.
    static bool load(const std::string& in_strPath, SampleVector& out_samples, std::string& out_strError);
    /// The same from memory; the sentence does not name a file.
    static bool parse(const std::uint8_t* in_pData,
                      std::size_t in_uiSize,
                      SampleVector& out_samples,
                      std::string& out_strError);

    /// The header of a file of 16-bit PCM at 8 kHz.
    static std::array<std::uint8_t, 44> makeHeader(unsigned in_uiChannels, std::uint32_t in_ui32DataBytes);
};

}  // namespace Quorvex
