#pragma once

#include <cstddef>
#include <memory>
#include <type_traits>
#include <utility>

#include "infra/ReferenceCount.h"

namespace Quorvex
{

/// The count that stands beside a counted object. Independent of the pointer's class, so that upcasts share
/// it.
template <class RC>
struct CountedBlock
{
    CountedBlock() = default;
    CountedBlock(const CountedBlock&) = delete;
    CountedBlock& operator=(const CountedBlock&) = delete;
    virtual ~CountedBlock() = default;
    RC m_count;
};

/// A count that owns an object of class U and deletes it with itself.
template <class U, class RC>
struct OwningCountedBlock final : CountedBlock<RC>
{
    explicit OwningCountedBlock(U* in_p) : m_pObject(in_p) {}
    ~OwningCountedBlock() override { delete m_pObject; }
    U* m_pObject;
};

/// A count in one block with its object.
template <class U, class RC>
struct HoldingCountedBlock final : CountedBlock<RC>
{
    template <class... Args>
    explicit HoldingCountedBlock(Args&&... in_args) : m_object(std::forward<Args>(in_args)...)
    {
    }
    U m_object;
};

/// A count that keeps something else (the owner of the object) alive.
template <class Owner, class RC>
struct KeepingCountedBlock final : CountedBlock<RC>
{
    explicit KeepingCountedBlock(Owner in_owner) : m_owner(std::move(in_owner)) {}
    Owner m_owner;
};

/// Shared ownership of an object that knows nothing of being counted. The count (RC: ReferenceCount for one
/// thread, TSReferenceCount for several) stands beside the object and deletes it through the pointer it was
/// first given. Several threads may hold pointers with a TSReferenceCount to one object; one pointer object
/// is not itself shared.
template <class T, class RC = ReferenceCount>
class CountedObjPtr
{
public:
    using element_type = T;

    CountedObjPtr() = default;
    // NOLINTNEXTLINE(google-explicit-constructor)
    CountedObjPtr(std::nullptr_t) {}

    /// Takes ownership of the object.
    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    explicit CountedObjPtr(U* in_p) : CountedObjPtr(std::unique_ptr<U>(in_p))
    {
    }

    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    // NOLINTNEXTLINE(google-explicit-constructor)
    CountedObjPtr(std::unique_ptr<U> in_p)
        : m_p(in_p.get()), m_pCount(in_p ? new OwningCountedBlock<U, RC>(in_p.get()) : nullptr)
    {
        static_cast<void>(in_p.release());
    }

    CountedObjPtr(const CountedObjPtr& in_other) : m_p(in_other.m_p), m_pCount(in_other.m_pCount)
    {
        acquire();
    }
    CountedObjPtr(CountedObjPtr&& in_other) noexcept
        : m_p(std::exchange(in_other.m_p, nullptr)), m_pCount(std::exchange(in_other.m_pCount, nullptr))
    {
    }

    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    // NOLINTNEXTLINE(google-explicit-constructor)
    CountedObjPtr(const CountedObjPtr<U, RC>& in_other) : m_p(in_other.m_p), m_pCount(in_other.m_pCount)
    {
        acquire();
    }

    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    // NOLINTNEXTLINE(google-explicit-constructor)
    CountedObjPtr(CountedObjPtr<U, RC>&& in_other) noexcept : m_p(in_other.m_p), m_pCount(in_other.m_pCount)
    {
        in_other.m_p = nullptr;
        in_other.m_pCount = nullptr;
    }

    // NOLINTNEXTLINE(bugprone-unhandled-self-assignment): copied first, then swapped
    CountedObjPtr& operator=(const CountedObjPtr& in_other)
    {
        CountedObjPtr(in_other).swap(*this);
        return *this;
    }
    CountedObjPtr& operator=(CountedObjPtr&& in_other) noexcept
    {
        CountedObjPtr(std::move(in_other)).swap(*this);
        return *this;
    }

    ~CountedObjPtr() { release(); }

    bool isNull() const { return m_p == nullptr; }
    explicit operator bool() const { return m_p != nullptr; }
    T* get() const { return m_p; }
    T* operator->() const { return m_p; }
    T& operator*() const { return *m_p; }

    /// True when this is the only pointer to the object.
    bool unique() const { return m_pCount != nullptr && m_pCount->m_count.get() == 1; }

    /// Gives up the object and takes ownership of another, if one is given.
    void reset() { CountedObjPtr().swap(*this); }
    void reset(std::nullptr_t) { reset(); }
    template <class U>
    void reset(U* in_p)
    {
        CountedObjPtr(in_p).swap(*this);
    }

    void swap(CountedObjPtr& io_other) noexcept
    {
        std::swap(m_p, io_other.m_p);
        std::swap(m_pCount, io_other.m_pCount);
    }

    /// The same object under another of its classes, sharing the count; null when it is not of that class.
    template <class U>
    CountedObjPtr<U, RC> dynamicCast() const
    {
        CountedObjPtr<U, RC> other;
        other.m_p = dynamic_cast<U*>(m_p);
        if (other.m_p != nullptr)
        {
            other.m_pCount = m_pCount;
            other.acquire();
        }
        return other;
    }

    /// A new object of class U, built from those arguments in one block with its count: for small objects of
    /// which there are many.
    template <class U, class... Args>
    static CountedObjPtr make(Args&&... in_args)
    {
        auto* const pBlock = new HoldingCountedBlock<U, RC>(std::forward<Args>(in_args)...);
        CountedObjPtr pointer;
        pointer.m_pCount = pBlock;
        pointer.m_p = &pBlock->m_object;
        return pointer;
    }

    /// A pointer to an object that `in_owner` keeps alive: the owner is held until the last such pointer is
    /// gone.
    template <class Owner>
    static CountedObjPtr aliasing(T* in_p, Owner in_owner)
    {
        CountedObjPtr pointer;
        pointer.m_pCount = new KeepingCountedBlock<Owner, RC>(std::move(in_owner));
        pointer.m_p = in_p;
        return pointer;
    }

    friend bool operator==(const CountedObjPtr& in_a, const CountedObjPtr& in_b)
    {
        return in_a.m_p == in_b.m_p;
    }
    friend bool operator==(const CountedObjPtr& in_a, std::nullptr_t) { return in_a.m_p == nullptr; }

private:
    template <class U, class OtherRC>
    friend class CountedObjPtr;

    void acquire()
    {
        if (m_pCount != nullptr)
        {
            m_pCount->m_count.increment();
        }
    }

    void release()
    {
        if (m_pCount != nullptr && m_pCount->m_count.decrement())
        {
            // The analyser does not follow the count.
            delete m_pCount;  // NOLINT(clang-analyzer-cplusplus.NewDelete)
        }
        m_p = nullptr;
        m_pCount = nullptr;
    }  // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks): the same

    T* m_p = nullptr;
    CountedBlock<RC>* m_pCount = nullptr;
};

}  // namespace Quorvex
