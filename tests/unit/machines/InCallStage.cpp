#include "InCallStage.h"

#include <gtest/gtest.h>


namespace Quorvex::Test
{

namespace
{

std::string sdp(const std::string& in_strMedia)
{
    return "v=0\r\no=caller 1 1 IN IP4 127.0.0.1\r\ns=-\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\n" + in_strMedia;
}

}  // namespace

const std::string InCallStage::kOffer =
    sdp("m=audio 40000 RTP/AVP 0\r\na=rtpmap:0 PCMU/8000\r\na=sendrecv\r\n");
const std::string InCallStage::kUnusableSdp = sdp("m=audio 40000 RTP/AVP 18\r\na=rtpmap:18 G729/8000\r\n");

void InCallStage::begin()
{
    m_hProxy.reset();
    m_strCallId = "stage-" + std::to_string(++m_uiCalls);
    m_strTo = "<sip:called@127.0.0.1>";
    m_uiCSeq = 0;
    m_pMachine = nullptr;
}

void InCallStage::findMachine()
{
    ASSERT_TRUE(waitUntil([this] { return m_running.engine().getCallIds().size() >= m_uiCalls; }));
    CallStage::findMachine(m_running.engine().getCallIds().back(), m_running.probe().activeIn());
}

void InCallStage::acquireWithoutInvite()
{
    begin();
    m_hProxy = m_running.probe().newInProxy(m_strCallId);
    findMachine();
    ASSERT_NE(m_pMachine, nullptr);
}

void InCallStage::invite(const Invitation& in_invitation)
{
    begin();
    answerMedia(in_invitation.m_bCapacities);
    m_uiInviteCSeq = ++m_uiCSeq;
    m_strInviteBranch = m_strCallId + "-1";
    m_peer.send(
        m_running.getPort(),
        makeRequest(
            "INVITE", m_uiInviteCSeq, m_strInviteBranch, in_invitation.m_strSdp, in_invitation.m_strHeaders));
    findMachine();
    if (in_invitation.m_bWait)
    {
        ASSERT_NE(m_pMachine, nullptr);
        ASSERT_TRUE(waitFor("INVITING_OUT"));
        ASSERT_TRUE(waitUntil(
            [&]
            {
                bool bThere = false;
                m_running.probe().run(
                    [&]
                    {
                        bThere = m_pMachine->getSipLeg() != nullptr &&
                                 (!in_invitation.m_bCapacities ||
                                  m_pMachine->getSipLeg()->getMedia().allCapacitiesReceived());
                    });
                return bThere;
            }));
    }
}

std::string InCallStage::makeRequest(const std::string& in_strMethod,
                                     unsigned int in_uiCSeq,
                                     const std::string& in_strBranch,
                                     const std::string& in_strSdp,
                                     const std::string& in_strHeaders) const
{
    const std::string strPeer = "127.0.0.1:" + std::to_string(m_peer.getPort());
    return in_strMethod + " sip:called@127.0.0.1:" + std::to_string(m_running.getPort()) + " SIP/2.0\r\n" +
           "Via: SIP/2.0/UDP " + strPeer + ";branch=z9hG4bK" + in_strBranch + "\r\n" +
           "Max-Forwards: 70\r\n" + "From: \"The Caller\" <sip:caller@" + strPeer + ">;tag=" + m_strCallId +
           "\r\n" + "To: " + m_strTo + "\r\n" + "Call-ID: " + m_strCallId + "\r\n" +
           "CSeq: " + std::to_string(in_uiCSeq) + " " + in_strMethod + "\r\n" + "Contact: <sip:caller@" +
           strPeer + ">\r\n" + in_strHeaders +
           (in_strSdp.empty() ? "" : "Content-Type: application/sdp\r\n") +
           "Content-Length: " + std::to_string(in_strSdp.size()) + "\r\n\r\n" + in_strSdp;
}

void InCallStage::send(const std::string& in_strMethod,
                       const std::string& in_strSdp,
                       const std::string& in_strHeaders)
{
    const bool bOfInvite = in_strMethod == "ACK" || in_strMethod == "CANCEL";
    const unsigned int uiCSeq = bOfInvite ? m_uiInviteCSeq : ++m_uiCSeq;
    std::string strBranch = m_strCallId + "-" + std::to_string(uiCSeq);
    if (in_strMethod == "INVITE")
    {
        m_uiInviteCSeq = uiCSeq;
        m_strInviteBranch = strBranch;
    }
    else if (bOfInvite)
    {
        strBranch = m_strInviteBranch + (in_strMethod == "ACK" ? "-ack" : "");
    }
    m_peer.send(m_running.getPort(), makeRequest(in_strMethod, uiCSeq, strBranch, in_strSdp, in_strHeaders));
}

void InCallStage::answer(const std::string& in_strRequest, const std::string& in_strStatus)
{
    std::string strResponse = "SIP/2.0 " + in_strStatus + "\r\n";
    for (const char* szName : {"Via", "From", "To", "Call-ID", "CSeq"})
    {
        strResponse += std::string(szName) + ": " + SipTestPeer::header(in_strRequest, szName) + "\r\n";
    }
    m_peer.send(m_running.getPort(), strResponse + "Content-Length: 0\r\n\r\n");
}

std::string InCallStage::receive(const std::string& in_strFirstLine)
{
    for (;;)
    {
        const std::string strMessage = m_peer.receive(in_strFirstLine);
        if (strMessage.empty())
        {
            return {};
        }
        if (SipTestPeer::header(strMessage, "Call-ID") != m_strCallId)
        {
            continue;  // of an earlier call
        }
        if (strMessage.compare(0, 3, "SIP") == 0)
        {
            m_strTo = SipTestPeer::header(strMessage, "To");
            m_strLastResponse = strMessage;
        }
        return strMessage;
    }
}

bool InCallStage::gets(const std::string& in_strFirstLine,
                       const std::string& in_strHeader,
                       const std::string& in_strText)
{
    const std::string strMessage = receive(in_strFirstLine);
    if (strMessage.empty())
    {
        return false;
    }
    if (in_strHeader.empty())
    {
        return true;
    }
    const std::string strValue = SipTestPeer::header(strMessage, in_strHeader);
    EXPECT_EQ(strValue, in_strText) << strMessage;
    return strValue == in_strText;
}

bool InCallStage::followStop(bool in_bKilled)
{
    return CallStage::followStop(
        m_peer,
        in_bKilled,
        [this](const std::string& in_strMessage)
        {
            if (in_strMessage.compare(0, 3, "SIP") != 0)
            {
                answer(in_strMessage, "200 OK");
                return;
            }
            m_strTo = SipTestPeer::header(in_strMessage, "To");
            if (in_strMessage.compare(8, 1, "1") != 0 &&
                SipTestPeer::header(in_strMessage, "CSeq").find("INVITE") != std::string::npos)
            {
                send("ACK");
            }
        });
}

void InCallStage::bringTo(const std::string& in_strState)
{
    const auto rel = std::string("Supported: 100rel\r\n");
    if (in_strState == "INITIAL")
    {
        acquireWithoutInvite();
    }
    else if (in_strState == "INVITING_OUT")
    {
        invite();
    }
    else if (in_strState == "ACCEPTING")
    {
        invite();
        ASSERT_TRUE(feed(InviteAcceptedEvent(eRING_WITHOUT_EARLY_MEDIA)));
    }
    else if (in_strState == "ANSWERING")
    {
        invite();
        ASSERT_TRUE(feed(RemoteConnEvent(Call::eCONNECTION_NONE)));
        ASSERT_TRUE(gets("200"));
    }
    else if (in_strState == "DISCONNECTING PENDING CONNECTION")
    {
        bringTo("ANSWERING");
        ASSERT_TRUE(feed(EventType::eAPI_HANGUP));
    }
    else if (in_strState == "PROGRESSING_WITH_SDP_OFFER")
    {
        invite({"", rel, true, true});
        ASSERT_TRUE(feed(EventType::eAPI_MEDIA_START_CMD));
        ASSERT_TRUE(gets("183"));
    }
    else if (in_strState == "EARLY_DIALOG")
    {
        bringTo("PROGRESSING_WITH_SDP_OFFER");
        send("PRACK", kOffer, "RAck: " + SipTestPeer::header(m_strLastResponse, "RSeq") + " 1 INVITE\r\n");
    }
    else if (in_strState == "CONNECTED::iMediaSetup")
    {
        bringTo("ANSWERING");
        answerMedia(false);
        send("ACK");
    }
    else if (in_strState == "CONNECTED::iConnected")
    {
        bringTo("ANSWERING");
        send("ACK");
    }
    else if (in_strState == "CONNECTED::iTransfering")
    {
        bringTo("CONNECTED::iConnected");
        send("REFER", "", "Refer-To: <sip:other@127.0.0.1>\r\n");
        ASSERT_TRUE(waitForTold("transfer"));
        ASSERT_TRUE(waitForMedia(&VoipMedia::isAllOnHold));
    }
    else if (in_strState == "CONNECTED::iTransfered")
    {
        bringTo("CONNECTED::iTransfering");
        ASSERT_TRUE(feed(EventType::eAPI_TRANSFER_SUCCESS));
    }
    else if (in_strState == "DISCONNECTING")
    {
        bringTo("CONNECTED::iConnected");
        ASSERT_TRUE(feed(EventType::eAPI_HANGUP));
    }
    else if (in_strState == "IDLE")
    {
        bringTo("INVITING_OUT");
        ASSERT_TRUE(feed(EventType::eAPI_STOP));
    }
    ASSERT_TRUE(waitFor(in_strState));
}

}  // namespace Quorvex::Test
