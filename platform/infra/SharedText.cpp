#include "infra/SharedText.h"

#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

#include "infra/ReferenceCount.h"

namespace Quorvex
{

/// The text stands behind it.
struct SharedText::Block
{
    explicit Block(std::uint32_t in_length) : m_length(in_length) {}
    char* text() { return reinterpret_cast<char*>(this + 1); }

    TSReferenceCount m_count;
    const std::uint32_t m_length;
};

SharedText::SharedText(std::string_view in_text)
{
    if (in_text.size() > std::numeric_limits<std::uint32_t>::max())
    {
        throw std::length_error("a text shorter than 4 GiB is expected");
    }
    if (!in_text.empty())
    {
        void* const p = ::operator new(sizeof(Block) + in_text.size());
        m_pBlock = new (p) Block(static_cast<std::uint32_t>(in_text.size()));
        std::memcpy(m_pBlock->text(), in_text.data(), in_text.size());
    }
}

SharedText::SharedText(const SharedText& in_other) : m_pBlock(in_other.m_pBlock)
{
    if (m_pBlock != nullptr)
    {
        m_pBlock->m_count.increment();
    }
}

SharedText::SharedText(SharedText&& in_other) noexcept : m_pBlock(std::exchange(in_other.m_pBlock, nullptr))
{
}

SharedText& SharedText::operator=(SharedText in_other) noexcept
{
    std::swap(m_pBlock, in_other.m_pBlock);
    return *this;
}

SharedText::~SharedText()
{
    if (m_pBlock != nullptr && m_pBlock->m_count.decrement())
    {
        m_pBlock->~Block();
        ::operator delete(m_pBlock);
    }
}

std::string_view SharedText::view() const
{
    return m_pBlock == nullptr ? std::string_view() : std::string_view(m_pBlock->text(), m_pBlock->m_length);
}

}  // namespace Quorvex
