#include "SdpInfo.h"

#include <ostream>
#include <string>

#include "infra/Assertion.h"
#include "rtp/RFC1890.h"

namespace Quorvex
{

namespace
{

/// What telephone events we take: the digits, *, #, A to D and flash (RFC 4733 section 3.2).
constexpr const char* kTelephoneEvents = "0-16";

}  // namespace

SdpInfo::SdpInfo() : SdpInfo(DsHandle<DsSdpMediaDescription>())
{
}

SdpInfo::SdpInfo(const DsHandle<DsSdpMediaDescription>& in_hMediaDescription)
    : m_streamMode(Media::SENDRECV_MODE), m_hMediaDescription(in_hMediaDescription)
{
    initConfigData();
}

const StaticLogger& SdpInfo::getLogger()
{
    static const StaticLogger s_logger("quorvex.voip.Sdp");
    return s_logger;
}

void SdpInfo::initConfigData()
{
    m_mediaConfig = RtpMediaConfigData();
}

void SdpInfo::invalidate()
{
    m_streamMode = Media::INACTIVE_MODE;
    m_bValid = false;
}

unsigned SdpInfo::getPort() const
{
    return m_mediaConfig.getUDPPort();
}

DsSdpMediaField SdpInfo::generateMediaField() const
{
    QUORVEX_ASSERT_TEXT(getLogger(), !m_vPayloadType.empty(), "! m_vPayloadType.empty()");
    std::string strFormats;
    for (const unsigned uiPayloadType : m_vPayloadType)
    {
        strFormats += (strFormats.empty() ? "" : " ") + std::to_string(uiPayloadType);
    }
    if (m_mediaConfig.getRfc2833Support())
    {
        strFormats += ' ' + std::to_string(m_mediaConfig.getRfc2833PayloadType());
    }
    return {"audio", static_cast<std::uint16_t>(getPort()), "RTP/AVP", strFormats};
}

DsSdpAttributeField SdpInfo::generateAttributeField(unsigned in_uiPayloadType)
{
    return {
        "rtpmap",
        std::to_string(in_uiPayloadType) + ' ' + RFC1890::getPayloadTypeString(in_uiPayloadType) + "/8000"};
}

DsHandle<DsSdpMediaDescription> SdpInfo::generateMediaDescription() const
{
    auto hMedia = makeDs<DsSdpMediaDescription>(generateMediaField());
    for (const unsigned uiPayloadType : m_vPayloadType)
    {
        hMedia->addAttributeField(generateAttributeField(uiPayloadType));
    }
    if (m_mediaConfig.getRfc2833Support())
    {
        const auto strType = std::to_string(m_mediaConfig.getRfc2833PayloadType());
        hMedia->addAttributeField({"rtpmap", strType + " telephone-event/8000"});
        hMedia->addAttributeField({"fmtp", strType + ' ' + kTelephoneEvents});
    }
    if (m_packetTime.valid())
    {
        hMedia->addAttributeField({"ptime", std::to_string(m_packetTime.value())});
    }
    hMedia->addAttributeField(DsSdpAttributeField(Media::getMediaModeString(m_streamMode)));
    return hMedia;
}

std::ostream& SdpInfo::write(std::ostream& out_stream) const
{
    out_stream << "SdpInfo -->  Port:" << getPort() << "  IP:" << m_mediaConfig.getIPAddress();
    for (const unsigned uiPayloadType : m_vPayloadType)
    {
        out_stream << "  Format:" << uiPayloadType;
    }
    out_stream << "  Mode:" << Media::getMediaModeString(m_streamMode) << "  DMTF support "
               << m_mediaConfig.getRfc2833Support() << "  Payload:" << m_mediaConfig.getRfc2833PayloadType()
               << "  Valid:" << m_bValid;
    return out_stream;
}

}  // namespace Quorvex
