#include <gtest/gtest.h>

#include <sstream>
#include <vector>

#include "calleng/CallInfo.h"
#include "infra/Assertion.h"
#include "infra/Logger.h"
#include "quorvex/CallInterface.h"

namespace Quorvex
{
namespace
{

class Detail : public ConnectionFailureImpl
{
public:
    explicit Detail(int in_iCode) : m_iCode(in_iCode) { ++s_iLive; }
    Detail(const Detail& in_other) : Object(), OutputStreamable(), Cloneable(), m_iCode(in_other.m_iCode)
    {
        ++s_iLive;
    }
    Detail& operator=(const Detail&) = delete;
    ~Detail() override { --s_iLive; }
    Detail* clone() const override { return new Detail(*this); }
    std::ostream& write(std::ostream& out_stream) const override
    {
        return out_stream << "detail " << m_iCode;
    }

    static int s_iLive;

private:
    int m_iCode;
};

int Detail::s_iLive = 0;

TEST(ConnectionFailureTypeTest, CopiesOwnTheirDetailAndPrintTheCodeAlone)
{
    {
        ConnectionFailureType copy;
        {
            const ConnectionFailureType original(eBUSY_FAILURE, new Detail(486));
            copy = original;
            EXPECT_NE(copy.getDetail(), original.getDetail());
        }
        std::ostringstream text;
        text << copy << ' ' << *copy.getDetail();
        EXPECT_EQ(text.str(), "1 detail 486");
        copy = eNO_ANSWER_FAILURE;
        EXPECT_EQ(copy.getDetail(), nullptr);
    }
    EXPECT_EQ(Detail::s_iLive, 0);
}

TEST(CallInterfaceTest, WhatAnOutboundLegCannotDoIsReported)
{
    static std::vector<std::string> s_texts;
    s_texts.clear();
    Logging::setCapture([](void*, int, const std::string&, const std::string& in_strText)
                        { s_texts.push_back(in_strText); },
                        nullptr);
    const std::uint64_t before = Assertion::failureCount();
    OutCallLeg leg;
    EXPECT_FALSE(leg.inviteAccepted(eRING_WITHOUT_EARLY_MEDIA));
    EXPECT_FALSE(leg.inviteRejected(eBUSY_FAILURE));
    EXPECT_FALSE(leg.remoteConnected(Call::eCONNECTION_NONE));
    EXPECT_FALSE(leg.remoteConnectionFailed(eBUSY_FAILURE));
    const std::uint64_t reported = Assertion::failureCount() - before;
    EXPECT_FALSE(leg.invite(CallInfo()));
    EXPECT_FALSE(leg.hangup());
    EXPECT_FALSE(leg.transferFailure(ConnectionFailureType(eBUSY_FAILURE, new Detail(1))));
    Logging::setCapture(nullptr, nullptr);
    EXPECT_EQ(reported, 4U);
    EXPECT_EQ(Assertion::failureCount() - before, 4U) << "the others refuse without a report";
    const char* const szOperations[] = {
        "inviteAccepted", "inviteRejected", "remoteConnected", "remoteConnectionFailed"};
    ASSERT_EQ(s_texts.size(), std::size(szOperations));
    for (std::size_t i = 0; i < s_texts.size(); ++i)
    {
        EXPECT_NE(s_texts[i].find(std::string("Not implemented : OutCallLeg::") + szOperations[i]),
                  std::string::npos)
            << s_texts[i];
    }
    EXPECT_EQ(Detail::s_iLive, 0);
}

}  // namespace
}  // namespace Quorvex
