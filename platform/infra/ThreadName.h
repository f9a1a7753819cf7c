#pragma once

#include <string_view>

namespace Quorvex
{

/// Names the calling thread for log lines and, where the system keeps such names, for debuggers, profilers
/// and the system's thread lists; the first 15 characters count.
void nameThisThread(std::string_view in_name);

}  // namespace Quorvex
