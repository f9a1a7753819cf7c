#pragma once

#include <cstdint>

#include "Rtcp.h"
#include "RxStatistics.h"
#include "TxStream.h"
#include "infra/MemAccount.h"

namespace Quorvex
{

/// What an endpoint tells its far end about the stream, and is told. One thread.
class RtcpSession
{
public:
    QUORVEX_MEM_ACCOUNT("MediaRtcpSession");

    explicit RtcpSession(int in_iSocket) : m_iSocket(in_iSocket) {}

    int getSocket() const { return m_iSocket; }

    /// Writes the report of this moment; returns its size.
    std::size_t write(std::uint8_t* out_pData,
                      const TxStream& in_tx,
                      const RxStatistics& in_rx,
                      const std::string& in_strName,
                      bool in_bBye,
                      std::int64_t in_i64Now);
    /// False when the bytes are no RTCP.
    bool receive(const std::uint8_t* in_pData,
                 std::size_t in_uiSize,
                 std::uint32_t in_ui32OurSsrc,
                 std::int64_t in_i64Now);

    /// Negative while the far end has not said.
    double getRemoteLossRate() const { return m_fRemoteLossRate; }
    double getRoundTripMs() const { return m_fRoundTripMs; }

private:
    static std::uint64_t ntpTime();

    const int m_iSocket;
    std::uint64_t m_ui64ExpectedBefore = 0;
    std::uint64_t m_ui64ReceivedBefore = 0;
    std::uint64_t m_ui64PacketsBefore = 0;
    std::uint32_t m_ui32LastReport = 0;
    std::int64_t m_i64LastReportCame = 0;
    double m_fRemoteLossRate = -1;
    double m_fRoundTripMs = -1;
};

}  // namespace Quorvex
