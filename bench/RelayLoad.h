#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace Quorvex::Bench
{

/// One party of a two-party call: a connected socket on 127.0.0.1 that sends G.711 packets of 20 ms.
class RelayParty
{
public:
    RelayParty();
    RelayParty(const RelayParty&) = delete;
    RelayParty& operator=(const RelayParty&) = delete;
    ~RelayParty();

    /// Its own port.
    unsigned getPort() const;
    /// Where the relay wants its packets.
    void connectTo(unsigned in_uiPort) const;
    /// One packet with the time of sending in it.
    void send();
    /// Takes what has come, adding the delays from sending to arrival, by the system's own stamp, in
    /// microseconds.
    void drain(std::vector<float>& out_vDelays) const;

private:
    int m_iSocket;
    std::uint16_t m_ui16Sequence = 0;
};

/// What a relay did with a load, and what that took.
struct RelayResult
{
    std::uint64_t m_ui64Sent = 0;
    double m_fCpuSeconds = 0;
    std::vector<float> m_vDelays;

    double getCpuPerPacketUs() const;
    double getLostPerMillion() const;
    /// In microseconds; the share is 0.5 for the median.
    float getDelayUs(double in_fShare);
};

/// Parties 2n and 2n + 1 are one call. Each sends a packet every 20 ms for a second, evenly spread over
/// those 20 ms.
void sendForASecond(std::vector<std::unique_ptr<RelayParty>>& io_vParties, RelayResult& io_result);

}  // namespace Quorvex::Bench
