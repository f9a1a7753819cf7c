#include "sip/Sip.h"

#include <ostream>

#include "sipstack/DsSipText.h"
#include "sipstack/DsSipURL.h"

namespace Quorvex
{

namespace Sip
{

namespace
{

constexpr std::uint16_t kDefaultPort = 5060;

}  // namespace

Fallible<Transport> parseTransportString(std::string_view in_transport)
{
    if (SipText::equalsIgnoreCase(in_transport, "udp"))
    {
        return eUDP;
    }
    if (SipText::equalsIgnoreCase(in_transport, "tcp"))
    {
        return eTCP;
    }
    return {};
}

const char* getTransportString(Transport in_transport)
{
    return in_transport == eTCP ? "TCP" : "UDP";
}

bool AddressPortTransport::initialize(std::string_view in_address,
                                      std::uint16_t in_uiPort,
                                      Transport in_transport)
{
    if (!DsInetAddress::parseLiteral(in_address, in_uiPort, m_address))
    {
        return false;
    }
    m_transport = in_transport;
    return true;
}

bool AddressPortTransport::parse(std::string_view in_text, std::string& out_strError)
{
    const std::size_t colon = in_text.find(':');
    const Fallible<Transport> transport = parseTransportString(in_text.substr(0, colon));
    if (colon != std::string_view::npos && transport.valid())
    {
        const std::string_view rest = in_text.substr(colon + 1);
        const std::size_t bracket = rest.rfind(']');
        const std::size_t portColon = rest.find(':', bracket == std::string_view::npos ? 0 : bracket);
        std::uint32_t port = kDefaultPort;
        if ((portColon == std::string_view::npos ||
             SipText::parseNumber(rest.substr(portColon + 1), 65535, port)) &&
            initialize(rest.substr(0, portColon), static_cast<std::uint16_t>(port), transport.value()))
        {
            return true;
        }
    }
    out_strError =
        "\"udp:ADDRESS:PORT\" or \"tcp:ADDRESS:PORT\" was expected (IPv6 addresses in brackets), found " +
        SipText::excerpt(in_text);
    return false;
}

std::string AddressPortTransport::getText() const
{
    return std::string(m_transport == eTCP ? "tcp:" : "udp:") + m_address.getText();
}

std::ostream& operator<<(std::ostream& out_stream, const AddressPortTransport& in_address)
{
    return out_stream << in_address.getText();
}

const Logger& getUAInteropLogger()
{
    static const StaticLogger s_logger("quorvex.sip.interop");
    return s_logger;
}

}  // namespace Sip

Fallible<Sip::Transport> DsSocketImpl::convertTransport(std::string_view in_transportParam)
{
    return in_transportParam.empty() ? Fallible<Sip::Transport>(Sip::eUDP)
                                     : Sip::parseTransportString(in_transportParam);
}

std::string URL::decode(std::string_view in_text)
{
    return DsSipURL::decode(in_text);
}

}  // namespace Quorvex
