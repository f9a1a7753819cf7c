#include "SdpInfoVector.h"

#include <algorithm>
#include <charconv>
#include <string>
#include <string_view>

#include "Sdp.h"
#include "SdpText.h"
#include "infra/Assertion.h"
#include "sip/Sip.h"
#include "sipstack/DsException.h"
#include "sipstack/DsInetAddress.h"

namespace Quorvex
{

namespace
{

/// The longest packet that a peer may announce, in milliseconds; what is outside is not a packet time.
constexpr unsigned kMaxPacketTimeMs = 1000;

const StaticLogger& getLogger()
{
    static const StaticLogger s_logger("quorvex.voip.Sdp");
    return s_logger;
}

const StaticLogger& getAddressBlanksLogger()
{
    static const StaticLogger s_logger(Sip::getUAInteropLogger().getName() +
                                       ".SDPConnectionAddressExtraWhitespace");
    return s_logger;
}

std::string toLower(std::string in_strText)
{
    std::transform(in_strText.begin(), in_strText.end(), in_strText.begin(), SdpText::lower);
    return in_strText;
}

bool isBlank(char in_c)
{
    return in_c == ' ' || in_c == '\t';
}

/// Whether a text can be the name or dotted address of a host: what cannot is not worth a name look-up.
bool isHost(std::string_view in_text)
{
    constexpr std::size_t kMaxHostName = 255;
    return !in_text.empty() && in_text.size() <= kMaxHostName &&
           std::all_of(in_text.begin(),
                       in_text.end(),
                       [](char in_c)
                       {
                           const char c = SdpText::lower(in_c);
                           return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' || c == '-' ||
                                  c == '_';
                       });
}

/// Whether a media line's formats name a payload type.
bool namesFormat(std::string_view in_formats, unsigned in_uiPayloadType)
{
    const auto strFormat = std::to_string(in_uiPayloadType);
    for (std::size_t pos = in_formats.find(strFormat); pos != std::string_view::npos;
         pos = in_formats.find(strFormat, pos + 1))
    {
        const auto end = pos + strFormat.size();
        if ((pos == 0 || isBlank(in_formats[pos - 1])) &&
            (end == in_formats.size() || isBlank(in_formats[end])))
        {
            return true;
        }
    }
    return false;
}

/// Telephone events count when the media line offers them, at the clock rate of the codecs we speak. Some
/// peers offer them once for each clock rate that they know.
void takeTelephoneEvents(const DsSdpRtpAttribute& in_rtp, SdpInfo& io_info)
{
    const unsigned uiRate = in_rtp.getClockRate();
    if (SdpText::equalsIgnoreCase(in_rtp.getEncodingName(), "telephone-event") &&
        (uiRate == 0 || uiRate == 8000) &&
        namesFormat(io_info.getMediaDescription()->getMediaField()->getFormats(), in_rtp.getPayloadType()))
    {
        io_info.getMediaConfig().setRfc2833Support(true);
        io_info.getMediaConfig().setRfc2833PayloadType(in_rtp.getPayloadType());
    }
}

/// A payload type that carries telephone events is no codec, whatever its number.
void dropTelephoneEventsFromCodecs(SdpInfo& io_info)
{
    if (!io_info.getMediaConfig().getRfc2833Support())
    {
        return;
    }
    auto vPayloadType = io_info.getPayloadTypes();
    std::erase(vPayloadType, io_info.getMediaConfig().getRfc2833PayloadType());
    if (vPayloadType.empty())
    {
        QLOG_DEBUG(getLogger(), "The stream cannot be used: it has no codec beside telephone events");
        io_info.invalidate();
    }
    io_info.setPayloadTypes(std::move(vPayloadType));
}

void takePacketTime(const DsSdpAttributeField& in_attribute, SdpInfo& io_info)
{
    const auto value = SdpText::trimBlanks(in_attribute.getValue());
    if (value.empty())
    {
        return;
    }
    unsigned uiMs = 0;
    const auto [pEnd, error] = std::from_chars(value.data(), value.data() + value.size(), uiMs);
    if (error != std::errc() || uiMs == 0 || uiMs > kMaxPacketTimeMs)
    {
        QLOG_WARN(getLogger(),
                  "Ignoring packet time \"" << value.substr(0, 20) << "\": expected 1 to " << kMaxPacketTimeMs
                                            << " ms");
        return;
    }
    io_info.setPacketTime(uiMs);
}

void takeMode(const DsSdpAttributeVector& in_vAttributes, SdpInfo& io_info)
{
    for (const auto& attribute : in_vAttributes)
    {
        const auto mode = Media::parseMediaMode(attribute.getName());
        if (mode != Media::UNKNOWN_MODE)
        {
            io_info.setStreamMode(mode);
        }
    }
}

}  // namespace

void SdpInfoVector::initFrom(const DsSdpMsg& in_msg, int in_iResolveTimeoutMs)
{
    std::vector<value_type> vInfo;
    for (const auto& hMedia : in_msg.getMediaDescriptions())
    {
        if (QUORVEX_ASSERT_TEXT(getLogger(), hMedia->getMediaField() != nullptr, "pMediaField != 0"))
        {
            vInfo.push_back(makeInfo(in_msg, hMedia, in_iResolveTimeoutMs));
        }
    }
    m_vInfo.swap(vInfo);
}

void SdpInfoVector::forgetUsedDescriptions()
{
    for (const auto& pInfo : m_vInfo)
    {
        if (pInfo->isValid())
        {
            pInfo->forgetMediaDescription();
        }
    }
}

SdpInfoVector::value_type SdpInfoVector::makeInfo(const DsSdpMsg& in_msg,
                                                  const DsHandle<DsSdpMediaDescription>& in_hMedia,
                                                  int in_iResolveTimeoutMs)
{
    const DsSdpMediaField& field = *in_hMedia->getMediaField();
    if (toLower(field.getFormats()).find("t38") != std::string::npos)
    {
        QLOG_DEBUG(getLogger(), "SdpInfoVector::initFrom : FAX machine detected");
    }

    value_type pInfo(new SdpInfo(in_hMedia));
    pInfo->getMediaConfig().setUDPPort(field.getPort());
    std::vector<unsigned> vPayloadType;
    if (!Sdp::isMediaKnown(field, vPayloadType))
    {
        QLOG_DEBUG(getLogger(), "Media is not known for " << field.getFormats());
        pInfo->invalidate();
        return pInfo;
    }
    pInfo->setPayloadTypes(std::move(vPayloadType));
    if (field.getPort() == 0)
    {
        QLOG_DEBUG(getLogger(), "The far end has rejected or removed the stream: port 0");
        pInfo->invalidate();
        return pInfo;
    }

    const auto* pConnection = in_hMedia->getConnectionField();
    if (!initAddress(
            pConnection != nullptr ? pConnection : in_msg.getConnectionField(), in_iResolveTimeoutMs, *pInfo))
    {
        pInfo->invalidate();
        return pInfo;
    }
    // The session's direction counts for the sections that name none.
    takeMode(in_msg.getAttributeFields(), *pInfo);
    parseMediaAttributes(in_hMedia->getAttributeFields(), *pInfo);
    dropTelephoneEventsFromCodecs(*pInfo);
    if (pInfo->getMediaConfig().getIPAddress() == "0.0.0.0")
    {
        pInfo->setStreamMode(Media::INACTIVE_MODE);
    }
    QLOG_DEBUG(getLogger(), "hSdpInfo=" << *pInfo);
    return pInfo;
}

bool SdpInfoVector::initAddress(const DsSdpConnectionField* in_pConnection,
                                int in_iResolveTimeoutMs,
                                SdpInfo& io_info)
{
    if (in_pConnection == nullptr)
    {
        QLOG_DEBUG(getLogger(),
                   "The stream cannot be used: no connection address, for itself or for the session");
        return false;
    }
    if (!SdpText::equalsIgnoreCase(in_pConnection->getNetType(), "IN") ||
        !SdpText::equalsIgnoreCase(in_pConnection->getAddrType(), "IP4"))
    {
        QLOG_DEBUG(getLogger(),
                   "The stream cannot be used: expected a connection of type IN IP4, got "
                       << in_pConnection->getNetType() << ' ' << in_pConnection->getAddrType());
        return false;
    }
    const std::string_view address = SdpText::trimBlanks(in_pConnection->getAddress());
    if (address.size() != in_pConnection->getAddress().size())
    {
        QLOG_INFO(getAddressBlanksLogger(),
                  "Received connection address in SDP \""
                      << in_pConnection->getAddress() << "\" contains extra whitespaces. "
                      << "It is supported but not compliant with the BNF grammar of RFC 2327");
    }
    if (!isHost(address))
    {
        throw DsException("SDP connection address: expected an IPv4 address or a host name");
    }
    const DsInetAddress resolved(address, in_iResolveTimeoutMs);
    if (resolved.isIPv6())
    {
        QLOG_DEBUG(getLogger(), "The stream cannot be used: " << address << " has no IPv4 address");
        return false;
    }
    io_info.getMediaConfig().setIPAddress(resolved.getHostAddress());
    return true;
}

void SdpInfoVector::parseMediaAttributes(const DsSdpAttributeVector& in_vAttributes, SdpInfo& io_info)
{
    for (const auto& attribute : in_vAttributes)
    {
        if (SdpText::equalsIgnoreCase(attribute.getName(), "rtpmap"))
        {
            takeTelephoneEvents(DsSdpRtpAttribute::parse(attribute.getValue()), io_info);
        }
        else if (SdpText::equalsIgnoreCase(attribute.getName(), "ptime"))
        {
            takePacketTime(attribute, io_info);
        }
    }
    takeMode(in_vAttributes, io_info);
}

}  // namespace Quorvex
