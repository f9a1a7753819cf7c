// Redirections (3xx) of outbound calls over the loopback.

#include <gmock/gmock.h>

#include "OutboundFixture.h"

using namespace Quorvex;
using namespace Quorvex::Test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace
{

class RedirectionTest : public OutboundTest
{
protected:
    static std::string contact(const std::string& in_strUri, const std::string& in_strParameters = "")
    {
        return "Contact: <" + in_strUri + ">" + in_strParameters + "\r\n";
    }

    /// What the engine was offered, in order: the Contact headers.
    std::vector<std::string> targets()
    {
        std::vector<std::string> vTargets;
        engine().run(
            [&]
            {
                for (std::size_t i = 0; i < m_pCall->getTargets().getNumLeg(); ++i)
                {
                    vTargets.push_back(
                        m_pCall->getTargets().getLeg(i).getParameterOr("sip.in.redirect.Contact", ""));
                }
            });
        return vTargets;
    }

    /// Calls one of the targets, as a call engine does; the legs of those tried before it go along.
    CallInfo choose(const std::vector<std::size_t>& in_vTried, std::size_t in_index)
    {
        CallInfo info;
        engine().run(
            [&]
            {
                const CallInfo& targets = m_pCall->getTargets();
                for (const std::size_t i : in_vTried)
                {
                    info.addLeg(targets.getLeg(i));
                }
                CallLegInfo& leg = info.addLeg(targets.getLeg(in_index));
                leg.setParameter("sip.out.redirect.Contact",
                                 leg.getParameterOr("sip.in.redirect.Contact", ""));
                leg.setParameter("media.rtp.audio", "sendrecv");
                info.setCurrentLeg(info.getNumLeg() - 1);
            });
        return info;
    }

    void redirect(Callee& io_callee, const std::string& in_strContacts)
    {
        ASSERT_FALSE(io_callee.awaitInvite().empty());
        io_callee.answer("302 Moved Temporarily", "", "", in_strContacts);
        EXPECT_FALSE(io_callee.await("ACK").empty());
    }
};

TEST_F(RedirectionTest, TargetsAreOfferedByPreferenceAndOnce)
{
    Callee first(m_running.getPort());
    Callee a(m_running.getPort());
    Callee b(m_running.getPort());
    const std::string strC = "sip:c@127.0.0.1:9";
    const std::string strD = "sip:d@127.0.0.1:9";
    place("first", makeLeg(first.getUri()));
    redirect(first,
             contact(a.getUri("a"), ";q=0.5") + contact(b.getUri("b"), ";q=1.0") + contact(strC) +
                 // Tried already, named twice, and no target at all.
                 contact(first.getUri() + ";transport=udp") + contact(a.getUri("a"), ";q=0.9") +
                 "Contact: *\r\n");
    EXPECT_EQ(awaitEnd("first"), (Told{"redirected", "gone"}));
    ASSERT_THAT(targets(),
                ElementsAre("Contact: <" + strC + ">",
                            "Contact: <" + a.getUri("a") + ">;q=0.5",
                            "Contact: <" + b.getUri("b") + ">;q=1.0"));

    // b is busy; a, tried next, names itself and somebody new.
    const CallInfo toB = choose({}, 2);
    const CallInfo toA = choose({2}, 1);
    place("second", toB);
    const std::string strInvite = b.awaitInvite();
    EXPECT_THAT(strInvite, StartsWith("INVITE " + b.getUri("b") + ";transport=udp SIP/2.0\r\n"));
    EXPECT_EQ(SipTestPeer::header(strInvite, "To"), "<" + first.getUri() + ">");
    b.answer("486 Busy Here");
    EXPECT_EQ(awaitEnd("second"), (Told{"connectFailed 1", "gone"}));
    place("third", toA);
    redirect(a, contact(a.getUri("a")) + contact(strD, ";q=0.2") + contact(b.getUri("b")));
    EXPECT_EQ(awaitEnd("third"), (Told{"redirected", "gone"}));
    EXPECT_THAT(targets(), ElementsAre("Contact: <" + strC + ">", "Contact: <" + strD + ">;q=0.2"));
}

TEST_F(RedirectionTest, TheTargetAnswers)
{
    Callee first(m_running.getPort());
    Callee second(m_running.getPort());
    place("from", makeLeg(first.getUri()));
    redirect(first,
             contact(second.getUri("x") + "?Subject=moved%20on&Call-ID=evil&From=sip:evil%40example.test"));
    EXPECT_EQ(awaitEnd("from"), (Told{"redirected", "gone"}));
    place("to", choose({}, 0));
    const std::string strInvite = second.awaitInvite();
    EXPECT_THAT(strInvite, StartsWith("INVITE " + second.getUri("x") + ";transport=udp SIP/2.0\r\n"));
    EXPECT_EQ(SipTestPeer::header(strInvite, "Subject"), "moved on");
    EXPECT_NE(SipTestPeer::header(strInvite, "Call-ID"), "evil");
    EXPECT_THAT(SipTestPeer::header(strInvite, "From"), HasSubstr("sip:undefined"));
    second.answer("200 OK", kAnswer);
    ASSERT_FALSE(second.await("ACK").empty());
    second.request("BYE");
    EXPECT_EQ(awaitEnd("to"), (Told{"connected 0", "disconnected", "gone"}));
}

TEST_F(RedirectionTest, RedirectionsToNowhere)
{
    Callee callee(m_running.getPort());
    const std::pair<std::string, Told> kCases[] = {
  // Only to where the call went already: over, without a word.
        {contact(callee.getUri() + ";transport=udp"), {"gone"}                   },
        {contact("sip:x@127.0.0.1;method=SUBSCRIBE"), {"redirected", "gone"}     },
        {contact("mailto:x@example.test"),            {"redirected", "gone"}     },
        {"",                                          {"connectFailed 4", "gone"}},
    };
    unsigned uiCall = 0;
    for (const auto& [strContacts, vTold] : kCases)
    {
        SCOPED_TRACE(strContacts);
        const std::string strCallId = "nowhere-" + std::to_string(++uiCall);
        place(strCallId, makeLeg(callee.getUri()));
        redirect(callee, strContacts);
        ASSERT_EQ(awaitEnd(strCallId), vTold);
        if (vTold.front() == "redirected")
        {
            place(strCallId + "-target", choose({}, 0));
            EXPECT_EQ(awaitEnd(strCallId + "-target"), (Told{"connectFailed 21", "gone"}));
        }
    }
}

}  // namespace
