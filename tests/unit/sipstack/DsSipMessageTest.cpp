#include <gtest/gtest.h>

#include <random>
#include <string>
#include <thread>
#include <vector>

#include "sipstack/DsException.h"
#include "sipstack/DsSipAckMessage.h"
#include "sipstack/DsSipInviteMessage.h"
#include "sipstack/DsSipMessage.h"
#include "sipstack/DsSipReferMessage.h"
#include "sipstack/DsSipResponse.h"

namespace Quorvex
{
namespace
{

const char* const kInvite =
    "INVITE sip:bob@biloxi.example;transport=udp SIP/2.0\r\n"
    "Via: SIP/2.0/UDP one.example;branch=z9hG4bK1, SIP/2.0/TCP two.example:5070;branch=z9hG4bK2\r\n"
    "v: SIP/2.0/UDP three.example;branch=z9hG4bK3\r\n"
    "X-First:  a value  \r\n"
    "f: \"Alice, A.\" <sip:alice@atlanta.example>;tag=88sja8x\r\n"
    "To: <sip:bob@biloxi.example>\r\n"
    "CALL-id: 987asjd97y7atg\r\n"
    "CSeq: 986759 INVITE\r\n"
    "x-second: folded\r\n"
    "   value\r\n"
    "\tof three lines\r\n"
    "Contact: \"Q, q\" <sip:alice@pc33.example?x=1%2C2>;q=0.7 , <sip:alice@two.example>\r\n"
    "m: <sip:three@three.example>\r\n"
    "k: replaces, 100rel\r\n"
    "Require: TIMER\r\n"
    "X-First: again\r\n"
    "c: application/SDP;charset=utf-8\r\n"
    "Content-Length: 5\r\n"
    "\r\n"
    "v=0\r\nignored, since the length says so";

DsHandle<DsSipRequest> invite()
{
    return DsSipMessage::parse(kInvite).dynamicCast<DsSipRequest>();
}

std::vector<std::string> valuesOf(const DsSipMessage& in_message, int in_iID)
{
    std::vector<std::string> values;
    for (auto header = in_message.getHeaderByID(in_iID); !header.isNil(); header = header->getNext())
    {
        values.push_back(header->getToken() + "=" + header->getValueText());
    }
    return values;
}

TEST(DsSipMessage, keepsWhatWasReceived)
{
    const auto message = invite();
    ASSERT_FALSE(message.isNil());
    EXPECT_FALSE(message.dynamicCast<DsSipInviteMessage>().isNil());
    EXPECT_EQ(message->getMethod(), "INVITE");
    EXPECT_EQ(message->getRequestURI(), "sip:bob@biloxi.example;transport=udp");
    EXPECT_EQ(message->getBody(), "v=0\r\n");
    EXPECT_EQ(message->getBodyLength(), 5U);
    EXPECT_EQ(message->getBodyType(), "application/SDP");
    EXPECT_EQ(valuesOf(*message, DsSipHeaderID::eUNKNOWN),
              (std::vector<std::string>{
                  "X-First=a value", "x-second=folded value of three lines", "X-First=again"}));
    EXPECT_EQ(valuesOf(*message, DsSipHeaderID::eVIA),
              (std::vector<std::string>{"Via=SIP/2.0/UDP one.example;branch=z9hG4bK1",
                                        "Via=SIP/2.0/TCP two.example:5070;branch=z9hG4bK2",
                                        "v=SIP/2.0/UDP three.example;branch=z9hG4bK3"}));
    EXPECT_EQ(valuesOf(*message, DsSipHeaderID::eCONTACT),
              (std::vector<std::string>{"Contact=\"Q, q\" <sip:alice@pc33.example?x=1%2C2>;q=0.7",
                                        "Contact=<sip:alice@two.example>",
                                        "m=<sip:three@three.example>"}));
    EXPECT_EQ(message->getFromHeader()->getText(),
              "f: \"Alice, A.\" <sip:alice@atlanta.example>;tag=88sja8x");
    EXPECT_EQ(message->getCallID(), "987asjd97y7atg");
    EXPECT_EQ(message->getFromTag(), "88sja8x");
    EXPECT_EQ(message->getToTag(), "");
    EXPECT_TRUE(message->isSupported("100REL"));
    EXPECT_FALSE(message->isSupported("timer"));
    EXPECT_TRUE(message->isRequired("timer"));
    EXPECT_EQ(message->getHeader("x-FIRST")->getValueText(), "a value");
    EXPECT_EQ(message->getHeaderValue("X-Second"), "folded value of three lines");
    EXPECT_TRUE(message->getHeader("X-Third").isNil());
    EXPECT_EQ(message->getNumHeaders(), 15U);
    EXPECT_EQ(message->getHeaderAt(3).m_name, "f");

    // As text it is the message again, folds and spelling included.
    const std::string text = message->getText();
    EXPECT_NE(text.find("\r\nx-second: folded\r\n   value\r\n\tof three lines\r\nContact: "),
              std::string::npos);
    EXPECT_EQ(DsSipMessage::parse(text)->getText(), text);
}

TEST(DsSipMessage, changesOfHeadersShowInTheMessage)
{
    const auto message = invite();
    const auto copy = DsHandle<DsSipRequest>(message->clone());
    copy->getViaHeader()->setBranchRFC3261();
    const std::string branch = copy->getViaHeader()->getBranch();
    EXPECT_NE(branch, "z9hG4bK1");
    const std::string line = "Via: SIP/2.0/UDP one.example;branch=" + branch +
                             ", SIP/2.0/TCP two.example:5070;branch=z9hG4bK2\r\nv: ";
    EXPECT_NE(copy->getText().find(line), std::string::npos) << *copy;
    EXPECT_EQ(DsHandle<DsSipRequest>(copy->clone())->getText(), copy->getText());

    // Also after the list of these headers has changed.
    copy->addHeader("Via", "SIP/2.0/UDP four.example");
    EXPECT_EQ(copy->getViaHeader()->getBranch(), branch);
    EXPECT_EQ(copy->getAllTyped<DsSipViaHeader>().size(), 4U);

    copy->getToHeader()->setTag("t1");
    EXPECT_EQ(copy->getToTag(), "t1");
    EXPECT_EQ(message->getToTag(), "");
    EXPECT_EQ(message->getViaHeader()->getBranch(), "z9hG4bK1");
}

TEST(DsSipMessage, addsAndRemovesHeaders)
{
    const auto message = makeDs<DsSipRequest>("INFO", "sip:a@b");
    message->addHeader("X-B", "1");
    message->addHeader("Contact", "<sip:a@b>");
    message->addHeader("x-b", "2\r\nEvil: 3");
    message->addHeader(DsSipContactHeader(DsSipURL("sip:c@d")));
    message->setBody("hello", "text/plain");
    EXPECT_EQ(
        message->getText(),
        "INFO sip:a@b SIP/2.0\r\nX-B: 1\r\nx-b: 2  Evil: 3\r\nContact: <sip:a@b>\r\nContact: <sip:c@d>\r\n"
        "Content-Type: text/plain\r\nContent-Length: 5\r\n\r\nhello");
    EXPECT_TRUE(message->removeHeader("m"));
    EXPECT_FALSE(message->removeHeader("Contact"));
    EXPECT_TRUE(message->removeHeader("X-B"));
    message->setBody("", "");
    EXPECT_EQ(message->getText(), "INFO sip:a@b SIP/2.0\r\nContent-Length: 0\r\n\r\n");
    for (const char* const name : {"", "X Y", "X:", "X\r\nY"})
    {
        EXPECT_THROW(message->addHeader(name, "1"), DsException) << name;
    }
    EXPECT_THROW(message->addHeader(DsHandle<DsSipHeader>()), DsException);

    // A header may go from one message to another, and back into its own.
    const auto other = invite();
    message->addHeader(other->getHeaderByID(DsSipHeaderID::eUNKNOWN));
    other->updateHeader(*other->getToHeader());
    EXPECT_EQ(message->getHeaderValue("X-First"), "a value");
    EXPECT_EQ(other->getToHeader()->getURIText(), "sip:bob@biloxi.example");
}

TEST(DsSipMessage, unreadableHeadersAreToldFromAbsentOnes)
{
    const auto message =
        DsSipMessage::parse("INVITE sip:a@b SIP/2.0\nTo: \"open <sip:a@b>\nCSeq: x\nFrom: <bob@b>\n\n");
    EXPECT_THROW(message->getToHeader(), DsException);
    EXPECT_THROW(message->getCSeqHeader(), DsException);
    EXPECT_TRUE(message->getContactHeader().isNil());
    EXPECT_TRUE(message->getFromHeader()->getURL().isNil());
    const auto to = message->getHeaderByID(DsSipHeaderID::eTO).dynamicCast<DsSipUnknownHeader>();
    ASSERT_FALSE(to.isNil());
    EXPECT_EQ(to->getText(), "To: \"open <sip:a@b>");
    EXPECT_NE(to->getError().find("do not close"), std::string::npos) << to->getError();
    EXPECT_EQ(message->getToTag(), "");
}

TEST(DsSipMessage, refusesWhatIsNoMessage)
{
    const std::vector<std::string> table = {
        "",
        "\r\n\r\n",
        "INVITE",
        "INVITE sip:a@b",
        "INVITE sip:a@b SIP/3.0\r\n\r\n",
        "IN(VITE sip:a@b SIP/2.0\r\n\r\n",
        "SIP/2.0\r\n\r\n",
        "SIP/2.0 99 Low\r\n\r\n",
        "SIP/2.0 700 High\r\n\r\n",
        "SIP/2.0 4294967496 Overflow\r\n\r\n",
        "SIP/2.0 2x0 Odd\r\n\r\n",
        "INVITE sip:a@b SIP/2.0\r\nno colon\r\n\r\n",
        "INVITE sip:a@b SIP/2.0\r\n: no name\r\n\r\n",
        "INVITE sip:a@b SIP/2.0\r\nX Y: blank in the name\r\n\r\n",
        "INVITE sip:a@b SIP/2.0\r\nContent-Length: 10\r\n\r\nshort",
        "INVITE sip:a@b SIP/2.0\r\nContent-Length: -1\r\n\r\n",
        "INVITE sip:a@b SIP/2.0\r\nl: 99999999999999999999\r\n\r\n",
    };
    for (const std::string& text : table)
    {
        EXPECT_THROW(DsSipMessage::parse(text), DsException) << text;
    }
    // Long, but right.
    const std::string callID(70000, 'c');
    EXPECT_EQ(DsSipMessage::parse("BYE sip:a@b SIP/2.0\r\ni:" + callID + "\r\n\r\n")->getCallID(), callID);
}

TEST(DsSipMessage, bombsOfHeadersCostNoStack)
{
    std::string text = "OPTIONS sip:a@b SIP/2.0\r\n";
    for (int i = 0; i < 100000; ++i)
    {
        text.append("a:\r\n");
    }
    text.append("Via: SIP/2.0/UDP h");
    for (int i = 0; i < 50000; ++i)
    {
        text.append(",");
        text.append("SIP/2.0/UDP h");
    }
    const auto message = DsSipMessage::parse(text + "\r\n\r\n");
    EXPECT_EQ(valuesOf(*message, DsSipHeaderID::eUNKNOWN).size(), 100000U);
    DsHandle<DsSipHeader> first = message->getHeaderByID(DsSipHeaderID::eVIA);
    EXPECT_EQ(message->getAllTyped<DsSipViaHeader>().size(), 50001U);
    // A chain that outlives its message goes as well.
    message->removeHeader("v");
    first = nullptr;
}

// Whatever comes: a message or one exception, and the text of a message parses to itself.
TEST(DsSipMessage, mutatedMessagesDoNoHarm)
{
    std::mt19937 random(4711);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same cases every time
    const std::string base = kInvite;
    int parsed = 0;
    for (int i = 0; i < 3000; ++i)
    {
        std::string text = base;
        for (unsigned int n = 1 + random() % 4; n > 0; --n)
        {
            const std::size_t at = random() % text.size();
            switch (random() % 4)
            {
                case 0:
                    text[at] = static_cast<char>(random());
                    break;
                case 1:
                    text.erase(at, random() % 20);
                    break;
                case 2:
                    text.insert(at, 1 + random() % 3, "\"<>;,:\r\n%@ \0"[random() % 12]);
                    break;
                default:
                    text.append(text.substr(at));
                    break;
            }
            if (text.empty())
            {
                text = "x";
            }
        }
        try
        {
            const auto message = DsSipMessage::parse(text);
            ++parsed;
            for (int id = 0; id < DsSipHeaderID::eNUM_IDS; ++id)
            {
                valuesOf(*message, id);
            }
            const std::string written = message->getText();
            EXPECT_EQ(DsSipMessage::parse(written)->getText(), written) << text;
        }
        catch (const DsException& exception)
        {
            EXPECT_LT(exception.getReason().size(), 400U);
        }
    }
    EXPECT_GT(parsed, 500);
}

TEST(DsSipMessage, manyThreadsMayReadOne)
{
    const auto message = invite();
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back(
            [message]
            {
                for (int n = 0; n < 200; ++n)
                {
                    EXPECT_EQ(message->getAllTyped<DsSipContactHeader>().size(), 3U);
                    EXPECT_EQ(message->getFromTag(), "88sja8x");
                    EXPECT_EQ(valuesOf(*message, DsSipHeaderID::eUNKNOWN).size(), 3U);
                    EXPECT_FALSE(message->getText().empty());
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
}

TEST(DsSipResponse, answersARequest)
{
    const auto request = invite();
    request->addHeader("Record-Route", "<sip:p1;lr>");
    request->addHeader("Timestamp", "54");
    const auto ok = makeDs<DsSipResponse>(200, request, "", "v=0", "application/sdp");
    EXPECT_EQ(ok->getStartLine(), "SIP/2.0 200 OK");
    EXPECT_EQ(ok->getMethod(), "INVITE");
    EXPECT_EQ(ok->getBodyType(), "application/sdp");
    EXPECT_EQ(valuesOf(*ok, DsSipHeaderID::eVIA).size(), 3U);
    EXPECT_TRUE(ok->hasHeader("Record-Route"));
    EXPECT_FALSE(ok->hasHeader("Timestamp"));
    EXPECT_FALSE(ok->hasHeader("X-First"));
    const auto trying = makeDs<DsSipResponse>(100, request);
    EXPECT_TRUE(trying->hasHeader("Timestamp"));
    EXPECT_FALSE(trying->hasHeader("Record-Route"));
    EXPECT_EQ(makeDs<DsSipResponse>(202, request, "Accepted")->getReasonPhrase(), "Accepted");
    EXPECT_EQ(makeDs<DsSipResponse>(499, request)->getStartLine(), "SIP/2.0 499 Unknown");
    EXPECT_EQ(makeDs<DsSipResponse>(606, request)->getReasonPhrase(), "Not Acceptable");
    EXPECT_THROW(makeDs<DsSipResponse>(99, request), DsException);
    EXPECT_THROW(makeDs<DsSipResponse>(200, DsHandle<DsSipRequest>()), DsException);
}

TEST(DsSipAckMessage, followsTheResponse)
{
    const auto ok = makeDs<DsSipResponse>(200, invite());
    ok->getToHeader()->setTag("t");
    EXPECT_EQ(makeDs<DsSipAckMessage>(ok)->getRequestURI(), "sip:bob@biloxi.example");
    ok->addHeader("Contact", "<sip:bob@there:5080>");
    const auto ack = makeDs<DsSipAckMessage>(ok);
    EXPECT_EQ(ack->getText(),
              "ACK sip:bob@there:5080 SIP/2.0\r\nf: \"Alice, A.\" <sip:alice@atlanta.example>;tag=88sja8x\r\n"
              "To: <sip:bob@biloxi.example>;tag=t\r\nCALL-id: 987asjd97y7atg\r\nCSeq: 986759 ACK\r\n"
              "Content-Length: 0\r\n\r\n");
}

TEST(DsSipMessageBuilder, takesTheLinesAsTheyCame)
{
    DsSipMessageBuilder builder("REFER", "sip:a@b");
    EXPECT_TRUE(builder.addLine("r: <sip:c@d?Replaces=1%40x%3Bto-tag%3D2>\r\n"));
    EXPECT_TRUE(builder.addLine("X:\r\n"));
    EXPECT_FALSE(builder.addLine("no colon\r\n"));
    EXPECT_FALSE(builder.addLine(":x"));
    DsInetAddress local;
    DsInetAddress source;
    ASSERT_TRUE(DsInetAddress::parseLiteral("127.0.0.1", 5060, local));
    ASSERT_TRUE(DsInetAddress::parseLiteral("[::1]", 5061, source));
    builder.setAddresses(local, source);
    const auto request = builder.buildRequest();
    EXPECT_FALSE(request.dynamicCast<DsSipReferMessage>().isNil());
    EXPECT_EQ(request->getReferToHeader()->getURL()->getHeader("Replaces"), "1@x;to-tag=2");
    EXPECT_EQ(request->getHeaderValue("X"), "");
    EXPECT_EQ(request->getLocalAddress().getText(), "127.0.0.1:5060");
    EXPECT_EQ(request->getSourceAddress().getText(), "[::1]:5061");
}

}  // namespace
}  // namespace Quorvex
