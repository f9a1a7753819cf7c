#include "WavFile.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string_view>

#include "G711.h"

namespace Quorvex
{

namespace
{

enum Format : unsigned
{
    PCM = 1,
    A_LAW = 6,
    U_LAW = 7,
    EXTENSIBLE = 0xfffe
};

unsigned little16(const std::uint8_t* in_p)
{
    return in_p[0] | (unsigned{in_p[1]} << 8);
}

std::size_t little32(const std::uint8_t* in_p)
{
    return little16(in_p) | (std::size_t{little16(in_p + 2)} << 16);
}

struct Layout
{
    unsigned m_uiFormat = 0;
    unsigned m_uiChannels = 0;
    std::size_t m_uiRate = 0;
    unsigned m_uiBits = 0;

    bool read(const std::uint8_t* in_p, std::size_t in_uiSize)
    {
        if (in_uiSize < 16)
        {
            return false;
        }
        m_uiFormat = little16(in_p);
        m_uiChannels = little16(in_p + 2);
        m_uiRate = little32(in_p + 4);
        m_uiBits = little16(in_p + 14);
        if (m_uiFormat == EXTENSIBLE && in_uiSize >= 26)
        {
            m_uiFormat = little16(in_p + 24);
        }
        const bool bPcm = m_uiFormat == PCM && (m_uiBits == 8 || m_uiBits == 16);
        const bool bG711 = (m_uiFormat == A_LAW || m_uiFormat == U_LAW) && m_uiBits == 8;
        return (bPcm || bG711) && m_uiChannels >= 1 && m_uiChannels <= 8 && m_uiRate >= 4000 &&
               m_uiRate <= 192000;
    }

    /// The channels of one frame as one sample.
    float sample(const std::uint8_t* in_pFrame) const
    {
        float fSum = 0;
        for (unsigned i = 0; i < m_uiChannels; ++i)
        {
            std::int16_t iSample = 0;
            if (m_uiFormat != PCM)
            {
                G711::decode(m_uiFormat == U_LAW ? G711::U_LAW : G711::A_LAW, in_pFrame + i, 1, &iSample);
            }
            else if (m_uiBits == 8)
            {
                iSample = static_cast<std::int16_t>((in_pFrame[i] - 128) * 256);
            }
            else
            {
                iSample = static_cast<std::int16_t>(little16(in_pFrame + std::size_t{2} * i));
            }
            fSum += static_cast<float>(iSample);
        }
        return fSum / static_cast<float>(m_uiChannels);
    }
};

/// Windowed-sinc interpolation, its pass band below the lower of the two rates.
SampleVector resample(const std::vector<float>& in_samples, double in_fRate)
{
    constexpr int ZERO_CROSSINGS = 16;
    const double fStep = in_fRate / 8000.0;
    const double fCutoff = std::min(1.0, 1.0 / fStep) * 0.95;
    const double fHalfWidth = ZERO_CROSSINGS / fCutoff;
    SampleVector result(static_cast<std::size_t>(static_cast<double>(in_samples.size()) / fStep));
    const auto iSize = static_cast<std::ptrdiff_t>(in_samples.size());
    for (std::size_t i = 0; i < result.size(); ++i)
    {
        const double fCentre = static_cast<double>(i) * fStep;
        const auto iFirst =
            std::max<std::ptrdiff_t>(0, static_cast<std::ptrdiff_t>(std::ceil(fCentre - fHalfWidth)));
        const auto iLast = std::min<std::ptrdiff_t>(
            iSize - 1, static_cast<std::ptrdiff_t>(std::floor(fCentre + fHalfWidth)));
        double fSum = 0;
        for (std::ptrdiff_t k = iFirst; k <= iLast; ++k)
        {
            const double fX = (static_cast<double>(k) - fCentre) * fCutoff;
            const double fPi = 3.14159265358979323846 * fX;
            const double fSinc = fX == 0 ? 1.0 : std::sin(fPi) / fPi;
            const double fWindow = 0.5 + 0.5 * std::cos(fPi / ZERO_CROSSINGS);
            fSum += static_cast<double>(in_samples[static_cast<std::size_t>(k)]) * fSinc * fWindow;
        }
        result[i] = static_cast<std::int16_t>(std::lrint(std::clamp(fSum * fCutoff, -32768.0, 32767.0)));
    }
    return result;
}

bool isTag(const std::uint8_t* in_p, const char* in_szTag)
{
    return std::memcmp(in_p, in_szTag, 4) == 0;
}

}  // namespace

bool WavFile::parse(const std::uint8_t* in_pData,
                    std::size_t in_uiSize,
                    SampleVector& out_samples,
                    std::string& out_strError)
{
    if (in_uiSize < 12 || !isTag(in_pData, "RIFF") || !isTag(in_pData + 8, "WAVE"))
    {
        out_strError = "not a WAV file";
        return false;
    }
    Layout layout;
    bool bLayout = false;
    for (std::size_t pos = 12; pos + 8 <= in_uiSize;)
    {
        const std::uint8_t* pChunk = in_pData + pos;
        const std::size_t uiSize = std::min(little32(pChunk + 4), in_uiSize - pos - 8);
        if (isTag(pChunk, "fmt "))
        {
            bLayout = layout.read(pChunk + 8, uiSize);
            if (!bLayout)
            {
                out_strError = "expected PCM of 8 or 16 bits or G.711, 4 to 192 kHz, up to 8 channels";
                return false;
            }
        }
        else if (isTag(pChunk, "data") && bLayout)
        {
            const std::size_t uiFrame = std::size_t{layout.m_uiChannels} * layout.m_uiBits / 8;
            const std::size_t uiFrames = uiSize / uiFrame;
            if (uiFrames > layout.m_uiRate * MAX_SECONDS)
            {
                out_strError = "longer than the ten minutes that are played";
                return false;
            }
            std::vector<float> vSamples(uiFrames);
            for (std::size_t i = 0; i < uiFrames; ++i)
            {
                vSamples[i] = layout.sample(pChunk + 8 + i * uiFrame);
            }
            if (layout.m_uiRate != 8000)
            {
                out_samples = resample(vSamples, static_cast<double>(layout.m_uiRate));
                return true;
            }
            out_samples.resize(uiFrames);
            std::transform(vSamples.begin(),
                           vSamples.end(),
                           out_samples.begin(),
                           [](float in_fSample)
                           { return static_cast<std::int16_t>(std::lrint(in_fSample)); });
            return true;
        }
        pos += 8 + uiSize + (uiSize & 1U);
    }
    out_strError =
        bLayout ? "a WAV file without a data chunk" : "a WAV file without a format chunk before its data";
    return false;
}

std::array<std::uint8_t, 44> WavFile::makeHeader(unsigned in_uiChannels, std::uint32_t in_ui32DataBytes)
{
    std::array<std::uint8_t, 44> header{};
    std::uint8_t* pNext = header.data();
    const auto tag = [&pNext](const char* in_szTag)
    {
        std::memcpy(pNext, in_szTag, 4);
        pNext += 4;
    };
    const auto number = [&pNext](std::uint32_t in_ui32Value, unsigned in_uiBytes)
    {
        for (unsigned i = 0; i < in_uiBytes; ++i)
        {
            *pNext++ = static_cast<std::uint8_t>(in_ui32Value >> (8 * i));
        }
    };
    tag("RIFF");
    number(36 + in_ui32DataBytes, 4);
    tag("WAVE");
    tag("fmt ");
    number(16, 4);
    number(PCM, 2);
    number(in_uiChannels, 2);
    number(8000, 4);
    number(16000 * in_uiChannels, 4);
    number(2 * in_uiChannels, 2);
    number(16, 2);
    tag("data");
    number(in_ui32DataBytes, 4);
    return header;
}

bool WavFile::load(const std::string& in_strPath, SampleVector& out_samples, std::string& out_strError)
{
    std::ifstream file(in_strPath, std::ios::binary);
    const std::vector<char> vData((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (!file.is_open() || file.bad())
    {
        out_strError = in_strPath + ": cannot be read";
        return false;
    }
    if (!parse(reinterpret_cast<const std::uint8_t*>(vData.data()), vData.size(), out_samples, out_strError))
    {
        out_strError = in_strPath + ": " + out_strError;
        return false;
    }
    return true;
}

}  // namespace Quorvex
