// A call's media: what a leg's parameters say about it, and what the leg learns from it.

#include "SdpText.h"
#include "VoipMedia.h"
#include "calleng/CallLegInfo.h"
#include "infra/Assertion.h"
#include "infra/TraceScope.h"

namespace Quorvex
{

namespace
{

constexpr const char* kRtpKey = "media.rtp";
constexpr const char* kCpaKey = "sip.out.cpa.enabled";
constexpr const char* kHeaderKey = "sip.in.header";

}  // namespace

bool VoipMedia::configure(const CallLegInfo& in_leg)
{
    TRACE_SCOPE(getLogger(), "VoipMedia::configure");
    const ParameterTrieNode* const pSubTrie = in_leg.getNode(kRtpKey);
    if (!QUORVEX_ASSERT_TEXT(getLogger(), pSubTrie != nullptr, "pSubTrie != 0"))
    {
        return false;
    }
    for (const auto& pChild : pSubTrie->getChildren())
    {
        const std::string strValue = pChild->getValue().toText();
        QLOG_DEBUG(
            getLogger(),
            "VoipMedia::configure with legInfo : Stream : " << pChild->getName() << " Value: " << strValue);
        const auto mode = Media::parseMediaMode(strValue);
        if (mode == Media::UNKNOWN_MODE)
        {
            QLOG_ERROR(getLogger(), "Unrecognized stream value in callInfo: " << strValue);
            continue;
        }
        if (!createEndpoint(in_leg.isTrue(pChild->getFullName() + ".redirectReceive"), mode))
        {
            QLOG_ERROR(getLogger(), "Error creating media endpoint in voip");
        }
    }
    m_bCpaEnabled = SdpText::equalsIgnoreCase(in_leg.getParameterOr(kCpaKey, ""), "true");
    QLOG_DEBUG(getLogger(),
               "VoipMedia::configure with legInfo : CPA " << (m_bCpaEnabled ? "" : "NOT ")
                                                          << "enabled for this leg");
    configureRecordingFromHeaders(in_leg);
    return true;
}

void VoipMedia::configureRecordingFromHeaders(const CallLegInfo& in_leg)
{
    TRACE_SCOPE(getLogger(), "VoipMedia::configureRecordingFromHeaders(CallLegInfo)");
    if (in_leg.getNode(kHeaderKey) == nullptr)
    {
        return;
    }
    std::string strValue;
    if (in_leg.getParameter(std::string(kHeaderKey) + ".Record-Call", strValue))
    {
        m_bRecordCallHeader = ParameterValue::isPerlTrue(strValue);
        QLOG_DEBUG(getLogger(),
                   "VoipMedia::configureRecordingFromHeaders(CallLegInfo) : m_bRecordCallHeader="
                       << m_bRecordCallHeader);
    }
    if (in_leg.getParameter(std::string(kHeaderKey) + ".Recorder-Output-Id", strValue))
    {
        m_strRecorderOutputIdHeader = strValue;
        QLOG_DEBUG(getLogger(),
                   "VoipMedia::configureRecordingFromHeaders(CallLegInfo) : m_strRecorderOutputIdHeader="
                       << m_strRecorderOutputIdHeader);
    }
}

bool VoipMedia::fillLegInfo(CallLegInfo& io_leg)
{
    TRACE_SCOPE(getLogger(), "VoipMedia::fillLegInfo");
    configureRecordingFromHeaders(io_leg);
    if (!m_bRemoteSdp)
    {
        io_leg.addRtpSendReceiveParameters(0);
    }
    else
    {
        unsigned uiStream = 0;
        for (const auto& pInfo : m_sdp.getRemoteSdp())
        {
            switch (pInfo->getStreamMode())
            {
                case Media::SENDONLY_MODE:
                case Media::SENDRECV_MODE:
                    io_leg.addRtpSendReceiveParameters(uiStream);
                    break;
                case Media::RECVONLY_MODE:
                    io_leg.addRtpRecvOnlyParameters(uiStream);
                    break;
                case Media::INACTIVE_MODE:
                    io_leg.addRtpInactiveParameters(uiStream);
                    break;
                default:
                    QLOG_WARN(getLogger(), "Undefined stream mode");
                    break;
            }
            ++uiStream;
        }
    }
    QLOG_DEBUG(getLogger(), "Resulting legInfo " << io_leg);
    return true;
}

}  // namespace Quorvex
