#include "RtpEndpoint.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "CallGroup.h"
#include "G711.h"
#include "MediaThread.h"
#include "PacketSender.h"
#include "media/MediaEndpointCapacity.h"
#include "media/MediaNotificationEvent.h"
#include "rtp/RFC1890.h"

namespace Quorvex
{

namespace
{

const StaticLogger s_logger("quorvex.media.RtpEndpoint");

constexpr std::size_t MAX_SAMPLES = PacketSender::MAX_PACKET;
constexpr std::size_t MAX_PAYLOAD = PacketSender::MAX_PACKET - RtpPacket::HEADER_SIZE;

bool isSound(unsigned in_uiPayloadType)
{
    return in_uiPayloadType == PCMU_PAYLOAD_TYPE || in_uiPayloadType == PCMA_PAYLOAD_TYPE;
}

}  // namespace

RtpEndpoint::RtpEndpoint(MediaThread& in_thread,
                         Identity in_identity,
                         std::unique_ptr<MediaEndpointCallback> in_pCallback)
    : m_thread(in_thread), m_identity(std::move(in_identity)), m_pCallback(std::move(in_pCallback))
{
}

RtpEndpoint::~RtpEndpoint()
{
    m_thread.setClock(*this, 0);
    m_thread.setEventClock(*this, false);
    if (isOpen())
    {
        m_thread.removeSocket(m_iSocket);
        m_thread.getPorts().release(m_iSocket, m_uiPort);
    }
}

void RtpEndpoint::report(bool in_bTaken)
{
    if (!in_bTaken)
    {
        QLOG_DEBUG(s_logger, "report of endpoint " << m_identity.m_uiId << " was not taken");
    }
}

void RtpEndpoint::open(CallGroup& in_group)
{
    m_pGroup = &in_group;
    if (!m_thread.getPorts().acquire(m_iSocket, m_uiPort) || !m_thread.addSocket(m_iSocket, *this))
    {
        m_thread.countCapacityFailure(std::strerror(errno));
        report(m_pCallback->getCapacityFailure(MediaEndpoint::RX_DIRECTION));
        return;
    }
    m_txStream.initialize(
        m_thread.random(), static_cast<std::uint16_t>(m_thread.random()), m_thread.random());
    auto pCapacity = std::make_unique<MediaEndpointCapacity>();
    pCapacity->set(MediaEndpointCapacity::IPV4_ADDRESS, m_thread.getConfig().m_strLocalAddress);
    pCapacity->set(MediaEndpointCapacity::UDP_PORT, m_uiPort);
    pCapacity->set(MediaEndpointCapacity::PAYLOAD_TYPE,
                   std::vector<unsigned>{PCMU_PAYLOAD_TYPE, PCMA_PAYLOAD_TYPE});
    pCapacity->set(MediaEndpointCapacity::PAYLOAD_SIZE, std::vector<unsigned>{10, 20, 30, 40, 50, 60});
    pCapacity->set(MediaEndpointCapacity::RFC2833_SUPPORT, MediaValue(true));
    pCapacity->set(MediaEndpointCapacity::RFC2833_PAYLOAD_TYPE, TelephoneEvent::DEFAULT_PAYLOAD_TYPE);
    report(m_pCallback->setCapacity(MediaEndpoint::RX_DIRECTION, pCapacity.release()));
}

void RtpEndpoint::configure(MediaEndpoint::Direction in_direction,
                            bool in_bValid,
                            const DirectionConfig& in_config)
{
    MediaEndpointCallback::EptOpStatus status = MediaEndpointCallback::SUCCESS_STATUS;
    if (!isOpen())
    {
        status = MediaEndpointCallback::RESOURCE_STATUS;
    }
    else if (!in_bValid)
    {
        status = MediaEndpointCallback::INVALID_CONFIG_STATUS;
    }
    else
    {
        Side& target = side(in_direction);
        target.m_config = in_config;
        target.m_bConfigured = true;
        if (in_direction == MediaEndpoint::TX_DIRECTION)
        {
            m_latch.reset(in_config.m_remote);
        }
        m_pGroup->replan();
    }
    report(m_pCallback->configureStatus(in_direction, status));
}

void RtpEndpoint::start(MediaEndpoint::Direction in_direction)
{
    MediaEndpointCallback::EptOpStatus status = MediaEndpointCallback::SUCCESS_STATUS;
    Side& target = side(in_direction);
    if (!isOpen())
    {
        status = MediaEndpointCallback::RESOURCE_STATUS;
    }
    else if (!target.m_bConfigured)
    {
        status = MediaEndpointCallback::INVALID_STATE_STATUS;
    }
    else if (!target.m_bStarted)
    {
        target.m_bStarted = true;
        m_pGroup->replan();
    }
    report(m_pCallback->startStatus(in_direction, status));
}

void RtpEndpoint::stop(MediaEndpoint::Direction in_direction)
{
    Side& target = side(in_direction);
    if (target.m_bStarted)
    {
        target.m_bStarted = false;
        m_pGroup->replan();
    }
    report(m_pCallback->stopStatus(in_direction, MediaEndpointCallback::SUCCESS_STATUS));
}

void RtpEndpoint::applyPlan(const AudioRecipePtr& in_pRecipe)
{
    if (m_plan.m_bMixed && m_pJitterBuffer == nullptr)
    {
        m_pJitterBuffer = std::make_unique<JitterBuffer>();
    }
    else if (!m_plan.m_bMixed)
    {
        m_pJitterBuffer.reset();
    }
    m_vCursors.assign(m_plan.m_vMix.size(), JitterBuffer::Cursor());
    if (m_pRecipe != in_pRecipe)
    {
        m_pRecipe = in_pRecipe;
        m_pSource.reset();
    }
    const bool bPlays = m_plan.m_bClocked && m_plan.m_vMix.empty() && m_pRecipe != nullptr;
    if (bPlays && m_pSource == nullptr)
    {
        m_pSource = m_pRecipe->makeSource();
    }
    m_thread.setClock(*this, m_plan.m_bClocked ? m_tx.m_config.m_uiPacketSizeMs : 0);
    m_thread.setEventClock(*this, m_tx.m_bStarted && m_pEventSender != nullptr && m_pEventSender->isBusy());
}

void RtpEndpoint::receive(const std::uint8_t* in_pData,
                          std::size_t in_uiSize,
                          const SocketAddress& in_from,
                          std::int64_t in_i64Now)
{
    if (!m_rx.m_bStarted)
    {
        return;
    }
    RtpPacket packet;
    const bool bRtp = packet.parse(in_pData, in_uiSize);
    const bool bEvent = bRtp && packet.m_ui8PayloadType == m_rx.m_config.m_ui8EventPayloadType;
    if (!bRtp ||
        (!bEvent && !isSound(packet.m_ui8PayloadType) &&
         packet.m_ui8PayloadType != COMFORT_NOISE_PAYLOAD_TYPE) ||
        packet.m_uiPayloadSize > MAX_PAYLOAD ||
        !m_latch.accept(in_from, packet.m_ui32Ssrc, packet.m_ui16Sequence, in_i64Now))
    {
        ++m_ui64Dropped;
        return;
    }
    const RxStatistics::Verdict verdict =
        m_statistics.update(packet.m_ui32Ssrc, packet.m_ui16Sequence, packet.m_ui32Timestamp, in_i64Now);
    if (verdict != RxStatistics::ACCEPTED)
    {
        m_ui64Dropped += verdict == RxStatistics::DUPLICATE ? 0 : 1;
        return;
    }
    if (bEvent)
    {
        receiveEvent(packet, in_i64Now);
    }
    else if (isSound(packet.m_ui8PayloadType))
    {
        receiveSound(packet, in_i64Now);
    }
}

void RtpEndpoint::receiveEvent(const RtpPacket& in_packet, std::int64_t in_i64Now)
{
    const char cDigit = m_eventReceiver.receive(in_packet.m_pPayload,
                                                in_packet.m_uiPayloadSize,
                                                in_packet.m_ui32Timestamp,
                                                in_packet.m_bMarker,
                                                in_i64Now);
    for (RtpEndpoint* pTo : m_plan.m_vRelayTo)
    {
        pTo->sendRelayed(*this, in_packet, in_i64Now);
    }
    if (m_plan.m_bMixed)
    {
        for (RtpEndpoint* pTo : m_pGroup->getEndpoints())
        {
            const auto& vMix = pTo->m_plan.m_vMix;
            if (std::find(vMix.begin(), vMix.end(), this) != vMix.end())
            {
                pTo->sendRelayed(*this, in_packet, in_i64Now);
            }
        }
    }
    if (cDigit != '\0')
    {
        const unsigned uiDurationMs = readU16(in_packet.m_pPayload + 2) / SAMPLES_PER_MS;
        report(m_pCallback->notifyEvent(new DtmfNotificationEvent(cDigit, uiDurationMs)));
        m_thread.digitReceived(*this, cDigit);
    }
}

void RtpEndpoint::receiveSound(const RtpPacket& in_packet, std::int64_t in_i64Now)
{
    for (RtpEndpoint* pTo : m_plan.m_vRelayTo)
    {
        pTo->sendRelayed(*this, in_packet, in_i64Now);
    }
    if (m_pJitterBuffer != nullptr)
    {
        std::array<std::int16_t, MAX_SAMPLES> samples;
        G711::decode(G711::lawOf(in_packet.m_ui8PayloadType),
                     in_packet.m_pPayload,
                     in_packet.m_uiPayloadSize,
                     samples.data());
        m_pJitterBuffer->write(in_packet.m_ui32Timestamp, samples.data(), in_packet.m_uiPayloadSize);
    }
}

void RtpEndpoint::sendRelayed(const RtpEndpoint& in_from, const RtpPacket& in_packet, std::int64_t in_i64Now)
{
    const std::uint64_t ui64Source = (std::uint64_t{in_from.m_identity.m_uiId} << 32) | in_packet.m_ui32Ssrc;
    const bool bEvent = !isSound(in_packet.m_ui8PayloadType);
    if (m_plan.m_bClocked)
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
    const bool bOwnEvent = m_pEventSender != nullptr && m_pEventSender->isSounding();
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
    std::array<std::int16_t, MAX_SAMPLES> samples;
    if (!m_plan.m_vMix.empty())
    {
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
    std::array<std::uint8_t, MAX_SAMPLES> codes;
    G711::encode(G711::lawOf(uiPayloadType), samples.data(), uiSamples, codes.data());
    const TxStream::Numbers numbers = m_txStream.clocked(uiSamples, in_i64Now);
    sendSound(numbers, numbers.m_bMarker, uiPayloadType, codes.data(), uiSamples, in_i64Now);
}

void RtpEndpoint::sendDigits(const std::string& in_strDigits, unsigned in_uiDurationMs)
{
    if (m_pEventSender == nullptr)
    {
        m_pEventSender = std::make_unique<TelephoneEventSender>();
    }
    m_pEventSender->add(in_strDigits, in_uiDurationMs);
    m_thread.setEventClock(*this, m_tx.m_bStarted);
}

bool RtpEndpoint::onEventClock(std::int64_t in_i64Now)
{
    TelephoneEventSender::Packet packet;
    if (m_pEventSender->tick(m_txStream.timestampAt(in_i64Now), packet))
    {
        sendEvent(m_txStream.inserted(packet.m_ui32Timestamp),
                  packet.m_bMarker,
                  packet.m_payload,
                  sizeof packet.m_payload);
    }
    return m_pEventSender->isBusy();
}

StreamStatistics RtpEndpoint::getStatistics() const
{
    StreamStatistics statistics;
    statistics.m_strCallId = m_identity.m_strCallId;
    statistics.m_uiIndex = m_identity.m_uiPartyIndex;
    statistics.m_uiLocalPort = m_uiPort;
    statistics.m_strRemote = m_latch.getRemote().toText();
    if (m_rx.m_bConfigured || m_tx.m_bConfigured)
    {
        const DirectionConfig& config = m_rx.m_bConfigured ? m_rx.m_config : m_tx.m_config;
        statistics.m_strCodec = RFC1890::getPayloadTypeString(config.m_ui8PayloadType);
    }
    statistics.m_ui64Sent = m_txStream.getPackets();
    statistics.m_ui64Received = m_statistics.getReceived();
    statistics.m_ui64Lost = m_statistics.getLost();
    statistics.m_ui64Duplicates = m_statistics.getDuplicates();
    statistics.m_ui64Reordered = m_statistics.getReordered();
    statistics.m_ui64Dropped = m_ui64Dropped;
    statistics.m_fJitterMs = m_statistics.getJitterMs();
    statistics.m_fMaxJitterMs = m_statistics.getMaxJitterMs();
    if (statistics.m_ui64Received != 0)
    {
        const auto fExpected = static_cast<double>(m_statistics.getExpected());
        // The far end's play-out is not ours to see: a buffer of two jitters and one packet is what it needs.
        const double fDelay = m_rx.m_config.m_uiPacketSizeMs + 2 * statistics.m_fJitterMs;
        statistics.m_fMos = RxStatistics::estimateMos(
            static_cast<double>(statistics.m_ui64Lost) / std::max(fExpected, 1.0), fDelay);
    }
    return statistics;
}

}  // namespace Quorvex
