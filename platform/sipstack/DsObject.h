#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <iosfwd>

#include "infra/MemAccount.h"

namespace Quorvex
{

/// Root of the SIP object layer's classes: counted, copyable, comparable, printable. Made with new, held by
/// DsHandle and never deleted by hand. The count may change on any thread; the rest of an object belongs to
/// one thread at a time, or is left unchanged by all.
class DsObject
{
public:
    QUORVEX_MEM_ACCOUNT("DsObject");

    virtual ~DsObject();

    /// A copy with a count of its own. Classes that cannot be copied throw a DsException.
    virtual DsObject* clone() const;

    /// Less than, equal to or greater than 0, as this object orders before, with or after the other. Where a
    /// class does not say otherwise an object equals only itself.
    virtual int compareWith(const DsObject& in_other) const;

    /// Equal for objects that compare as equal.
    virtual std::size_t hashCode() const;

    /// Writes the object as text, without a line end.
    virtual std::ostream& display(std::ostream& out_stream) const;

    virtual void AddRef() const;   // NOLINT(readability-identifier-naming): known by these names
    virtual void Release() const;  // NOLINT(readability-identifier-naming)

    /// How many handles hold the object; for tests and diagnosis.
    std::uint32_t getRefCount() const { return m_uiRefs.load(std::memory_order_acquire); }

protected:
    DsObject() = default;
    /// The count is not copied.
    DsObject(const DsObject&) {}
    DsObject& operator=(const DsObject&) { return *this; }

private:
    mutable std::atomic<std::uint32_t> m_uiRefs{0};
};

std::ostream& operator<<(std::ostream& out_stream, const DsObject& in_object);

}  // namespace Quorvex
