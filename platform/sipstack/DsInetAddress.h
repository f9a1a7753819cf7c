#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

namespace Quorvex
{

/// An IP address (version 4 or 6) and a port; a value. An address that was default made is invalid.
class DsInetAddress
{
public:
    DsInetAddress() = default;

    /// The address of a host: a dotted IPv4 address, an IPv6 address with or without brackets, or a name.
    /// An address costs nothing. A name is looked up by the process's resolver (Net::HostResolver), which
    /// remembers answers, good and bad; the caller waits for no longer than the time-out. Throws a
    /// DsException when there is no address in time.
    explicit DsInetAddress(std::string_view in_host, int in_iTimeoutMs = 0, std::uint16_t in_uiPort = 0);

    /// An address that stands as such in a text; false when the text is not an IP address (nothing is looked
    /// up).
    static bool parseLiteral(std::string_view in_text, std::uint16_t in_uiPort, DsInetAddress& out_address);

    bool isValid() const { return !m_strAddress.empty(); }
    bool isIPv6() const { return m_bIPv6; }
    /// "0.0.0.0" or "::".
    bool isAny() const;

    /// The address as text, IPv6 without brackets; empty when invalid.
    const std::string& getHostAddress() const { return m_strAddress; }
    /// 0 when not given.
    std::uint16_t getPort() const { return m_uiPort; }
    void setPort(std::uint16_t in_uiPort) { m_uiPort = in_uiPort; }

    /// "address:port" ("[address]:port"), without the port when it is 0.
    std::string getText() const;

    friend bool operator==(const DsInetAddress&, const DsInetAddress&) = default;

private:
    std::string m_strAddress;  // canonical, so that equal addresses have equal texts
    std::uint16_t m_uiPort = 0;
    bool m_bIPv6 = false;
};

std::ostream& operator<<(std::ostream& out_stream, const DsInetAddress& in_address);

}  // namespace Quorvex
