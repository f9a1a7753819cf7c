#pragma once

#include <iosfwd>
#include <string>
#include <string_view>

#include "sipstack/DsHandle.h"
#include "sipstack/DsSipMessage.h"

namespace Quorvex
{

/// Small helpers for SIP messages and what rules put into them.
class MySipUtils
{
public:
    /// A SIP or SIPS URI with a host, scheme included, that may stand in a request line.
    static bool sIsValidRequestURI(std::string_view in_uri);
    /// What may stand in a To or From header, given as the bare URI: as above, or a URI of another scheme
    /// ("tel:").
    static bool sIsValidToHeader(std::string_view in_uri);
    static bool sIsValidFromHeader(std::string_view in_uri);

    /// The bytes of the body as text.
    static std::string serializeSipMsgBody(const DsHandle<DsSipMessage>& in_hMessage);
    static std::ostream& serializeSipMsgBody(const DsHandle<DsSipMessage>& in_hMessage,
                                             std::ostream& out_stream);
};

}  // namespace Quorvex
