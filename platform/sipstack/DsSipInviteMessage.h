#pragma once

#include <string_view>

#include "sipstack/DsSipRequest.h"

namespace Quorvex
{

/// INVITE: begins a dialog, or changes one.
QUORVEX_REQUEST_CLASS(DsSipInviteMessage, "INVITE")
/// An INVITE with copies of From, To and Contact (each left out when nil), without Call-ID and CSeq, which
/// are the stack's to give.
DsSipInviteMessage(const DsSipURL& in_requestURL,
                   const DsHandle<DsSipFromHeader>& in_hFrom,
                   const DsHandle<DsSipToHeader>& in_hTo,
                   const DsHandle<DsSipContactHeader>& in_hContact,
                   std::string_view in_body = {},
                   std::string_view in_bodyType = {});
};

}  // namespace Quorvex
