#pragma once

#include <string>

namespace Quorvex::Net
{

/// Prepares the network library for use; calls are counted. False when the system refuses.
bool initializeLibrary();

/// Undoes one initializeLibrary. Look-ups under way end by themselves and are not waited for.
void closeLibrary();

/// A local network interface.
class Interface
{
public:
    Interface() = default;

    /// The interface over which the system reaches a destination: a dotted IPv4 address, or an IPv6 address
    /// with or without brackets (names are not resolved). False when it is not an address, or cannot be
    /// reached. Nothing is sent. The answer may be a second old. Any thread.
    static bool getForDestination(const std::string& in_strDestination, Interface& out_interface);

    /// The interface's own address, without brackets.
    const std::string& getIPAdress() const { return m_strAddress; }

private:
    std::string m_strAddress;
};

}  // namespace Quorvex::Net
