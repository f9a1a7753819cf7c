#include "NetIfLoader.h"

#include "FirstError.h"
#include "quorvex/DynlibObjectFactory.h"

namespace Quorvex
{

namespace
{

constexpr const char* kNetIfKey = "quorvex.gateway.netIfLib";
constexpr const char* kMediaKey = "quorvex.sip.mediaLibName";
constexpr const char* kCreationMethod = "LoadMethod";

}  // namespace

std::string NetIfLoader::checkLibrary(const std::string& in_strKey,
                                      const std::string& in_strName,
                                      const char* in_szWhat)
{
    std::string error;
    const TSHandle<DynLib> hLibrary = DynLib::open(in_strName, error);
    if (hLibrary.isNull())
    {
        return in_strKey + ": \"" + in_strName + "\" cannot be loaded: " + error;
    }
    if (hLibrary->symbol(kCreationMethod) == nullptr)
    {
        return in_strKey + ": \"" + in_strName + "\" has no LoadMethod: " + in_szWhat + " is expected";
    }
    return "";
}

DynLibObjPtr<OAMGatewayNetIf> NetIfLoader::load(const TSHandle<ROConfiguration>& in_hConfig,
                                                std::string& out_strError)
{
    const std::string strNetIf = in_hConfig->getStringOr(kNetIfKey, "libquorvex-sip-netif.so");
    out_strError = checkLibrary(kNetIfKey, strNetIf, "a network interface plug-in");
    if (out_strError.empty())
    {
        out_strError =
            checkLibrary(kMediaKey, in_hConfig->getStringOr(kMediaKey, ""), "a media engine plug-in");
    }
    if (!out_strError.empty())
    {
        return {};
    }
    // What the plug-ins find wrong they log; the first of it is what a person should read.
    const FirstError firstError;
    DynlibObjectFactory<OAMGatewayNetIf> factory;
    DynLibObjPtr<OAMGatewayNetIf> pNetIf;
    if (factory.openDynlib(strNetIf))
    {
        pNetIf = factory.create(kCreationMethod, in_hConfig);
    }
    if (pNetIf.isNull())
    {
        out_strError = "the network interface refuses the configuration: " + firstError.getText();
    }
    return pNetIf;
}

}  // namespace Quorvex
