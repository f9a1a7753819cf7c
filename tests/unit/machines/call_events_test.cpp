// Whole calls over the wire: what the far end does, and what the engines say, comes to the call's machine as
// its events, in order, and on the task thread alone.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "EventCapture.h"
#include "InCallStage.h"
#include "OutCallStage.h"

namespace Quorvex::Test
{
namespace
{

using Texts = std::vector<std::string>;

/// The events of one source, in order. Those of different sources come from threads of their own: among them
/// there is no order.
struct Events
{
    Texts m_vSip;
    Texts m_vEngine;
    Texts m_vMedia;
};

Events takeEvents(EventCapture& io_capture, RunningNetIf& io_running)
{
    std::thread::id task;
    io_running.probe().run([&] { task = std::this_thread::get_id(); });
    Events events;
    for (const EventCapture::Event& event : io_capture.takeEvents())
    {
        EXPECT_EQ(event.m_thread, task) << event.m_strText;
        const std::string strText = event.m_strText.empty() ? "ePRACK" : event.m_strText;
        const std::string strName = strText.substr(0, strText.find_first_of(" ,"));
        (strName.compare(0, 5, "eAPI_") == 0     ? events.m_vEngine
         : strName.compare(0, 7, "eMEDIA_") == 0 ? events.m_vMedia
                                                 : events.m_vSip)
            .push_back(strName);
    }
    return events;
}

// A connected call hands all but an INFO on to the machine of that phase, which says so too.
Texts connected(const Texts& in_vBefore, const Texts& in_vConnected)
{
    Texts vTexts = in_vBefore;
    for (const std::string& strText : in_vConnected)
    {
        vTexts.insert(vTexts.end(), strText == "eINFO" ? 1 : 2, strText);
    }
    return vTexts;
}

// What a call's end is followed by depends on when its machine is let go.
Texts firstTwo(const Texts& in_vTexts)
{
    return Texts(in_vTexts.begin(), in_vTexts.begin() + std::min<std::ptrdiff_t>(2, std::ssize(in_vTexts)));
}

TEST(CallEvents, InboundCallsTellAllThatTheCallerDoes)
{
    InCallStage stage;
    EventCapture capture;
    stage.invite({"", "Supported: 100rel\r\n", true, true});
    stage.say([](CallLeg& io_leg) { EXPECT_TRUE(io_leg.mediaAvailable()); });
    ASSERT_TRUE(stage.gets("183"));
    stage.send("PRACK",
               InCallStage::kOffer,
               "RAck: " + SipTestPeer::header(stage.lastResponse(), "RSeq") + " 1 INVITE\r\n");
    ASSERT_TRUE(stage.gets("200", "CSeq", "2 PRACK"));
    ASSERT_TRUE(stage.waitFor("EARLY_DIALOG"));
    stage.say([](CallLeg& io_leg) { EXPECT_TRUE(io_leg.remoteConnected(Call::eCONNECTION_NONE)); });
    ASSERT_TRUE(stage.gets("200", "CSeq", "1 INVITE"));
    stage.send("ACK");
    ASSERT_TRUE(stage.waitFor("CONNECTED::iConnected"));
    stage.send("INVITE", InCallStage::kOffer);
    ASSERT_TRUE(stage.gets("200"));
    stage.send("ACK");
    ASSERT_TRUE(capture.waitFor("eREINVITE_ACK"));
    ASSERT_TRUE(stage.waitFor("CONNECTED::iConnected"));
    stage.send("INVITE");
    ASSERT_TRUE(stage.gets("200"));
    stage.send("ACK", InCallStage::kOffer);
    ASSERT_TRUE(capture.waitFor("eREINVITE_ACK_WITH_SDP"));
    ASSERT_TRUE(stage.waitFor("CONNECTED::iConnected"));
    stage.send("INFO", "", "");
    ASSERT_TRUE(stage.gets("200"));
    stage.send("REFER", "", "Refer-To: <sip:other@127.0.0.1>\r\n");
    ASSERT_TRUE(stage.waitForTold("transfer"));
    stage.say([](CallLeg& io_leg)
              { EXPECT_TRUE(io_leg.transferFailure(ConnectionFailureType(eBUSY_FAILURE))); });
    stage.answer(stage.receive("NOTIFY"), "200 OK");
    ASSERT_TRUE(stage.waitFor("CONNECTED::iConnected"));
    stage.send("BYE");
    ASSERT_TRUE(stage.gets("200"));
    ASSERT_TRUE(stage.waitForTold("gone"));

    const Events events = takeEvents(capture, stage.running());
    EXPECT_EQ(events.m_vSip,
              connected({"eINVITE", "ePRACK", "eACK"},
                        {"eREINVITE_REQUEST",
                         "eREINVITE_ACK",
                         "eREINVITE_REQUEST",
                         "eREINVITE_ACK_WITH_SDP",
                         "eINFO",
                         "eREFER",
                         "eBYE"}));
    EXPECT_EQ(events.m_vEngine,
              connected({"eAPI_MEDIA_START_CMD", "eAPI_REMOTE_CONNECTED"}, {"eAPI_TRANSFER_FAILURE"}));
    ASSERT_FALSE(events.m_vMedia.empty());
    EXPECT_EQ(events.m_vMedia.front(), "eMEDIA_SET_CAPACITY");
}

TEST(CallEvents, OutboundCallsTellAllThatTheCalledPartyDoes)
{
    OutCallStage stage;
    EventCapture capture;
    stage.bringTo("REMOTE_RINGING");
    Callee& callee = stage.callee();
    callee.answer("183 Session Progress");
    callee.answer("200 OK", kAnswer);
    ASSERT_FALSE(callee.await("ACK").empty());
    ASSERT_TRUE(stage.waitFor("CONNECTED::iConnected"));
    callee.request("INVITE", kAnswer, "application/sdp");
    ASSERT_FALSE(callee.await("200").empty());
    callee.request("ACK");
    ASSERT_TRUE(capture.waitFor("eREINVITE_ACK"));
    ASSERT_TRUE(stage.waitFor("CONNECTED::iConnected"));
    callee.request("INVITE");
    ASSERT_FALSE(callee.await("200").empty());
    callee.request("ACK", kAnswer, "application/sdp");
    ASSERT_TRUE(capture.waitFor("eREINVITE_ACK_WITH_SDP"));
    ASSERT_TRUE(stage.waitFor("CONNECTED::iConnected"));
    callee.request("INFO", "5");
    ASSERT_FALSE(callee.await("200").empty());
    callee.request("REFER", "", "", "Refer-To: <sip:other@127.0.0.1>\r\n");
    ASSERT_TRUE(stage.waitForTold("transfer"));
    stage.say([](CallLeg& io_leg)
              { EXPECT_TRUE(io_leg.transferFailure(ConnectionFailureType(eBUSY_FAILURE))); });
    const std::string strNotify = callee.await("NOTIFY");
    ASSERT_FALSE(strNotify.empty());
    callee.respond(strNotify, "200 OK");
    ASSERT_TRUE(stage.waitFor("CONNECTED::iConnected"));
    callee.request("BYE");
    ASSERT_TRUE(stage.waitForTold("gone"));

    const Events events = takeEvents(capture, stage.running());
    EXPECT_EQ(events.m_vSip,
              connected({"e100_TRYING", "e180_RINGING", "e183_SESSION_PROGRESS", "e200_OK"},
                        {"eREINVITE_REQUEST",
                         "eREINVITE_ACK",
                         "eREINVITE_REQUEST",
                         "eREINVITE_ACK_WITH_SDP",
                         "eINFO",
                         "eREFER",
                         "eBYE"}));
    EXPECT_EQ(events.m_vEngine, connected({"eAPI_INVITE"}, {"eAPI_TRANSFER_FAILURE"}));
    ASSERT_FALSE(events.m_vMedia.empty());
    EXPECT_EQ(events.m_vMedia.front(), "eMEDIA_SET_CAPACITY");
}

TEST(CallEvents, EndsThatTheFarEndMakesOrOwes)
{
    struct Case
    {
        const char* m_szName;
        std::function<void(InCallStage&)> m_end;
        Texts m_vSip;
    };
    const Case kInbound[] = {
        {"cancelled",          [](InCallStage& io_stage) { io_stage.send("CANCEL"); }, {"eINVITE", "eCANCEL"}                 },
        {"never acknowledged",
         [](InCallStage& io_stage) {
             io_stage.say([](CallLeg& io_leg)
                          { EXPECT_TRUE(io_leg.remoteConnected(Call::eCONNECTION_NONE)); });
         },                                                                            {"eINVITE", "eTERMINATED_UPON_TIMEOUT"}},
    };
    for (const Case& testCase : kInbound)
    {
        SCOPED_TRACE(testCase.m_szName);
        InCallStage stage;
        EventCapture capture;
        stage.invite();
        testCase.m_end(stage);
        ASSERT_TRUE(stage.waitForTold("gone"));
        EXPECT_EQ(firstTwo(takeEvents(capture, stage.running()).m_vSip), testCase.m_vSip);
    }
    const std::pair<const char*, const char*> kOutbound[] = {
        {"486 Busy Here",         "eREMOTE_BUSY"    },
        {"404 Not Found",         "eINVALID_NUMBER" },
        {"408 Request Timeout",   "eNO_ANSWER"      },
        {"302 Moved Temporarily", "e3XX_REDIRECTION"},
    };
    for (const auto& [szStatus, szEvent] : kOutbound)
    {
        SCOPED_TRACE(szStatus);
        OutCallStage stage;
        EventCapture capture;
        stage.bringTo("INVITING");
        stage.callee().answer(szStatus, "", "", "Contact: <sip:elsewhere@127.0.0.1>\r\n");
        ASSERT_TRUE(stage.waitForTold("gone"));
        EXPECT_EQ(firstTwo(takeEvents(capture, stage.running()).m_vSip), (Texts{"e100_TRYING", szEvent}));
    }
}

}  // namespace
}  // namespace Quorvex::Test
