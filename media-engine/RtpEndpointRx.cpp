#include <algorithm>
#include <array>

#include "CallGroup.h"
#include "G711.h"
#include "MediaThread.h"
#include "PacketSender.h"
#include "RtpEndpoint.h"
#include "TimerWheel.h"
#include "media/MediaNotificationEvent.h"
#include "quorvex/CallTypes.h"

namespace Quorvex
{

namespace
{

constexpr std::size_t MAX_SAMPLES = PacketSender::MAX_PACKET;
constexpr std::size_t MAX_PAYLOAD = PacketSender::MAX_PACKET - RtpPacket::HEADER_SIZE;
// In a tenth of a second: ten times what the smallest packets make, so that a burst after a stall still
// passes.
constexpr unsigned MAX_PER_WINDOW = 100;
// A digit that came as an event, for a party that only understands tones.
constexpr unsigned RELAYED_DIGIT_MS = 120;

MediaNotificationEvent* makeCpaEvent(CpaDetector::Result in_result)
{
    const std::string strResult = CpaDetector::getResultString(in_result);
    switch (in_result)
    {
        case CpaDetector::BUSY:
            return new CPAFailureNotificationEvent(eBUSY_FAILURE, strResult);
        case CpaDetector::REORDER:
            return new CPAFailureNotificationEvent(eUNAVAILABLE_FAILURE, strResult);
        case CpaDetector::SIT:
            return new CPAFailureNotificationEvent(eINVALID_NUMBER_FAILURE, strResult);
        case CpaDetector::RINGBACK:
            return new CPAFailureNotificationEvent(eNO_ANSWER_FAILURE, strResult);
        case CpaDetector::VOICE:
            return new CPASuccessNotificationEvent(Call::eCONNECTION_VOICE, strResult);
        case CpaDetector::MACHINE:
            return new CPASuccessNotificationEvent(Call::eCONNECTION_MACHINE, strResult);
        case CpaDetector::FAX:
            return new CPASuccessNotificationEvent(Call::eCONNECTION_FAX, strResult);
        default:
            return new CPASuccessNotificationEvent(Call::eCONNECTION_NONE, strResult);
    }
}

}  // namespace

void RtpEndpoint::startTaps()
{
    const DirectionConfig& rx = m_rx.m_config;
    const bool bCpa = rx.m_bCpa && m_rx.m_bStarted && !m_bAnalysed;
    const bool bDtmf = m_rx.m_bStarted && rx.m_ui8EventPayloadType == DirectionConfig::NO_PAYLOAD_TYPE;
    if ((bCpa || bDtmf) && m_pAnalysis == nullptr)
    {
        m_pAnalysis = std::make_unique<RxAnalysis>();
    }
    if (bCpa)
    {
        m_bAnalysed = true;
        m_pAnalysis->startCpa(m_thread.getConfig().m_uiCpaMaxTimeMs, MediaThread::now());
        m_thread.scheduleAnalysis(*this);
    }
    if (bDtmf)
    {
        m_pAnalysis->startDtmf();
    }
    const DirectionConfig& recorded = rx.m_bRecord ? rx : m_tx.m_config;
    if (recorded.m_bRecord && m_pRecorder == nullptr)
    {
        const std::string strName =
            recorded.m_recordingId.view().empty()
                ? m_identity.m_strCallId + "-" + std::to_string(m_identity.m_uiPartyIndex)
                : std::string(recorded.m_recordingId.view());
        m_pRecorder = std::make_unique<Recorder>(
            m_thread.getRecordings(), m_thread.getConfig().m_strRecordingDir, strName, MediaThread::now());
    }
}

void RtpEndpoint::reportAnalysis()
{
    for (char cDigit = m_pAnalysis->takeDigit(); cDigit != '\0'; cDigit = m_pAnalysis->takeDigit())
    {
        digitHeard(cDigit, 0);
    }
    const CpaDetector::Result result = m_pAnalysis->takeResult();
    if (result != CpaDetector::UNDECIDED)
    {
        report(m_pCallback->notifyEvent(makeCpaEvent(result)));
    }
    if (m_pAnalysis->isEmpty())
    {
        m_pAnalysis.reset();
    }
}

bool RtpEndpoint::passAnalysisTime(std::int64_t in_i64Now)
{
    if (m_pAnalysis == nullptr || !m_rx.m_bStarted)
    {
        return false;
    }
    m_pAnalysis->passTime(in_i64Now);
    const bool bGoesOn = m_pAnalysis->getResult() == CpaDetector::UNDECIDED;
    reportAnalysis();
    return bGoesOn;
}

void RtpEndpoint::digitHeard(char in_cDigit, unsigned in_uiDurationMs)
{
    report(m_pCallback->notifyEvent(new DtmfNotificationEvent(in_cDigit, in_uiDurationMs)));
    m_thread.digitReceived(*this, in_cDigit);
}

void RtpEndpoint::receiveRtcp(const std::uint8_t* in_pData,
                              std::size_t in_uiSize,
                              const SocketAddress& in_from,
                              std::int64_t in_i64Now)
{
    if (in_from.m_ui32Address != m_latch.getRemote().m_ui32Address ||
        !m_pRtcp->receive(in_pData, in_uiSize, m_txStream.getSsrc(), in_i64Now))
    {
        ++m_ui64Dropped;
    }
}

bool RtpEndpoint::isWithinRate(std::int64_t in_i64Now)
{
    if (in_i64Now - m_i64Window >= TimerWheel::TICK_NS)
    {
        m_i64Window = in_i64Now;
        m_uiInWindow = 0;
    }
    return ++m_uiInWindow <= MAX_PER_WINDOW;
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
        (!bEvent && !G711::isPayloadType(packet.m_ui8PayloadType) &&
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
    else if (G711::isPayloadType(packet.m_ui8PayloadType))
    {
        receiveSound(packet, in_i64Now);
    }
    else
    {
        // Comfort noise is not passed on, and that is no loss.
        std::for_each(m_plan.m_vRelayTo.begin(),
                      m_plan.m_vRelayTo.end(),
                      [](RtpEndpoint* io_pTo) { io_pTo->m_txStream.skip(); });
    }
}

void RtpEndpoint::receiveEvent(const RtpPacket& in_packet, std::int64_t in_i64Now)
{
    const char cDigit = m_eventReceiver.receive(in_packet.m_pPayload,
                                                in_packet.m_uiPayloadSize,
                                                in_packet.m_ui32Timestamp,
                                                in_packet.m_bMarker,
                                                in_i64Now);
    const auto pass = [&](RtpEndpoint& io_to)
    {
        io_to.sendRelayed(*this, in_packet, in_i64Now);
        if (cDigit != '\0' && io_to.m_tx.m_config.m_ui8EventPayloadType == DirectionConfig::NO_PAYLOAD_TYPE)
        {
            io_to.sendDigitTones(std::string(1, cDigit), RELAYED_DIGIT_MS);
        }
    };
    std::for_each(
        m_plan.m_vRelayTo.begin(), m_plan.m_vRelayTo.end(), [&](RtpEndpoint* io_pTo) { pass(*io_pTo); });
    for (RtpEndpoint* pTo : m_pGroup->getEndpoints())
    {
        const auto& vMix = pTo->m_plan.m_vMix;
        if (std::find(vMix.begin(), vMix.end(), this) != vMix.end())
        {
            pass(*pTo);
        }
    }
    if (cDigit != '\0')
    {
        digitHeard(cDigit, readU16(in_packet.m_pPayload + 2) / SAMPLES_PER_MS);
    }
}

void RtpEndpoint::receiveSound(const RtpPacket& in_packet, std::int64_t in_i64Now)
{
    for (RtpEndpoint* pTo : m_plan.m_vRelayTo)
    {
        pTo->sendRelayed(*this, in_packet, in_i64Now);
    }
    if (m_pJitterBuffer != nullptr || m_pAnalysis != nullptr || m_pRecorder != nullptr)
    {
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): filled before it is read
        std::array<std::int16_t, MAX_SAMPLES> samples;
        G711::decode(G711::lawOf(in_packet.m_ui8PayloadType),
                     in_packet.m_pPayload,
                     in_packet.m_uiPayloadSize,
                     samples.data());
        const std::size_t uiCount = in_packet.m_uiPayloadSize;
        if (m_pJitterBuffer != nullptr)
        {
            m_pJitterBuffer->write(in_packet.m_ui32Timestamp, samples.data(), uiCount);
        }
        if (m_pRecorder != nullptr)
        {
            m_pRecorder->write(
                Recorder::RECEIVED, in_packet.m_ui32Timestamp, samples.data(), uiCount, in_i64Now);
        }
        if (m_pAnalysis != nullptr)
        {
            m_pAnalysis->process(in_packet.m_ui32Timestamp, samples.data(), uiCount, in_i64Now);
            reportAnalysis();
        }
    }
}

}  // namespace Quorvex
