#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>

namespace Quorvex
{

/// A mutex for a member of an object of which there are thousands, held only while that member is copied or
/// exchanged: one of a few that all objects of the class share. Nothing is called while it is held.
template <class T>
std::mutex& copyMutex(const T& in_object)
{
    static std::array<std::mutex, 16> s_mutexes;
    return s_mutexes[reinterpret_cast<std::uintptr_t>(&in_object) / sizeof(T) % s_mutexes.size()];
}

}  // namespace Quorvex
