#pragma once

#include <string_view>

namespace Quorvex
{

/// Names the calling thread for debuggers, profilers and the system's thread lists; the first 15 characters
/// count. Where the system keeps no such names it does nothing.
void nameThisThread(std::string_view in_name);

}  // namespace Quorvex
