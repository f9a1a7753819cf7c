#include "RtpEndpoint.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "CallGroup.h"
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
    if (m_pRtcp != nullptr)
    {
        sendRtcp(true, MediaThread::now());
        m_thread.getSender().flush();
        ::close(m_pRtcp->getSocket());
    }
    if (isOpen())
    {
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
    if (m_thread.getPorts().acquire(m_iSocket, m_uiPort) && !m_thread.addSocket(m_iSocket, m_rtpSlot))
    {
        m_thread.getPorts().release(m_iSocket, m_uiPort);
        m_iSocket = -1;
    }
    if (!isOpen())
    {
        m_thread.countCapacityFailure(errno);
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
        if (target.m_bStarted)
        {
            startTaps();
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
        openRtcp();
        startTaps();
        m_pGroup->replan();
    }
    report(m_pCallback->startStatus(in_direction, status));
}

void RtpEndpoint::stop(MediaEndpoint::Direction in_direction)
{
    Side& target = side(in_direction);
    const bool bStops = target.m_bStarted;
    if (bStops)
    {
        target.m_bStarted = false;
        m_pGroup->replan();
    }
    report(m_pCallback->stopStatus(in_direction, MediaEndpointCallback::SUCCESS_STATUS));
    if (bStops && !m_rx.m_bStarted && !m_tx.m_bStarted && !m_thread.hasObserver())
    {
        report(m_pCallback->notifyEvent(new StreamStatisticsNotificationEvent(getStatistics())));
    }
}

void RtpEndpoint::openRtcp()
{
    if (m_pRtcp == nullptr && m_thread.getConfig().m_bRtcp)
    {
        const int iSocket = m_thread.getPorts().bindPort(m_uiPort + 1);
        if (iSocket < 0)
        {
            // The stream can do without.
            QLOG_DEBUG(s_logger,
                       "no RTCP on port " << m_uiPort + 1 << ": " << std::generic_category().message(errno));
            return;
        }
        if (!m_thread.addSocket(iSocket, m_rtcpSlot))
        {
            ::close(iSocket);
            return;
        }
        m_pRtcp = std::make_unique<RtcpSession>(iSocket);
    }
    if (m_pRtcp != nullptr && !m_bReportDue)
    {
        m_bReportDue = true;
        m_thread.scheduleReport(*this);
    }
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
    m_thread.setClock(
        *this,
        m_plan.m_bClocked || (m_pTones != nullptr && m_tx.m_bStarted) ? m_tx.m_config.m_uiPacketSizeMs : 0);
    m_thread.setEventClock(*this, m_tx.m_bStarted && m_pEventSender != nullptr && m_pEventSender->isBusy());
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
    if (m_pRtcp != nullptr)
    {
        statistics.m_fRemoteLossRate = m_pRtcp->getRemoteLossRate();
        statistics.m_fRoundTripMs = m_pRtcp->getRoundTripMs();
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
        const double fDelay = m_rx.m_config.m_uiPacketSizeMs + 2 * statistics.m_fJitterMs +
                              std::max(statistics.m_fRoundTripMs, 0.0) / 2;
        statistics.m_fMos = RxStatistics::estimateMos(
            static_cast<double>(statistics.m_ui64Lost) / std::max(fExpected, 1.0), fDelay);
    }
    return statistics;
}

}  // namespace Quorvex
