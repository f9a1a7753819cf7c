#pragma once

#include <mutex>
#include <set>
#include <string>

namespace Quorvex
{

/// The name of a listen port for TPTAG_IDENT, as a text that lives as long as the program. The base library
/// keeps the pointer in the transaction, which outlives the call that began it: a 2xx of a further fork, or a
/// late response, is answered through the port of that name. There are as many names as there are ports.
inline const char* portIdent(const std::string& in_strPort)
{
    static std::mutex s_mutex;  // two stacks may run
    static auto* const s_pNames = new std::set<std::string>;
    const std::lock_guard<std::mutex> lock(s_mutex);
    return s_pNames->insert(in_strPort).first->c_str();
}

}  // namespace Quorvex
