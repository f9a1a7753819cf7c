#pragma once

#include <string>
#include <vector>

#include "infra/ROConfiguration.h"
#include "sip/Sip.h"

namespace Quorvex
{

/// Where this gateway listens for SIP ("quorvex.sip.listen").
class ListenAddresses
{
public:
    ListenAddresses() = default;
    explicit ListenAddresses(const ROConfiguration& in_config);

    /// How a SIP URI leads back to this gateway: "udp" or "tcp"; empty when it leads elsewhere. Names of
    /// hosts are not looked up, and so lead elsewhere.
    std::string getTransportTo(const std::string& in_strUri) const;

private:
    std::vector<Sip::AddressPortTransport> m_vAddresses;
};

}  // namespace Quorvex
