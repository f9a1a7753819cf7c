#pragma once

#include "sipstack/DsSipRequest.h"

namespace Quorvex
{

/// CANCEL: gives an unanswered INVITE up.
QUORVEX_REQUEST_CLASS(DsSipCancelMessage, "CANCEL")
};

}  // namespace Quorvex
