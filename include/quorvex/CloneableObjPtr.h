#pragma once

#include <memory>

#include "infra/Assertion.h"
#include "infra/Logger.h"
#include "infra/Object.h"

namespace Quorvex
{

/// Owns an object and copies it with itself, by cloning. T derives from Cloneable.
template <class T>
class CloneableObjPtr
{
public:
    CloneableObjPtr() = default;
    /// Takes ownership.
    explicit CloneableObjPtr(T* in_p) : m_ptr(in_p) {}

    CloneableObjPtr(const CloneableObjPtr& aCP) : m_ptr(cloneOf(aCP))
    {
        static_cast<void>(QUORVEX_ASSERT(logger(), aCP.isNull() || m_ptr));
    }
    CloneableObjPtr(CloneableObjPtr&&) noexcept = default;
    CloneableObjPtr& operator=(const CloneableObjPtr& rhs)
    {
        if (this != &rhs)
        {
            m_ptr = cloneOf(rhs);
            static_cast<void>(QUORVEX_ASSERT(logger(), rhs.isNull() || m_ptr));
        }
        return *this;
    }
    CloneableObjPtr& operator=(CloneableObjPtr&&) noexcept = default;
    ~CloneableObjPtr() = default;

    bool isNull() const { return m_ptr == nullptr; }
    explicit operator bool() const { return m_ptr != nullptr; }
    T* get() const { return m_ptr.get(); }
    T* operator->() const { return m_ptr.get(); }
    T& operator*() const { return *m_ptr; }
    /// Deletes the object and takes ownership of another.
    void reset(T* in_p = nullptr) { m_ptr.reset(in_p); }

private:
    static const Logger& logger()
    {
        static const Logger s_logger("quorvex.infra.CloneableObjPtr");
        return s_logger;
    }

    static std::unique_ptr<T> cloneOf(const CloneableObjPtr& in_other)
    {
        if (in_other.isNull())
        {
            return nullptr;
        }
        std::unique_ptr<Cloneable> pClone(in_other->clone());
        auto* pTyped = dynamic_cast<T*>(pClone.get());
        if (pTyped != nullptr)
        {
            static_cast<void>(pClone.release());
        }
        return std::unique_ptr<T>(pTyped);
    }

    std::unique_ptr<T> m_ptr;
};

}  // namespace Quorvex
