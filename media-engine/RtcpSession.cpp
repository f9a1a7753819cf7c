#include "RtcpSession.h"

#include <algorithm>
#include <ctime>

#include "RtpPacket.h"

namespace Quorvex
{

namespace
{

// From 1900 to 1970.
constexpr std::uint64_t NTP_EPOCH_OFFSET = 2'208'988'800;
constexpr std::int64_t NS_PER_S = 1000 * NS_PER_MS;

}  // namespace

std::uint64_t RtcpSession::ntpTime()
{
    timespec time{};
    ::clock_gettime(CLOCK_REALTIME, &time);
    const std::uint64_t ui64Fraction =
        (static_cast<std::uint64_t>(time.tv_nsec) << 32) / static_cast<std::uint64_t>(NS_PER_S);
    return ((static_cast<std::uint64_t>(time.tv_sec) + NTP_EPOCH_OFFSET) << 32) | ui64Fraction;
}

std::size_t RtcpSession::write(std::uint8_t* out_pData,
                               const TxStream& in_tx,
                               const RxStatistics& in_rx,
                               const std::string& in_strName,
                               bool in_bBye,
                               std::int64_t in_i64Now)
{
    RtcpSenderInfo sender;
    const bool bSent = in_tx.getPackets() != m_ui64PacketsBefore;
    if (bSent)
    {
        m_ui64PacketsBefore = in_tx.getPackets();
        sender.m_ui64NtpTime = ntpTime();
        sender.m_ui32Timestamp = in_tx.timestampAt(in_i64Now);
        sender.m_ui32Packets = static_cast<std::uint32_t>(in_tx.getPackets());
        sender.m_ui32Octets = static_cast<std::uint32_t>(in_tx.getOctets());
    }
    RtcpReportBlock block;
    if (in_rx.hasSource())
    {
        const std::uint64_t ui64Expected = in_rx.getExpected() - m_ui64ExpectedBefore;
        const std::uint64_t ui64Received = in_rx.getReceived() - m_ui64ReceivedBefore;
        m_ui64ExpectedBefore = in_rx.getExpected();
        m_ui64ReceivedBefore = in_rx.getReceived();
        const std::uint64_t ui64Lost = ui64Expected > ui64Received ? ui64Expected - ui64Received : 0;
        block.m_ui32Ssrc = in_rx.getSsrc();
        block.m_ui8FractionLost =
            ui64Expected == 0
                ? 0
                : static_cast<std::uint8_t>(std::min<std::uint64_t>(ui64Lost * 256 / ui64Expected, 255));
        block.m_iCumulativeLost =
            static_cast<std::int32_t>(std::min<std::uint64_t>(in_rx.getLost(), 0x7fffff));
        block.m_ui32ExtendedSequence = in_rx.getExtendedSequence();
        block.m_ui32Jitter = in_rx.getJitterUnits();
        if (m_i64LastReportCame != 0)
        {
            block.m_ui32LastReport = m_ui32LastReport;
            block.m_ui32Delay =
                static_cast<std::uint32_t>((in_i64Now - m_i64LastReportCame) / 1000 * 65536 / 1'000'000);
        }
    }
    return RtcpWriter::write(out_pData,
                             in_tx.getSsrc(),
                             bSent ? &sender : nullptr,
                             in_rx.hasSource() ? &block : nullptr,
                             in_strName,
                             in_bBye);
}

bool RtcpSession::receive(const std::uint8_t* in_pData,
                          std::size_t in_uiSize,
                          std::uint32_t in_ui32OurSsrc,
                          std::int64_t in_i64Now)
{
    RtcpReader reader;
    if (!reader.parse(in_pData, in_uiSize, in_ui32OurSsrc))
    {
        return false;
    }
    if (reader.hasSenderInfo())
    {
        m_ui32LastReport = static_cast<std::uint32_t>(reader.getSenderInfo().m_ui64NtpTime >> 16);
        m_i64LastReportCame = in_i64Now;
    }
    if (reader.hasBlock())
    {
        const RtcpReportBlock& block = reader.getBlock();
        m_fRemoteLossRate = block.m_ui8FractionLost / 256.0;
        const auto ui32Now = static_cast<std::uint32_t>(ntpTime() >> 16);
        const auto iRoundTrip =
            static_cast<std::int32_t>(ui32Now - block.m_ui32LastReport - block.m_ui32Delay);
        // A far end that claims more than ten seconds, or a negative time, is no clock.
        if (block.m_ui32LastReport != 0 && iRoundTrip >= 0 && iRoundTrip < 10 * 65536)
        {
            m_fRoundTripMs = iRoundTrip * 1000.0 / 65536.0;
        }
    }
    return true;
}

}  // namespace Quorvex
