#include "Sdp.h"

#include <charconv>
#include <chrono>

#include "SdpText.h"
#include "infra/Assertion.h"
#include "infra/TraceScope.h"
#include "sipstack/DsException.h"
#include "sipstack/DsSipMessage.h"

namespace Quorvex
{

namespace
{

/// From here on payload types are dynamic: their numbers name no codec.
constexpr unsigned kFirstDynamicPayloadType = 96;

const StaticLogger& getLogger()
{
    static const StaticLogger s_logger("quorvex.voip.Sdp");
    return s_logger;
}

std::uint64_t secondsNow()
{
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
            .count());
}

}  // namespace

const StaticLogger& Sdp::getSummaryLogger()
{
    static const StaticLogger s_logger("quorvex.voip.Sdp.summary");
    return s_logger;
}

void Sdp::writeLocalMsg(const std::string& in_strLocalAddress, std::ostream& out_stream)
{
    if (m_uiSessionId == 0 && m_uiSessionVersion == 0)
    {
        m_uiSessionId = m_uiSessionVersion = secondsNow();
    }
    const auto hMsg = makeDs<DsSdpMsg>();
    const DsSdpOriginField origin("Quorvex-Tech", m_uiSessionId, m_uiSessionVersion++, in_strLocalAddress);
    QLOG_DEBUG(getLogger(), origin.getText());
    hMsg->setOriginField(origin);
    hMsg->setSessionNameField(DsSdpSessionNameField("SIP Call"));
    hMsg->setTimeDescription(DsSdpTimeDescription());
    addMediaDescriptions(*hMsg);
    out_stream << hMsg->toString();
}

void Sdp::addMediaDescriptions(DsSdpMsg& io_msg) const
{
    // The address that most streams share stands once, for the session: that of the first usable stream, or
    // of the first at all. Streams with another one carry their own.
    struct Section
    {
        DsHandle<DsSdpMediaDescription> m_hMedia;
        DsSdpConnectionField m_connection;
    };
    std::vector<Section> vSections;
    vSections.reserve(m_vLocalSdpInfo.size());
    std::size_t first = 0;
    bool bFirstValid = false;
    for (const auto& pInfo : m_vLocalSdpInfo)
    {
        auto hMedia = pInfo->makeSection();
        if (hMedia.isNil())
        {
            continue;
        }
        if (!bFirstValid && pInfo->isValid())
        {
            bFirstValid = true;
            first = vSections.size();
        }
        const auto* pOwn = hMedia->getConnectionField();
        auto connection = pOwn != nullptr
                              ? *pOwn
                              : DsSdpConnectionField("IN", "IP4", pInfo->getMediaConfig().getIPAddress());
        vSections.push_back({std::move(hMedia), std::move(connection)});
    }
    if (vSections.empty())
    {
        return;
    }
    const DsSdpConnectionField session = vSections[first].m_connection;
    io_msg.setConnectionField(session);
    for (const auto& section : vSections)
    {
        section.m_connection == session ? section.m_hMedia->clearConnectionField()
                                        : section.m_hMedia->setConnectionField(section.m_connection);
        io_msg.addMediaDescription(section.m_hMedia);
    }
}

bool Sdp::generateSdpOffer(const std::string& in_strLocalAddress, std::ostream& out_stream)
{
    TRACE_SCOPE(getLogger(), "Sdp::generateSdpOffer");
    if (!QUORVEX_ASSERT_TEXT(getLogger(), !m_vLocalSdpInfo.empty(), "! m_vLocalSdpInfo.empty()"))
    {
        return false;
    }
    writeLocalMsg(in_strLocalAddress, out_stream);
    return true;
}

bool Sdp::generateSdpAnswer(const std::string& in_strLocalAddress, std::ostream& out_stream)
{
    TRACE_SCOPE(getLogger(), "Sdp::generateSdpAnswer");
    if (!QUORVEX_ASSERT_TEXT(getLogger(), m_bRemoteSdp, "! m_hRemoteSdpMsg.isNil()") ||
        !QUORVEX_ASSERT(getLogger(), m_vLocalSdpInfo.size() == m_vRemoteSdpInfo.size()))
    {
        return false;
    }
    writeLocalMsg(in_strLocalAddress, out_stream);
    for (const auto& pInfo : m_vLocalSdpInfo)
    {
        if (pInfo->isValid())
        {
            return true;
        }
    }
    QUORVEX_SDP_SUMMARY(eINFO_LEVEL,
                        "Remote SDP offer is invalid because not a single media description is supported");
    return false;
}

bool Sdp::initRemoteSdp(const DsHandle<DsSipMessage>& in_hMsg)
{
    TRACE_SCOPE(getLogger(), "Sdp::parseSdp");
    if (!QUORVEX_ASSERT_TEXT(getLogger(), !in_hMsg.isNil(), "!in_hMsg.isNil()"))
    {
        return false;
    }
    try
    {
        if (in_hMsg->getBodyLength() == 0 ||
            !SdpText::equalsIgnoreCase(in_hMsg->getBodyType(), SdpText::kSdpBodyType))
        {
            QLOG_DEBUG(getLogger(), "No SDP present in message");
            return false;
        }
        QLOG_DEBUG(getLogger(), "Parsing the following sdp:" << in_hMsg->getBody());
        const auto hMsg = DsSdpMsg::parse(in_hMsg->getBody());
        m_vRemoteSdpInfo.initFrom(*hMsg, m_iResolveTimeoutMs);
        m_hRemoteSdpMsg = hMsg;
        m_bRemoteSdp = true;
        return true;
    }
    catch (const DsException& exception)
    {
        QLOG_ERROR(getLogger(), "Exception while parsing SDP: " << exception);
        return false;
    }
}

bool Sdp::clearRemoteSdp()
{
    m_hRemoteSdpMsg = nullptr;
    m_bRemoteSdp = false;
    m_vRemoteSdpInfo.clear();
    return true;
}

void Sdp::agree()
{
    m_hRemoteSdpMsg = nullptr;
    m_vRemoteSdpInfo.forgetUsedDescriptions();
}

void Sdp::detachLocalSdp()
{
    for (auto& pInfo : m_vLocalSdpInfo)
    {
        pInfo.reset(new LocalSdpInfo(*pInfo));
    }
}

void Sdp::restore(const Sdp& in_former)
{
    m_hRemoteSdpMsg = in_former.m_hRemoteSdpMsg;
    m_bRemoteSdp = in_former.m_bRemoteSdp;
    m_vLocalSdpInfo = in_former.m_vLocalSdpInfo;
    m_vRemoteSdpInfo = in_former.m_vRemoteSdpInfo;
}

bool Sdp::isMediaKnown(const DsSdpMediaField& in_field, std::vector<unsigned>& out_vPayloadType)
{
    out_vPayloadType.clear();
    if (!SdpText::equalsIgnoreCase(in_field.getMediaType(), "audio") ||
        !SdpText::equalsIgnoreCase(in_field.getTransport(), "RTP/AVP"))
    {
        return false;
    }
    std::string_view rest = in_field.getFormats();
    while (!(rest = SdpText::trimBlanks(rest)).empty())
    {
        unsigned uiPayloadType = 0;
        const auto [pEnd, error] = std::from_chars(rest.data(), rest.data() + rest.size(), uiPayloadType);
        const auto length = static_cast<std::size_t>(pEnd - rest.data());
        const bool bWholeWord = length == rest.size() || rest[length] == ' ' || rest[length] == '\t';
        if (error != std::errc() || !bWholeWord)
        {
            QLOG_WARN(getLogger(), "Some parse error in " << in_field.getFormats());
            break;
        }
        if (uiPayloadType < kFirstDynamicPayloadType)
        {
            out_vPayloadType.push_back(uiPayloadType);
        }
        rest.remove_prefix(length);
    }
    return !out_vPayloadType.empty();
}

}  // namespace Quorvex
