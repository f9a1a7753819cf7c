#pragma once

#include <cstddef>
#include <functional>
#include <ostream>
#include <type_traits>
#include <utility>

namespace Quorvex
{

/// A counted pointer to a DsObject; the count lives in the object and changes atomically, so that handles to
/// one object may be copied and dropped on any thread. One handle belongs to one thread at a time.
template <class T>
class DsHandle
{
public:
    using element_type = T;

    DsHandle() noexcept = default;
    // NOLINTNEXTLINE(google-explicit-constructor): a nil handle is written nullptr
    DsHandle(std::nullptr_t) noexcept {}
    explicit DsHandle(T* in_p) : m_p(in_p) { addRef(); }
    DsHandle(const DsHandle& in_other) : m_p(in_other.m_p) { addRef(); }
    DsHandle(DsHandle&& in_other) noexcept : m_p(std::exchange(in_other.m_p, nullptr)) {}

    /// Upcast.
    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    DsHandle(const DsHandle<U>& in_other) : m_p(in_other.get())  // NOLINT(google-explicit-constructor)
    {
        addRef();
    }

    ~DsHandle() { release(); }

    // NOLINTNEXTLINE(bugprone-unhandled-self-assignment): a copy is taken first
    DsHandle& operator=(const DsHandle& in_other)
    {
        DsHandle(in_other).swap(*this);
        return *this;
    }
    DsHandle& operator=(DsHandle&& in_other) noexcept
    {
        DsHandle(std::move(in_other)).swap(*this);
        return *this;
    }
    DsHandle& operator=(T* in_p)
    {
        DsHandle(in_p).swap(*this);
        return *this;
    }
    DsHandle& operator=(std::nullptr_t) noexcept
    {
        DsHandle().swap(*this);
        return *this;
    }

    bool isNil() const noexcept { return m_p == nullptr; }
    explicit operator bool() const noexcept { return m_p != nullptr; }
    T* get() const noexcept { return m_p; }
    T* operator->() const noexcept { return m_p; }
    T& operator*() const noexcept { return *m_p; }
    void reset(T* in_p = nullptr) { DsHandle(in_p).swap(*this); }
    void swap(DsHandle& io_other) noexcept { std::swap(m_p, io_other.m_p); }

    /// A handle of another class to the same object, nil when it is not of that class.
    template <class U>
    DsHandle<U> dynamicCast() const
    {
        return DsHandle<U>(dynamic_cast<U*>(m_p));
    }

    /// Gives the object up without dropping its reference.
    T* detach() noexcept { return std::exchange(m_p, nullptr); }

private:
    void addRef() const
    {
        if (m_p != nullptr)
        {
            m_p->AddRef();
        }
    }
    void release() const
    {
        if (m_p != nullptr)
        {
            m_p->Release();
        }
    }

    T* m_p = nullptr;
};

/// Handles are equal when they hold the same object.
template <class T, class U>
bool operator==(const DsHandle<T>& in_lhs, const DsHandle<U>& in_rhs)
{
    return in_lhs.get() == in_rhs.get();
}
template <class T>
bool operator==(const DsHandle<T>& in_lhs, std::nullptr_t)
{
    return in_lhs.isNil();
}
template <class T>
bool operator<(const DsHandle<T>& in_lhs, const DsHandle<T>& in_rhs)
{
    return std::less<T*>()(in_lhs.get(), in_rhs.get());
}

/// Writes the object, or "nil".
template <class T>
std::ostream& operator<<(std::ostream& out_stream, const DsHandle<T>& in_handle)
{
    return in_handle.isNil() ? out_stream << "nil" : in_handle->display(out_stream);
}

/// A new object under a handle: makeDs<DsSipURL>("sip:a@b").
template <class T, class... Args>
DsHandle<T> makeDs(Args&&... in_args)
{
    return DsHandle<T>(new T(std::forward<Args>(in_args)...));
}

/// A handle of another class to the same object, nil when it is not of that class.
template <class U, class T>
DsHandle<U> dsDynamicCast(const DsHandle<T>& in_handle)
{
    return in_handle.template dynamicCast<U>();
}

}  // namespace Quorvex
