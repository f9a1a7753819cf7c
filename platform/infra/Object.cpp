#include "infra/Object.h"

#include <ostream>

#include "infra/MemAccount.h"

namespace Quorvex
{

namespace
{

MemAccount& objectAccount()
{
    static MemAccount& s_account = MemAccounts::get("Quorvex::Object");
    return s_account;
}

}  // namespace

Object::~Object() = default;

void* Object::operator new(std::size_t in_size)
{
    return NoSizeMemAllocator::allocate(in_size, objectAccount());
}

void* Object::operator new[](std::size_t in_size)
{
    return NoSizeMemAllocator::allocate(in_size, objectAccount());
}

void Object::operator delete(void* in_p) noexcept
{
    NoSizeMemAllocator::deallocate(in_p, objectAccount());
}

void Object::operator delete[](void* in_p) noexcept
{
    NoSizeMemAllocator::deallocate(in_p, objectAccount());
}

std::ostream& operator<<(std::ostream& out_stream, const OutputStreamable& in_object)
{
    return in_object.write(out_stream);
}

}  // namespace Quorvex
