#include "LocalSdpInfo.h"

#include <algorithm>
#include <sstream>

#include "Sdp.h"
#include "infra/Assertion.h"
#include "infra/ROConfiguration.h"
#include "rtp/RFC1890.h"
#include "rtp/Rtp.h"

namespace Quorvex
{

namespace
{

constexpr const char* kEncodingListKey = "quorvex.rtp.encodingList";
constexpr const char* kPacketSizeKey = "quorvex.media.rtp.packetSizeMs";
constexpr unsigned kDefaultPacketSizeMs = 20;

bool contains(const std::vector<unsigned>& in_v, unsigned in_ui)
{
    return std::find(in_v.begin(), in_v.end(), in_ui) != in_v.end();
}

/// A list as the log shows it: separated by blanks.
struct Listed
{
    const std::vector<unsigned>& m_v;
};

std::ostream& operator<<(std::ostream& out_stream, const Listed& in_list)
{
    const char* szSeparator = "";
    for (const unsigned ui : in_list.m_v)
    {
        out_stream << szSeparator << ui;
        szSeparator = " ";
    }
    return out_stream;
}

/// A configuration value as text, whether it was written as a text or as a number.
std::string textOf(const ROConfiguration& in_config, const char* in_szKey)
{
    const ParameterValue* const pValue = in_config.getValue(in_szKey);
    return pValue == nullptr ? std::string() : pValue->toText();
}

}  // namespace

bool LocalSdpInfo::initLocalOffer(const MediaEndpointCapacity& in_capacity,
                                  const ROConfiguration& in_config,
                                  Media::StreamMode in_mode)
{
    m_remoteConfig.invalidate();
    if (!initLocal_i(in_capacity, in_config, in_mode))
    {
        invalidate();
        return false;
    }
    if (!QUORVEX_ASSERT(getLogger(), isValid()))
    {
        return false;
    }
    m_offer = Offer{getPayloadTypes(), getStreamMode(), getMediaConfig()};
    return describe();
}

bool LocalSdpInfo::describe()
{
    m_bDescribed = !getPayloadTypes().empty();
    setMediaDescription(DsHandle<DsSdpMediaDescription>());
    return m_bDescribed;
}

DsHandle<DsSdpMediaDescription> LocalSdpInfo::makeSection() const
{
    if (m_bDescribed)
    {
        return generateMediaDescription();
    }
    const auto& hRejection = getMediaDescription();
    return hRejection.isNil() ? hRejection : makeDs<DsSdpMediaDescription>(*hRejection);
}

bool LocalSdpInfo::initLocalAnswer(const MediaEndpointCapacity& in_capacity,
                                   const ROConfiguration& in_config,
                                   const SdpInfo& in_remote)
{
    if (!initLocal_i(in_capacity, in_config, Media::SENDRECV_MODE))
    {
        m_remoteConfig.invalidate();
        return reject(in_remote);
    }
    return applyRemoteSdp(in_remote, false);
}

bool LocalSdpInfo::setRemoteAnswer(const SdpInfo& in_remote)
{
    // A later answer to the same offer (from another fork, or after early media) is measured against the
    // offer, not against what an earlier answer left of it.
    if (m_offer.valid())
    {
        setPayloadTypes(m_offer.value().m_vPayloadType);
        setStreamMode(m_offer.value().m_mode);
        getMediaConfig() = m_offer.value().m_config;
        revalidate();
    }
    return applyRemoteSdp(in_remote, true);
}

bool LocalSdpInfo::initLocal_i(const MediaEndpointCapacity& in_capacity,
                               const ROConfiguration& in_config,
                               Media::StreamMode in_mode)
{
    QLOG_DEBUG(getLogger(), "LocalSdpInfo::initLocal_i : capacity :\n" << in_capacity);
    initConfigData();
    m_vPacketSize.clear();
    in_capacity.getUnsignedList(MediaEndpointCapacity::PAYLOAD_SIZE, m_vPacketSize);

    std::string strAddress;
    unsigned uiPort = 0;
    const bool bAddress =
        in_capacity.getString(MediaEndpointCapacity::IPV4_ADDRESS, strAddress) && !strAddress.empty();
    if (m_strLocalAddress.empty())
    {
        m_strLocalAddress = strAddress;
    }
    if (!QUORVEX_ASSERT_TEXT(getLogger(), bAddress, "capacity has IPv4 Address") ||
        !QUORVEX_ASSERT_TEXT(getLogger(),
                             in_capacity.getUnsigned(MediaEndpointCapacity::UDP_PORT, uiPort),
                             "capacity has UDP Port"))
    {
        return false;
    }
    getMediaConfig().setIPAddress(strAddress);
    getMediaConfig().setUDPPort(uiPort);
    if (!QUORVEX_ASSERT(getLogger(), (getPort() & 0x01) == 0) ||
        !QUORVEX_ASSERT(getLogger(), getPort() != 0 && getPort() <= 65535) ||
        !initPayloadTypes(in_capacity, in_config))
    {
        return false;
    }
    initPacketTime(in_config);
    if (!initTelephoneEvents(in_capacity))
    {
        return false;
    }
    setStreamMode(in_mode);
    return true;
}

bool LocalSdpInfo::initPayloadTypes(const MediaEndpointCapacity& in_capacity,
                                    const ROConfiguration& in_config)
{
    const std::string strEncodings = textOf(in_config, kEncodingListKey);
    if (in_config.getValue(kEncodingListKey) == nullptr)
    {
        QLOG_ERROR(getLogger(),
                   "LocalSdpInfo::initLocal_i : failed to configure SIP media. Parameter "
                       << kEncodingListKey << " must be defined");
        return false;
    }
    std::vector<unsigned> vConfigured;
    if (!RFC1890::parsePayloadTypeListString(strEncodings, vConfigured) || vConfigured.empty())
    {
        QLOG_ERROR(getLogger(),
                   "LocalSdpInfo::initLocal_i : failed to configure SIP media. Unable to parse "
                       << strEncodings << " into a valid non-empty list of supported RTP payloads");
        return false;
    }
    std::vector<unsigned> vCapable;
    if (!QUORVEX_ASSERT_TEXT(getLogger(),
                             in_capacity.getUnsignedList(MediaEndpointCapacity::PAYLOAD_TYPE, vCapable),
                             "capacity has Payload type"))
    {
        return false;
    }
    std::vector<unsigned> vSupported;
    std::copy_if(vConfigured.begin(),
                 vConfigured.end(),
                 std::back_inserter(vSupported),
                 [&vCapable](unsigned in_uiType) { return contains(vCapable, in_uiType); });
    QLOG_DEBUG(getLogger(), "LocalSdpInfo::initLocal_i : vSupportedPayloadType=" << Listed{vSupported});
    QLOG_DEBUG(getLogger(), "LocalSdpInfo::initLocal_i : capacity_payloads=" << Listed{vCapable});
    QLOG_DEBUG(getLogger(), "LocalSdpInfo::initLocal_i : config_payloads=" << Listed{vConfigured});
    if (vSupported.empty())
    {
        QUORVEX_SDP_SUMMARY(
            eERROR_LEVEL,
            "can't find a RTP payload type to offer. Mismatch between the media engine capabilities and "
            "the configuration");
        return false;
    }
    setPayloadTypes(std::move(vSupported));
    return true;
}

void LocalSdpInfo::initPacketTime(const ROConfiguration& in_config)
{
    const std::string strSizes = textOf(in_config, kPacketSizeKey);
    std::vector<unsigned> vConfigured;
    if (!Rtp::parsePacketSizeVector(strSizes, vConfigured) || vConfigured.empty())
    {
        QLOG_DEBUG(getLogger(),
                   kPacketSizeKey << " parameter is not correctly defined (" << strSizes
                                  << "). Using a default of 20ms");
        vConfigured.assign(1, kDefaultPacketSizeMs);
    }
    if (m_vPacketSize.empty())
    {
        setPacketTime(vConfigured.front());
        return;
    }
    const auto found =
        std::find_if(vConfigured.begin(),
                     vConfigured.end(),
                     [this](unsigned in_uiSize) { return contains(m_vPacketSize, in_uiSize); });
    if (found != vConfigured.end())
    {
        setPacketTime(*found);
        return;
    }
    setPacketTime(m_vPacketSize.front());
    QLOG_WARN(getLogger(),
              "The configuration packet size (" << kPacketSizeKey
                                                << ") is not supported by the media engine. Using "
                                                << m_vPacketSize.front() << "ms");
}

bool LocalSdpInfo::initTelephoneEvents(const MediaEndpointCapacity& in_capacity)
{
    bool bSupport = false;
    if (!in_capacity.getBool(MediaEndpointCapacity::RFC2833_SUPPORT, bSupport))
    {
        QLOG_WARN(getLogger(), "Capacity does not contain 2833 support");
        return true;
    }
    QLOG_DEBUG(
        getLogger(),
        "LocalSdpInfo::initLocal_i : received Capacity 2833 support = " << (bSupport ? "true" : "false"));
    unsigned uiPayloadType = 0;
    if (bSupport && !QUORVEX_ASSERT_TEXT(
                        getLogger(),
                        in_capacity.getUnsigned(MediaEndpointCapacity::RFC2833_PAYLOAD_TYPE, uiPayloadType) &&
                            uiPayloadType <= 127,
                        "capacity has Rfc 2833 payload type"))
    {
        return false;
    }
    getMediaConfig().setRfc2833Support(bSupport);
    getMediaConfig().setRfc2833PayloadType(uiPayloadType);
    return true;
}

bool LocalSdpInfo::applyRemoteSdp(const SdpInfo& in_remote, bool in_bRemoteAnswer)
{
    m_remoteConfig.invalidate();
    return negotiate(in_remote, in_bRemoteAnswer) || reject(in_remote);
}

bool LocalSdpInfo::negotiate(const SdpInfo& in_remote, bool in_bRemoteAnswer)
{
    if (!in_remote.isValid())
    {
        QLOG_DEBUG(getLogger(), "Remote SDP is not valid, local SDP not filled");
        return false;
    }
    const auto& vRemote = in_remote.getPayloadTypes();
    QLOG_DEBUG(getLogger(), "LocalSdpInfo::applyRemoteSdp : remote_payloads=" << Listed{vRemote});
    const auto& vLocal = getPayloadTypes();
    const auto chosen = std::find_if(vRemote.begin(),
                                     vRemote.end(),
                                     [&vLocal](unsigned in_uiType) { return contains(vLocal, in_uiType); });
    if (chosen == vRemote.end())
    {
        QUORVEX_SDP_SUMMARY(eINFO_LEVEL,
                            "Failed to find a RTP payload type supported by both local and remote SDPs");
        return false;
    }
    const bool bRemoteEvents = in_remote.getMediaConfig().getRfc2833Support();
    if (bRemoteEvents && !getMediaConfig().getRfc2833Support())
    {
        QUORVEX_SDP_SUMMARY(eINFO_LEVEL,
                            "Local media endpoint does not support RFC2833 and remote requested it");
        return false;
    }
    setPayloadTypes({*chosen});
    getMediaConfig().setPayloadType(*chosen);
    getMediaConfig().setRfc2833Support(bRemoteEvents);
    if (bRemoteEvents && !in_bRemoteAnswer)
    {
        getMediaConfig().setRfc2833PayloadType(in_remote.getMediaConfig().getRfc2833PayloadType());
    }
    if (!negotiateMode(in_remote.getStreamMode(), in_bRemoteAnswer) ||
        !QUORVEX_ASSERT(getLogger(), isValid()) || !describe())
    {
        return false;
    }
    m_remoteConfig.set(in_remote.getMediaConfig());
    m_remoteConfig.value().setPayloadType(*chosen);
    negotiatePacketSizes(in_remote);
    return true;
}

bool LocalSdpInfo::negotiateMode(Media::StreamMode in_remoteMode, bool in_bRemoteAnswer)
{
    using namespace Media;
    const StreamMode local = getStreamMode();
    // What a mode of the far end is when seen from our side.
    const StreamMode mirrored = in_remoteMode == SENDONLY_MODE   ? RECVONLY_MODE
                                : in_remoteMode == RECVONLY_MODE ? SENDONLY_MODE
                                                                 : in_remoteMode;
    // An answer may take any part of what was offered, and nothing beyond it.
    const bool bFits =
        !in_bRemoteAnswer || mirrored == INACTIVE_MODE || local == SENDRECV_MODE || mirrored == local;
    if (!bFits || mirrored == UNKNOWN_MODE)
    {
        QUORVEX_SDP_SUMMARY(eINFO_LEVEL,
                            "Local and remote stream modes are incompatible."
                                << " Local=" << getMediaModeString(local)
                                << " Remote=" << getMediaModeString(in_remoteMode));
        return false;
    }
    setStreamMode(mirrored);
    return true;
}

void LocalSdpInfo::negotiatePacketSizes(const SdpInfo& in_remote)
{
    const unsigned uiLocal = getPacketTime().valueOr(kDefaultPacketSizeMs);
    getMediaConfig().setPacketSizeMs(uiLocal);
    unsigned uiRemote = uiLocal;
    if (in_remote.getPacketTime().valid() &&
        (m_vPacketSize.empty() || contains(m_vPacketSize, in_remote.getPacketTime().value())))
    {
        uiRemote = in_remote.getPacketTime().value();
    }
    m_remoteConfig.value().setPacketSizeMs(uiRemote);
}

bool LocalSdpInfo::reject(const SdpInfo& in_remote)
{
    invalidate();
    const auto& hRemote = in_remote.getMediaDescription();
    const bool bForgotten = hRemote.isNil() && in_remote.isValid() && !in_remote.getPayloadTypes().empty();
    if (!bForgotten && (hRemote.isNil() || hRemote->getMediaField() == nullptr))
    {
        return false;
    }
    const DsSdpMediaField field = bForgotten ? in_remote.generateMediaField() : *hRemote->getMediaField();
    const auto hMedia = makeDs<DsSdpMediaDescription>(
        DsSdpMediaField(field.getMediaType(), 0, field.getTransport(), field.getFormats()));
    hMedia->setConnectionField({"IN", "IP4", m_strLocalAddress.empty() ? "0.0.0.0" : m_strLocalAddress});
    setMediaDescription(hMedia);
    m_bDescribed = false;
    return true;
}

}  // namespace Quorvex
