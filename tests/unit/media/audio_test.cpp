// Sound files and tones.

#include <gtest/gtest.h>

#include <cmath>

#include "AudioSource.h"
#include "WavFile.h"
#include "media/CTBusTonePlayerFactory.h"

namespace Quorvex::Test
{

using Bytes = std::vector<std::uint8_t>;

namespace
{

Bytes makeWav(unsigned in_uiFormat,
              unsigned in_uiChannels,
              unsigned in_uiRate,
              unsigned in_uiBits,
              const Bytes& in_vData)
{
    const auto header = WavFile::makeHeader(1, static_cast<std::uint32_t>(in_vData.size()));
    Bytes vFile(header.begin(), header.end());
    vFile[20] = static_cast<std::uint8_t>(in_uiFormat);
    vFile[22] = static_cast<std::uint8_t>(in_uiChannels);
    for (unsigned i = 0; i < 4; ++i)
    {
        vFile[24 + i] = static_cast<std::uint8_t>(in_uiRate >> (8 * i));
    }
    vFile[34] = static_cast<std::uint8_t>(in_uiBits);
    vFile.insert(vFile.end(), in_vData.begin(), in_vData.end());
    return vFile;
}

/// Amplitude of a frequency in the middle of a sound.
double amplitudeOf(const SampleVector& in_samples, double in_fHz)
{
    const std::size_t uiFirst = in_samples.size() / 4;
    const std::size_t uiCount = in_samples.size() / 2;
    double fCos = 0;
    double fSin = 0;
    for (std::size_t i = 0; i < uiCount; ++i)
    {
        const double fPhase = 2 * M_PI * in_fHz * static_cast<double>(i) / 8000.0;
        fCos += in_samples[uiFirst + i] * std::cos(fPhase);
        fSin += in_samples[uiFirst + i] * std::sin(fPhase);
    }
    return 2 * std::sqrt(fCos * fCos + fSin * fSin) / static_cast<double>(uiCount);
}

}  // namespace

TEST(WavFileTest, readsTheFormatsItPromises)
{
    struct Case
    {
        const char* m_szName;
        Bytes m_vFile;
        SampleVector m_samples;
    };
    // clang-format off
    for (const Case& aCase :
         {Case{"16 bit", makeWav(1, 1, 8000, 16, {0x34, 0x12, 0xff, 0xff}), {0x1234, -1}},
          Case{"16 bit stereo", makeWav(1, 2, 8000, 16, {100, 0, 200, 0}), {150}},
          Case{"8 bit", makeWav(1, 1, 8000, 8, {128, 255, 0}), {0, 127 * 256, -32768}},
          Case{"mu-law", makeWav(7, 1, 8000, 8, {0xff, 0x00}), {0, -32124}},
          Case{"A-law", makeWav(6, 1, 8000, 8, {0xd5, 0x2a}), {8, -32256}},
          Case{"no sound", makeWav(1, 1, 8000, 16, {}), {}},
          Case{"an odd byte at the end", makeWav(1, 1, 8000, 16, {1, 0, 9}), {1}}})
    // clang-format on
    {
        SampleVector samples;
        std::string strError;
        EXPECT_TRUE(WavFile::parse(aCase.m_vFile.data(), aCase.m_vFile.size(), samples, strError))
            << aCase.m_szName;
        EXPECT_EQ(aCase.m_samples, samples) << aCase.m_szName << strError;
    }
}

TEST(WavFileTest, convertsRatesWithoutAliases)
{
    for (const unsigned uiRate : {11025U, 16000U, 44100U, 48000U})
    {
        Bytes vData;
        for (unsigned i = 0; i < uiRate; ++i)
        {
            // A tone to be kept, and one that 8 kHz cannot hold.
            const double fTime = static_cast<double>(i) / uiRate;
            const auto iSample = static_cast<int>(8000 * std::sin(2 * M_PI * 1000 * fTime) +
                                                  8000 * std::sin(2 * M_PI * 5000 * fTime));
            vData.push_back(static_cast<std::uint8_t>(iSample & 0xff));
            vData.push_back(static_cast<std::uint8_t>((iSample >> 8) & 0xff));
        }
        const Bytes vFile = makeWav(1, 1, uiRate, 16, vData);
        SampleVector samples;
        std::string strError;
        ASSERT_TRUE(WavFile::parse(vFile.data(), vFile.size(), samples, strError)) << strError;
        EXPECT_NEAR(8000, static_cast<double>(samples.size()), 2);
        EXPECT_NEAR(8000, amplitudeOf(samples, 1000), 80) << uiRate;
        EXPECT_LT(amplitudeOf(samples, 3000), 80) << uiRate;
    }
}

TEST(WavFileTest, refusesWhatItCannotPlay)
{
    const Bytes vGood = makeWav(1, 1, 8000, 16, {1, 2, 3, 4});
    for (const Bytes& vFile : {Bytes{},
                               Bytes(100, 'x'),
                               makeWav(3, 1, 8000, 32, {}),
                               makeWav(1, 0, 8000, 16, {}),
                               makeWav(1, 9, 8000, 16, {}),
                               makeWav(1, 1, 0, 16, {}),
                               makeWav(1, 1, 8000, 24, {}),
                               Bytes(vGood.begin(), vGood.begin() + 36),
                               Bytes(vGood.begin(), vGood.begin() + 12)})
    {
        SampleVector samples;
        std::string strError;
        EXPECT_FALSE(WavFile::parse(vFile.data(), vFile.size(), samples, strError));
        EXPECT_FALSE(strError.empty());
    }
    std::string strError;
    SampleVector samples;
    EXPECT_FALSE(WavFile::load("/nonexistent/x.wav", samples, strError));
    EXPECT_NE(std::string::npos, strError.find("/nonexistent/x.wav"));
}

TEST(ToneTest, frequenciesLevelsAndCadence)
{
    ToneDescription tone;
    ASSERT_TRUE(ToneDescription::find("busy", tone));
    const auto pSource = makeToneRecipe(tone)->makeSource();
    SampleVector on(4000);
    SampleVector off(4000);
    EXPECT_TRUE(pSource->read(on.data(), on.size()));
    EXPECT_TRUE(pSource->read(off.data(), off.size()));
    const double fExpected = 32767 * std::pow(10, (-13.0 - 3.14) / 20);
    EXPECT_NEAR(fExpected, amplitudeOf(on, 480), fExpected / 50);
    EXPECT_NEAR(fExpected, amplitudeOf(on, 620), fExpected / 50);
    EXPECT_EQ(SampleVector(4000, 0), off);
    EXPECT_TRUE(pSource->read(on.data(), on.size()));
    EXPECT_NE(SampleVector(4000, 0), on);

    // A tone that ends, ends.
    ASSERT_TRUE(ToneDescription::find("beep", tone));
    const auto pBeep = makeToneRecipe(tone)->makeSource();
    SampleVector beep(4001);
    EXPECT_FALSE(pBeep->read(beep.data(), beep.size()));

    EXPECT_FALSE(ToneDescription::find("nonsense", tone));
    ToneDescription wrong;
    EXPECT_EQ(nullptr, makeToneRecipe(wrong));
    wrong.m_vSegments = {
        {{0}, 100}
    };
    EXPECT_EQ(nullptr, makeToneRecipe(wrong));
    wrong.m_vSegments = {
        {{1, 2, 3, 4, 5}, 100}
    };
    EXPECT_EQ(nullptr, makeToneRecipe(wrong));
    wrong.m_vSegments = {
        {{440}, 100}
    };
    wrong.m_fLevelDbm0 = std::nan("");
    EXPECT_EQ(nullptr, makeToneRecipe(wrong));
    EXPECT_EQ(nullptr, makeDigitRecipe("12x", 100));
}

}  // namespace Quorvex::Test
