#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// G.711: one byte for one sample of 16 bits.
namespace Quorvex::G711
{

enum Law
{
    U_LAW = 0,
    A_LAW = 1
};

/// Whether an RTP payload type is one of the two laws.
inline bool isPayloadType(unsigned in_uiPayloadType)
{
    return in_uiPayloadType == 0 || in_uiPayloadType == 8;
}

/// The law of payload type 0 or 8.
inline Law lawOf(unsigned in_uiPayloadType)
{
    return in_uiPayloadType == 0 ? U_LAW : A_LAW;
}

/// The byte of silence.
inline std::uint8_t silence(Law in_law)
{
    return in_law == U_LAW ? 0xff : 0xd5;
}

void decode(Law in_law, const std::uint8_t* in_pCode, std::size_t in_uiCount, std::int16_t* out_pSample);
void encode(Law in_law, const std::int16_t* in_pSample, std::size_t in_uiCount, std::uint8_t* out_pCode);
/// From one law into the other, code by code (ITU-T G.711 tables 3 and 4).
void transcode(Law in_from, const std::uint8_t* in_pCode, std::size_t in_uiCount, std::uint8_t* out_pCode);

}  // namespace Quorvex::G711
