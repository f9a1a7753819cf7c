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

void Sdp::beginLocalMsg(const std::string& in_strLocalAddress)
{
    if (m_uiSessionId == 0 && m_uiSessionVersion == 0)
    {
        m_uiSessionId = m_uiSessionVersion = secondsNow();
    }
    m_hLocalSdpMsg = makeDs<DsSdpMsg>();
    const DsSdpOriginField origin("Quorvex-Tech", m_uiSessionId, m_uiSessionVersion++, in_strLocalAddress);
    QLOG_DEBUG(getLogger(), origin.getText());
    m_hLocalSdpMsg->setOriginField(origin);
    m_hLocalSdpMsg->setSessionNameField(DsSdpSessionNameField("SIP Call"));
    m_hLocalSdpMsg->setTimeDescription(DsSdpTimeDescription());
}

void Sdp::addMediaDescriptions()
{
    // The address that most streams share stands once, for the session: that of the first usable stream, or
    // of the first at all. Streams with another one carry their own.
    const auto connectionOf = [](const LocalSdpInfo& in_info)
    {
        const auto* pOwn = in_info.getMediaDescription()->getConnectionField();
        return pOwn != nullptr ? *pOwn
                               : DsSdpConnectionField("IN", "IP4", in_info.getMediaConfig().getIPAddress());
    };
    const LocalSdpInfo* pFirst = nullptr;
    for (const auto& pInfo : m_vLocalSdpInfo)
    {
        if (!pInfo->getMediaDescription().isNil() &&
            (pFirst == nullptr || (!pFirst->isValid() && pInfo->isValid())))
        {
            pFirst = pInfo.get();
        }
    }
    if (pFirst == nullptr)
    {
        return;
    }
    const DsSdpConnectionField session = connectionOf(*pFirst);
    m_hLocalSdpMsg->setConnectionField(session);
    for (const auto& pInfo : m_vLocalSdpInfo)
    {
        const auto& hMedia = pInfo->getMediaDescription();
        if (hMedia.isNil())
        {
            continue;
        }
        // The section belongs to the stream, which may be described again: what the message needs is set on a
        // copy.
        const auto hSection = makeDs<DsSdpMediaDescription>(*hMedia);
        const auto own = connectionOf(*pInfo);
        own == session ? hSection->clearConnectionField() : hSection->setConnectionField(own);
        m_hLocalSdpMsg->addMediaDescription(hSection);
    }
}

bool Sdp::generateSdpOffer(const std::string& in_strLocalAddress, std::ostream& out_stream)
{
    TRACE_SCOPE(getLogger(), "Sdp::generateSdpOffer");
    if (!QUORVEX_ASSERT_TEXT(getLogger(), !m_vLocalSdpInfo.empty(), "! m_vLocalSdpInfo.empty()"))
    {
        return false;
    }
    beginLocalMsg(in_strLocalAddress);
    addMediaDescriptions();
    out_stream << m_hLocalSdpMsg->toString();
    return true;
}

bool Sdp::generateSdpAnswer(const std::string& in_strLocalAddress, std::ostream& out_stream)
{
    TRACE_SCOPE(getLogger(), "Sdp::generateSdpAnswer");
    if (!QUORVEX_ASSERT_TEXT(getLogger(), !m_hRemoteSdpMsg.isNil(), "! m_hRemoteSdpMsg.isNil()") ||
        !QUORVEX_ASSERT(getLogger(), m_vLocalSdpInfo.size() == m_vRemoteSdpInfo.size()))
    {
        return false;
    }
    beginLocalMsg(in_strLocalAddress);
    addMediaDescriptions();
    out_stream << m_hLocalSdpMsg->toString();
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
    m_vRemoteSdpInfo.clear();
    return true;
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
    m_hLocalSdpMsg = in_former.m_hLocalSdpMsg;
    m_hRemoteSdpMsg = in_former.m_hRemoteSdpMsg;
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
