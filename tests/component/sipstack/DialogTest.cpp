// What happens inside a standing dialog: re-INVITEs in both directions, other requests, reliable provisional
// responses, INVITE with Replaces.

#include <gtest/gtest.h>

#include "CallFixture.h"
#include "sipstack/DsException.h"

namespace Quorvex
{
namespace
{

using namespace std::chrono_literals;

using DialogTest = CallFixture;

DsHandle<DsSipInviteMessage> reinvite(const Report& in_report)
{
    const auto invite =
        in_report.m_hIn->getDialog()->createRequest("INVITE").dynamicCast<DsSipInviteMessage>();
    invite->setBody(kSdp, "application/sdp");
    return invite;
}

TEST_F(DialogTest, ReinviteMovesTheTarget)
{
    {
        const Report call = establish();
        RawPeer moved(m_agent.port());
        std::string text = m_peer.request("INVITE", kSdp);
        const std::string contact = "sip:peer@127.0.0.1:" + std::to_string(m_peer.port());
        text.replace(text.find("Contact: <" + contact) + 10,
                     contact.size(),
                     "sip:moved@127.0.0.1:" + std::to_string(moved.port()));
        m_peer.send(text);
        const Report request = reports().expect("reinviteRequest");
        request.m_hIn->respondToReinvite(TestAgent::response(200, request.request()));
        m_peer.expect("SIP/2.0 200");
        m_peer.sendRequest("ACK");
        reports().expect("reinviteAck");
        request.m_hIn->hangup();
        moved.respond(moved.expect("BYE sip:moved@"), "200 OK");
        reports().expect("terminated");
    }
    expectEnd();
}

TEST_F(DialogTest, OurReinviteIsAnsweredAndRetriedAfterGlare)
{
    {
        const Report call = establish();
        call.m_hIn->getDialog()->reinvite(reinvite(call));
        const std::string first = m_peer.expect("INVITE");
        m_peer.respond(first, "491 Request Pending");
        // The far end owns the Call-ID: we wait for 10 ms to 2 s, and for as long as its own INVITE takes.
        m_peer.sendRequest("INVITE", kSdp);
        m_peer.expect("ACK");
        const Report theirs = reports().expect("reinviteRequest");
        m_peer.expectNone("INVITE", 2100ms);
        EXPECT_TRUE(reports().empty());
        theirs.m_hIn->respondToReinvite(TestAgent::response(200, theirs.request(), kSdp));
        m_peer.expect("SIP/2.0 200");
        m_peer.sendRequest("ACK");
        reports().expect("reinviteAck");
        const std::string second = m_peer.expect("INVITE", 3s);
        EXPECT_EQ(RawPeer::body(second), kSdp);
        m_peer.respond(second,
                       "200 OK",
                       "Contact: <sip:peer@127.0.0.1:" + std::to_string(m_peer.port()) + ">\r\n",
                       kSdp);
        const Report answer = reports().expect("reinviteResponse");
        EXPECT_EQ(answer.response()->getStatusCode(), 200U);
        answer.m_hIn->ackReinvite(makeDs<DsSipAckMessage>(answer.response()));
        const std::string ack = m_peer.expect("ACK");
        EXPECT_EQ(std::atoi(RawPeer::header(ack, "CSeq").c_str()),
                  std::atoi(RawPeer::header(second, "CSeq").c_str()));
        bye();
    }
    expectEnd();
}

struct InDialog
{
    const char* m_szName;
    const char* m_szMethod;
    const char* m_szExtra;
    const char* m_szReport;
    const char* m_szDropped;
};

class InDialogTest : public DialogTest, public testing::WithParamInterface<InDialog>
{
};

TEST_P(InDialogTest, IsReportedWithATransactionThatAnswersItself)
{
    {
        establish();
        const std::string name = GetParam().m_szReport;
        if (!name.empty())
        {
            m_peer.m_strExtra = GetParam().m_szExtra;
            m_peer.sendRequest(GetParam().m_szMethod);
            const Report request = reports().expect(name);
            request.m_hTransaction->sendResponse(TestAgent::response(202, request.request()));
            m_peer.expect("SIP/2.0 202 Accepted");
            EXPECT_THROW(request.m_hTransaction->sendResponse(TestAgent::response(200, request.request())),
                         DsException);
            m_peer.m_strExtra = GetParam().m_szExtra;
            m_peer.sendRequest(GetParam().m_szMethod);
            reports().expect(name);  // dropped here
        }
        else
        {
            m_peer.m_strExtra = GetParam().m_szExtra;
            m_peer.sendRequest(GetParam().m_szMethod);
        }
        m_peer.expect(GetParam().m_szDropped);
        bye();
    }
    expectEnd();
}

INSTANTIATE_TEST_SUITE_P(
    Requests,
    InDialogTest,
    testing::Values(
        InDialog{"Info", "INFO", "", "unknownRequest", "SIP/2.0 500"},
        InDialog{"Options", "OPTIONS", "", "unknownRequest", "SIP/2.0 500"},
        InDialog{"Message", "MESSAGE", "", "unknownRequest", "SIP/2.0 500"},
        InDialog{"Update", "UPDATE", "", "unknownRequest", "SIP/2.0 500"},
        InDialog{"Refer", "REFER", "Refer-To: <sip:x@127.0.0.1>\r\n", "referRequest", "SIP/2.0 500"},
        InDialog{"NotifyOfDialog",
                 "NOTIFY",
                 "Event: dialog\r\nSubscription-State: active\r\n",
                 "unknownRequest",
                 "SIP/2.0 481"},
        InDialog{
            "NotifyOfRefer", "NOTIFY", "Event: refer\r\nSubscription-State: active\r\n", "", "SIP/2.0 481"},
        InDialog{"Requires", "INFO", "Require: teleport\r\n", "", "SIP/2.0 420"}),
    [](const auto& in_info) { return in_info.param.m_szName; });

TEST_F(DialogTest, PendingReinviteIsAnsweredWhenWeHangUp)
{
    {
        establish();
        m_peer.sendRequest("INVITE", kSdp);
        const Report request = reports().expect("reinviteRequest");
        request.m_hIn->hangup();
        m_peer.expect("SIP/2.0 488");
        m_peer.sendRequest("ACK");
        m_peer.respond(m_peer.expect("BYE"), "200 OK");
        reports().expect("terminated");
    }
    expectEnd();
}

// ---- reliable provisional responses
// -------------------------------------------------------------------------------

TEST_F(DialogTest, ReliableResponsesGoOneByOneAndTheAnswerWaitsForThem)
{
    {
        m_peer.m_strExtra = "Supported: 100rel\r\n";
        m_peer.sendRequest("INVITE", kSdp);
        const Report called = reports().expect("called");
        called.m_hIn->sendReliableProvisionalResponse(TestAgent::response(183, called.request(), kSdp));
        called.m_hIn->sendReliableProvisionalResponse(TestAgent::response(180, called.request()));
        called.m_hIn->answer(TestAgent::response(200, called.request()));
        std::string progress = m_peer.expect("SIP/2.0 183");
        m_peer.learn(progress);
        EXPECT_EQ(RawPeer::header(progress, "Require"), "100rel");
        const std::string rseq = RawPeer::header(progress, "RSeq");
        // Not acknowledged, it comes again; one that acknowledges something else is refused.
        progress = m_peer.expect("SIP/2.0 183");
        EXPECT_EQ(RawPeer::header(progress, "RSeq"), rseq);
        m_peer.m_strExtra = "RAck: 1 1 INVITE\r\n";
        m_peer.sendRequest("PRACK");
        m_peer.expect("SIP/2.0 481");
        m_peer.m_strExtra = "RAck: " + rseq + " 1 INVITE\r\n";
        m_peer.sendRequest("PRACK", kSdp);
        m_peer.expect("SIP/2.0 200");
        EXPECT_EQ(reports().expect("prack").m_hMessage->getBody(), kSdp);
        const std::string ringing = m_peer.expect("SIP/2.0 180");
        m_peer.m_strExtra = "RAck: " + RawPeer::header(ringing, "RSeq") + " 1 INVITE\r\n";
        m_peer.sendRequest("PRACK");
        m_peer.expect("SIP/2.0 200");
        reports().expect("prack");
        const std::string ok = m_peer.expect("SIP/2.0 200");
        EXPECT_NE(RawPeer::header(ok, "CSeq").find("INVITE"), std::string::npos);
        m_peer.sendRequest("ACK");
        reports().expect("callConfirmed");
        bye();
    }
    expectEnd();
}

TEST_F(DialogTest, ReliabilityFollowsTheInvite)
{
    {
        m_peer.sendRequest("INVITE", kSdp);
        const Report called = reports().expect("called");
        EXPECT_THROW(
            called.m_hIn->sendReliableProvisionalResponse(TestAgent::response(183, called.request())),
            DsException);
        called.m_hIn->hangup();
        reports().expect("terminated");
    }
    {
        RawPeer peer(m_agent.port());
        peer.m_strExtra = "Require: 100rel\r\n";
        peer.sendRequest("INVITE", kSdp);
        const Report called = reports().expect("called");
        called.m_hIn->answer(TestAgent::response(180, called.request()));
        EXPECT_FALSE(RawPeer::header(peer.expect("SIP/2.0 180"), "RSeq").empty());
        // Never acknowledged: the call ends.
        peer.expect("SIP/2.0 503", 10s);
        EXPECT_TRUE(reports().expect("terminated").m_hMessage.isNil());
    }
    expectEnd();
}

// ---- INVITE with Replaces
// -----------------------------------------------------------------------------------------

class ReplacesTest : public DialogTest
{
protected:
    std::string replaces(const std::string& in_strTag) const
    {
        return "Replaces: " + m_peer.m_strCallId + ";to-tag=" + m_peer.m_strToTag + ";from-tag=" + in_strTag;
    }
};

TEST_F(ReplacesTest, AcceptedDialogTakesThePlaceOfTheOld)
{
    {
        const Report call = establish();
        RawPeer second(m_agent.port());
        second.m_strFromTag = "second";
        second.m_strExtra = replaces("peer") + "\r\n";
        second.sendRequest("INVITE", kSdp);
        const Report offer = reports().expect("replacesDialog");
        EXPECT_EQ(offer.m_hIn, call.m_hIn);
        EXPECT_EQ(offer.m_hDialog->getCallID(), m_peer.m_strCallId);
        EXPECT_EQ(offer.m_hNewDialog->getCallID(), second.m_strCallId);
        const auto old = offer.m_hDialog->createRequest("BYE");
        offer.m_hIn->acceptReplaces(offer.m_hDialog, offer.m_hNewDialog);
        offer.m_hNewDialog->sendResponse(TestAgent::response(200, offer.request(), kSdp));
        offer.m_hDialog->hangup(old);
        second.learn(second.expect("SIP/2.0 200"));
        second.sendRequest("ACK");
        reports().expect("callConfirmed");
        m_peer.respond(m_peer.expect("BYE"), "200 OK");
        EXPECT_EQ(call.m_hIn->getDialog(), offer.m_hNewDialog);
        // The call lives on in the new dialog.
        second.sendRequest("INFO");
        const Report info = reports().expect("unknownRequest");
        info.m_hTransaction->sendResponse(TestAgent::response(200, info.request()));
        second.expect("SIP/2.0 200");
        call.m_hIn->hangup();
        second.respond(second.expect("BYE"), "200 OK");
        reports().expect("terminated");
    }
    expectEnd();
}

TEST_F(ReplacesTest, RefusedDialogLeavesTheOldAlone)
{
    {
        establish();
        RawPeer second(m_agent.port());
        second.m_strExtra = replaces("peer") + "\r\n";
        second.sendRequest("INVITE", kSdp);
        Report offer = reports().expect("replacesDialog");
        offer.m_hNewDialog->sendResponse(TestAgent::response(488, offer.request()));
        offer.m_hIn->rejectReplaces(offer.m_hDialog, offer.m_hNewDialog);
        second.expect("SIP/2.0 488");
        RawPeer third(m_agent.port());
        third.m_strExtra = replaces("peer") + "\r\n";
        third.sendRequest("INVITE", kSdp);
        offer = reports().expect("replacesDialog");
        offer.m_hIn->rejectReplaces(offer.m_hDialog, offer.m_hNewDialog);
        third.expect("SIP/2.0 603");
        bye();
    }
    expectEnd();
}

TEST_F(ReplacesTest, WhatCannotBeReplacedIsRefused)
{
    {
        establish();
        RawPeer second(m_agent.port());
        second.m_strExtra = replaces("nobody") + "\r\n";
        second.sendRequest("INVITE", kSdp);
        second.expect("SIP/2.0 481");
        RawPeer third(m_agent.port());
        third.m_strExtra = replaces("peer") + ";early-only\r\n";
        third.sendRequest("INVITE", kSdp);
        third.expect("SIP/2.0 486");
        bye();
    }
    expectEnd();
}

}  // namespace
}  // namespace Quorvex
