// The responses of an inbound leg, without the sending.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "InSipLeg.h"
#include "LegsTestSupport.h"
#include "calleng/Call.h"
#include "infra/Assertion.h"

namespace Quorvex::LegsTest
{
namespace
{

using testing::HasSubstr;

class InSipLegTest : public testing::Test
{
protected:
    /// A leg for an INVITE with that body, ready to be answered.
    InSipLeg& make(std::initializer_list<std::pair<const char*, ParameterValue>> in_config = {},
                   const std::string& in_strBody = kOffer)
    {
        m_config = configuration(in_config);
        const auto hInvite = invite(in_strBody);
        m_pLeg = std::make_unique<InSipLeg>(m_engine, m_config, DsHandle<DsSipIncomingCall>(), hInvite);
        EXPECT_TRUE(m_pLeg->initialize());
        VoipMedia& media = m_pLeg->getMedia();
        media.initialize("call-1", nullptr);
        EXPECT_TRUE(media.setSdpOffer(hInvite));
        if (!in_strBody.empty())
        {
            EXPECT_TRUE(giveCapacity(media));
            EXPECT_TRUE(media.isSdpOfferValid(m_config));
        }
        return *m_pLeg;
    }

    IdleEngine m_engine;
    MapConfiguration m_config;
    std::unique_ptr<InSipLeg> m_pLeg;
};

struct ProvisionalCase
{
    int m_iOverride;
    bool m_bOffer;
    unsigned int m_uiAsked;
    bool m_bWithSDP;
    unsigned int m_uiSent;
    bool m_bBody;
};

TEST_F(InSipLegTest, ProvisionalResponsesCarryWhatTheyCan)
{
    const ProvisionalCase kCases[] = {
  // override, offer, asked, with SDP: sent, body
        {0,   true,  180, false, 180, false},
        {0,   true,  180, true,  180, true },
        {0,   true,  183, true,  183, true },
        {0,   false, 183, true,  183, false},
        {183, true,  180, true,  183, true },
        {183, true,  180, false, 180, false},
        {183, false, 180, true,  180, false},
        {-1,  true,  180, true,  180, true },
        {100, true,  180, true,  180, true },
        {200, true,  180, true,  180, true },
    };
    for (const ProvisionalCase& c : kCases)
    {
        SCOPED_TRACE(testing::Message()
                     << c.m_iOverride << ' ' << c.m_bOffer << ' ' << c.m_uiAsked << ' ' << c.m_bWithSDP);
        InSipLeg& leg = make(
            {
                {"quorvex.sip.in.override1XXWithSDP", c.m_iOverride}
        },
            c.m_bOffer ? kOffer : "");
        const auto hResponse = leg.createProvisionalResponse(c.m_uiAsked, c.m_bWithSDP);
        ASSERT_FALSE(hResponse.isNil());
        EXPECT_EQ(hResponse->getStatusCode(), c.m_uiSent);
        EXPECT_EQ(hResponse->getBodyLength() > 0, c.m_bBody);
        EXPECT_EQ(hResponse->getBodyType(), c.m_bBody ? "application/sdp" : "");
    }
}

TEST_F(InSipLegTest, ReliableProvisionalResponseAnswersOrOffers)
{
    const auto hAnswer = make().createReliableProvisionalResponse(183);
    ASSERT_FALSE(hAnswer.isNil());
    EXPECT_THAT(hAnswer->getBody(), HasSubstr("m=audio 40000 "));
    // Nothing to offer yet: no response.
    EXPECT_TRUE(make({}, "").createReliableProvisionalResponse(183).isNil());
    EXPECT_FALSE(m_pLeg->sendReliableProvisionalResponse(183, false));
}

}  // namespace
}  // namespace Quorvex::LegsTest
