// Messages that test a parser's patience (RFC 4475 and worse), sent to a stack in use: each gets the answer
// it deserves, or none, and costs nothing else.

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <random>

#include "RawPeer.h"
#include "TestAgent.h"
#include "infra/Logger.h"

namespace Quorvex
{
namespace
{

using namespace std::chrono_literals;

struct Message
{
    const char* m_szName;
    std::string m_strText;     // @ME@ stands for the sender's address and port
    const char* m_szExpected;  // "": no answer, "called": a call begins
};

std::string with(const std::string& in_strStart,
                 const std::string& in_strHeaders,
                 const std::string& in_strBody = "")
{
    return in_strStart + "\r\n" + in_strHeaders + "\r\n" + in_strBody;
}

const std::string kVia = "Via: SIP/2.0/UDP @ME@;branch=z9hG4bK-torture\r\n";
const std::string kRest =
    "From: <sip:a@127.0.0.1>;tag=1\r\nTo: <sip:b@127.0.0.1>\r\nMax-Forwards: 70\r\nContact: <sip:a@@ME@>\r\n";
const std::string kCall = "Call-ID: torture\r\nCSeq: 1 ";

std::vector<Message> messages()
{
    const std::string options = "OPTIONS sip:b@127.0.0.1 SIP/2.0";
    const std::string invite = "INVITE sip:b@127.0.0.1 SIP/2.0";
    const std::string plain = kVia + kRest + kCall + "OPTIONS\r\n";
    const std::string plainInvite = kVia + kRest + kCall + "INVITE\r\n";
    std::vector<Message> all;
    const auto add = [&](const char* in_szName, const std::string& in_strText, const char* in_szExpected) {
        all.push_back({in_szName, in_strText, in_szExpected});
    };
    // RFC 4475 3.1.1.1: white space, folds and compact forms wherever they are allowed.
    add("WideForms",
        with("INVITE sip:vivekg@chair-dnrc.example.com;unknownparam SIP/2.0",
             "TO :\r\n sip:vivekg@chair-dnrc.example.com ;   tag    = \r\n"
             "from   : \"J Rosenberg \\\\\\\"\"       <sip:jdrosen@example.com>\r\n  ;\r\n  tag = 98asjd8\r\n"
             "MaX-fOrWaRdS: 0068\r\nCall-ID: wsinv.ndaksdj@192.0.2.1\r\nContent-Length   : 0\r\ncseq: "
             "0009\r\n  INVITE\r\n"
             "Via  : SIP  /   2.0\r\n /UDP\r\n    @ME@;branch=z9hG4bKtor1\r\nNewFangledHeader:   newfangled "
             "value\r\n "
             "continued newfangled value\r\nm:\"Quoted string \\\"\\\"\" <sip:jdrosen@example.com> ; "
             "newparam =\r\n"
             "      newvalue ;\r\n  secondparam ; q = 0.33\r\n"),
        "SIP/2.0 4");
    // 3.1.1.2: the widest range of characters.
    add("Escapes",
        with("OPTIONS sip:sips%3Auser%40example.com@example.net SIP/2.0",
             kVia + "To: sip:%75se%72@example.com\r\nFrom: <sip:I%20have%20spaces@example.net>;tag=938\r\n"
                    "Max-Forwards: 87\r\ni: esc01.239409asdfakjkn23onasd0-3234\r\nCSeq: 234234 "
                    "OPTIONS\r\nl: 0\r\n"),
        "SIP/2.0 200");
    // 3.1.1.7: long values everywhere.
    add("LongValues",
        with(
            options,
            plain + "X-Long: " + std::string(4000, 'x') + "\r\nSupported: " + std::string(300, 'y') + "\r\n"),
        "SIP/2.0 200");
    add("LongCallId",
        with(options, kVia + kRest + "Call-ID: " + std::string(2000, 'c') + "\r\nCSeq: 1 OPTIONS\r\n"),
        "SIP/2.0 200");
    // 3.1.2.2 to 3.1.2.4: Content-Length that is more than there is, negative, overlong.
    add("BodyTooShort",
        with(invite, plainInvite + "Content-Type: application/sdp\r\nContent-Length: 9999\r\n", "v=0\r\n"),
        "SIP/2.0 400");
    add("NegativeLength", with(options, plain + "Content-Length: -999\r\n"), "SIP/2.0 400");
    add("HugeNumbers",
        with("REGISTER sip:127.0.0.1 SIP/2.0",
             kVia + kRest + "Call-ID: big\r\nCSeq: 36893488147419103232 REGISTER\r\nContent-Length: 0\r\n"),
        "SIP/2.0 400");
    // 3.1.2.5: a response's numbers out of range; it concerns nobody.
    add("StrayResponse",
        with("SIP/2.0 4294967301 better not break the receiver",
             kVia + kRest + "Call-ID: big\r\nCSeq: 9292394834772304023312 OPTIONS\r\nContent-Length: 0\r\n"),
        "");
    // 3.1.2.6: no end of a quoted string.
    add("OpenQuote",
        with(invite,
             kVia +
                 "From: <sip:a@127.0.0.1>;tag=1\r\nTo: \"Mr J. User <sip:b@127.0.0.1>\r\nMax-Forwards: 70\r\n"
                 "Contact: <sip:a@@ME@>\r\n" +
                 kCall + "INVITE\r\nContent-Length: 0\r\n"),
        "SIP/2.0 400");
    // 3.1.2.7: the Request-URI in angle brackets.
    add("BracketedUri",
        with("INVITE <sip:b@127.0.0.1> SIP/2.0", plainInvite + "Content-Length: 0\r\n"),
        "SIP/2.0 4");
    // 3.1.2.16: another version of the protocol.
    add("OtherVersion",
        with("OPTIONS sip:b@127.0.0.1 SIP/7.0", plain + "Content-Length: 0\r\n"),
        "SIP/2.0 505");
    // 3.1.2.17: CSeq of another method.
    add("MethodMismatch",
        with(options, kVia + kRest + kCall + "INVITE\r\nContent-Length: 0\r\n"),
        "SIP/2.0 400");
    add("UnknownMethodMismatch",
        with("NEWMETHOD sip:b@127.0.0.1 SIP/2.0", kVia + kRest + kCall + "INVITE\r\nl: 0\r\n"),
        "SIP/2.0 400");
    // 3.3.1 and 3.3.2: what is missing, and what nobody understands.
    add("NoFromNorTo", with(options, kVia + kCall + "OPTIONS\r\nMax-Forwards: 70\r\n"), "SIP/2.0 400");
    add("NoVia", with(options, kRest + kCall + "OPTIONS\r\n"), "");
    add("UnknownScheme",
        with("OPTIONS nobodyKnowsThisScheme:totallyopaquecontent SIP/2.0", plain),
        "SIP/2.0 416");
    add("UnknownRequire",
        with(options,
             plain +
                 "Require: nothingSupportsThis, nothingSupportsThisEither\r\nProxy-Require: noneOfThis\r\n"),
        "SIP/2.0 420");
    add("SecondOfTheSingle",
        with(options, plain + "CSeq: 5 OPTIONS\r\nTo: <sip:second@127.0.0.1>\r\n"),
        "SIP/2.0 400");
    add("ZeroMaxForwards",
        with(options,
             kVia + "From: <sip:a@127.0.0.1>;tag=1\r\nTo: <sip:b@127.0.0.1>\r\nMax-Forwards: 0\r\n" + kCall +
                 "OPTIONS\r\n"),
        "SIP/2.0 200");
    add("NulInName",
        with(options, kVia + kRest + std::string("X-\0Bad: 1\r\n", 11) + kCall + "OPTIONS\r\n"),
        "SIP/2.0 ");
    add("OnlyLineFeeds",
        "OPTIONS sip:b@127.0.0.1 SIP/2.0\nVia: SIP/2.0/UDP @ME@;branch=z9hG4bKlf\nFrom: "
        "<sip:a@127.0.0.1>;tag=1\n"
        "To: <sip:b@127.0.0.1>\nCall-ID: lf\nCSeq: 1 OPTIONS\nMax-Forwards: 70\nContent-Length: 0\n\n",
        "SIP/2.0 200");
    add("BadAuthorization",
        with(options,
             plain + "Authorization: Digest username=\"x, realm=,,,=\"\r\nProxy-Authorization: \x01\r\n"),
        "SIP/2.0 ");
    add("Empty", "\r\n\r\n", "");
    add("Stun",
        std::string("\x00\x01\x00\x00\x21\x12\xa4\x42"
                    "abcdefghijkl",
                    20),
        "");
    add("Http", "GET / HTTP/1.1\r\nHost: x\r\n\r\n", "");
    return all;
}

class TortureTest : public testing::Test
{
protected:
    TortureTest() : m_agent(TestAgent::defaults()) {}

    static std::string placed(const Message& in_message, std::uint16_t in_uiPort)
    {
        std::string text = in_message.m_strText;
        // A Call-ID and a branch for each, so that none passes for a copy of another.
        for (std::size_t at = text.find("torture"); at != std::string::npos; at = text.find("torture", at))
        {
            text.replace(at, 7, in_message.m_szName);
        }
        const std::string me = "127.0.0.1:" + std::to_string(in_uiPort);
        for (std::size_t at = text.find("@ME@"); at != std::string::npos; at = text.find("@ME@", at))
        {
            text.replace(at, 4, me);
        }
        return text;
    }

    void expectAlive(const std::string& in_strAfter)
    {
        RawPeer probe(m_agent.port());
        probe.sendRequest("OPTIONS");
        EXPECT_FALSE(probe.expect("SIP/2.0 200").empty()) << "after " << in_strAfter;
    }

    TestAgent m_agent;
};

TEST_F(TortureTest, EveryMessageGetsWhatItDeserves)
{
    for (const Message& message : messages())
    {
        RawPeer peer(m_agent.port());
        peer.send(placed(message, peer.port()));
        // Whatever was to come has come before this is answered: messages are taken in their order.
        expectAlive(message.m_szName);
        const auto answer = peer.receive(0ms);
        const std::string start = answer ? answer->substr(0, answer->find('\r')) : std::string();
        if (message.m_szExpected[0] == '\0')
        {
            EXPECT_NE(start.substr(0, 5), "SIP/2") << message.m_szName;
        }
        else
        {
            EXPECT_EQ(start.substr(0, std::string(message.m_szExpected).size()), message.m_szExpected)
                << message.m_szName << " was answered: " << start;
        }
    }
    EXPECT_TRUE(m_agent.reports().empty());
    m_agent.expectEmpty();
}

TEST_F(TortureTest, GarbageIsToldOncePerSource)
{
    const std::string path = testing::TempDir() + "garbage-" + std::to_string(m_agent.port()) + ".log";
    std::string error;
    ASSERT_TRUE(Logging::setOutput(path, error)) << error;
    for (int i = 0; i < 20; ++i)
    {
        // Each from another port of one address that no other test uses.
        RawPeer peer(m_agent.port(), "127.0.0.77");
        peer.send("this is no message at all\r\n\r\n");
    }
    expectAlive("the garbage");
    ASSERT_TRUE(Logging::setOutput("", error));
    std::ifstream file(path);
    const std::string log{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    std::remove(path.c_str());
    const std::size_t line = log.find("no SIP message from udp/127.0.0.77 ");
    EXPECT_NE(line, std::string::npos) << log;
    EXPECT_EQ(log.find("no SIP message from", line + 1), std::string::npos) << log;
}

TEST_F(TortureTest, PiecesAndMutationsOfACallCostNothing)
{
    RawPeer peer(m_agent.port());
    peer.m_strExtra =
        "Supported: 100rel, timer\r\nSession-Expires: 1800\r\nX-Any: \"quoted\" <angle>;p=1, two\r\n";
    const std::string whole = peer.request("INVITE", kSdp);
    std::minstd_rand random(4475);
    for (std::size_t length = 0; length < whole.size(); length += 3)
    {
        peer.send(whole.substr(0, length));
    }
    for (int i = 0; i < 3000; ++i)
    {
        std::string text = i % 2 == 0 ? whole : "SIP/2.0 200 OK" + whole.substr(whole.find("\r\n"));
        for (unsigned int n = 1 + random() % 4; n != 0; --n)
        {
            const std::size_t at = random() % text.size();
            switch (random() % 3)
            {
                case 0:
                    text[at] = static_cast<char>(random());
                    break;
                case 1:
                    text.erase(at, 1 + random() % 20);
                    break;
                default:
                    text.insert(at, text.substr(random() % text.size(), random() % 40));
                    break;
            }
        }
        peer.send(text);
        while (peer.receive(0ms))
        {
        }
    }
    expectAlive("mutations");
    // Some of them were good enough to begin a call; they all end.
    m_agent.stack().stop(3000);
    while (!m_agent.reports().empty())
    {
        m_agent.reports().next();
    }
    EXPECT_EQ(m_agent.stack().getStatistics().m_ulCalls, 0U);
    EXPECT_EQ(m_agent.stack().getStatistics().m_ulDialogs, 0U);
}

}  // namespace
}  // namespace Quorvex
