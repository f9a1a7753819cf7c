#include <cstdint>

#include "DsVoipGatewayNetIf.h"
#include "PluginExport.h"
#include "infra/Logger.h"

/// The plug-in's entry: makes and configures the network interface. Always 0; the out-parameter is null when
/// that failed, and the reason logged. The caller owns the object.
extern "C" QUORVEX_PLUGIN_EXPORT std::int32_t LoadMethod(
    Quorvex::OAMGatewayNetIf** out_pNetIf, const Quorvex::TSHandle<Quorvex::ROConfiguration>& in_hConfig)
{
    auto* pNetIf = new Quorvex::DsVoipGatewayNetIf;
    *out_pNetIf = pNetIf;
    if (!pNetIf->configure(in_hConfig))
    {
        QLOG_ERROR(Quorvex::Logger("quorvex.voip.LoadMethod"), "failed to configure sip network interface");
        delete *out_pNetIf;
        *out_pNetIf = nullptr;
    }
    return 0;
}
