#pragma once

#include <string>
#include <vector>

namespace Quorvex
{

/// The engine's UDP ports. Pairs are handed out round the range, so that a port that was given back rests
/// before its next call and late packets of the last one find nobody; the first at random, so that after a
/// restart calls do not begin with the ports of those that were cut off. One thread.
class PortPool
{
public:
    PortPool(const std::string& in_strAddress, unsigned in_uiFirstPort, unsigned in_uiLastPort);

    /// A non-blocking socket bound to a free even port; a port that somebody else holds is passed over. False
    /// when there is none.
    bool acquire(int& out_iSocket, unsigned& out_uiPort);
    /// A non-blocking socket on any port of the address, such as the odd one of a pair; -1 when it cannot be
    /// bound.
    int bindPort(unsigned in_uiPort) const;
    /// Closes the socket and gives its port back.
    void release(int in_iSocket, unsigned in_uiPort);

    unsigned getPairs() const { return static_cast<unsigned>(m_vTaken.size()); }
    unsigned getFreePairs() const { return getPairs() - m_uiTaken; }

private:
    const std::string m_strAddress;
    const unsigned m_uiFirstPort;
    std::vector<bool> m_vTaken;
    unsigned m_uiTaken = 0;
    unsigned m_uiNext = 0;
};

}  // namespace Quorvex
