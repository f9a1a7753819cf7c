// A call's media: offers and answers.

#include <sstream>

#include "SdpText.h"
#include "VoipMedia.h"
#include "infra/Assertion.h"
#include "infra/ROConfiguration.h"
#include "infra/TraceScope.h"
#include "sipstack/DsSipMessage.h"

namespace Quorvex
{

namespace
{

bool hasSdp(const DsSipMessage& in_msg)
{
    return in_msg.getBodyLength() != 0 &&
           SdpText::equalsIgnoreCase(in_msg.getBodyType(), SdpText::kSdpBodyType);
}

}  // namespace

bool VoipMedia::generateSdpOffer(const ROConfiguration& in_config, std::ostream& out_stream)
{
    TRACE_SCOPE(getLogger(), "VoipMedia::generateSdpOffer");
    if (!QUORVEX_ASSERT(getLogger(), allCapacitiesReceived()))
    {
        return false;
    }
    Sdp::LocalSdpInfoVector vLocal;
    for (const auto& pStream : m_vMediaStreams)
    {
        CountedObjPtr<LocalSdpInfo> pInfo(new LocalSdpInfo(m_strLocalAddress));
        if (!pInfo->initLocalOffer(*pStream->getCapacity(), in_config, pStream->getMode()))
        {
            QLOG_ERROR(getLogger(), "Invalid SDP: " << *pInfo);
            return false;
        }
        vLocal.push_back(pInfo);
    }
    m_sdp.setLocalSdp(std::move(vLocal));
    std::ostringstream text;
    if (!m_sdp.generateSdpOffer(m_strLocalAddress, text))
    {
        QUORVEX_SDP_SUMMARY(eINFO_LEVEL, "Failed to generate local SDP offer");
        return false;
    }
    QUORVEX_SDP_SUMMARY(eDEBUG_LEVEL, "Local SDP offer :\n" << text.str());
    out_stream << text.str();
    return true;
}

bool VoipMedia::setSdpOffer(const DsHandle<DsSipMessage>& in_hMsg)
{
    TRACE_SCOPE(getLogger(), "VoipMedia::setSdpOffer");
    if (!QUORVEX_ASSERT_TEXT(getLogger(), !in_hMsg.isNil(), "!in_hMsg.isNil()"))
    {
        return false;
    }
    rollbackSdpOffer();
    rememberAgreed();
    m_bOfferUnanswered = true;
    if (takeOffer(in_hMsg))
    {
        return true;
    }
    rollbackSdpOffer();
    return false;
}

bool VoipMedia::takeOffer(const DsHandle<DsSipMessage>& in_hMsg)
{
    m_bOfferUnreadable = false;
    configureRecordingFromHeaders(*in_hMsg);
    if (!QUORVEX_ASSERT(getLogger(), allCapacitiesReceived()))
    {
        return false;
    }
    if (!hasSdp(*in_hMsg))
    {
        // The offer is ours to make; nothing of theirs waits for an answer.
        QLOG_DEBUG(getLogger(), "No SDP present in remote offer.");
        m_bOfferUnanswered = false;
        m_sdp.clearRemoteSdp();
        m_bRemoteSdp = false;
        m_hRemoteSdpMessage = nullptr;
        return true;
    }
    if (!m_sdp.initRemoteSdp(in_hMsg))
    {
        QUORVEX_SDP_SUMMARY(eINFO_LEVEL, "Invalid remote SDP offer : \n" << in_hMsg->getBody());
        m_bOfferUnreadable = true;
        return false;
    }
    while (m_vMediaStreams.size() < m_sdp.getRemoteSdp().size())
    {
        if (!createEndpoint(false, Media::SENDRECV_MODE))
        {
            QLOG_ERROR(getLogger(), "Error creating media endpoint in voip");
            return false;
        }
    }
    m_bRemoteSdp = true;
    m_hRemoteSdpMessage = in_hMsg;
    return true;
}

bool VoipMedia::isSdpOfferValid(const ROConfiguration& in_config)
{
    TRACE_SCOPE(getLogger(), "VoipMedia::isSdpOfferValid");
    const SdpInfoVector& listRemoteSdpInfo = m_sdp.getRemoteSdp();
    if (!QUORVEX_ASSERT(getLogger(), m_vMediaStreams.size() == listRemoteSdpInfo.size()) ||
        !QUORVEX_ASSERT(getLogger(), allCapacitiesReceived()))
    {
        rollbackSdpOffer();
        return false;
    }
    bool bAnyValid = false;
    Sdp::LocalSdpInfoVector vLocal;
    for (std::size_t i = 0; i < m_vMediaStreams.size(); ++i)
    {
        CountedObjPtr<LocalSdpInfo> pInfo(new LocalSdpInfo(m_strLocalAddress));
        pInfo->initLocalAnswer(*m_vMediaStreams[i]->getCapacity(), in_config, listRemoteSdpInfo[i]);
        bAnyValid = bAnyValid || pInfo->isValid();
        QLOG_DEBUG(getLogger(), "SDP = " << *pInfo);
        vLocal.push_back(pInfo);
    }
    m_sdp.setLocalSdp(std::move(vLocal));
    if (!bAnyValid)
    {
        QUORVEX_SDP_SUMMARY(
            eINFO_LEVEL,
            "Remote SDP offer is invalid because not a single media description is supported. SDP "
            "offer :\n"
                << m_sdp.getRemoteSdpMsg());
        rollbackSdpOffer();
    }
    return bAnyValid;
}

bool VoipMedia::generateSdpAnswer(std::ostream& out_stream)
{
    TRACE_SCOPE(getLogger(), "VoipMedia::generateSdpAnswer");
    std::ostringstream text;
    const bool bGenerated = m_sdp.generateSdpAnswer(m_strLocalAddress, text);
    out_stream << text.str();
    if (bGenerated)
    {
        QUORVEX_SDP_SUMMARY(eDEBUG_LEVEL, "Local SDP answer OK :\n" << text.str());
        agree();
        return true;
    }
    if (QUORVEX_ASSERT_TEXT(getLogger(), m_sdp.hasRemoteSdp(), "! m_sdp.getRemoteSdpMsg().isNil()"))
    {
        QUORVEX_SDP_SUMMARY(eINFO_LEVEL,
                            "Failed to create local SDP answer for remote offer :\n"
                                << m_sdp.getRemoteSdpMsg());
    }
    return false;
}

bool VoipMedia::setSdpAnswer(const DsHandle<DsSipMessage>& in_hMsg)
{
    TRACE_SCOPE(getLogger(), "VoipMedia::setSdpAnswer");
    if (!QUORVEX_ASSERT_TEXT(getLogger(), !in_hMsg.isNil(), "! in_hMsg.isNil()"))
    {
        return false;
    }
    rememberAgreed();
    if (takeAnswer(in_hMsg))
    {
        agree();
        return true;
    }
    goBackToAgreed();
    return false;
}

bool VoipMedia::takeAnswer(const DsHandle<DsSipMessage>& in_hMsg)
{
    configureRecordingFromHeaders(*in_hMsg);
    if (!QUORVEX_ASSERT_TEXT(getLogger(), !m_vMediaStreams.empty(), "! m_vMediaStreams.empty()") ||
        !QUORVEX_ASSERT(getLogger(), allCapacitiesReceived()) ||
        !QUORVEX_ASSERT(getLogger(), m_vMediaStreams.size() == m_sdp.getLocalSdp().size()))
    {
        return false;
    }
    if (!m_sdp.initRemoteSdp(in_hMsg))
    {
        QLOG_ERROR(getLogger(), "Error parsing SDP answer" << in_hMsg->getBody());
        return false;
    }
    const auto& remote = m_sdp.getRemoteSdp();
    const auto& vLocal = m_sdp.getLocalSdp();
    if (remote.size() != vLocal.size())
    {
        QUORVEX_SDP_SUMMARY(eINFO_LEVEL,
                            "Remote SDP answer is invalid because it does not have the same number of media "
                            "descriptions ("
                                << remote.size() << ") as the local SDP (" << vLocal.size() << ")");
        return false;
    }
    for (std::size_t i = 0; i < vLocal.size(); ++i)
    {
        vLocal[i]->setRemoteAnswer(remote[i]);
        if (!vLocal[i]->isValid())
        {
            QUORVEX_SDP_SUMMARY(eINFO_LEVEL, "Invalid remote SDP answer : " << in_hMsg->getBody());
            return false;
        }
    }
    m_bRemoteSdp = true;
    m_hRemoteSdpMessage = in_hMsg;
    QUORVEX_SDP_SUMMARY(eDEBUG_LEVEL, "Remote SDP answer OK :" << in_hMsg->getBody());
    return true;
}

void VoipMedia::rememberAgreed()
{
    if (m_bAgreedOnce && !m_pAgreed)
    {
        m_pAgreed = std::make_unique<AgreedState>(AgreedState{m_sdp,
                                                              m_bRemoteSdp,
                                                              m_hRemoteSdpMessage,
                                                              m_vMediaStreams.size(),
                                                              m_strRecorderOutputIdHeader,
                                                              m_bRecordCallHeader});
        m_sdp.detachLocalSdp();
    }
}

void VoipMedia::agree()
{
    m_bAgreedOnce = true;
    m_bOfferUnanswered = false;
    m_pAgreed.reset();
    m_sdp.agree();
    if (!engineAsksForSipData())
    {
        m_hRemoteSdpMessage = nullptr;
    }
}

void VoipMedia::rollbackSdpOffer()
{
    if (m_bOfferUnanswered)
    {
        goBackToAgreed();
    }
}

void VoipMedia::goBackToAgreed()
{
    m_bOfferUnanswered = false;
    if (!m_pAgreed)
    {
        return;
    }
    QLOG_DEBUG(getLogger(),
               "Going back to what was last agreed on, with " << m_pAgreed->m_streamCount << " streams");
    m_sdp.restore(m_pAgreed->m_sdp);
    m_bRemoteSdp = m_pAgreed->m_bRemoteSdp;
    m_hRemoteSdpMessage = m_pAgreed->m_hRemoteSdpMessage;
    m_vMediaStreams.resize(m_pAgreed->m_streamCount);
    m_strRecorderOutputIdHeader = m_pAgreed->m_strRecorderOutputIdHeader;
    m_bRecordCallHeader = m_pAgreed->m_bRecordCallHeader;
    m_pAgreed.reset();
}

}  // namespace Quorvex
