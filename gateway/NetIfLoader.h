#pragma once

#include <string>

#include "infra/DynLibObjPtr.h"
#include "infra/ROConfiguration.h"
#include "quorvex/GatewayNetIf.h"

namespace Quorvex
{

/// Loads the network interface that a configuration names.
class NetIfLoader
{
public:
    /// Null when it cannot be: `out_strError` then names the key and what was expected, in one line.
    static DynLibObjPtr<OAMGatewayNetIf> load(const TSHandle<ROConfiguration>& in_hConfig,
                                              std::string& out_strError);

private:
    static std::string checkLibrary(const std::string& in_strKey,
                                    const std::string& in_strName,
                                    const char* in_szWhat);
};

}  // namespace Quorvex
