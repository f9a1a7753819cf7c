#include "infra/ThreadName.h"

#include <array>

#ifdef __linux__
#include <pthread.h>
#endif

namespace Quorvex
{

void nameThisThread([[maybe_unused]] std::string_view in_name)
{
#ifdef __linux__
    std::array<char, 16> name{};
    in_name.copy(name.data(), name.size() - 1);
    ::pthread_setname_np(::pthread_self(), name.data());
#endif
}

}  // namespace Quorvex
