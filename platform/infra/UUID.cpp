#include "infra/UUID.h"

#include <cstring>
#include <random>

namespace Quorvex
{

UUID::UUID()
{
    // Seeded in full from the system once per thread; identifiers name calls, they guard no secret.
    thread_local std::mt19937_64 s_generator = []
    {
        std::random_device device;
        std::seed_seq seed{device(), device(), device(), device(), device(), device(), device(), device()};
        return std::mt19937_64(seed);
    }();
    const std::uint64_t words[2] = {s_generator(), s_generator()};
    std::memcpy(m_bytes.data(), words, sizeof words);
    m_bytes[6] = static_cast<std::uint8_t>((m_bytes[6] & 0x0fU) | 0x40U);
    m_bytes[8] = static_cast<std::uint8_t>((m_bytes[8] & 0x3fU) | 0x80U);
}

std::string UUID::toString() const
{
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(36);
    for (std::size_t i = 0; i < m_bytes.size(); ++i)
    {
        if (i == 4 || i == 6 || i == 8 || i == 10)
        {
            text += '-';
        }
        text += kDigits[m_bytes[i] >> 4U];
        text += kDigits[m_bytes[i] & 0x0fU];
    }
    return text;
}

}  // namespace Quorvex
