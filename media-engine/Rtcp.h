#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace Quorvex
{

/// One report block (RFC 3550 section 6.4.1).
struct RtcpReportBlock
{
    std::uint32_t m_ui32Ssrc = 0;
    /// In 1/256.
    std::uint8_t m_ui8FractionLost = 0;
    /// -8388608 to 8388607.
    std::int32_t m_iCumulativeLost = 0;
    std::uint32_t m_ui32ExtendedSequence = 0;
    std::uint32_t m_ui32Jitter = 0;
    /// The middle of the last sender report's time, and how long ago it came, in 1/65536 s.
    std::uint32_t m_ui32LastReport = 0;
    std::uint32_t m_ui32Delay = 0;
};

struct RtcpSenderInfo
{
    std::uint64_t m_ui64NtpTime = 0;
    std::uint32_t m_ui32Timestamp = 0;
    std::uint32_t m_ui32Packets = 0;
    std::uint32_t m_ui32Octets = 0;
};

/// Writes one compound packet: a sender or a receiver report, the name of the source, and a farewell if
/// wanted.
class RtcpWriter
{
public:
    static constexpr std::size_t MAX_SIZE = 160;

    /// `in_pSender` and `in_pBlock` may be null. The name is cut after 64 bytes. Returns the size.
    static std::size_t write(std::uint8_t* out_pData,
                             std::uint32_t in_ui32Ssrc,
                             const RtcpSenderInfo* in_pSender,
                             const RtcpReportBlock* in_pBlock,
                             const std::string& in_strName,
                             bool in_bBye);
};

/// Reads a compound packet.
class RtcpReader
{
public:
    /// False when the bytes are no compound packet of version 2 with consistent lengths, beginning with a
    /// report (RFC 3550 appendix A.2).
    bool parse(const std::uint8_t* in_pData, std::size_t in_uiSize, std::uint32_t in_ui32OurSsrc);

    bool hasSenderInfo() const { return m_bSender; }
    std::uint32_t getSenderSsrc() const { return m_ui32SenderSsrc; }
    const RtcpSenderInfo& getSenderInfo() const { return m_sender; }
    /// What is said about our stream.
    bool hasBlock() const { return m_bBlock; }
    const RtcpReportBlock& getBlock() const { return m_block; }
    bool isBye() const { return m_bBye; }

private:
    void readBlocks(const std::uint8_t* in_pData,
                    std::size_t in_uiSize,
                    unsigned in_uiCount,
                    std::uint32_t in_ui32OurSsrc);

    bool m_bSender = false;
    bool m_bBlock = false;
    bool m_bBye = false;
    std::uint32_t m_ui32SenderSsrc = 0;
    RtcpSenderInfo m_sender;
    RtcpReportBlock m_block;
};

}  // namespace Quorvex
