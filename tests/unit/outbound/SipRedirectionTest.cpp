// The targets of redirections: which are offered, and in which order.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SipRedirection.h"
#include "calleng/CallInfo.h"
#include "infra/Assertion.h"

namespace Quorvex
{
namespace
{

using testing::ElementsAre;
using testing::UnorderedElementsAre;

SipRedirectionTargetData::Ptr makeData(const std::string& in_strUri = "sip:first@127.0.0.1")
{
    return SipRedirectionTargetData::Ptr(new SipRedirectionTargetData(makeDs<DsSipInviteMessage>(in_strUri)));
}

void add(SipRedirectionTargetData& io_data, const std::string& in_strContact)
{
    io_data.addContact(makeDs<DsSipContactHeader>(in_strContact));
}

std::vector<std::string> users(const std::vector<DsHandle<DsSipContactHeader>>& in_vContacts)
{
    std::vector<std::string> vUsers;
    for (const auto& hContact : in_vContacts)
    {
        vUsers.push_back(hContact->getURL()->getUser());
    }
    return vUsers;
}

TEST(SipRedirection, OrderOfPreference)
{
    struct Case
    {
        const char* m_szLeft;
        const char* m_szRight;
        bool m_bLess;
    };
    const Case kCases[] = {
        {"<sip:a@h>;q=0.5",  "<sip:b@h>;q=1.0",   true },
        {"<sip:a@h>;q=1.0",  "<sip:b@h>;q=0.5",   false},
        {"<sip:a@h>",        "<sip:b@h>;q=0.1",   true },
        {"<sip:a@h>;q=",     "<sip:b@h>;q=0.001", true },
        {"<sip:a@h>;q=0",    "<sip:b@h>",         false},
        {"<sip:a@h>;q=.9",   "<sip:b@h>;q=0.95",  true },
        {"<sip:a@h>;q=high", "<sip:b@h>;q=0.1",   true },
        {"<sip:a@h>;q=0.9x", "<sip:b@h>;q=0.1",   true },
        {"<sip:a@h>;q=nan",  "<sip:b@h>;q=0.1",   true },
        {"<sip:a@h>;q=0.1",  "<sip:b@h>;q=nan",   false},
    };
    for (const Case& c : kCases)
    {
        EXPECT_EQ(
            isLessPreferred(makeDs<DsSipContactHeader>(c.m_szLeft), makeDs<DsSipContactHeader>(c.m_szRight)),
            c.m_bLess)
            << c.m_szLeft << ' ' << c.m_szRight;
    }
}

TEST(SipRedirection, NoTargetIsOfferedTwice)
{
    // An INVITE's Request-URI always names the transport; what a Contact leaves out is UDP.
    const auto pData = makeData("sip:first@127.0.0.1;transport=udp");
    for (const char* szContact : {"<sip:a@h>;q=0.5",
                                  "<sip:b@h>;q=1.0",
                                  "<sip:c@h;transport=UDP>",
                                  "<sip:first@127.0.0.1>",  // where the call went first
                                  "<sip:a@H;lr>;q=0.1",     // the same, written otherwise
                                  "Somebody <sip:c@h>;expires=5"})
    {
        add(*pData, szContact);
    }
    pData->sortTargets();
    EXPECT_THAT(users(pData->getToTry()), ElementsAre("c", "a", "b"));

    CallInfo tried;
    SipRedirectionLegInfo leg(pData);
    leg.setContact(pData->getToTry().back());
    EXPECT_EQ(leg.getParameterOr("sip.in.redirect.Contact", ""), "Contact: <sip:b@h>;q=1.0");
    tried.addLeg(leg);
    // The list that the call engine holds is a copy, and keeps the class of its legs.
    const CallInfo copy(tried);
    EXPECT_TRUE(pData->updateFrom(copy));
    add(*pData, "<sip:b@h>;q=0.9");
    add(*pData, "<sip:d@h>;q=0.2");
    pData->sortTargets();
    EXPECT_THAT(users(pData->getToTry()), ElementsAre("c", "d", "a"));
    EXPECT_THAT(users(pData->getTried()), ElementsAre("first", "b"));

    // One that was tried, or never offered, cannot have been tried now.
    const auto uiAssertions = Assertion::failureCount();
    EXPECT_FALSE(pData->updateFrom(copy));
    SipRedirectionLegInfo stranger(pData);
    stranger.setContact(makeDs<DsSipContactHeader>("<sip:x@h>"));
    CallInfo strangers;
    strangers.addLeg(stranger);
    EXPECT_FALSE(pData->updateFrom(strangers));
    add(*pData, "*");
    EXPECT_EQ(Assertion::failureCount(), uiAssertions + 3);
    EXPECT_THAT(users(pData->getToTry()), UnorderedElementsAre("a", "c", "d"));
}

}  // namespace
}  // namespace Quorvex
