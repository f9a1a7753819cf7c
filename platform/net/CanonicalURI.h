#pragma once

#include <ace/Time_Value.h>

#include <string>
#include <string_view>

namespace Quorvex
{

/// Replaces the host of a SIP or SIPS URI (with or without a display name and angle brackets around it) by
/// its address; all else stays as it stands. A dotted address or an IPv6 reference stays as it is, and costs
/// no look-up. A name is looked up (Net::HostResolver) for no longer than the time-out. False when there is
/// no host or it cannot be resolved in time; then the URI comes back unchanged.
bool canonicalizeURI(const std::string& in_strURI,
                     std::string& out_strCanonical,
                     const ACE_Time_Value& in_timeout);

/// Where the host stands in a URI; false when there is none.
bool findHostInURI(std::string_view in_uri, std::string_view& out_host);

}  // namespace Quorvex
