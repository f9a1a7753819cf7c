#include "Rtcp.h"

#include <algorithm>
#include <cstring>

#include "RtpPacket.h"

namespace Quorvex
{

namespace
{

enum PacketType : std::uint8_t
{
    SENDER_REPORT = 200,
    RECEIVER_REPORT = 201,
    SOURCE_DESCRIPTION = 202,
    BYE = 203
};

constexpr std::size_t HEADER_SIZE = 4;
constexpr std::size_t BLOCK_SIZE = 24;
constexpr std::size_t SENDER_INFO_SIZE = 20;
constexpr std::uint8_t CNAME_ITEM = 1;

void writeHeader(std::uint8_t* out_p, unsigned in_uiCount, PacketType in_type, std::size_t in_uiSize)
{
    out_p[0] = static_cast<std::uint8_t>(0x80U | in_uiCount);
    out_p[1] = in_type;
    writeU16(out_p + 2, static_cast<std::uint16_t>(in_uiSize / 4 - 1));
}

std::size_t writeBlock(std::uint8_t* out_p, const RtcpReportBlock& in_block)
{
    const std::int32_t iLost = std::clamp(in_block.m_iCumulativeLost, -0x800000, 0x7fffff);
    writeU32(out_p, in_block.m_ui32Ssrc);
    writeU32(
        out_p + 4,
        (std::uint32_t{in_block.m_ui8FractionLost} << 24) | (static_cast<std::uint32_t>(iLost) & 0xffffffU));
    writeU32(out_p + 8, in_block.m_ui32ExtendedSequence);
    writeU32(out_p + 12, in_block.m_ui32Jitter);
    writeU32(out_p + 16, in_block.m_ui32LastReport);
    writeU32(out_p + 20, in_block.m_ui32Delay);
    return BLOCK_SIZE;
}

}  // namespace

std::size_t RtcpWriter::write(std::uint8_t* out_pData,
                              std::uint32_t in_ui32Ssrc,
                              const RtcpSenderInfo* in_pSender,
                              const RtcpReportBlock* in_pBlock,
                              const std::string& in_strName,
                              bool in_bBye)
{
    std::size_t uiSize = HEADER_SIZE + 4;
    writeU32(out_pData + HEADER_SIZE, in_ui32Ssrc);
    if (in_pSender != nullptr)
    {
        writeU32(out_pData + uiSize, static_cast<std::uint32_t>(in_pSender->m_ui64NtpTime >> 32));
        writeU32(out_pData + uiSize + 4, static_cast<std::uint32_t>(in_pSender->m_ui64NtpTime));
        writeU32(out_pData + uiSize + 8, in_pSender->m_ui32Timestamp);
        writeU32(out_pData + uiSize + 12, in_pSender->m_ui32Packets);
        writeU32(out_pData + uiSize + 16, in_pSender->m_ui32Octets);
        uiSize += SENDER_INFO_SIZE;
    }
    if (in_pBlock != nullptr)
    {
        uiSize += writeBlock(out_pData + uiSize, *in_pBlock);
    }
    writeHeader(out_pData,
                in_pBlock == nullptr ? 0 : 1,
                in_pSender == nullptr ? RECEIVER_REPORT : SENDER_REPORT,
                uiSize);

    std::uint8_t* pDescription = out_pData + uiSize;
    const std::size_t uiName = std::min<std::size_t>(in_strName.size(), 64);
    // Source, item, and at least one byte of zero up to the next multiple of four.
    const std::size_t uiDescription = (HEADER_SIZE + 4 + 2 + uiName + 4) & ~std::size_t{3};
    std::memset(pDescription, 0, uiDescription);
    writeHeader(pDescription, 1, SOURCE_DESCRIPTION, uiDescription);
    writeU32(pDescription + 4, in_ui32Ssrc);
    pDescription[8] = CNAME_ITEM;
    pDescription[9] = static_cast<std::uint8_t>(uiName);
    std::copy_n(in_strName.data(), uiName, pDescription + 10);
    uiSize += uiDescription;

    if (in_bBye)
    {
        writeHeader(out_pData + uiSize, 1, BYE, 8);
        writeU32(out_pData + uiSize + 4, in_ui32Ssrc);
        uiSize += 8;
    }
    return uiSize;
}

bool RtcpReader::parse(const std::uint8_t* in_pData, std::size_t in_uiSize, std::uint32_t in_ui32OurSsrc)
{
    *this = RtcpReader();
    bool bFirst = true;
    for (std::size_t pos = 0; pos < in_uiSize; bFirst = false)
    {
        const std::uint8_t* pPacket = in_pData + pos;
        const std::size_t uiLeft = in_uiSize - pos;
        if (uiLeft < HEADER_SIZE + 4 || (pPacket[0] >> 6) != 2)
        {
            return false;
        }
        const std::size_t uiSize = 4 * (std::size_t{readU16(pPacket + 2)} + 1);
        const unsigned uiType = pPacket[1];
        if (uiSize > uiLeft || uiSize < HEADER_SIZE + 4 ||
            (bFirst && uiType != SENDER_REPORT && uiType != RECEIVER_REPORT))
        {
            return false;
        }
        const unsigned uiCount = pPacket[0] & 0x1fU;
        std::size_t uiBody = HEADER_SIZE + 4;
        if (uiType == SENDER_REPORT)
        {
            if (uiSize < uiBody + SENDER_INFO_SIZE)
            {
                return false;
            }
            m_bSender = true;
            m_ui32SenderSsrc = readU32(pPacket + 4);
            m_sender.m_ui64NtpTime = (std::uint64_t{readU32(pPacket + 8)} << 32) | readU32(pPacket + 12);
            m_sender.m_ui32Timestamp = readU32(pPacket + 16);
            m_sender.m_ui32Packets = readU32(pPacket + 20);
            m_sender.m_ui32Octets = readU32(pPacket + 24);
            uiBody += SENDER_INFO_SIZE;
        }
        if (uiType == SENDER_REPORT || uiType == RECEIVER_REPORT)
        {
            if (uiSize < uiBody + uiCount * BLOCK_SIZE)
            {
                return false;
            }
            readBlocks(pPacket + uiBody, uiSize - uiBody, uiCount, in_ui32OurSsrc);
        }
        m_bBye |= uiType == BYE;
        pos += uiSize;
    }
    return !bFirst;
}

void RtcpReader::readBlocks(const std::uint8_t* in_pData,
                            std::size_t in_uiSize,
                            unsigned in_uiCount,
                            std::uint32_t in_ui32OurSsrc)
{
    for (unsigned i = 0; i < in_uiCount && (i + 1) * BLOCK_SIZE <= in_uiSize; ++i)
    {
        const std::uint8_t* pBlock = in_pData + i * BLOCK_SIZE;
        if (readU32(pBlock) != in_ui32OurSsrc)
        {
            continue;
        }
        m_bBlock = true;
        m_block.m_ui32Ssrc = in_ui32OurSsrc;
        m_block.m_ui8FractionLost = pBlock[4];
        const std::uint32_t ui32Lost = readU32(pBlock + 4) & 0xffffffU;
        m_block.m_iCumulativeLost = static_cast<std::int32_t>(ui32Lost << 8) >> 8;
        m_block.m_ui32ExtendedSequence = readU32(pBlock + 8);
        m_block.m_ui32Jitter = readU32(pBlock + 12);
        m_block.m_ui32LastReport = readU32(pBlock + 16);
        m_block.m_ui32Delay = readU32(pBlock + 20);
    }
}

}  // namespace Quorvex
