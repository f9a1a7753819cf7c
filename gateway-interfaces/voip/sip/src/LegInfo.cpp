#include "LegInfo.h"

#include "calleng/CallLegInfo.h"
#include "infra/Logger.h"
#include "net/CanonicalURI.h"

namespace Quorvex
{

void setUriParameters(CallLegInfo& io_legInfo,
                      const std::string& in_strKey,
                      const std::string& in_strURI,
                      int in_iTimeoutMs,
                      const char* in_szDescription)
{
    static const StaticLogger s_logger("quorvex.voip.canonical");
    io_legInfo.setParameter(in_strKey, in_strURI);
    std::string strCanonical;
    if (!canonicalizeURI(
            in_strURI, strCanonical, ACE_Time_Value(in_iTimeoutMs / 1000, (in_iTimeoutMs % 1000) * 1000L)))
    {
        QLOG_WARN(s_logger, "Failed to resolve hostname of " << in_szDescription << in_strURI);
        strCanonical = in_strURI;
    }
    io_legInfo.setParameter(in_strKey + ".canonical", strCanonical);
}

}  // namespace Quorvex
