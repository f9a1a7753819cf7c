// Outbound calls over the loopback: a bare SIP peer is called, scripted engines on the other side.

#include <gmock/gmock.h>

#include "OutboundFixture.h"

using namespace Quorvex;
using namespace Quorvex::Test;
using testing::HasSubstr;
using testing::StartsWith;

namespace
{

TEST_F(OutboundTest, TheInviteSaysWhatTheLegSays)
{
    Callee callee(m_running.getPort());
    place("says",
          makeLeg(callee.getUri(),
                  {
                      {"sip.out.from.uri",         "sip:alice@example.test"},
                      {"sip.out.from.displayName", "Alice A"               },
                      {"sip.out.to.uri",           "sip:bob@example.test"  },
                      {"sip.out.to.displayName",   "Bob"                   },
                      {"sip.out.header.X-Account", "42"                    },
                      {"sip.out.header.X.Dotted",  "a\r\nEvil: b"          }
    }));
    const std::string strInvite = callee.awaitInvite();
    EXPECT_THAT(strInvite, StartsWith("INVITE " + callee.getUri() + ";transport=udp SIP/2.0\r\n"));
    const std::pair<const char*, std::string> kHeaders[] = {
        {"From",         "\"Alice A\" <sip:alice@example.test>;tag=qrvx-callid-saysds"        },
        {"To",           "\"Bob\" <sip:bob@example.test>"                                     },
        {"Contact",      "<sip:gateway@127.0.0.1:" + std::to_string(m_running.getPort()) + ">"},
        {"Expires",      "4"                                                                  },
        {"Allow",        "INVITE, ACK, BYE, CANCEL, NOTIFY, INFO, OPTIONS, REFER"             },
        {"Content-Type", "application/sdp"                                                    },
        {"X-Account",    "42"                                                                 },
    };
    for (const auto& [szName, strValue] : kHeaders)
    {
        EXPECT_EQ(SipTestPeer::header(strInvite, szName), strValue) << szName;
    }
    EXPECT_THAT(SipTestPeer::header(strInvite, "Supported"), HasSubstr("replaces"));
    EXPECT_THAT(SipTestPeer::header(strInvite, "Date"), HasSubstr(" GMT"));
    EXPECT_FALSE(SipTestPeer::header(strInvite, "User-Agent").empty());
    EXPECT_TRUE(SipTestPeer::header(strInvite, "Evil").empty());
    EXPECT_THAT(strInvite, HasSubstr("\r\nX.Dotted: a"));
    EXPECT_THAT(strInvite, HasSubstr("m=audio "));
    callee.answer("486 Busy Here");
    EXPECT_FALSE(callee.await("ACK").empty());
    EXPECT_EQ(awaitEnd("says"), (Told{"connectFailed 1", "gone"}));
}

TEST_F(OutboundTest, RefusalsAreReportedByTheirKind)
{
    struct Case
    {
        const char* m_szStatus;
        bool m_bRinging;
        const char* m_szTold;
    };
    const Case kCases[] = {
        {"486 Busy Here",                 false, "connectFailed 1" },
        {"480 Temporarily Unavailable",   false, "connectFailed 1" },
        {"603 Decline",                   true,  "callFailed 1"    },
        {"404 Not Found",                 false, "connectFailed 5" },
        {"404 Not Found",                 true,  "callFailed 5"    },
        {"408 Request Timeout",           false, "connectFailed 4" },
        {"408 Request Timeout",           true,  "callFailed 4"    },
        {"487 Request Terminated",        false, "connectFailed 21"},
        {"487 Request Terminated",        true,  "callFailed 21"   },
        {"599 Never Heard Of",            false, "connectFailed 5" },
        {"302 Moved, But Not Said Where", false, "connectFailed 4" },
    };
    unsigned uiCall = 0;
    for (const Case& c : kCases)
    {
        SCOPED_TRACE(testing::Message() << c.m_szStatus << ' ' << c.m_bRinging);
        const std::string strCallId = "refused-" + std::to_string(++uiCall);
        Callee callee(m_running.getPort());
        place(strCallId, makeLeg(callee.getUri()));
        ASSERT_FALSE(callee.awaitInvite().empty());
        if (c.m_bRinging)
        {
            callee.answer("180 Ringing");
        }
        callee.answer(c.m_szStatus);
        EXPECT_FALSE(callee.await("ACK").empty());
        EXPECT_EQ(awaitEnd(strCallId),
                  c.m_bRinging ? (Told{"ringing 1", c.m_szTold, "gone"}) : (Told{c.m_szTold, "gone"}));
    }
}

TEST_F(OutboundTest, WhatCannotBePlacedFailsAtOnceOrInTime)
{
    // Nobody reads what comes to this port.
    const SipTestPeer silent;
    const std::string strSilent = "sip:nobody@127.0.0.1:" + std::to_string(silent.getPort());
    CallLegInfo noMedia;
    noMedia.setParameter("sip.out.requestUri", strSilent);
    CallLegInfo noDestination;
    noDestination.setParameter("media.rtp.audio", "sendrecv");
    // clang-format off
    const std::pair<CallLegInfo, const char*> kCases[] = {
        {makeLeg(strSilent), "connectFailed 4"},
        {noMedia, "connectFailed 2"},
        {noDestination, "connectFailed 21"},
        {makeLeg("callee@127.0.0.1"), "connectFailed 21"},
        {makeLeg("tel:+15145550100"), "connectFailed 21"},
        {makeLeg("sip:callee@no-such-host.invalid"), "connectFailed 21"},
        {makeLeg(strSilent, {{"sip.out.transport", "tcp"}}), "connectFailed 21"},  // no such port
        {makeLeg(strSilent, {{"sip.out.to.uri", "not a uri"}}), "connectFailed 21"},
        {makeLeg(strSilent, {{"sip.out.from.uri", "<sip:"}}), "connectFailed 21"},
        {makeLeg(strSilent, {{"sip.out.redirect.Contact", "x"}, {"sip.out.transport", "sctp"}}), "connectFailed 4"},
    };
    // clang-format on
    unsigned uiCall = 0;
    for (const auto& [leg, szTold] : kCases)
    {
        SCOPED_TRACE(leg);
        const std::string strCallId = "unplaced-" + std::to_string(++uiCall);
        place(strCallId, leg);
        EXPECT_EQ(awaitEnd(strCallId), (Told{szTold, "gone"}));
    }
    // A leg without media is a fault of the routes, and reported as such.
    ++m_uiAssertions;
}

TEST_F(OutboundTest, ProvisionalResponses)
{
    struct Case
    {
        const char* m_szStatus;
        const char* m_szBody;
        const char* m_szType;
        bool m_bIgnore180;
        bool m_bAccept183;
        Told m_vTold;
    };
    const char* const kSdp = "application/sdp";
    const Case kCases[] = {
        {"180 Ringing",          "",      kSdp,         false, false, {"ringing 1"} },
        {"180 Ringing",          kAnswer, kSdp,         false, false, {"ringing 2"} },
        {"180 Ringing",          kAnswer, kSdp,         true,  false, {}            },
        {"183 Session Progress", "",      kSdp,         false, false, {}            },
        {"183 Session Progress", "",      kSdp,         false, true,  {"ringing 1"} },
        {"183 Session Progress", kAnswer, kSdp,         false, false, {"earlyMedia"}},
        {"183 Session Progress", kAnswer, kSdp,         false, true,  {"ringing 2"} },
        {"183 Session Progress", "ring",  "text/plain", false, false, {}            },
    };
    unsigned uiCall = 0;
    std::size_t uiStarted = 0;
    for (const Case& c : kCases)
    {
        SCOPED_TRACE(testing::Message()
                     << c.m_szStatus << ' ' << c.m_szType << ' ' << c.m_bIgnore180 << ' ' << c.m_bAccept183);
        const std::string strCallId = "provisional-" + std::to_string(++uiCall);
        Callee callee(m_running.getPort());
        place(strCallId,
              makeLeg(callee.getUri(),
                      {
                          {"sip.out.ignore180", c.m_bIgnore180 ? "TRUE" : "no"},
                          {"sip.out.accept183", c.m_bAccept183 ? "True" : ""  }
        }));
        ASSERT_FALSE(callee.awaitInvite().empty());
        callee.answer(c.m_szStatus, c.m_szBody, c.m_szType);
        if (std::string(c.m_szBody) == kAnswer && !c.m_bIgnore180)
        {
            uiStarted += 2;
            EXPECT_TRUE(m_running.media().waitForRequests("start", uiStarted)) << "early media";
        }
        callee.answer("200 OK", kAnswer);
        ASSERT_FALSE(callee.await("ACK").empty());
        callee.request("BYE");
        Told vExpected = c.m_vTold;
        vExpected.insert(vExpected.end(), {"connected 0", "disconnected", "gone"});
        EXPECT_EQ(awaitEnd(strCallId), vExpected);
        uiStarted = m_running.media().count("start");
    }
}

TEST_F(OutboundTest, InfoInBothDirections)
{
    Callee callee(m_running.getPort());
    place("info", makeLeg(callee.getUri()));
    ASSERT_FALSE(callee.awaitInvite().empty());
    callee.answer("200 OK", kAnswer);
    ASSERT_FALSE(callee.await("ACK").empty());
    ASSERT_TRUE(m_running.media().waitForRequests("start", 2));
    engine().run(
        [this]
        {
            EXPECT_TRUE(m_pCall->getLeg()->sendInfoMsg(
                {Parameter("body", "hello"), Parameter("X-Kind", "greeting")}));
        });
    const std::string strInfo = callee.await("INFO");
    EXPECT_EQ(SipTestPeer::header(strInfo, "X-Kind"), "greeting");
    EXPECT_THAT(strInfo, HasSubstr("\r\n\r\nhello"));
    callee.respond(strInfo, "200 OK");
    callee.request("INFO", "5");
    EXPECT_FALSE(callee.await("200").empty());
    EXPECT_TRUE(engine().waitForTold("info"));
    callee.request("BYE");
    EXPECT_EQ(awaitEnd("info"), (Told{"connected 0", "info", "disconnected", "gone"}));
}

TEST_F(OutboundTest, TheAnswersCpdResultIsTheConnectionType)
{
    const std::pair<const char*, const char*> kCases[] = {
        {"Voice",    "connected 1"},
        {"machine",  "connected 2"},
        {"Nonsense", "connected 0"},
    };
    for (const auto& [szResult, szTold] : kCases)
    {
        SCOPED_TRACE(szResult);
        Callee callee(m_running.getPort());
        place(szResult, makeLeg(callee.getUri()));
        ASSERT_FALSE(callee.awaitInvite().empty());
        callee.answer("200 OK", kAnswer, "application/sdp", "CPD-Result: " + std::string(szResult) + "\r\n");
        ASSERT_FALSE(callee.await("ACK").empty());
        callee.request("BYE");
        EXPECT_EQ(awaitEnd(szResult), (Told{szTold, "disconnected", "gone"}));
    }
}

TEST_F(OutboundTest, MediaThatFail)
{
    using Request = ScriptedMediaEngine::Request;
    struct Case
    {
        const char* m_szOperation;
        bool m_bEarly;
        const char* m_szRequest;  ///< what the callee sees; null when no INVITE was sent
        const char* m_szTold;
    };
    const Case kCases[] = {
        {"create",    false, nullptr,  "connectFailed 8" },
        {"configure", true,  "CANCEL", "connectFailed 21"},
        {"start",     false, "BYE",    "callFailed 21"   },
    };
    for (const Case& c : kCases)
    {
        SCOPED_TRACE(c.m_szOperation);
        m_running.media().setAnswer(
            [&c](const Request& in_request, MediaEndpointCallback& io_callback)
            {
                if (in_request.m_strOperation.find(c.m_szOperation) != 0)
                {
                    ScriptedMediaEngine::answerWithSuccess(in_request, io_callback);
                }
                else if (in_request.m_strOperation == "configure")
                {
                    io_callback.configureStatus(in_request.m_direction,
                                                MediaEndpointCallback::INVALID_CONFIG_STATUS);
                }
                else if (in_request.m_strOperation == "start")
                {
                    io_callback.startStatus(in_request.m_direction, MediaEndpointCallback::RESOURCE_STATUS);
                }
                else
                {
                    io_callback.getCapacityFailure(MediaEndpoint::RX_DIRECTION);
                }
            });
        const std::string strCallId = std::string("fails-") + c.m_szOperation;
        Callee callee(m_running.getPort());
        place(strCallId,
              makeLeg(callee.getUri(),
                      {
                          {"sip.out.cpa.enabled", "TRUE"}
        }));
        Told vExpected{c.m_szTold, "gone"};
        if (c.m_szRequest != nullptr)
        {
            ASSERT_FALSE(callee.awaitInvite().empty());
            callee.answer(c.m_bEarly ? "183 Session Progress" : "200 OK", kAnswer);
            const std::string strEnd = callee.await(c.m_szRequest);
            ASSERT_FALSE(strEnd.empty());
            callee.respond(strEnd, "200 OK");
            if (c.m_bEarly)
            {
                callee.answer("487 Request Terminated");
                vExpected.insert(vExpected.begin(), "earlyMedia");
            }
        }
        EXPECT_EQ(awaitEnd(strCallId), vExpected);
    }
}

}  // namespace
