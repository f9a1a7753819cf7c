#pragma once

#include <atomic>
#include <cstdint>

namespace Quorvex
{

/// What counted classes report, whatever their class.
class CountedClassNoT
{
public:
    /// Reports at ERROR that an instance goes that was never counted.
    static void assertCountLargerThanZero(std::uint32_t in_uiCount);
};

/// Counts the living instances of T, which derives from CountedClass<T>. Any thread.
template <class T>
class CountedClass : public CountedClassNoT
{
public:
    static std::uint32_t getInstanceCount() { return s_uiCount.load(); }

protected:
    CountedClass() { s_uiCount.fetch_add(1); }
    CountedClass(const CountedClass&) { s_uiCount.fetch_add(1); }
    CountedClass& operator=(const CountedClass&) = default;
    ~CountedClass()
    {
        std::uint32_t uiCount = s_uiCount.load();
        assertCountLargerThanZero(uiCount);
        while (uiCount > 0 && !s_uiCount.compare_exchange_weak(uiCount, uiCount - 1))
        {
        }
    }

private:
    static inline std::atomic<std::uint32_t> s_uiCount{0};
};

/// What classes with a maximum of instances report, whatever their class.
class MaxCountClassNoT
{
public:
    /// Reports at ERROR that there are more living instances than there may be.
    static void maxCountExceeded(std::uint32_t in_uiCount, std::uint32_t in_uiMax);
};

/// Allows at most MaxCount living instances of T, which derives from it: one more is reported and, by
/// isMaxCountExceeded(), told to the instance itself, which must then refuse to work.
template <class T, std::uint32_t MaxCount>
class MaxCountClass : public CountedClass<T>, public MaxCountClassNoT
{
public:
    bool isMaxCountExceeded() const { return m_bExceeded; }

protected:
    MaxCountClass()
    {
        const std::uint32_t uiCount = CountedClass<T>::getInstanceCount();
        if (uiCount > MaxCount)
        {
            m_bExceeded = true;
            maxCountExceeded(uiCount, MaxCount);
        }
    }

private:
    bool m_bExceeded = false;
};

}  // namespace Quorvex
