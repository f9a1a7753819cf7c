#include "ListenAddresses.h"

#include "net/Net.h"
#include "sipstack/DsSipURL.h"

namespace Quorvex
{

namespace
{

constexpr std::uint16_t kDefaultPort = 5060;

/// Whether it is an address of this machine: that is reached from itself.
bool isLocal(const std::string& in_strHost)
{
    Net::Interface netInterface;
    return Net::Interface::getForDestination(in_strHost, netInterface) &&
           netInterface.getIPAdress() == in_strHost;
}

}  // namespace

ListenAddresses::ListenAddresses(const ROConfiguration& in_config)
{
    const auto add = [this](const std::string& in_strText)
    {
        Sip::AddressPortTransport address;
        std::string strError;
        if (address.parse(in_strText, strError))
        {
            m_vAddresses.push_back(address);
        }
    };
    const ParameterTrieNode* pListen = in_config.getNode("quorvex.sip.listen");
    if (pListen == nullptr)
    {
        add("udp:127.0.0.1");
        return;
    }
    if (pListen->hasValue())
    {
        add(pListen->getValue().toText());
    }
    for (const auto& pChild : pListen->getChildren())
    {
        add(pChild->getValue().toText());
    }
}

std::string ListenAddresses::getTransportTo(const std::string& in_strUri) const
{
    const DsHandle<DsSipURL> hUrl = DsSipURL::parse(in_strUri);
    if (hUrl.isNil())
    {
        return "";
    }
    const std::uint16_t uiPort = hUrl->getPort() != 0 ? hUrl->getPort() : kDefaultPort;
    const auto asked = Sip::parseTransportString(hUrl->getTransportParam());
    for (const Sip::AddressPortTransport& address : m_vAddresses)
    {
        const bool bHere =
            address.getPort() == uiPort && asked.valueOr(address.getTransport()) == address.getTransport() &&
            (address.isAny() ? isLocal(hUrl->getHost()) : address.getHostAddress() == hUrl->getHost());
        if (bHere)
        {
            return address.getTransport() == Sip::eUDP ? "udp" : "tcp";
        }
    }
    return "";
}

}  // namespace Quorvex
