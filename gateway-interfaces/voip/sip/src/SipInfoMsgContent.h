#pragma once

#include <memory>
#include <vector>

#include "infra/Parameter.h"
#include "sipstack/DsHandle.h"
#include "sipstack/DsSipRequest.h"

namespace Quorvex
{

/// The content of an INFO, as the call engine gets it: each header that the SIP stack has no class for, in
/// message order; then, if there is a body, "Content-Type" (the media type alone) when the request has one,
/// and "body". All values are strings. Null, with an assertion, when there is no request.
std::unique_ptr<std::vector<Parameter>> getNewInfoMsgContent(const DsHandle<DsSipRequest>& in_hRequest);

}  // namespace Quorvex
