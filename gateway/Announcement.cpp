#include "Announcement.h"

#include <algorithm>
#include <sstream>

namespace Quorvex
{

namespace
{

constexpr std::size_t kMaxRoutes = 5;

/// "udp:127.0.0.1:5060, tcp:127.0.0.1:5060"; the first of them without its transport in `out_strAddress`.
std::string listAddresses(const ROConfiguration& in_config, std::string& out_strAddress)
{
    std::string strAll;
    const ParameterTrieNode* pListen = in_config.getNode("quorvex.sip.listen");
    if (pListen != nullptr)
    {
        for (const auto& pPort : pListen->getChildren())
        {
            strAll += (strAll.empty() ? "" : ", ") + pPort->getValue().toText();
        }
    }
    const std::size_t begin = strAll.find(':') + 1;
    out_strAddress = strAll.substr(begin, strAll.find(',') - begin);
    return strAll;
}

/// A URI that the route is for, when its expression names a user outright; else the route's name.
std::string exampleOf(const Route& in_route, const std::string& in_strAddress)
{
    const std::string& strExpression = in_route.getUriExpression();
    const std::string strPrefix = "^sip:";
    const std::size_t at = strExpression.find('@');
    if (strExpression.starts_with(strPrefix) && at != std::string::npos)
    {
        const std::string strUser = strExpression.substr(strPrefix.size(), at - strPrefix.size());
        if (!strUser.empty() &&
            strUser.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-_") == strUser.npos)
        {
            return "sip:" + strUser + "@" + in_strAddress;
        }
    }
    return "route " + in_route.getName();
}

}  // namespace

std::string makeAnnouncement(const ROConfiguration& in_config, const RouteTable& in_routes)
{
    std::string strAddress;
    std::ostringstream text;
    text << "quorvex-gateway " QUORVEX_VERSION " is running\n  SIP   " << listAddresses(in_config, strAddress)
         << "    RTP   " << in_config.getStringOr("quorvex.rtp.localAddress", "127.0.0.1") << ", ports "
         << in_config.getStringOr("quorvex.rtp.portRange", "16384-32767") << '\n';
    const std::string strHttp = in_config.getStringOr("quorvex.gateway.httpListen", "");
    if (!strHttp.empty())
    {
        text << "  HTTP  http://" << strHttp << "/  (console; /api/calls, /api/status, /metrics, /healthz)\n";
    }
    std::string strCall = "make call URI=sip:echo@" + strAddress;
    // The port that every phone takes by itself is not worth typing.
    if (strAddress.ends_with(":5060"))
    {
        strAddress.resize(strAddress.size() - 5);
        strCall = "make call";
    }
    const auto& vRoutes = in_routes.getRoutes();
    for (std::size_t i = 0; i < std::min(vRoutes.size(), kMaxRoutes); ++i)
    {
        text << "  " << exampleOf(vRoutes[i], strAddress) << "  " << vRoutes[i].describe() << '\n';
    }
    if (vRoutes.size() > kMaxRoutes)
    {
        const std::size_t more = vRoutes.size() - kMaxRoutes;
        text << "  and " << more << (more == 1 ? " more route\n" : " more routes\n");
    }
    text << "  \"" << strCall
         << "\" makes a test call and measures it; Ctrl-C ends every call, then the gateway\n";
    return text.str();
}

}  // namespace Quorvex
