#pragma once

#include <sys/types.h>

#include <string>

namespace Quorvex::Bench
{

/// The RTP proxy of Debian's rtpengine-daemon, without its kernel module, started for comparison and ended
/// with this object. Controlled by its "ng" protocol: bencoded dictionaries in UDP datagrams on 127.0.0.1.
class RtpengineProcess
{
public:
    RtpengineProcess() = default;
    RtpengineProcess(const RtpengineProcess&) = delete;
    RtpengineProcess& operator=(const RtpengineProcess&) = delete;
    ~RtpengineProcess();

    /// False when it is not installed, or does not answer within 5 s.
    bool start(unsigned in_uiFirstPort, unsigned in_uiLastPort);
    /// Bridges two parties on 127.0.0.1 that speak PCMU: the results are the ports that they send to. False
    /// when it is refused.
    bool bridge(const std::string& in_strCallId,
                unsigned in_uiPortA,
                unsigned in_uiPortB,
                unsigned& out_uiTowardsA,
                unsigned& out_uiTowardsB);
    /// Of all its threads.
    double getCpuSeconds() const;

private:
    /// The answer without its cookie; empty when none comes.
    std::string request(const std::string& in_strDictionary, int in_iTimeoutMs);
    bool sendDescription(const std::string& in_strCommand,
                         const std::string& in_strCallId,
                         unsigned in_uiPort,
                         unsigned& out_uiPort);

    pid_t m_pid = -1;
    int m_iSocket = -1;
    unsigned m_uiCookie = 0;
};

}  // namespace Quorvex::Bench
