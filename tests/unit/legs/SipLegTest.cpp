// What both kinds of leg share: the messages that they build, what they take out of others.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "LegsTestSupport.h"
#include "SipInfoMsgContent.h"
#include "SipLeg.h"
#include "calleng/CallLegInfo.h"
#include "infra/Assertion.h"
#include "net/HostResolver.h"

namespace Quorvex::LegsTest
{
namespace
{

using testing::ElementsAre;

class Leg final : public SipLeg
{
public:
    Leg(VoipEndpointFactory& in_factory, const ROConfiguration& in_config) : SipLeg(in_factory, in_config)
    {
        m_listenPort.initialize("127.0.0.1", 5060, Sip::eUDP);
        m_listenPort.m_hContact = m_listenPort.createContactHeader("gateway");
    }

    bool initialize() override { return true; }
    bool hangup() override { return false; }
    bool sendNotify(const ConnectionFailureType& in_failType) override
    {
        return SipLeg::sendNotify(DsHandle<DsSipDialog>(), Fallible<unsigned int>(), in_failType);
    }
    bool sendNotify(unsigned int in_uiResponseCode) override
    {
        return SipLeg::sendNotify(
            DsHandle<DsSipDialog>(), in_uiResponseCode, Fallible<ConnectionFailureType>());
    }
    bool sendInfoMsg(const std::vector<Parameter>& in_vParameters) override
    {
        return SipLeg::sendInfoMsg(DsHandle<DsSipDialog>(), in_vParameters);
    }

    using SipLeg::createReinviteResponse;
    using SipLeg::fillInInfo;
};

class SipLegTest : public testing::Test
{
protected:
    std::uint64_t assertions() const { return Assertion::failureCount() - m_uiAssertions; }

    const std::uint64_t m_uiAssertions = Assertion::failureCount();
    IdleEngine m_engine;
    MapConfiguration m_config = configuration();
    Leg m_leg{m_engine, m_config};
};

TEST_F(SipLegTest, NothingIsSentWhenNoDescriptionCanBeWritten)
{
    // No stream, no capacity: neither an answer nor an offer.
    EXPECT_TRUE(m_leg.createReinviteResponse(invite(kOffer), 200).isNil());
    EXPECT_TRUE(m_leg.createReinviteResponse(invite(), 200).isNil());
}

TEST_F(SipLegTest, MissingCallsDialogsAndMessagesAreReported)
{
    const DsHandle<DsSipCall> hNoCall;
    const DsHandle<DsSipDialog> hNoDialog;
    EXPECT_FALSE(m_leg.respondToReinvite(hNoCall, hNoDialog, invite(), 200));
    EXPECT_FALSE(m_leg.respondToReinvite(hNoCall, hNoDialog, DsHandle<DsSipInviteMessage>(), 488));
    EXPECT_FALSE(m_leg.respondToInviteReplaces(hNoCall, hNoDialog, hNoDialog, invite(), 200));
    EXPECT_FALSE(m_leg.respondToBye(DsHandle<DsSipIncomingCall>(), hNoDialog, request("BYE")));
    EXPECT_FALSE(m_leg.respondToBye(DsHandle<DsSipOutgoingCall>(), hNoDialog, request("BYE")));
    EXPECT_FALSE(
        m_leg.ackReinviteResponse(DsHandle<DsSipIncomingCall>(), hNoDialog, DsHandle<DsSipResponse>()));
    EXPECT_FALSE(
        m_leg.ackReinviteResponse(DsHandle<DsSipOutgoingCall>(), hNoDialog, DsHandle<DsSipResponse>()));
    EXPECT_FALSE(m_leg.respondToReferRequest(202, DsHandle<DsSipServerTransaction>(), request("REFER")));
    EXPECT_FALSE(m_leg.validateReInvite(DsHandle<DsSipInviteMessage>()));
    CallLegInfo legInfo;
    EXPECT_FALSE(m_leg.fillInLegInfoFromKnownHeaders(DsHandle<DsSipMessage>(), legInfo));
    EXPECT_FALSE(m_leg.fillInLegInfoFromUnknownHeaders(DsHandle<DsSipMessage>(), legInfo));
    EXPECT_EQ(assertions(), 11U);
    // A call without a dialog is no fault of the program: an error, and that is all.
    EXPECT_FALSE(m_leg.sendInfoMsg({Parameter("body", "x")}));
    EXPECT_FALSE(m_leg.sendNotify(200U));
    EXPECT_FALSE(m_leg.sendNotify(ConnectionFailureType(eBUSY_FAILURE)));
    EXPECT_EQ(assertions(), 11U);
}

struct ReferCase
{
    const char* m_szHeaders;
    unsigned int m_uiStatus;
    const char* m_szReferTo;
    const char* m_szReferredBy;
    const char* m_szReferredByName;
};

TEST_F(SipLegTest, ReferIsCheckedAndItsPartiesTaken)
{
    const ReferCase kCases[] = {
        {"",                                                                                             400, "-",                                                "-", "-"       },
        {"Refer-To: 12345\r\n",                                                                          484, "-",                                                "-", "-"       },
        {"Refer-To: <tel:+12345>\r\n",                                                                   400, "-",                                                "-", "-"       },
        {"Refer-To: <sip:carol@no.such.host.invalid>\r\n",                                               400, "-",                                                "-", "-"       },
        {"Refer-To: <sip:carol@127.0.0.1;transport=tcp?Replaces=1%40x>;r=1\r\n",
         202,                                                                                                 "sip:carol@127.0.0.1;transport=tcp?Replaces=1%40x",
         "-",                                                                                                                                                          "-"       },
        {"Refer-To: sip:carol@[::1]:5070\r\nReferred-By: \"The Boss\" <sip:boss@192.0.2.9;a=b?c=d>\r\n",
         202,                                                                                                 "sip:carol@[::1]:5070",
         "sip:boss@192.0.2.9",                                                                                                                                         "The Boss"},
        {"Refer-To: <sip:carol@127.0.0.1>\r\nReferred-By: <sip:boss@192.0.2.9>\r\n",
         202,                                                                                                 "sip:carol@127.0.0.1",
         "sip:boss@192.0.2.9",                                                                                                                                         "-"       },
        {"Refer-To: \"unclosed <sip:carol@127.0.0.1>\r\n",                                               500, "-",                                                "-", "-"       },
    };
    for (const ReferCase& c : kCases)
    {
        SCOPED_TRACE(c.m_szHeaders);
        std::string strReferTo = "-";
        std::string strReferredBy = "-";
        std::string strReferredByName = "-";
        std::string strTo;
        std::string strFrom;
        std::string strToName;
        std::string strFromName;
        EXPECT_EQ(m_leg.validateRefer(request("REFER", c.m_szHeaders),
                                      strReferTo,
                                      strReferredBy,
                                      strReferredByName,
                                      strTo,
                                      strFrom,
                                      strToName,
                                      strFromName),
                  c.m_uiStatus);
        EXPECT_EQ(strReferTo, c.m_szReferTo);
        EXPECT_EQ(strReferredBy, c.m_szReferredBy);
        EXPECT_EQ(strReferredByName, c.m_szReferredByName);
        if (c.m_uiStatus == 202)
        {
            EXPECT_EQ(strFrom, "sip:alice@192.0.2.1");
            EXPECT_EQ(strFromName, "Alice");
            EXPECT_EQ(strTo, "sip:bob@192.0.2.2");
            EXPECT_EQ(strToName, "Bob");
        }
    }
    std::string s;
    EXPECT_EQ(m_leg.validateRefer(DsHandle<DsSipRequest>(), s, s, s, s, s, s, s), 500U);
}

TEST_F(SipLegTest, InfoCarriesParametersAsHeadersAndBody)
{
    const auto hInfo = DsSipRequest::create("INFO", "sip:alice@127.0.0.1:5099");
    ASSERT_TRUE(m_leg.fillInInfo(
        hInfo, {Parameter("X-One", "1; a=b"), Parameter("body", "hello"), Parameter("x-two", "")}));
    EXPECT_EQ(hInfo->getBody(), "hello");
    EXPECT_EQ(hInfo->getBodyType(), "text/plain");
    EXPECT_EQ(hInfo->getHeaderValue("X-One"), "1; a=b");
    EXPECT_TRUE(hInfo->hasHeader("x-two"));
    EXPECT_FALSE(hInfo->hasHeader("body"));

    // The type of the body is one header, wherever it stands.
    for (const char* szName : {"Content-Type", "content-type", "c"})
    {
        const auto hTyped = DsSipRequest::create("INFO", "sip:alice@127.0.0.1:5099");
        ASSERT_TRUE(m_leg.fillInInfo(
            hTyped, {Parameter(szName, "application/dtmf-relay"), Parameter("body", "Signal=1\r\n")}));
        EXPECT_EQ(hTyped->getBodyType(), "application/dtmf-relay");
        const std::string strText = hTyped->getText();
        EXPECT_EQ(strText.find("ontent-"), strText.find("ontent-Type")) << strText;
        EXPECT_EQ(strText.find("relay", strText.find("relay") + 1), std::string::npos) << strText;
    }
    EXPECT_EQ(assertions(), 0U);
}

TEST_F(SipLegTest, InfoThatWouldBeNoneIsNotSent)
{
    const std::vector<Parameter> kBad[] = {
        {Parameter("X-One", 1)},
        {Parameter("X-One", true)},
        {Parameter("", "x")},
        {Parameter("X One", "x")},
        {Parameter("X:One", "x")},
        {Parameter("X\r\nY", "x")},
        {Parameter("From", "<sip:x@y>")},
        {Parameter("f", "<sip:x@y>")},
        {Parameter("CSeq", "1 INFO")},
        {Parameter("Call-ID", "x")},
        {Parameter("Content-Length", "7")},
    };
    for (const auto& vParameters : kBad)
    {
        const auto hInfo = DsSipRequest::create("INFO", "sip:alice@127.0.0.1:5099");
        EXPECT_FALSE(m_leg.fillInInfo(hInfo, vParameters)) << vParameters[0];
    }
    EXPECT_EQ(assertions(), 3U);  // wrong types and no name are the caller's fault
    // A line end in a value does not begin a new header.
    const auto hInfo = DsSipRequest::create("INFO", "sip:alice@127.0.0.1:5099");
    ASSERT_TRUE(m_leg.fillInInfo(hInfo, {Parameter("X-One", "a\r\nX-Two: b")}));
    EXPECT_FALSE(hInfo->hasHeader("X-Two"));
}

TEST_F(SipLegTest, LegInformationTakesKnownAndUnknownHeaders)
{
    const auto hInvite =
        request("INVITE",
                "User-Agent:   peer/1.0  \r\nX-Trunk: 1\r\nX-Other: a, b\r\nSubject: known or not\r\n"
                "Contact: <sip:second@127.0.0.1>\r\nX-Trunk: 2\r\n");
    CallLegInfo legInfo;
    ASSERT_TRUE(m_leg.fillInLegInfoFromKnownHeaders(hInvite, legInfo));
    EXPECT_EQ(legInfo.getParameterOr("sip.in.header.Call-ID", "-"), "call-1@peer");
    EXPECT_EQ(legInfo.getParameterOr("sip.in.header.Contact", "-"), "<sip:alice@127.0.0.1:5099>");
    EXPECT_EQ(legInfo.getParameterOr("sip.in.header.From", "-"), "\"Alice\" <sip:alice@192.0.2.1;x=1>;tag=a");
    EXPECT_EQ(legInfo.getParameterOr("sip.in.header.To", "-"), "Bob <sip:bob@192.0.2.2>;tag=b");
    EXPECT_EQ(legInfo.getParameterOr("sip.in.header.User-Agent", "-"), "peer/1.0");
    EXPECT_EQ(legInfo.getParameterOr("sip.in.header.X-Trunk", "-"), "-");
    ASSERT_TRUE(m_leg.fillInLegInfoFromUnknownHeaders(hInvite, legInfo));
    EXPECT_EQ(legInfo.getParameterOr("sip.in.header.X-Trunk", "-"), "2");
    EXPECT_EQ(legInfo.getParameterOr("sip.in.header.X-Other", "-"), "a, b");
    EXPECT_EQ(legInfo.getParameterOr("sip.in.header.CSeq", "-"), "-");

    // Compact names, whatever their case, come under the usual name.
    const auto hCompact = DsSipMessage::parse(
        "INVITE sip:a@b SIP/2.0\r\nv: SIP/2.0/UDP h;branch=z9hG4bK1\r\nF: <sip:x@y>;tag=1\r\nt: <sip:a@b>\r\n"
        "i: short\r\nCSeq: 1 INVITE\r\nMax-Forwards: 70\r\nl: 0\r\n\r\n");
    ASSERT_TRUE(m_leg.fillInLegInfoFromKnownHeaders(hCompact, legInfo));
    EXPECT_EQ(legInfo.getParameterOr("sip.in.header.Call-ID", "-"), "short");
    EXPECT_EQ(legInfo.getParameterOr("sip.in.header.From", "-"), "<sip:x@y>;tag=1");
}

std::vector<std::string> contentOf(const DsHandle<DsSipRequest>& in_hRequest)
{
    std::vector<std::string> vContent;
    const auto pContent = getNewInfoMsgContent(in_hRequest);
    for (const Parameter& parameter : *pContent)
    {
        EXPECT_EQ(parameter.getValue().getType(), ParameterValue::STRING_TYPE);
        vContent.push_back(parameter.getName() + "=" + parameter.getValue().toText());
    }
    return vContent;
}

TEST(InfoContent, IsExtensionHeadersTypeAndBody)
{
    EXPECT_THAT(
        contentOf(request("INFO",
                          "X-One: 1;a=b\r\nUser-Agent: peer\r\nx-TWO:  two \r\n",
                          "Signal=5\r\n",
                          "application/dtmf-relay;x=y")),
        ElementsAre("X-One=1;a=b", "x-TWO=two", "Content-Type=application/dtmf-relay", "body=Signal=5\r\n"));
    EXPECT_THAT(contentOf(request("INFO", "X-One: 1\r\nX-One: 2\r\n")), ElementsAre("X-One=1", "X-One=2"));
    EXPECT_THAT(contentOf(request("INFO", "", "no type", "")), ElementsAre("body=no type"));
    EXPECT_THAT(contentOf(request("INFO", "", std::string("a\0b", 3), "x/y")),
                ElementsAre("Content-Type=x/y", std::string("body=a\0b", 8)));
    EXPECT_THAT(contentOf(request("INFO")), ElementsAre());
}

}  // namespace
}  // namespace Quorvex::LegsTest
