// Calls that the layer's user places to a far end on the wire.

#include <gtest/gtest.h>

#include <thread>

#include "RawPeer.h"
#include "TestAgent.h"
#include "sipstack/DsException.h"

namespace Quorvex
{
namespace
{

class OutgoingCallTest : public testing::Test
{
protected:
    OutgoingCallTest() : m_peer(m_agent.port()) {}

    Reports& reports() { return m_agent.reports(); }
    std::string target() const { return "sip:far@127.0.0.1:" + std::to_string(m_peer.port()); }
    std::string contact() const { return "Contact: <" + target() + ">\r\n"; }

    DsHandle<DsSipOutgoingCall> call(const std::function<void(DsSipInviteMessage&)>& in_change = nullptr)
    {
        auto call = m_agent.call(target(), in_change);
        m_strInvite = m_peer.expect("INVITE");
        return call;
    }

    // A request of the far end in the dialog of the last INVITE.
    void expectClosed()
    {
        EXPECT_TRUE(reports().expect("dialogTerminated").m_hMessage.isNil());
        reports().expect("terminated");
    }

    void expectEnd()
    {
        EXPECT_TRUE(reports().empty());
        m_agent.expectEmpty();
    }

    TestAgent m_agent;
    RawPeer m_peer;
    std::string m_strInvite;
};

TEST_F(OutgoingCallTest, AnsweredCallEndedByUs)
{
    {
        const auto call = this->call(
            [](DsSipInviteMessage& io_invite)
            {
                io_invite.addHeader("X-Trunk", "7");
                io_invite.addHeader("Expires", "179");
                io_invite.setBody(kSdp, "application/sdp");
            });
        EXPECT_EQ(RawPeer::header(m_strInvite, "From"), "<sip:test@127.0.0.1>;tag=mine");
        EXPECT_EQ(RawPeer::header(m_strInvite, "X-Trunk"), "7");
        EXPECT_EQ(RawPeer::header(m_strInvite, "Max-Forwards"), "70");
        EXPECT_EQ(RawPeer::header(m_strInvite, "Content-Type"), "application/sdp");
        EXPECT_EQ(RawPeer::body(m_strInvite), kSdp);
        EXPECT_TRUE(RawPeer::header(m_strInvite, "Route").empty());
        EXPECT_TRUE(call->getDialog().isNil());
        EXPECT_FALSE(call->getCallID().empty());
        EXPECT_EQ(RawPeer::header(m_strInvite, "Call-ID"), call->getCallID());
        m_peer.respond(m_strInvite, "100 Trying");
        EXPECT_EQ(reports().expect("provisionalResponse").response()->getStatusCode(), 100U);
        m_peer.respond(m_strInvite, "180 Ringing", contact());
        const Report ringing = reports().expect("provisionalResponse");
        EXPECT_EQ(ringing.response()->getStatusCode(), 180U);
        ASSERT_FALSE(ringing.m_hDialog.isNil());
        EXPECT_EQ(call->getDialog(), ringing.m_hDialog);
        m_peer.respond(m_strInvite, "200 OK", contact(), kSdp);
        const Report answered = reports().expect("succeeded");
        EXPECT_EQ(answered.m_hDialog, ringing.m_hDialog);
        EXPECT_EQ(answered.m_hMessage->getBody(), kSdp);
        answered.m_hDialog->ack();
        const std::string ack = m_peer.expect("ACK " + target());
        EXPECT_EQ(RawPeer::header(ack, "CSeq"), "1 ACK");
        // A lost ACK: the 2xx comes again and is acknowledged without anybody hearing of it.
        m_peer.respond(m_strInvite, "200 OK", contact(), kSdp);
        m_peer.expect("ACK");

        const auto info = answered.m_hDialog->createRequest("INFO");
        info->setBody("hello", "text/plain");
        answered.m_hDialog->info(info);
        const std::string received = m_peer.expect("INFO");
        EXPECT_EQ(RawPeer::header(received, "CSeq"), "2 INFO");
        EXPECT_EQ(RawPeer::body(received), "hello");
        m_peer.respond(received, "200 OK");

        call->hangup();
        const std::string bye = m_peer.expect("BYE");
        EXPECT_EQ(RawPeer::header(bye, "CSeq"), "3 BYE");
        m_peer.respond(bye, "200 OK");
        EXPECT_EQ(reports().expect("dialogTerminated").response()->getMethod(), "BYE");
        reports().expect("terminated");
        EXPECT_THROW(answered.m_hDialog->info(info), DsException);
        EXPECT_TRUE(answered.m_hDialog->createRequest("INFO").isNil());
    }
    expectEnd();
}

TEST_F(OutgoingCallTest, RecordRouteIsFollowedInReverse)
{
    {
        const auto call = this->call();
        const std::string proxy = "<sip:127.0.0.1:" + std::to_string(m_peer.port()) + ";lr>";
        m_peer.respond(
            m_strInvite,
            "200 OK",
            "Contact: <sip:hidden@192.0.2.7>\r\nRecord-Route: <sip:far.example;lr>\r\nRecord-Route: " +
                proxy + "\r\n");
        reports().expect("succeeded").m_hDialog->ack();
        const std::string ack = m_peer.expect("ACK sip:hidden@192.0.2.7 SIP/2.0");
        const auto routes = RawPeer::headers(ack, "Route");
        ASSERT_FALSE(routes.empty());
        EXPECT_EQ(routes.front().substr(0, proxy.size()), proxy);
        call->hangup();
        m_peer.respond(m_peer.expect("BYE sip:hidden@192.0.2.7"), "200 OK");
        reports().expect("dialogTerminated");
        reports().expect("terminated");
    }
    expectEnd();
}

TEST_F(OutgoingCallTest, TargetOutOfReachEndsWithoutAResponse)
{
    // A name that nobody knows, a family and a transport that no port has, and no SIP URI at all.
    for (const char* const target : {"sip:far@no-such-host.invalid",
                                     "sip:far@[::1]:5060",
                                     "sip:far@127.0.0.1;transport=tcp",
                                     "tel:12345"})
    {
        m_agent.call(target);
        EXPECT_TRUE(reports().expect("failedToConnect").m_hMessage.isNil()) << target;
        expectClosed();
    }
    expectEnd();
}

// The user ends what has crossed its CANCEL, or the layer does.
class CrossingTest : public OutgoingCallTest, public testing::WithParamInterface<bool>
{
};

TEST_P(CrossingTest, AnswerThatCrossesTheCancelIsAcknowledgedAndEnded)
{
    {
        const auto call = this->call();
        m_peer.respond(m_strInvite, "180 Ringing", contact());
        reports().expect("provisionalResponse");
        call->hangup();
        m_peer.respond(m_peer.expect("CANCEL"), "481 No such transaction");
        m_peer.respond(m_strInvite, "200 OK", contact(), kSdp);
        reports().expect("succeeded");
        if (GetParam())
        {
            call->hangup();
        }
        m_peer.expect("ACK");
        m_peer.respond(m_peer.expect("BYE"), "200 OK");
        EXPECT_EQ(reports().expect("dialogTerminated").response()->getStatusCode(), 200U);
        reports().expect("terminated");
    }
    expectEnd();
}

INSTANTIATE_TEST_SUITE_P(Crossings, CrossingTest, testing::Bool());

TEST_F(OutgoingCallTest, FurtherForksAreAcknowledgedAndEnded)
{
    {
        const auto call = this->call();
        m_peer.respond(m_strInvite, "200 OK", contact(), kSdp);
        const Report answered = reports().expect("succeeded");
        answered.m_hDialog->ack();
        m_peer.expect("ACK");
        m_peer.m_strFromTag = "fork";
        m_peer.respond(m_strInvite, "200 OK", contact(), kSdp);
        EXPECT_EQ(RawPeer::tagOf(RawPeer::header(m_peer.expect("ACK"), "To")), "fork");
        std::string bye = m_peer.expect("BYE");
        EXPECT_EQ(RawPeer::tagOf(RawPeer::header(bye, "To")), "fork");
        const Report further = reports().expect("multipleResponse");
        EXPECT_EQ(further.response()->getStatusCode(), 200U);
        EXPECT_NE(further.m_hDialog, answered.m_hDialog);
        // Each 2xx that comes again gets its own ACK again, and a BYE that got lost comes again.
        for (const char* const tag : {"fork", "peer"})
        {
            m_peer.m_strFromTag = tag;
            m_peer.respond(m_strInvite, "200 OK", contact(), kSdp);
            EXPECT_EQ(RawPeer::tagOf(RawPeer::header(m_peer.expect("ACK"), "To")), tag);
        }
        bye = m_peer.expect("BYE");
        EXPECT_EQ(RawPeer::tagOf(RawPeer::header(bye, "To")), "fork");
        m_peer.respond(bye, "200 OK");
        call->hangup();
        const std::string ours = m_peer.expect("BYE");
        EXPECT_EQ(RawPeer::tagOf(RawPeer::header(ours, "To")), "peer");
        m_peer.respond(ours, "200 OK");
        reports().expect("dialogTerminated");
        reports().expect("terminated");
    }
    expectEnd();
}

TEST_F(OutgoingCallTest, ReliableProvisionalResponsesAreAcknowledgedOnce)
{
    {
        const auto call =
            this->call([](DsSipInviteMessage& io_invite) { io_invite.addHeader("Supported", "100rel"); });
        const std::string reliable = contact() + "Require: 100rel\r\nRSeq: 700\r\n";
        m_peer.respond(m_strInvite, "183 Session Progress", reliable, kSdp);
        reports().expect("reliableProvisionalResponse");
        reports().expect("provisionalResponse");
        const std::string prack = m_peer.expect("PRACK");
        EXPECT_EQ(RawPeer::header(prack, "RAck"), "700 1 INVITE");
        m_peer.respond(m_strInvite, "183 Session Progress", reliable, kSdp);
        m_peer.respond(prack, "200 OK");
        m_peer.respond(m_strInvite, "180 Ringing", contact() + "Require: 100rel\r\nRSeq: 701\r\n");
        reports().expect("reliableProvisionalResponse");
        EXPECT_EQ(reports().expect("provisionalResponse").response()->getStatusCode(), 180U);
        const std::string second = m_peer.expect("PRACK");
        EXPECT_EQ(RawPeer::header(second, "RAck"), "701 1 INVITE");
        m_peer.respond(second, "200 OK");
        m_peer.respond(m_strInvite, "486 Busy Here");
        reports().expect("failedToConnect");
        expectClosed();
    }
    expectEnd();
}

TEST_F(OutgoingCallTest, WhatCannotBeSentIsToldAtOnce)
{
    EXPECT_THROW(m_agent.call("sip:x@127.0.0.1",
                              [](DsSipInviteMessage& io_invite) { io_invite.removeHeader("From"); }),
                 DsException);
    m_agent.stack().drain();
    EXPECT_THROW(m_agent.call("sip:x@127.0.0.1"), DsException);
    m_agent.expectEmpty();
}

}  // namespace
}  // namespace Quorvex
