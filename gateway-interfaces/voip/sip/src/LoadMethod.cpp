#include <cstdint>
#include <exception>
#include <memory>

#include "DsVoipGatewayNetIf.h"
#include "PluginExport.h"
#include "infra/Logger.h"

/// The plug-in's entry: makes and configures the network interface. Always 0; the out-parameter is null when
/// that failed, and the reason logged. The caller owns the object.
extern "C" QUORVEX_PLUGIN_EXPORT std::int32_t LoadMethod(
    Quorvex::OAMGatewayNetIf** out_pNetIf, const Quorvex::TSHandle<Quorvex::ROConfiguration>& in_hConfig)
{
    const Quorvex::Logger logger("quorvex.voip.LoadMethod");
    *out_pNetIf = nullptr;
    // The media engine's library has a hand in this: what it throws ends here.
    try
    {
        auto pNetIf = std::make_unique<Quorvex::DsVoipGatewayNetIf>();
        if (pNetIf->configure(in_hConfig))
        {
            *out_pNetIf = pNetIf.release();
            return 0;
        }
    }
    catch (const std::exception& exception)
    {
        QLOG_ERROR(logger, exception.what());
    }
    QLOG_ERROR(logger, "failed to configure sip network interface");
    return 0;
}
