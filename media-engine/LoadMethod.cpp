#include <cstdint>
#include <memory>

#include "RtpMediaEngine.h"
#include "infra/Logger.h"

using Quorvex::MediaEngine;
using Quorvex::ROConfiguration;
using Quorvex::TSHandle;

/// The plug-in's entry: makes the engine. Always 0; a null engine means that the configuration does not allow
/// one, and the reason was logged.
extern "C" __attribute__((visibility("default"))) std::int32_t LoadMethod(
    MediaEngine** out_ppEngine, const TSHandle<ROConfiguration>& in_hConfig)
{
    auto pEngine = std::make_unique<Quorvex::RtpMediaEngine>();
    *out_ppEngine = pEngine->configure(in_hConfig) ? pEngine.release() : nullptr;
    if (*out_ppEngine == nullptr)
    {
        QLOG_ERROR(Quorvex::Logger("quorvex.media.RtpMediaEngine"),
                   "failed to configure the RTP media engine");
    }
    return 0;
}
