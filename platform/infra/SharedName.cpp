#include "infra/SharedName.h"

#include <atomic>
#include <functional>
#include <memory>
#include <utility>

namespace Quorvex
{

SharedName::SharedName(std::string_view in_text) : m_pText(findShared(in_text))
{
    if (m_pText == nullptr)
    {
        m_pText = make(in_text, false);
    }
}

SharedName::SharedName(const SharedName& in_other)
    : m_pText(in_other.m_pText->m_bShared ? in_other.m_pText : make(in_other.getText(), false))
{
}

SharedName::SharedName(SharedName&& in_other) noexcept : m_pText(std::exchange(in_other.m_pText, nullptr))
{
}

SharedName& SharedName::operator=(SharedName in_other) noexcept
{
    std::swap(m_pText, in_other.m_pText);
    return *this;
}

SharedName::~SharedName()
{
    if (m_pText != nullptr && !m_pText->m_bShared)
    {
        delete m_pText;
    }
}

const SharedName::Text* SharedName::make(std::string_view in_text, bool in_bShared)
{
    // The last part stands behind the last dot; npos, when there is none, becomes 0.
    return new Text{std::string(in_text), in_text.rfind('.') + 1, in_bShared};
}

// The shared name of that text, made if there is room; else null. The places are filled and never emptied, so
// that looking needs no lock.
const SharedName::Text* SharedName::findShared(std::string_view in_text)
{
    constexpr std::size_t kPlaces = 1024;
    constexpr std::size_t kTries = 8;
    constexpr std::size_t kMaxLength = 64;
    static std::atomic<const Text*> s_places[kPlaces];
    if (in_text.size() > kMaxLength)
    {
        return nullptr;
    }
    const std::size_t hash = std::hash<std::string_view>()(in_text);
    for (std::size_t i = 0; i < kTries; ++i)
    {
        std::atomic<const Text*>& place = s_places[(hash + i) % kPlaces];
        const Text* pText = place.load(std::memory_order_acquire);
        if (pText == nullptr)
        {
            std::unique_ptr<const Text> pMade(make(in_text, true));
            if (place.compare_exchange_strong(pText, pMade.get(), std::memory_order_acq_rel))
            {
                return pMade.release();
            }
        }
        if (pText->m_strText == in_text)
        {
            return pText;
        }
    }
    return nullptr;
}

}  // namespace Quorvex
