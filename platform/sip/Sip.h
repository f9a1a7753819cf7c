#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

#include "infra/Logger.h"
#include "quorvex/Fallible.h"
#include "sip/SipFailure.h"
#include "sipstack/DsInetAddress.h"
#include "sipstack/DsString.h"

namespace Quorvex::Sip
{

/// How SIP messages travel. The first value stands where a transport is not recognised.
enum Transport
{
    eUDP = 0,
    eTCP = 1
};

/// "udp" and "tcp" in any case; nothing for every other text.
Fallible<Transport> parseTransportString(std::string_view in_transport);

/// "UDP" or "TCP".
const char* getTransportString(Transport in_transport);

/// Where SIP is listened for, or sent to; a value.
class AddressPortTransport
{
public:
    AddressPortTransport() = default;

    /// An IPv4 address, or an IPv6 address with or without brackets. False, and no change, when it is neither
    /// (names are not looked up).
    bool initialize(std::string_view in_address, std::uint16_t in_uiPort, Transport in_transport);

    /// "udp:127.0.0.1:5060", "tcp:[::1]:5060"; the port may be left out (5060). False, with what was expected
    /// in `out_strError`, when the text is not of this form.
    bool parse(std::string_view in_text, std::string& out_strError);

    bool isValid() const { return m_address.isValid(); }
    const DsInetAddress& getAddress() const { return m_address; }
    /// Without brackets; empty while invalid.
    const std::string& getHostAddress() const { return m_address.getHostAddress(); }
    std::uint16_t getPort() const { return m_address.getPort(); }
    Transport getTransport() const { return m_transport; }
    /// Bound to the any-address, "0.0.0.0" or "::".
    bool isAny() const { return m_address.isAny(); }

    /// "udp:127.0.0.1:5060".
    std::string getText() const;

    friend bool operator==(const AddressPortTransport&, const AddressPortTransport&) = default;

private:
    DsInetAddress m_address;
    Transport m_transport = eUDP;
};

std::ostream& operator<<(std::ostream& out_stream, const AddressPortTransport& in_address);

/// The logger "quorvex.sip.interop": what other user agents do that is against the rules, and tolerated.
const Logger& getUAInteropLogger();

inline bool isProvisionalResponse(unsigned int in_uiStatusCode)
{
    return in_uiStatusCode / 100 == 1;
}
inline bool isSuccessResponse(unsigned int in_uiStatusCode)
{
    return in_uiStatusCode / 100 == 2;
}
inline bool isRedirectResponse(unsigned int in_uiStatusCode)
{
    return in_uiStatusCode / 100 == 3;
}
inline bool isFailureResponse(unsigned int in_uiStatusCode)
{
    return in_uiStatusCode >= 400 && in_uiStatusCode <= 699;
}

}  // namespace Quorvex::Sip

namespace Quorvex
{

/// The socket library's view of transports.
class DsSocketImpl
{
public:
    /// The transport of a URL's transport parameter; an empty one means UDP. Nothing when it is not known.
    static Fallible<Sip::Transport> convertTransport(std::string_view in_transportParam);
};

/// Escapes in URLs.
class URL
{
public:
    /// Resolves "%41"; what is not a complete escape stays as it is.
    static std::string decode(std::string_view in_text);
};

}  // namespace Quorvex
