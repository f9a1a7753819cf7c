#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "LocalSdpInfo.h"
#include "Sdp.h"
#include "infra/Logger.h"
#include "infra/ROConfiguration.h"
#include "media/MediaEndpointCapacity.h"
#include "sipstack/DsSdpMsg.h"
#include "sipstack/DsSipMessage.h"

namespace Quorvex::SdpTest
{

using Types = std::vector<unsigned>;

/// No records while it lives: for what is done thousands of times.
struct QuietLog
{
    QuietLog() { Logging::setRootLevel(eOFF_LEVEL); }
    ~QuietLog() { Logging::setRootLevel(eTRACE_LEVEL); }
    QuietLog(const QuietLog&) = delete;
    QuietLog& operator=(const QuietLog&) = delete;
};

/// Collects the records of one logger while it lives.
class Records
{
public:
    explicit Records(std::string in_strLogger) : m_strLogger(std::move(in_strLogger))
    {
        Logging::setCapture(&Records::take, this);
    }
    ~Records() { Logging::setCapture(nullptr, nullptr); }
    Records(const Records&) = delete;
    Records& operator=(const Records&) = delete;

    std::vector<std::pair<int, std::string>> m_vRecords;

private:
    static void take(void* io_pContext,
                     int in_iLevel,
                     const std::string& in_strLogger,
                     const std::string& in_strText)
    {
        auto& self = *static_cast<Records*>(io_pContext);
        if (in_strLogger == self.m_strLogger)
        {
            self.m_vRecords.emplace_back(in_iLevel, in_strText);
        }
    }

    std::string m_strLogger;
};

inline constexpr unsigned kNoEvents = 0;

/// What an engine can do; 0 as the event type is an engine without telephone events.
inline MediaEndpointCapacity capacity(const Types& in_vTypes = {0, 8},
                                      unsigned in_uiEventType = 101,
                                      const Types& in_vSizes = {20},
                                      unsigned in_uiPort = 40000,
                                      const char* in_szAddress = "10.0.0.5")
{
    MediaEndpointCapacity capacity;
    capacity.set(MediaEndpointCapacity::IPV4_ADDRESS, in_szAddress);
    capacity.set(MediaEndpointCapacity::UDP_PORT, in_uiPort);
    capacity.set(MediaEndpointCapacity::PAYLOAD_TYPE, MediaValue(in_vTypes));
    if (!in_vSizes.empty())
    {
        capacity.set(MediaEndpointCapacity::PAYLOAD_SIZE, MediaValue(in_vSizes));
    }
    capacity.set(MediaEndpointCapacity::RFC2833_SUPPORT, MediaValue(in_uiEventType != kNoEvents));
    capacity.set(MediaEndpointCapacity::RFC2833_PAYLOAD_TYPE, in_uiEventType);
    return capacity;
}

inline MapConfiguration configuration(const char* in_szEncodings = "0 8", const char* in_szSizes = "20")
{
    MapConfiguration config;
    if (in_szEncodings != nullptr)
    {
        config.set("quorvex.rtp.encodingList", in_szEncodings);
    }
    if (in_szSizes != nullptr)
    {
        config.set("quorvex.media.rtp.packetSizeMs", in_szSizes);
    }
    return config;
}

/// Lines with the line ends of the wire.
inline std::string lines(std::initializer_list<std::string_view> in_lines)
{
    std::string strText;
    for (const auto line : in_lines)
    {
        strText.append(line).append("\r\n");
    }
    return strText;
}

/// A remote description with one section, whose attributes are separated by blanks.
inline std::string remoteSdp(const std::string& in_strFormats,
                             std::initializer_list<std::string_view> in_attributes = {},
                             const std::string& in_strAddress = "10.0.0.9",
                             unsigned in_uiPort = 30000)
{
    auto strText = lines({"v=0", "o=peer 1 1 IN IP4 10.0.0.9", "s=-"}) + "c=IN IP4 " + in_strAddress +
                   "\r\nt=0 0\r\nm=audio " + std::to_string(in_uiPort) + " RTP/AVP " + in_strFormats + "\r\n";
    for (const auto attribute : in_attributes)
    {
        strText.append("a=").append(attribute).append("\r\n");
    }
    return strText;
}

inline SdpInfoVector infosOf(const std::string& in_strSdp)
{
    SdpInfoVector infos;
    infos.initFrom(*DsSdpMsg::parse(in_strSdp), 100);
    return infos;
}

/// An INVITE with a body.
inline DsHandle<DsSipMessage> inviteWith(const std::string& in_strBody,
                                         const std::string& in_strHeaders = "",
                                         const std::string& in_strType = "application/sdp")
{
    const auto strType = in_strBody.empty() ? std::string() : "Content-Type: " + in_strType + "\r\n";
    return DsSipMessage::parse(
        "INVITE sip:gateway@10.0.0.5 SIP/2.0\r\nVia: SIP/2.0/UDP 10.0.0.9:5060;branch=z9hG4bK1\r\n"
        "From: <sip:a@10.0.0.9>;tag=qrvx-callid-abc123ds77\r\nTo: <sip:gateway@10.0.0.5>\r\nCall-ID: "
        "1@peer\r\n"
        "CSeq: 1 INVITE\r\nMax-Forwards: 70\r\nContact: <sip:a@10.0.0.9>\r\n" +
        in_strHeaders + strType + "Content-Length: " + std::to_string(in_strBody.size()) + "\r\n\r\n" +
        in_strBody);
}

}  // namespace Quorvex::SdpTest
