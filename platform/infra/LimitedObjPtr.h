#pragma once

#include <cstddef>
#include <type_traits>

namespace Quorvex
{

/// A pointer that does not own: the object outlives whoever holds the pointer, by agreement between the two.
template <class T>
class LimitedObjPtr
{
public:
    LimitedObjPtr() = default;
    // Implicit, as a plain pointer would be.
    // NOLINTBEGIN(google-explicit-constructor)
    LimitedObjPtr(T* in_p) : m_p(in_p) {}
    LimitedObjPtr(std::nullptr_t) {}
    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    LimitedObjPtr(const LimitedObjPtr<U>& in_other) : m_p(in_other.get())
    {
    }
    // NOLINTEND(google-explicit-constructor)

    bool isNull() const { return m_p == nullptr; }
    explicit operator bool() const { return m_p != nullptr; }
    T* get() const { return m_p; }
    T* operator->() const { return m_p; }
    T& operator*() const { return *m_p; }
    friend bool operator==(const LimitedObjPtr& in_a, const LimitedObjPtr& in_b)
    {
        return in_a.m_p == in_b.m_p;
    }

private:
    T* m_p = nullptr;
};

}  // namespace Quorvex
