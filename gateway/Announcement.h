#pragma once

#include <string>

#include "Route.h"
#include "infra/ROConfiguration.h"

namespace Quorvex
{

/// What a gateway that has started tells whoever started it, in at most ten lines: where it listens, what
/// answers, and how to call it.
std::string makeAnnouncement(const ROConfiguration& in_config, const RouteTable& in_routes);

}  // namespace Quorvex
