#include "OutCallStage.h"

#include "calleng/CallInfo.h"

namespace Quorvex::Test
{

void OutCallStage::acquire()
{
    answerMedia(true);
    m_pCallee = std::make_unique<Callee>(m_running.getPort());
    m_bPlaced = false;
    m_pMachine = nullptr;
    const std::string strCallId = "stage-" + std::to_string(++m_uiCalls);
    m_running.engine().placeCall(
        m_running.netIf(), strCallId, [this](ScriptedCall& io_call) { m_pCall = &io_call; });
    m_running.engine().run([] {});
    findMachine(strCallId, m_running.probe().activeOut());
    ASSERT_NE(m_pMachine, nullptr);
}

void OutCallStage::invite(bool in_bAnalysis)
{
    CallLegInfo leg;
    leg.setParameter("sip.out.requestUri", m_pCallee->getUri());
    leg.setParameter("sip.out.cpa.enabled", in_bAnalysis ? "true" : "false");
    leg.setParameter("media.rtp.audio", "sendrecv");
    CallInfo info;
    info.addLeg(leg);
    m_bPlaced = true;
    m_running.engine().run([&] { EXPECT_TRUE(m_pCall->getOutLeg()->invite(info)); });
}

void OutCallStage::answer()
{
    m_pCallee->answer("200 OK", kAnswer);
    ASSERT_FALSE(m_pCallee->await("ACK").empty());
}

void OutCallStage::bringTo(const std::string& in_strState)
{
    if (in_strState == "INITIAL")
    {
        acquire();
    }
    else if (in_strState == "INVITING")
    {
        acquire();
        invite();
        ASSERT_FALSE(m_pCallee->awaitInvite().empty());
        // From here on nothing ends the attempt but the far end, or the longest of the timers.
        m_pCallee->answer("100 Trying");
        ASSERT_TRUE(waitForTold("proceeding"));
    }
    else if (in_strState == "REMOTE_RINGING")
    {
        bringTo("INVITING");
        m_pCallee->answer("180 Ringing");
    }
    else if (in_strState == "CANCEL")
    {
        bringTo("REMOTE_RINGING");
        ASSERT_TRUE(feed(EventType::eAPI_HANGUP));
    }
    else if (in_strState == "WAIT_FOR_CPA_RESULT")
    {
        acquire();
        invite(true);
        ASSERT_FALSE(m_pCallee->awaitInvite().empty());
        answer();
        ASSERT_TRUE(waitForMedia(&VoipMedia::isAllStarted));
    }
    else if (in_strState == "CONNECTED::iMediaSetup")
    {
        bringTo("REMOTE_RINGING");
        answerMedia(false);
        answer();
    }
    else if (in_strState == "CONNECTED::iConnected")
    {
        bringTo("REMOTE_RINGING");
        answer();
    }
    else if (in_strState == "CONNECTED::iTransfering")
    {
        bringTo("CONNECTED::iConnected");
        ASSERT_TRUE(waitFor("CONNECTED::iConnected"));
        m_pCallee->request("REFER", "", "", "Refer-To: <sip:other@127.0.0.1>\r\n");
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
        ASSERT_TRUE(waitFor("CONNECTED::iConnected"));
        ASSERT_TRUE(feed(EventType::eAPI_HANGUP));
    }
    else if (in_strState == "IDLE")
    {
        bringTo("INVITING");
        m_pCallee->answer("486 Busy Here");
    }
    ASSERT_TRUE(waitFor(in_strState));
}

bool OutCallStage::followStop(bool in_bKilled)
{
    if (!m_bPlaced && !in_bKilled)
    {
        invite();
    }
    return CallStage::followStop(
        m_pCallee->peer(),
        in_bKilled,
        [this](const std::string& in_strMessage)
        {
            const std::string strMethod = in_strMessage.substr(0, in_strMessage.find(' '));
            if (strMethod == "ACK" || strMethod == "INVITE" || strMethod == "SIP/2.0")
            {
                return;
            }
            m_pCallee->respond(in_strMessage, "200 OK");
            if (strMethod == "CANCEL")
            {
                m_pCallee->answer("487 Request Terminated");
            }
        });
}

}  // namespace Quorvex::Test
