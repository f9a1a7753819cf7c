#pragma once

#include <string>
#include <vector>

#include "infra/ROConfiguration.h"
#include "sip/Sip.h"
#include "sipstack/DsSipStack.h"

namespace Quorvex
{

/// What the configuration says about the SIP stack ("quorvex.sip").
///
/// Keys, with their defaults: listen ("udp:127.0.0.1:5060"), contactUser ("gateway"), outboundProxy (""),
/// productName
/// ("Quorvex"), productVersion (""), getHostByNameTimeoutMs (250), resolverFile ("": the system's), t1Ms
/// (500), timerCMs (180000), tcpIdleMs (600000), maxMessageBytes (65536), sessionExpiresS (0: no session
/// timer asked for), minSES (90), retryAfterS (5), and credential, a list of tables with realm ("": every
/// realm without an entry), user and password.
struct SipStackSettings
{
    std::vector<Sip::AddressPortTransport> m_vListen;
    std::string m_strProductName = "Quorvex";
    std::string m_strProductVersion;
    /// Ready to start with, but for the overload check.
    DsSipStackConfig m_stack;

    /// False, with one line that names the key and what was expected, when something cannot be used.
    static bool read(const ROConfiguration& in_config,
                     SipStackSettings& out_settings,
                     std::string& out_strError);
};

}  // namespace Quorvex
