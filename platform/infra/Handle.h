#pragma once

#include "infra/CountedObjPtr.h"

namespace Quorvex
{

/// A counted handle on an object that is handed around more than it is changed (a configuration, a registered
/// instance). With TSReferenceCount (TSHandle) threads may share the object; a handle with the plain count is
/// for one thread, and can be made from a TSHandle, which it then keeps: copies of it cost no atomic
/// operation.
template <class T, class RC = ReferenceCount>
class Handle : public CountedObjPtr<T, RC>
{
public:
    using CountedObjPtr<T, RC>::CountedObjPtr;
    Handle() = default;
    // NOLINTNEXTLINE(google-explicit-constructor)
    Handle(const CountedObjPtr<T, RC>& in_other) : CountedObjPtr<T, RC>(in_other) {}
    // NOLINTNEXTLINE(google-explicit-constructor)
    Handle(CountedObjPtr<T, RC>&& in_other) noexcept : CountedObjPtr<T, RC>(std::move(in_other)) {}

    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    static Handle fromShared(const Handle<U, TSReferenceCount>& in_shared)
    {
        return Handle(in_shared.isNull() ? CountedObjPtr<T, RC>()
                                         : CountedObjPtr<T, RC>::aliasing(in_shared.get(), in_shared));
    }

    /// A single-thread handle from a shared one.
    template <
        class U,
        class OtherRC = RC,
        class = std::enable_if_t<std::is_convertible_v<U*, T*> && std::is_same_v<OtherRC, ReferenceCount>>>
    // NOLINTNEXTLINE(google-explicit-constructor)
    Handle(const Handle<U, TSReferenceCount>& in_shared) : Handle(fromShared(in_shared))
    {
    }
};

template <class T>
using TSHandle = Handle<T, TSReferenceCount>;

}  // namespace Quorvex
