#pragma once

#include <cstddef>
#include <iosfwd>
#include <new>

namespace Quorvex
{

/// Root of the classes with virtual interfaces. Instances are counted in the memory account "Quorvex::Object"
/// unless a class names an account of its own (QUORVEX_MEM_ACCOUNT).
class Object
{
public:
    Object() = default;
    Object(const Object&) = default;
    Object& operator=(const Object&) = default;
    virtual ~Object();

    static void* operator new(std::size_t in_size);
    static void* operator new[](std::size_t in_size);
    static void* operator new(std::size_t, void* in_p) noexcept { return in_p; }
    static void operator delete(void* in_p) noexcept;
    static void operator delete[](void* in_p) noexcept;
    static void operator delete(void*, void*) noexcept {}
};

/// Something that can be shown in a log line or a status text.
class OutputStreamable : public virtual Object
{
public:
    /// Writes the object to the stream, without a line end, and returns the stream.
    virtual std::ostream& write(std::ostream& out_stream) const = 0;
};

std::ostream& operator<<(std::ostream& out_stream, const OutputStreamable& in_object);

/// Something that can be copied without knowing its class.
class Cloneable : public virtual Object
{
public:
    /// A copy on the heap, owned by the caller.
    virtual Cloneable* clone() const = 0;
};

}  // namespace Quorvex
