#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "CallGroup.h"
#include "G711.h"
#include "MediaThread.h"
#include "PacketSender.h"
#include "RtpEndpoint.h"

namespace Quorvex
{

namespace
{

constexpr std::size_t MAX_SAMPLES = PacketSender::MAX_PACKET;

}  // namespace

void RtpEndpoint::sendRtcp(bool in_bBye, std::int64_t in_i64Now)
{
    const SocketAddress& remote = m_latch.getRemote();
    if (!remote.isSet() || (m_txStream.getPackets() == 0 && !m_statistics.hasSource()))
    {
        return;
    }
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): filled before it is read
    std::array<std::uint8_t, RtcpWriter::MAX_SIZE> data;
    const std::size_t uiSize =
        m_pRtcp->write(data.data(), m_txStream, m_statistics, m_thread.getSourceName(), in_bBye, in_i64Now);
    std::memcpy(
        m_thread.getSender().add(m_pRtcp->getSocket(), remote.nextPort(), uiSize), data.data(), uiSize);
}

bool RtpEndpoint::sendReport(std::int64_t in_i64Now)
{
    m_bReportDue = m_rx.m_bStarted || m_tx.m_bStarted;
    if (m_bReportDue)
    {
        sendRtcp(false, in_i64Now);
    }
    return m_bReportDue;
}

void RtpEndpoint::sendRelayed(const RtpEndpoint& in_from, const RtpPacket& in_packet, std::int64_t in_i64Now)
{
    const std::uint64_t ui64Source = (std::uint64_t{in_from.m_identity.m_uiId} << 32) | in_packet.m_ui32Ssrc;
    const bool bEvent = !G711::isPayloadType(in_packet.m_ui8PayloadType);
    if (m_plan.m_bClocked && bEvent)
    {
        // Only events come here: the sound goes through the mix.
        if (in_packet.m_ui32Timestamp != m_ui32EventIn || in_packet.m_bMarker)
        {
            m_ui32EventIn = in_packet.m_ui32Timestamp;
            m_ui32EventOut = m_txStream.timestampAt(in_i64Now);
        }
        if (m_tx.m_config.m_ui8EventPayloadType != DirectionConfig::NO_PAYLOAD_TYPE)
        {
            sendEvent(m_txStream.inserted(m_ui32EventOut),
                      in_packet.m_bMarker,
                      in_packet.m_pPayload,
                      in_packet.m_uiPayloadSize);
        }
        return;
    }
    const bool bOwnEvent = m_pTones != nullptr || (m_pEventSender != nullptr && m_pEventSender->isSounding());
    if (bOwnEvent || (bEvent && m_tx.m_config.m_ui8EventPayloadType == DirectionConfig::NO_PAYLOAD_TYPE))
    {
        m_txStream.skip();
        return;
    }
    const TxStream::Numbers numbers =
        m_txStream.relay(ui64Source, in_packet.m_ui16Sequence, in_packet.m_ui32Timestamp, in_i64Now);
    const bool bMarker = in_packet.m_bMarker || numbers.m_bMarker;
    if (bEvent)
    {
        sendEvent(numbers, bMarker, in_packet.m_pPayload, in_packet.m_uiPayloadSize);
        return;
    }
    sendSound(numbers,
              bMarker,
              in_packet.m_ui8PayloadType,
              in_packet.m_pPayload,
              in_packet.m_uiPayloadSize,
              in_i64Now);
}

std::uint8_t* RtpEndpoint::addPacket(TxStream::Numbers in_numbers,
                                     bool in_bMarker,
                                     unsigned in_uiPayloadType,
                                     std::size_t in_uiSize)
{
    RtpPacket header;
    header.m_ui8PayloadType = static_cast<std::uint8_t>(in_uiPayloadType);
    header.m_bMarker = in_bMarker;
    header.m_ui16Sequence = in_numbers.m_ui16Sequence;
    header.m_ui32Timestamp = in_numbers.m_ui32Timestamp;
    header.m_ui32Ssrc = m_txStream.getSsrc();
    std::uint8_t* pPacket =
        m_thread.getSender().add(m_iSocket, m_latch.getRemote(), RtpPacket::HEADER_SIZE + in_uiSize);
    header.writeHeader(pPacket);
    m_txStream.count(in_uiSize);
    return pPacket + RtpPacket::HEADER_SIZE;
}

void RtpEndpoint::sendSound(TxStream::Numbers in_numbers,
                            bool in_bMarker,
                            unsigned in_uiPayloadType,
                            const std::uint8_t* in_pPayload,
                            std::size_t in_uiSize,
                            std::int64_t in_i64Now)
{
    std::uint8_t* pPayload = addPacket(in_numbers, in_bMarker, m_tx.m_config.m_ui8PayloadType, in_uiSize);
    if (in_uiPayloadType == m_tx.m_config.m_ui8PayloadType)
    {
        std::memcpy(pPayload, in_pPayload, in_uiSize);
    }
    else
    {
        G711::transcode(G711::lawOf(in_uiPayloadType), in_pPayload, in_uiSize, pPayload);
    }
    if (m_pRecorder != nullptr)
    {
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): filled before it is read
        std::array<std::int16_t, MAX_SAMPLES> samples;
        G711::decode(G711::lawOf(in_uiPayloadType), in_pPayload, in_uiSize, samples.data());
        m_pRecorder->write(Recorder::SENT, in_numbers.m_ui32Timestamp, samples.data(), in_uiSize, in_i64Now);
    }
    for (RtpEndpoint* pFork : m_plan.m_vForks)
    {
        const std::uint64_t ui64Source = (std::uint64_t{m_identity.m_uiId} << 32) | m_txStream.getSsrc();
        const TxStream::Numbers numbers = pFork->m_txStream.relay(
            ui64Source, in_numbers.m_ui16Sequence, in_numbers.m_ui32Timestamp, in_i64Now);
        pFork->sendSound(
            numbers, in_bMarker || numbers.m_bMarker, in_uiPayloadType, in_pPayload, in_uiSize, in_i64Now);
    }
}

void RtpEndpoint::sendEvent(TxStream::Numbers in_numbers,
                            bool in_bMarker,
                            const std::uint8_t* in_pPayload,
                            std::size_t in_uiSize)
{
    std::uint8_t* pPayload =
        addPacket(in_numbers, in_bMarker, m_tx.m_config.m_ui8EventPayloadType, in_uiSize);
    std::memcpy(pPayload, in_pPayload, in_uiSize);
}

void RtpEndpoint::onClock(std::int64_t in_i64Now)
{
    const unsigned uiSamples = m_tx.m_config.m_uiPacketSizeMs * SAMPLES_PER_MS;
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): filled before it is read
    std::array<std::int16_t, MAX_SAMPLES> samples;
    if (m_pTones != nullptr)
    {
        if (!m_pTones->read(samples.data(), uiSamples))
        {
            nextTones();
        }
    }
    else if (!m_plan.m_vMix.empty())
    {
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): filled before it is read
        std::array<std::int32_t, MAX_SAMPLES> sum;
        std::fill_n(sum.data(), uiSamples, 0);
        for (std::size_t i = 0; i < m_plan.m_vMix.size(); ++i)
        {
            const RtpEndpoint& voice = *m_plan.m_vMix[i];
            const unsigned uiDelay =
                (voice.getRxPacketSizeMs() + m_tx.m_config.m_uiPacketSizeMs) * SAMPLES_PER_MS;
            voice.m_pJitterBuffer->mix(m_vCursors[i], sum.data(), uiSamples, uiDelay);
        }
        std::transform(sum.data(),
                       sum.data() + uiSamples,
                       samples.data(),
                       [](std::int32_t in_iSample)
                       { return static_cast<std::int16_t>(std::clamp(in_iSample, -32768, 32767)); });
    }
    else if (m_pSource == nullptr)
    {
        std::fill_n(samples.data(), uiSamples, std::int16_t{0});
    }
    else if (!m_pSource->read(samples.data(), uiSamples) && m_pGroup->playEnded())
    {
        m_thread.playEnded(*m_pGroup);
    }
    if (m_pEventSender != nullptr && m_pEventSender->isSounding())
    {
        m_txStream.skipClocked(uiSamples);
        return;
    }
    const unsigned uiPayloadType = m_tx.m_config.m_ui8PayloadType;
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): filled before it is read
    std::array<std::uint8_t, MAX_SAMPLES> codes;
    G711::encode(G711::lawOf(uiPayloadType), samples.data(), uiSamples, codes.data());
    const TxStream::Numbers numbers = m_txStream.clocked(uiSamples, in_i64Now);
    sendSound(numbers, numbers.m_bMarker, uiPayloadType, codes.data(), uiSamples, in_i64Now);
}

void RtpEndpoint::sendDigitTones(const std::string& in_strDigits, unsigned in_uiDurationMs)
{
    m_strToneDigits += in_strDigits;
    m_uiToneMs = in_uiDurationMs;
    if (m_pTones == nullptr)
    {
        nextTones();
    }
}

void RtpEndpoint::nextTones()
{
    const AudioRecipePtr pRecipe = makeDigitRecipe(std::exchange(m_strToneDigits, {}), m_uiToneMs);
    m_pTones = pRecipe == nullptr ? nullptr : pRecipe->makeSource();
    m_thread.replanLater(*m_pGroup);
}

void RtpEndpoint::sendDigits(const std::string& in_strDigits, unsigned in_uiDurationMs)
{
    if (m_tx.m_config.m_ui8EventPayloadType == DirectionConfig::NO_PAYLOAD_TYPE)
    {
        sendDigitTones(in_strDigits, in_uiDurationMs);
        return;
    }
    if (m_pEventSender == nullptr)
    {
        m_pEventSender = std::make_unique<TelephoneEventSender>();
    }
    m_pEventSender->add(in_strDigits, in_uiDurationMs);
    m_thread.setEventClock(*this, m_tx.m_bStarted);
}

bool RtpEndpoint::onEventClock(std::int64_t in_i64Now)
{
    TelephoneEventSender::Packet packet;  // NOLINT(cppcoreguidelines-pro-type-member-init): filled at once
    if (m_pEventSender->tick(m_txStream.timestampAt(in_i64Now), packet))
    {
        sendEvent(m_txStream.inserted(packet.m_ui32Timestamp),
                  packet.m_bMarker,
                  packet.m_payload,
                  sizeof packet.m_payload);
    }
    return m_pEventSender->isBusy();
}

}  // namespace Quorvex
