#pragma once

#include "sipstack/DsSipRequest.h"

namespace Quorvex
{

/// PRACK: answers a reliable provisional response (RFC 3262).
QUORVEX_REQUEST_CLASS(DsSipPrackMessage, "PRACK")
};

}  // namespace Quorvex
