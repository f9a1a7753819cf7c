#pragma once

#include <utility>

#include "infra/DynLib.h"
#include "infra/Handle.h"

namespace Quorvex
{

/// A counted object together with the dynamic library that made it: the library stays loaded while the object
/// lives. The count is thread-safe.
template <class T>
class DynLibObjPtr
{
public:
    DynLibObjPtr() = default;
    DynLibObjPtr(TSHandle<T> in_hObject, TSHandle<DynLib> in_hLibrary)
        : m_hLibrary(std::move(in_hLibrary)), m_hObject(std::move(in_hObject))
    {
    }
    DynLibObjPtr(const DynLibObjPtr&) = default;
    DynLibObjPtr(DynLibObjPtr&&) noexcept = default;
    DynLibObjPtr& operator=(const DynLibObjPtr& in_other)
    {
        DynLibObjPtr(in_other).swap(*this);
        return *this;
    }
    DynLibObjPtr& operator=(DynLibObjPtr&& in_other) noexcept
    {
        DynLibObjPtr(std::move(in_other)).swap(*this);
        return *this;
    }
    ~DynLibObjPtr() = default;

    bool isNull() const { return m_hObject.isNull(); }
    T* get() const { return m_hObject.get(); }
    T* operator->() const { return m_hObject.get(); }
    T& operator*() const { return *m_hObject; }
    const TSHandle<T>& getObject() const { return m_hObject; }
    const TSHandle<DynLib>& getLibrary() const { return m_hLibrary; }

    /// The object under another of its classes, as a counted pointer that also keeps the library loaded; null
    /// when it is not of that class.
    template <class U>
    TSHandle<U> as() const
    {
        auto* p = dynamic_cast<U*>(m_hObject.get());
        return p == nullptr ? TSHandle<U>()
                            : TSHandle<U>(CountedObjPtr<U, TSReferenceCount>::aliasing(p, *this));
    }

    void swap(DynLibObjPtr& io_other) noexcept
    {
        m_hLibrary.swap(io_other.m_hLibrary);
        m_hObject.swap(io_other.m_hObject);
    }

private:
    // In this order: the object goes first, its code after it.
    TSHandle<DynLib> m_hLibrary;
    TSHandle<T> m_hObject;
};

}  // namespace Quorvex
