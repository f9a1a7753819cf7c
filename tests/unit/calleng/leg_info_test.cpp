#include <gtest/gtest.h>

#include <memory>
#include <sstream>

#include "calleng/CallInfo.h"
#include "calleng/CallLegInfo.h"

namespace Quorvex
{
namespace
{

std::string print(const OutputStreamable& in_object)
{
    std::ostringstream text;
    text << in_object;
    return text.str();
}

TEST(CallLegInfoTest, StreamsAreNamedInOrderBelowOneNode)
{
    CallLegInfo leg;
    leg.addRtpSendReceiveParameters(0);
    leg.addRtpRecvOnlyParameters(1);
    leg.addRtpInactiveParameters(2);
    EXPECT_EQ(print(leg), " media.rtp.audio=sendrecv media.rtp.audio2=recvonly media.rtp.audio3=inactive");
    const ParameterTrieNode* pStreams = leg.getNode("media.rtp");
    ASSERT_NE(pStreams, nullptr);
    ASSERT_EQ(pStreams->getChildren().size(), 3U);
    EXPECT_EQ(pStreams->getChildren()[2]->getName(), "audio3");
    leg.addRtpInactiveParameters(0);
    EXPECT_EQ(pStreams->getChildren().size(), 3U)
        << "a stream's new direction takes the place of the old one";
}

TEST(CallInfoTest, OneLegIsTheCurrentOneAndCopiesAreIndependent)
{
    CallLegInfo leg;
    leg.setParameter("sip.out.requestUri", "sip:a@x");
    CallInfo call;
    call.addLeg(leg);
    leg.setParameter("sip.out.requestUri", "sip:b@x");
    call.addLeg(leg);
    EXPECT_EQ(call.getCurrentLeg().getParameterOr("sip.out.requestUri", ""), "sip:a@x")
        << "the first, until told";
    EXPECT_FALSE(call.setCurrentLeg(2));
    EXPECT_TRUE(call.setCurrentLeg(1));
    const std::unique_ptr<CallInfo> pClone(call.clone());
    call.getCurrentLeg().setParameter("sip.out.requestUri", "sip:c@x");
    EXPECT_EQ(print(*pClone),
              "2 legs, leg 0: sip.out.requestUri=sip:a@x, leg 1 (current): sip.out.requestUri=sip:b@x");
}

}  // namespace
}  // namespace Quorvex
