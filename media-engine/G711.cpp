#include "G711.h"

#include <spandsp.h>

namespace Quorvex
{

namespace
{

struct Tables
{
    std::array<std::array<std::int16_t, 256>, 2> m_decode{};
    std::array<std::array<std::uint8_t, 256>, 2> m_transcode{};
    std::array<std::array<std::uint8_t, 65536>, 2> m_encode{};

    Tables()
    {
        for (unsigned i = 0; i < 256; ++i)
        {
            const auto code = static_cast<std::uint8_t>(i);
            m_decode[G711::U_LAW][i] = ulaw_to_linear(code);
            m_decode[G711::A_LAW][i] = alaw_to_linear(code);
            m_transcode[G711::U_LAW][i] = ulaw_to_alaw(code);
            m_transcode[G711::A_LAW][i] = alaw_to_ulaw(code);
        }
        for (int i = -32768; i < 32768; ++i)
        {
            m_encode[G711::U_LAW][static_cast<std::uint16_t>(i)] = linear_to_ulaw(i);
            m_encode[G711::A_LAW][static_cast<std::uint16_t>(i)] = linear_to_alaw(i);
        }
    }
};

const Tables s_tables;

}  // namespace

void G711::decode(Law in_law, const std::uint8_t* in_pCode, std::size_t in_uiCount, std::int16_t* out_pSample)
{
    const auto& table = s_tables.m_decode[in_law];
    for (std::size_t i = 0; i < in_uiCount; ++i)
    {
        out_pSample[i] = table[in_pCode[i]];
    }
}

void G711::encode(Law in_law, const std::int16_t* in_pSample, std::size_t in_uiCount, std::uint8_t* out_pCode)
{
    const auto& table = s_tables.m_encode[in_law];
    for (std::size_t i = 0; i < in_uiCount; ++i)
    {
        out_pCode[i] = table[static_cast<std::uint16_t>(in_pSample[i])];
    }
}

void G711::transcode(Law in_from,
                     const std::uint8_t* in_pCode,
                     std::size_t in_uiCount,
                     std::uint8_t* out_pCode)
{
    const auto& table = s_tables.m_transcode[in_from];
    for (std::size_t i = 0; i < in_uiCount; ++i)
    {
        out_pCode[i] = table[in_pCode[i]];
    }
}

}  // namespace Quorvex
