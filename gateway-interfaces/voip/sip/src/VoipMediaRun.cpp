// A call's media: starting and stopping the directions of the streams.

#include "VoipEvent.h"
#include "VoipMedia.h"
#include "infra/Assertion.h"
#include "infra/TraceScope.h"
#include "media/MediaEndpointConfig.h"
#include "media/RtpMediaConfig.h"

namespace Quorvex
{

namespace
{

constexpr MediaEndpoint::Direction kRx = MediaEndpoint::RX_DIRECTION;
constexpr MediaEndpoint::Direction kTx = MediaEndpoint::TX_DIRECTION;

const char* shortName(MediaEndpoint::Direction in_direction)
{
    return in_direction == kRx ? "rx" : "tx";
}

const char* titleName(MediaEndpoint::Direction in_direction)
{
    return in_direction == kRx ? "Rx" : "Tx";
}

bool sends(Media::StreamMode in_mode)
{
    return in_mode == Media::SENDONLY_MODE || in_mode == Media::SENDRECV_MODE;
}

bool receives(Media::StreamMode in_mode)
{
    return in_mode == Media::RECVONLY_MODE || in_mode == Media::SENDRECV_MODE;
}

bool isMode(Media::StreamMode in_mode)
{
    return sends(in_mode) || receives(in_mode) || in_mode == Media::INACTIVE_MODE;
}

}  // namespace

const LocalSdpInfo* VoipMedia::getLocalInfo(std::size_t in_index) const
{
    const auto& vLocal = m_sdp.getLocalSdp();
    return in_index < vLocal.size() ? vLocal[in_index].get() : nullptr;
}

const SdpInfo* VoipMedia::getRemoteInfo(std::size_t in_index) const
{
    const auto& remote = m_sdp.getRemoteSdp();
    return in_index < remote.size() ? &remote[in_index] : nullptr;
}

bool VoipMedia::startAll(bool in_bCpaRequested)
{
    TRACE_SCOPE(getLogger(), "VoipMedia::startAll");
    if (!QUORVEX_ASSERT(getLogger(), !m_bStopped))
    {
        return false;
    }
    rollbackSdpOffer();
    if (in_bCpaRequested && !m_bCpaEnabled)
    {
        QLOG_WARN(getLogger(), "Requesting CPA but feature not enabled.");
    }
    bool bAllAsked = true;
    for (std::size_t i = 0; i < m_vMediaStreams.size(); ++i)
    {
        QLOG_DEBUG(getLogger(), "Starting voip stream: " << *m_vMediaStreams[i]);
        bAllAsked = applyDirections(i, in_bCpaRequested) && bAllAsked;
    }
    return bAllAsked;
}

bool VoipMedia::applyDirections(std::size_t in_index, bool in_bCpa)
{
    VoipMediaStream& stream = *m_vMediaStreams[in_index];
    const LocalSdpInfo* const pLocal = getLocalInfo(in_index);
    const SdpInfo* const pRemote = getRemoteInfo(in_index);
    bool bRx = false;
    bool bTx = false;
    if (pLocal != nullptr && pRemote != nullptr && pRemote->isValid())
    {
        const auto local = pLocal->getStreamMode();
        const auto remote = pRemote->getStreamMode();
        if (isMode(local) && isMode(remote))
        {
            bRx = receives(local) && sends(remote);
            bTx = sends(local) && receives(remote);
        }
        else
        {
            QLOG_ERROR(getLogger(),
                       "Invalid sdp mode: " << Media::getMediaModeString(isMode(local) ? remote : local));
        }
    }
    bool bAsked = true;
    const auto apply = [&](MediaEndpoint::Direction in_direction, bool in_bRun)
    {
        QLOG_DEBUG(getLogger(), (in_bRun ? "Starting " : "Stopping ") << titleName(in_direction) << '.');
        if (in_bRun)
        {
            bAsked = startEndpoint(stream, *pLocal, in_direction, in_bCpa && in_direction == kRx) && bAsked;
        }
        else
        {
            stopEndpoint(stream, in_direction, false);
        }
    };
    apply(kRx, bRx);
    apply(kTx, bTx);
    return bAsked;
}

bool VoipMedia::startEndpoint(VoipMediaStream& io_stream,
                              const LocalSdpInfo& in_local,
                              MediaEndpoint::Direction in_direction,
                              bool in_bCpa)
{
    QLOG_DEBUG(getLogger(), "Start endpoint in " << titleName(in_direction) << " direction");
    const RtpMediaConfigData* const pSdpConfig = in_direction == kRx ? &in_local.getMediaConfig()
                                                 : in_local.getRemoteConfig().valid()
                                                     ? &in_local.getRemoteConfig().value()
                                                     : nullptr;
    const RtpMediaConfigData* const pStreamConfig = &io_stream.getConfig(in_direction);
    if (!QUORVEX_ASSERT_TEXT(getLogger(), pSdpConfig != nullptr, "! pSdpConfig.isNull()") ||
        !QUORVEX_ASSERT(getLogger(), io_stream.getEndpoint() != nullptr))
    {
        return false;
    }
    bool bConfigure = false;
    switch (io_stream.getConfigState(in_direction))
    {
        case VoipMediaStream::eCONFIGURED:
            bConfigure = !pSdpConfig->isEqualTo(*pStreamConfig);
            QLOG_DEBUG(getLogger(),
                       (bConfigure ? "Endpoint must be reconfigured" : "Endpoint already configured "));
            break;
        case VoipMediaStream::eCONFIGURING:
            QLOG_DEBUG(getLogger(), "Endpoint already configuring ");
            // Should the far end have changed its mind meanwhile, the engine must hear of it all the same.
            bConfigure = !QUORVEX_ASSERT(getLogger(), *pSdpConfig == *pStreamConfig);
            break;
        case VoipMediaStream::eNOT_CONFIGURED:
            bConfigure = true;
            break;
        default:
            QLOG_ERROR(getLogger(),
                       "Unexpected endpoint configuration state: "
                           << VoipMediaStream::getConfigStateName(io_stream.getConfigState(in_direction)));
            return false;
    }
    return (!bConfigure || configureEndpoint(io_stream, *pSdpConfig, in_direction, in_bCpa)) &&
           runEndpoint(io_stream, in_direction);
}

bool VoipMedia::configureEndpoint(VoipMediaStream& io_stream,
                                  const RtpMediaConfigData& in_config,
                                  MediaEndpoint::Direction in_direction,
                                  bool in_bCpa)
{
    QLOG_DEBUG(getLogger(), "Configuring endpoint");
    io_stream.setConfig(in_direction, in_config);
    QLOG_DEBUG(getLogger(), "*pStreamConfig=" << in_config);

    MediaEndpointConfig config(in_direction);
    if (m_bRecordCallHeader)
    {
        config.enableRecording(true);
    }
    if (!m_strRecorderOutputIdHeader.empty())
    {
        config.setRecordingOutputId(m_strRecorderOutputIdHeader);
    }
    if (io_stream.getCapacity() != nullptr)
    {
        fillSipInfo(*io_stream.getCapacity(), config);
    }
    {
        TRACE_SCOPE(getLogger(), "Translating RTP config into API config.");
        RtpMediaConfig(in_config).copyInto(config);
    }
    if (in_bCpa && m_bCpaEnabled)
    {
        config.setParameter(MediaEndpointConfig::CPA_ENABLED, MediaValue(true));
    }
    QLOG_DEBUG(getLogger(), "Sending endpoint configuration " << config);
    if (!io_stream.getEndpoint()->configure(in_direction, config))
    {
        QLOG_ERROR(getLogger(),
                   "The media engine does not take the configuration of the " << titleName(in_direction)
                                                                              << " direction");
        return false;
    }
    io_stream.setConfigState(in_direction, VoipMediaStream::eCONFIGURING);
    return true;
}

bool VoipMedia::runEndpoint(VoipMediaStream& io_stream, MediaEndpoint::Direction in_direction)
{
    const auto state = io_stream.getRunState(in_direction);
    io_stream.setDeferred(in_direction, VoipMediaStream::eNOTHING);
    switch (state)
    {
        case VoipMediaStream::eSTOPPED:
            QLOG_DEBUG(getLogger(), "Sending start endpoint ");
            if (!io_stream.getEndpoint()->start(in_direction))
            {
                QLOG_ERROR(getLogger(),
                           "The media engine does not start the " << titleName(in_direction) << " direction");
                return false;
            }
            io_stream.setRunState(in_direction, VoipMediaStream::eSTARTING);
            return true;
        case VoipMediaStream::eSTARTED:
            QLOG_DEBUG(getLogger(), "Endpoint already started ");
            return true;
        case VoipMediaStream::eSTARTING:
            QLOG_DEBUG(getLogger(), "Nothing to do, endpoint already starting ");
            return true;
        case VoipMediaStream::eSTOPPING:
            QLOG_ERROR(getLogger(), "Trying to start a point that has not been stopped yet ");
            io_stream.setDeferred(in_direction, VoipMediaStream::eSTART_LATER);
            return true;
        case VoipMediaStream::eFORCING_STOP:
            QLOG_ERROR(getLogger(), "Trying to start a point that was forced to stop");
            return false;
    }
    QLOG_ERROR(getLogger(), "Unexpected endpoint run state: " << VoipMediaStream::getRunStateName(state));
    return false;
}

void VoipMedia::stopEndpoint(VoipMediaStream& io_stream,
                             MediaEndpoint::Direction in_direction,
                             bool in_bForce)
{
    const auto tell = [&](const char* in_szText)
    { QLOG_DEBUG(getLogger(), in_szText << " in " << titleName(in_direction) << " direction."); };

    QLOG_DEBUG(getLogger(), "Stop endpoint in " << titleName(in_direction) << " direction");
    const auto state = io_stream.getRunState(in_direction);
    io_stream.setDeferred(in_direction, VoipMediaStream::eNOTHING);
    switch (state)
    {
        case VoipMediaStream::eSTARTED:
            tell("Endpoint started, sending a stop");
            if (io_stream.getEndpoint() == nullptr || !io_stream.getEndpoint()->stop(in_direction))
            {
                QLOG_ERROR(getLogger(),
                           "The media engine does not stop the " << titleName(in_direction) << " direction");
                break;
            }
            io_stream.setRunState(in_direction, VoipMediaStream::eSTOPPING);
            break;
        case VoipMediaStream::eSTARTING:
            if (!in_bForce)
            {
                tell("Trying to stop an endpoint which is starting");
                io_stream.setDeferred(in_direction, VoipMediaStream::eSTOP_LATER);
                return;
            }
            tell("Forcing a stop on endpoint which is starting");
            break;
        case VoipMediaStream::eSTOPPED:
            tell("Nothing to do, endpoint already stopped");
            break;
        case VoipMediaStream::eSTOPPING:
            tell("Nothing to do, endpoint already stopping");
            break;
        case VoipMediaStream::eFORCING_STOP:
            tell("Nothing to do, endpoint already forced to stop");
            break;
        default:
            QLOG_ERROR(getLogger(),
                       "Unexpected endpoint run state: " << VoipMediaStream::getRunStateName(state) << " in "
                                                         << titleName(in_direction) << " direction.");
            break;
    }
    if (in_bForce)
    {
        io_stream.setRunState(in_direction, VoipMediaStream::eFORCING_STOP);
    }
}

bool VoipMedia::hold()
{
    TRACE_SCOPE(getLogger(), "VoipMedia::hold");
    if (!QUORVEX_ASSERT(getLogger(), !m_bStopped))
    {
        return false;
    }
    for (const auto& pStream : m_vMediaStreams)
    {
        QLOG_DEBUG(getLogger(), "Stoping voip stream: " << *pStream);
        stopEndpoint(*pStream, kRx, false);
        stopEndpoint(*pStream, kTx, false);
    }
    return true;
}

bool VoipMedia::stopAll()
{
    TRACE_SCOPE(getLogger(), "VoipMedia::stopAll");
    if (!QUORVEX_ASSERT(getLogger(), !m_bStopped))
    {
        return false;
    }
    rollbackSdpOffer();
    m_bStopped = true;
    for (const auto& pStream : m_vMediaStreams)
    {
        QLOG_DEBUG(getLogger(), "Stoping voip stream: " << *pStream);
        stopEndpoint(*pStream, kRx, true);
        stopEndpoint(*pStream, kTx, true);
        pStream->releaseEndpoint();
    }
    return true;
}

bool VoipMedia::relayMediaOpEvent(const VoipOpStatusMediaEvent* in_pEvent)
{
    if (!QUORVEX_ASSERT(getLogger(), in_pEvent != nullptr))
    {
        return false;
    }
    const VoipOpStatusMediaEvent& event = *in_pEvent;
    if (event.getStreamId() >= m_vMediaStreams.size())
    {
        QLOG_ERROR(getLogger(),
                   "VoipMedia::relayMediaOpEvent : Invalid stream id in media event: "
                       << event << ", stream size = " << m_vMediaStreams.size());
        return false;
    }
    if (event.getOpStatus() != MediaEndpointCallback::SUCCESS_STATUS)
    {
        QLOG_ERROR(getLogger(), "Event failure received: " << event);
        return false;
    }
    if (event.getDirection() != kRx && event.getDirection() != kTx)
    {
        QLOG_ERROR(getLogger(), "Invalid direction for media: " << event);
        return false;
    }
    VoipMediaStream& stream = *m_vMediaStreams[event.getStreamId()];
    if (stream.getRunState(kRx) == VoipMediaStream::eFORCING_STOP)
    {
        QLOG_DEBUG(
            getLogger(),
            "VoipMedia::relayMediaOpEvent : Endpoint in FORCING_STOP, don't care about event: " << event);
        return true;
    }
    return applyOutcome(stream, event);
}

bool VoipMedia::applyOutcome(VoipMediaStream& io_stream, const VoipOpStatusMediaEvent& in_event)
{
    const auto direction = in_event.getDirection();
    const auto tell = [&](const char* in_szOperation)
    {
        QLOG_DEBUG(getLogger(),
                   "VoipMedia::relayMediaOpEvent : " << in_szOperation << " success in "
                                                     << shortName(direction) << " direction for stream id "
                                                     << in_event.getStreamId());
    };
    switch (in_event.getOpType())
    {
        case MediaOpType::eCONFIG:
            tell("Configure");
            io_stream.setConfigState(direction, VoipMediaStream::eCONFIGURED);
            return true;
        case MediaOpType::eSTART:
            tell("Start");
            io_stream.setRunState(direction, VoipMediaStream::eSTARTED);
            doDeferred(io_stream, direction);
            return true;
        case MediaOpType::eSTOP:
            tell("Stop");
            io_stream.setRunState(direction, VoipMediaStream::eSTOPPED);
            doDeferred(io_stream, direction);
            return true;
    }
    QLOG_ERROR(getLogger(), "Unexpected event operation:" << in_event);
    return false;
}

void VoipMedia::doDeferred(VoipMediaStream& io_stream, MediaEndpoint::Direction in_direction)
{
    const auto deferred = io_stream.getDeferred(in_direction);
    const auto state = io_stream.getRunState(in_direction);
    if (deferred == VoipMediaStream::eSTOP_LATER && state == VoipMediaStream::eSTARTED)
    {
        stopEndpoint(io_stream, in_direction, false);
    }
    else if (deferred == VoipMediaStream::eSTART_LATER && state == VoipMediaStream::eSTOPPED)
    {
        runEndpoint(io_stream, in_direction);
    }
}

bool VoipMedia::isAllStarted() const
{
    for (std::size_t i = 0; i < m_vMediaStreams.size(); ++i)
    {
        QLOG_DEBUG(getLogger(),
                   "VoipMedia::checkAllStarted : Checking if the following stream is started:"
                       << *m_vMediaStreams[i]);
        if (!checkAllStarted(i))
        {
            QLOG_DEBUG(getLogger(), "Some streams not started");
            return false;
        }
    }
    QLOG_DEBUG(getLogger(), "All the streams(" << m_vMediaStreams.size() << ") are started");
    return true;
}

bool VoipMedia::checkAllStarted(std::size_t in_index) const
{
    const VoipMediaStream& stream = *m_vMediaStreams[in_index];
    const LocalSdpInfo* const pLocal = getLocalInfo(in_index);
    const SdpInfo* const pRemote = getRemoteInfo(in_index);
    // A stream that we rejected is as good as absent.
    const bool bMissing =
        pLocal == nullptr || pRemote == nullptr || (pRemote->isValid() && !pLocal->isValid());
    if (!bMissing && pRemote->isValid() && pRemote->getStreamMode() != Media::INACTIVE_MODE)
    {
        return checkDirections(stream, *pLocal, pRemote->getStreamMode());
    }
    QLOG_DEBUG(getLogger(),
               "VoipMedia::checkAllStarted"
                   << (bMissing ? " : Local/remote SDP missing: endpoint must be stopped."
                       : pRemote->isValid()
                           ? " : Remote is not able to send nor receive."
                           : " : Remote SDP is not valid, checking that endpoint has been stopped"));
    const bool bStopped = stream.getRunState(kRx) == VoipMediaStream::eSTOPPED &&
                          stream.getRunState(kTx) == VoipMediaStream::eSTOPPED;
    if (!bStopped)
    {
        QLOG_DEBUG(getLogger(), "VoipMedia::checkAllStarted : Endpoint not fully stopped.");
    }
    return bStopped;
}

bool VoipMedia::checkDirections(const VoipMediaStream& in_stream,
                                const LocalSdpInfo& in_local,
                                Media::StreamMode in_remoteMode) const
{
    // Receiving compares with what we said of ourselves, transmitting with what was agreed about the far end.
    const bool bBoth = in_remoteMode == Media::SENDRECV_MODE;
    QLOG_DEBUG(
        getLogger(),
        "VoipMedia::checkAllStarted" << (bBoth                     ? " : Remote is able to send and receive."
                                         : receives(in_remoteMode) ? " : Remote is able to receive only."
                                                                   : " : Remote is able to send only."));
    const auto check =
        [&](MediaEndpoint::Direction in_direction, bool in_bRun, const RtpMediaConfigData* in_pConfig)
    {
        const auto runState = in_stream.getRunState(in_direction);
        if (!in_bRun)
        {
            if (runState != VoipMediaStream::eSTOPPED)
            {
                QLOG_DEBUG(getLogger(),
                           "VoipMedia::checkAllStarted : Endpoint " << shortName(in_direction)
                                                                    << " direction not stopped yet.");
                return false;
            }
            return true;
        }
        if (runState != VoipMediaStream::eSTARTED ||
            in_stream.getConfigState(in_direction) != VoipMediaStream::eCONFIGURED)
        {
            QLOG_DEBUG(getLogger(),
                       "VoipMedia::checkAllStarted : Endpoint " << shortName(in_direction)
                                                                << " direction not started or configured"
                                                                << (bBoth ? "." : " yet."));
            return false;
        }
        const auto& config = in_stream.getConfig(in_direction);
        if (in_pConfig != nullptr && in_pConfig->isEqualTo(config))
        {
            return true;
        }
        if (bBoth || in_pConfig == nullptr)
        {
            QLOG_DEBUG(getLogger(),
                       "VoipMedia::checkAllStarted : " << titleName(in_direction)
                                                       << " configuration is different than our SDP.");
        }
        else if (in_direction == kRx)
        {
            QLOG_DEBUG(getLogger(),
                       "VoipMedia::checkAllStarted : Rx configuration is different than local SDP. RxConfig ="
                           << *in_pConfig << "pStream->m_rxConfig =" << config);
        }
        else
        {
            QLOG_DEBUG(getLogger(),
                       "VoipMedia::checkAllStarted : Tx configuration is different than remote SDP."
                           << "txConfig=" << config << " Remote_sdp=" << *in_pConfig);
        }
        return false;
    };
    const auto& remoteConfig = in_local.getRemoteConfig();
    return check(kRx, sends(in_remoteMode), &in_local.getMediaConfig()) &&
           check(kTx, receives(in_remoteMode), remoteConfig.valid() ? &remoteConfig.value() : nullptr);
}

bool VoipMedia::isAllOnHold() const
{
    for (const auto& pStream : m_vMediaStreams)
    {
        for (const auto direction : {kTx, kRx})
        {
            if (pStream->getRunState(direction) != VoipMediaStream::eSTOPPED)
            {
                QLOG_DEBUG(
                    getLogger(),
                    "One endpoint is not in stopped in " << shortName(direction) << " dir:" << *pStream);
                return false;
            }
        }
    }
    QLOG_DEBUG(getLogger(), "All media endpoint are on hold.");
    return true;
}

}  // namespace Quorvex
