#pragma once

#include <atomic>
#include <cstdint>

namespace Quorvex
{

/// A reference count for objects that one thread owns at a time.
class ReferenceCount
{
public:
    void increment() { ++m_uiCount; }
    /// True when the last reference is gone.
    bool decrement() { return --m_uiCount == 0; }
    std::uint32_t get() const { return m_uiCount; }

private:
    std::uint32_t m_uiCount = 1;
};

/// A reference count for objects that threads share.
class TSReferenceCount
{
public:
    void increment() { m_uiCount.fetch_add(1, std::memory_order_relaxed); }
    /// True when the last reference is gone; everything done through the other references has then happened.
    bool decrement() { return m_uiCount.fetch_sub(1, std::memory_order_acq_rel) == 1; }
    std::uint32_t get() const { return m_uiCount.load(std::memory_order_acquire); }

private:
    std::atomic<std::uint32_t> m_uiCount{1};
};

}  // namespace Quorvex
