#pragma once

#include "sipstack/DsSipRequest.h"

namespace Quorvex
{

/// REFER: asks for a transfer (RFC 3515).
QUORVEX_REQUEST_CLASS(DsSipReferMessage, "REFER")
};

}  // namespace Quorvex
