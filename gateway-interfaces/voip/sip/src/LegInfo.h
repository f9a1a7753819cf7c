#pragma once

#include <string>

namespace Quorvex
{

class CallLegInfo;

/// Sets a URI under the key, and its canonical form (the host as an address) under the key with ".canonical".
/// A host that cannot be resolved within the time-out is reported, with the URI's description, on
/// "quorvex.voip.canonical"; the URI then stands as its own canonical form.
void setUriParameters(CallLegInfo& io_legInfo,
                      const std::string& in_strKey,
                      const std::string& in_strURI,
                      int in_iTimeoutMs,
                      const char* in_szDescription);

}  // namespace Quorvex
