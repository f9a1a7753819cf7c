#include "VoipMedia.h"

#include <algorithm>

#include "SdpText.h"
#include "VoipEndpointFactory.h"
#include "infra/Assertion.h"
#include "infra/Parameter.h"
#include "infra/TraceScope.h"
#include "media/MediaEndpointConfig.h"
#include "sipstack/DsSipMessage.h"

namespace Quorvex
{

namespace
{

// SIP data that a media engine asks for by listing these keys in its capacity.
constexpr const char* kInviteKey = "get.sip.invite";
constexpr const char* kRemoteCallIdKey = "get.sip.quorvex.remote.callID";
constexpr const char* kCustomHeadersKey = "sip.custom.header";

/// The call identifier that a gateway of our kind puts into its From tag; empty when there is none.
std::string remoteCallIdOf(const std::string& in_strTag)
{
    constexpr std::string_view kPrefix = "qrvx-callid-";
    const auto prefix = in_strTag.find(kPrefix);
    if (prefix == std::string::npos)
    {
        return {};
    }
    const auto begin = prefix + kPrefix.size();
    const auto end = in_strTag.find("ds", begin);
    return end == std::string::npos ? std::string() : in_strTag.substr(begin, end - begin);
}

std::string customHeadersOf(const DsSipMessage& in_msg)
{
    std::string strHeaders;
    for (std::size_t i = 0; i < in_msg.getNumHeaders(); ++i)
    {
        const auto line = in_msg.getHeaderAt(i);
        if (line.m_iID == DsSipHeaderID::eUNKNOWN)
        {
            strHeaders.append(strHeaders.empty() ? "" : ", ")
                .append(line.m_name)
                .append(": ")
                .append(line.m_strValue);
        }
    }
    return strHeaders;
}

}  // namespace

VoipMedia::VoipMedia(VoipEndpointFactory& in_factory)
    : ObjectWithLoggerImpl<LoggingIdLogger>(LoggingIdLogger("quorvex.voip.VoipMedia")), m_factory(in_factory)
{
    QUORVEX_ASSERT(getLogger(), m_vMediaStreams.size() == 0);  // NOLINT(readability-container-size-empty)
}

VoipMedia::~VoipMedia() = default;

bool VoipMedia::initialize(const std::string& in_strCallId, const VoipStateMachineNoT* in_pStateMachine)
{
    getLogger().clearLoggingIds();
    getLogger().addLoggingId("sip_call_id=" + in_strCallId);
    m_strCallId = in_strCallId;
    m_pStateMachine = in_pStateMachine;
    return true;
}

bool VoipMedia::createEndpoint(bool in_bRedirectReceive, Media::StreamMode in_mode)
{
    const auto uiStreamId = static_cast<std::uint32_t>(m_vMediaStreams.size());
    QLOG_DEBUG(
        getLogger(),
        (in_bRedirectReceive ? "Getting media endpoint (redirect topology) " : "Getting  media endpoint ")
            << uiStreamId << ", mode " << Media::getMediaModeString(in_mode));
    std::unique_ptr<MediaEndpoint> pEndpoint(m_factory.getEndpoint(
        m_strCallId.c_str(), uiStreamId, m_pStateMachine, in_mode, in_bRedirectReceive));
    if (!pEndpoint)
    {
        QLOG_WARN(getLogger(), "Invalid media endpoint in voip.");
        return false;
    }
    m_vMediaStreams.push_back(std::make_unique<VoipMediaStream>(std::move(pEndpoint), in_mode));
    return true;
}

bool VoipMedia::setCapacity(unsigned in_stream_id,
                            MediaEndpoint::Direction in_dir,
                            MediaEndpointCapacity* in_pCapacity)
{
    std::unique_ptr<MediaEndpointCapacity> pCapacity(in_pCapacity);
    if (!QUORVEX_ASSERT(getLogger(), pCapacity != nullptr))
    {
        return false;
    }
    QLOG_DEBUG(getLogger(),
               "setCapacity stream id = " << in_stream_id
                                          << ", direction = " << MediaEndpoint::getDirectionString(in_dir)
                                          << ", Capacity = " << *pCapacity);
    if (!QUORVEX_ASSERT(getLogger(), in_stream_id < m_vMediaStreams.size()) ||
        !QUORVEX_ASSERT(getLogger(), in_dir == MediaEndpoint::RX_DIRECTION))
    {
        return false;
    }
    const auto found = pCapacity->find(MediaEndpointCapacity::PAYLOAD_TYPE);
    if (!QUORVEX_ASSERT(getLogger(), found != pCapacity->end()))
    {
        return false;
    }
    m_vMediaStreams[in_stream_id]->setCapacity(std::move(pCapacity));
    return true;
}

bool VoipMedia::allCapacitiesReceived() const
{
    for (const auto& pStream : m_vMediaStreams)
    {
        if (pStream->getCapacity() == nullptr)
        {
            QLOG_DEBUG(getLogger(), "Missing capacity for stream " << *pStream);
            return false;
        }
    }
    QLOG_DEBUG(getLogger(),
               "All capacities have been received for the " << m_vMediaStreams.size() << " endpoints");
    return true;
}

bool VoipMedia::remoteHasMadeAnOffer() const
{
    return m_bRemoteSdp;
}

void VoipMedia::configureRecordingFromHeaders(const DsSipMessage& in_msg)
{
    TRACE_SCOPE(getLogger(), "VoipMedia::configureRecordingFromHeaders(HDsSipMessage)");
    for (std::size_t i = 0; i < in_msg.getNumHeaders(); ++i)
    {
        const auto line = in_msg.getHeaderAt(i);
        if (line.m_iID != DsSipHeaderID::eUNKNOWN)
        {
            continue;
        }
        if (line.m_name == "Record-Call")
        {
            m_bRecordCallHeader = ParameterValue::isPerlTrue(line.m_strValue);
            QLOG_DEBUG(getLogger(),
                       "VoipMedia::configureRecordingFromHeaders(HDsSipMessage) : m_bRecordCallHeader="
                           << m_bRecordCallHeader);
        }
        else if (line.m_name == "Recorder-Output-Id")
        {
            m_strRecorderOutputIdHeader = line.m_strValue;
            QLOG_DEBUG(
                getLogger(),
                "VoipMedia::configureRecordingFromHeaders(HDsSipMessage) : m_strRecorderOutputIdHeader="
                    << m_strRecorderOutputIdHeader);
        }
    }
}

bool VoipMedia::engineAsksForSipData() const
{
    return std::any_of(m_vMediaStreams.begin(),
                       m_vMediaStreams.end(),
                       [](const auto& in_pStream)
                       {
                           const MediaEndpointCapacity* const pCapacity = in_pStream->getCapacity();
                           return pCapacity == nullptr || pCapacity->contains(kInviteKey) ||
                                  pCapacity->contains(kRemoteCallIdKey) ||
                                  pCapacity->contains(kCustomHeadersKey);
                       });
}

void VoipMedia::fillSipInfo(const MediaEndpointCapacity& in_capacity, MediaEndpointConfig& io_config) const
{
    if (m_hRemoteSdpMessage.isNil())
    {
        return;
    }
    if (in_capacity.contains(kInviteKey))
    {
        io_config.setParameter(kInviteKey, MediaValue(m_hRemoteSdpMessage->getText()));
    }
    if (in_capacity.contains(kRemoteCallIdKey))
    {
        const auto strCallId = remoteCallIdOf(m_hRemoteSdpMessage->getFromTag());
        if (!strCallId.empty())
        {
            QLOG_DEBUG(getLogger(), "Remote callID = " << strCallId);
            io_config.setParameter(kRemoteCallIdKey, MediaValue(strCallId));
        }
    }
    if (in_capacity.contains(kCustomHeadersKey))
    {
        const auto strHeaders = customHeadersOf(*m_hRemoteSdpMessage);
        QLOG_DEBUG(getLogger(), "Custom headers =  " << strHeaders);
        io_config.setParameter(kCustomHeadersKey, MediaValue(strHeaders));
    }
}

}  // namespace Quorvex
