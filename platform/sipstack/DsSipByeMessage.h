#pragma once

#include "sipstack/DsSipRequest.h"

namespace Quorvex
{

/// BYE: ends a dialog.
QUORVEX_REQUEST_CLASS(DsSipByeMessage, "BYE")
};

}  // namespace Quorvex
