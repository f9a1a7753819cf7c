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
#include "calleng/CallInfo.h"

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

constexpr const char* kSession = "Supported: timer\r\nSession-Expires: 2;refresher=";

// `in_strRefresher`: who is to refresh the session; empty for a call without one.
void connect(InCallStage& io_stage, const std::string& in_strRefresher)
{
    io_stage.invite({InCallStage::kOffer,
                     in_strRefresher.empty() ? "" : kSession + in_strRefresher + "\r\n",
                     true,
                     true});
    io_stage.say([](CallLeg& io_leg) { EXPECT_TRUE(io_leg.remoteConnected(Call::eCONNECTION_NONE)); });
    ASSERT_TRUE(io_stage.gets("200"));
    io_stage.send("ACK");
    ASSERT_TRUE(io_stage.waitFor("CONNECTED::iConnected"));
}

void connect(OutCallStage& io_stage, const std::string& in_strRefresher)
{
    io_stage.bringTo("REMOTE_RINGING");
    io_stage.callee().answer("200 OK",
                             kAnswer,
                             "application/sdp",
                             in_strRefresher.empty() ? "" : kSession + in_strRefresher + "\r\n");
    ASSERT_FALSE(io_stage.callee().await("ACK").empty());
    ASSERT_TRUE(io_stage.waitFor("CONNECTED::iConnected"));
}

/// What may befall a connected call besides; the event that it must come as.
template <class Stage>
struct Incident
{
    const char* m_szName;
    const char* m_szRefresher;  ///< null: the call still sets up its media
    std::function<void(Stage&, EventCapture&)> m_happen;
    const char* m_szEvent;
};

template <class Stage, std::size_t Size>
void expectEvents(const Incident<Stage> (&in_incidents)[Size])
{
    for (const Incident<Stage>& incident : in_incidents)
    {
        SCOPED_TRACE(incident.m_szName);
        Stage stage;
        EventCapture capture;
        if (incident.m_szRefresher == nullptr)
        {
            stage.bringTo("CONNECTED::iMediaSetup");
        }
        else
        {
            connect(stage, incident.m_szRefresher);
        }
        if (incident.m_happen)
        {
            incident.m_happen(stage, capture);
        }
        EXPECT_TRUE(capture.waitFor(incident.m_szEvent));
        static_cast<void>(takeEvents(capture, stage.running()));
    }
}

void hangUp(CallLeg& io_leg)
{
    EXPECT_TRUE(io_leg.hangup());
}

TEST(CallEvents, WhatBefallsAConnectedCall)
{
    // clang-format off
    const Incident<InCallStage> kInbound[] = {
        {"re-INVITE cancelled", nullptr,
         [](InCallStage& io_stage, EventCapture& io_capture)
         {
             io_stage.send("INVITE");
             ASSERT_TRUE(io_capture.waitFor("eREINVITE_REQUEST"));
             io_stage.send("CANCEL");
         },
         "eREINVITE_CANCEL"},
        {"re-INVITE never acknowledged", "",
         [](InCallStage& io_stage, EventCapture&)
         {
             io_stage.send("INVITE", InCallStage::kOffer);
             ASSERT_TRUE(io_stage.gets("200"));
         },
         "eREINVITE_TIMED_OUT"},
        {"our BYE answered", "",
         [](InCallStage& io_stage, EventCapture&)
         {
             io_stage.say(hangUp);
             io_stage.answer(io_stage.receive("BYE"), "200 OK");
         },
         "e200_OK code=200"},
        {"session to be refreshed", "uas", nullptr, "eSESSION_REFRESH_TIME"},
        {"session not refreshed",   "uac", nullptr, "eSESSION_TIMED_OUT"},
    };
    const Incident<OutCallStage> kOutbound[] = {
        {"re-INVITE cancelled", nullptr,
         [](OutCallStage& io_stage, EventCapture& io_capture)
         {
             io_stage.callee().request("INVITE");
             ASSERT_TRUE(io_capture.waitFor("eREINVITE_REQUEST"));
             io_stage.callee().request("CANCEL");
         },
         "eREINVITE_CANCEL"},
        {"re-INVITE never acknowledged", "",
         [](OutCallStage& io_stage, EventCapture&)
         {
             io_stage.callee().request("INVITE", kAnswer, "application/sdp");
             ASSERT_FALSE(io_stage.callee().await("200").empty());
         },
         "eREINVITE_TIMED_OUT"},
        {"our BYE answered", "",
         [](OutCallStage& io_stage, EventCapture& io_capture)
         {
             io_stage.say(hangUp);
             io_stage.callee().respond(io_stage.callee().await("BYE"), "200 OK");
             // The 200 of the INVITE was the first.
             EXPECT_TRUE(io_capture.waitFor("e200_OK code=200", 2));
         },
         "e200_OK code=200"},
        {"session to be refreshed", "uac", nullptr, "eSESSION_REFRESH_TIME"},
        {"session not refreshed",   "uas", nullptr, "eSESSION_TIMED_OUT"},
    };
    // clang-format on
    expectEvents(kInbound);
    expectEvents(kOutbound);
}

TEST(CallEvents, BothLegsOfACallShareItsRecordAndItsEndpointIdentifier)
{
    InCallStage stage;
    RunningNetIf& running = stage.running();
    Callee callee(running.getPort());
    stage.invite();
    const std::string strCallId = running.engine().getCallIds().back();
    CallLegInfo leg;
    leg.setParameter("sip.out.requestUri", callee.getUri());
    leg.setParameter("media.rtp.audio", "sendrecv");
    CallInfo info;
    info.addLeg(leg);
    running.engine().placeCall(running.netIf(),
                               strCallId,
                               [&](ScriptedCall& io_call)
                               { EXPECT_TRUE(io_call.getOutLeg()->invite(info)); });
    ASSERT_FALSE(callee.awaitInvite().empty());
    callee.answer("200 OK", kAnswer);
    ASSERT_FALSE(callee.await("ACK").empty());
    stage.say([](CallLeg& io_leg) { EXPECT_TRUE(io_leg.remoteConnected(Call::eCONNECTION_NONE)); });
    ASSERT_TRUE(stage.gets("200"));
    stage.send("ACK");
    ASSERT_TRUE(stage.waitFor("CONNECTED::iConnected"));

    Texts vCreated;
    for (const ScriptedMediaEngine::Request& request : running.media().getRequests())
    {
        if (request.m_strOperation.compare(0, 6, "create") == 0)
        {
            EXPECT_EQ(request.m_strCallId, strCallId);
            vCreated.push_back(request.m_strOperation + " " + request.m_strEptId);
        }
    }
    EXPECT_EQ(vCreated, (Texts{"createIdentified ept-1", "create "}));

    // The record goes with the machine that goes last.
    const auto expectPopulation = [&](std::size_t in_uiIn, std::size_t in_uiOut, std::size_t in_uiCalls)
    {
        waitUntil([&] { return running.probe().getPopulation().m_activeIn == in_uiIn; });
        const auto population = running.probe().getPopulation();
        EXPECT_EQ(population.m_activeIn, in_uiIn);
        EXPECT_EQ(population.m_activeOut, in_uiOut);
        EXPECT_EQ(population.m_calls, in_uiCalls);
    };
    expectPopulation(1, 1, 1);
    stage.send("BYE");
    ASSERT_TRUE(stage.gets("200"));
    expectPopulation(0, 1, 1);
    callee.request("BYE");
    EXPECT_TRUE(running.probe().waitUntilEmpty());
}

}  // namespace
}  // namespace Quorvex::Test
