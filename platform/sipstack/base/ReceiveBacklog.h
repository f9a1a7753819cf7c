#pragma once

#include <vector>

#include "sipstack/DsSipStack.h"

namespace Quorvex
{

/// What the kernel holds for the UDP listen ports because the SIP stack thread has not come to it. Calls
/// under way wait behind it, so it tells of overload before any queue of ours does. SIP stack thread.
class ReceiveBacklog
{
public:
    /// Finds the sockets of this process that are bound to the ports; the base library does not show its own.
    void watch(const std::vector<DsSipListenPort>& in_vPorts);
    /// True when so much waits at one of them that new calls should be turned away.
    bool isHigh() const;
    /// The socket that receives from addresses of the family (AF_INET) when there is just one, else -1.
    int getOnlySocket(int in_iFamily) const;

private:
    struct Socket
    {
        int m_iDescriptor;
        int m_iFamily;
        unsigned int m_uiHighBytes;
    };

    std::vector<Socket> m_vSockets;
};

}  // namespace Quorvex
