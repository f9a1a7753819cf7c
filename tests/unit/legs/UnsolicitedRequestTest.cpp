// Requests within a call that have no callback of their own, and what an INFO contains.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "LegsTestSupport.h"
#include "SipInfoMsgContent.h"
#include "UnknownRequest.h"
#include "infra/Assertion.h"

namespace Quorvex::LegsTest
{
namespace
{

using testing::ElementsAre;

constexpr const char* kAllow = "Allow: INVITE, ACK, BYE, CANCEL, NOTIFY, INFO, OPTIONS, REFER";

TEST(UnknownRequest, OptionsTellsWhatTheGatewayCanDo)
{
    const auto hResponse = UnknownRequestNoT::createOptionsResponse(request("OPTIONS"));
    EXPECT_EQ(hResponse->getStatusCode(), 200U);
    EXPECT_EQ(hResponse->getBodyLength(), 0U);
    EXPECT_THAT(headersFrom(*hResponse, "Allow"),
                ElementsAre(kAllow,
                            "Supported: replaces",
                            "Accept-Language: en",
                            "Accept-Encoding: identity",
                            "Accept: application/sdp"));
}

TEST(UnknownRequest, OtherMethodsAreRefusedWithThoseThatAreAllowed)
{
    for (const char* szMethod : {"MESSAGE", "SUBSCRIBE", "UPDATE", "info", "MADEUP"})
    {
        const auto hResponse = UnknownRequestNoT::createUnsupportedResponse(request(szMethod));
        EXPECT_EQ(hResponse->getStartLine(), "SIP/2.0 405 Method Not Allowed");
        EXPECT_THAT(headersFrom(*hResponse, "Allow"), ElementsAre(kAllow));
    }
}

TEST(UnknownRequest, WithoutATransactionNothingIsSent)
{
    UnknownRequestNoT unknown(DsHandle<DsSipServerTransaction>(), request("MESSAGE"));
    const std::uint64_t uiAssertions = Assertion::failureCount();
    EXPECT_EQ(unknown.infoRequest(), 0);
    EXPECT_EQ(unknown.optionsRequest(), 0);
    unknown.unsupportedRequest();
    EXPECT_EQ(Assertion::failureCount(), uiAssertions + 3);
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

TEST(InfoContent, OfNothingIsNothing)
{
    const std::uint64_t uiAssertions = Assertion::failureCount();
    EXPECT_EQ(getNewInfoMsgContent(DsHandle<DsSipRequest>()), nullptr);
    EXPECT_EQ(Assertion::failureCount(), uiAssertions + 1);
}

}  // namespace
}  // namespace Quorvex::LegsTest
