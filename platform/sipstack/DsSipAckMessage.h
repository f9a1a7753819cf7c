#pragma once

#include <string_view>

#include "sipstack/DsSipRequest.h"

namespace Quorvex
{

class DsSipResponse;

/// ACK of a final response to an INVITE.
QUORVEX_REQUEST_CLASS(DsSipAckMessage, "ACK")
/// The ACK of a response: its From, To, Call-ID and CSeq number, and its Contact as Request-URI (the To URI
/// when there is none).
explicit DsSipAckMessage(const DsHandle<DsSipResponse>& in_hResponse,
                         std::string_view in_body = {},
                         std::string_view in_bodyType = {});
};

}  // namespace Quorvex
