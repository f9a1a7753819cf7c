// Session descriptions as text: what is printed, what is taken, what is refused.

#include <gtest/gtest.h>

#include "SdpTestSupport.h"
#include "sipstack/DsException.h"

namespace Quorvex
{
namespace
{

using SdpTest::lines;

TEST(SdpMessage, PrintsLinesInTheStandardOrder)
{
    DsSdpMsg* const pMsg = new DsSdpMsg;
    const DsHandle<DsSdpMsg> hMsg(pMsg);
    const auto hMedia = makeDs<DsSdpMediaDescription>();
    hMedia->addAttributeField({"ptime", "20"});
    hMedia->addAttributeField(DsSdpAttributeField("sendrecv"));
    hMedia->setConnectionField({"IN", "IP4", "10.0.0.6"});
    hMedia->setMediaField({"audio", 40000, "RTP/AVP", "0 8"});
    hMsg->addMediaDescription(hMedia);
    hMsg->addAttributeField(DsSdpAttributeField("inactive"));
    hMsg->setTimeDescription(DsSdpTimeDescription());
    hMsg->setConnectionField({"IN", "IP4", "10.0.0.5"});
    hMsg->setSessionNameField(DsSdpSessionNameField("SIP Call"));
    hMsg->setOriginField({"user", 18446744073709551615U, 2, "10.0.0.5"});

    const auto strExpected = lines({"v=0",
                                    "o=user 18446744073709551615 2 IN IP4 10.0.0.5",
                                    "s=SIP Call",
                                    "c=IN IP4 10.0.0.5",
                                    "t=0 0",
                                    "a=inactive",
                                    "m=audio 40000 RTP/AVP 0 8",
                                    "c=IN IP4 10.0.0.6",
                                    "a=ptime:20",
                                    "a=sendrecv"});
    EXPECT_EQ(hMsg->toString(), strExpected);
    EXPECT_EQ(DsSdpMsg::parse(strExpected)->toString(), strExpected);
}

TEST(SdpMessage, TakesWhatPeersSend)
{
    // Without version, origin, name and time; mixed line ends; repeated, unknown and empty lines; a last line
    // without an end.
    const auto hMsg = DsSdpMsg::parse(
        "c=IN IP4 10.0.0.1\nc=IN IP4 10.0.0.2\r\nb=AS:64\nz=what is this\na=sendonly\r\n\r\n"
        "m=audio\t30000/2   RTP/AVP  0 \t8 \r\na=rtpmap:0 PCMU/8000\r\na=fmtp:101 0-16:x\na=x-own\n"
        "m=video 0 RTP/AVP 31\nc=IN IP6 ::1\nk=clear:x\na=recvonly");
    ASSERT_NE(hMsg->getConnectionField(), nullptr);
    EXPECT_EQ(hMsg->getConnectionField()->getAddress(), "10.0.0.1");
    ASSERT_EQ(hMsg->getAttributeFields().size(), 1U);
    EXPECT_EQ(hMsg->getAttributeFields()[0].getName(), "sendonly");
    ASSERT_EQ(hMsg->getMediaDescriptions().size(), 2U);

    const auto& audio = *hMsg->getMediaDescriptions()[0];
    EXPECT_EQ(audio.getMediaField()->getMediaType(), "audio");
    EXPECT_EQ(audio.getMediaField()->getPort(), 30000);
    EXPECT_EQ(audio.getMediaField()->getTransport(), "RTP/AVP");
    EXPECT_EQ(audio.getMediaField()->getFormats(), "0 \t8");
    EXPECT_EQ(audio.getConnectionField(), nullptr);
    ASSERT_EQ(audio.getAttributeFields().size(), 3U);
    EXPECT_EQ(audio.getAttributeFields()[1].getValue(), "101 0-16:x");
    EXPECT_FALSE(audio.getAttributeFields()[2].hasValue());
    EXPECT_EQ(hMsg->getMediaDescriptions()[1]->getConnectionField()->getAddrType(), "IP6");
}

TEST(SdpMessage, RefusesWhatIsNoDescriptionWithAReason)
{
    const struct
    {
        std::string m_strText;
        const char* m_szReason;
    } kCases[] = {
        {"",                                     "empty"                                },
        {"\r\n\r\n",                             "empty"                                },
        {"INVITE sip:a@b SIP/2.0\r\n",           "line 1: expected \"<letter>=<value>\""},
        {"v=0\nhello\n",                         "line 2"                               },
        {"v=0\n=x\n",                            "line 2"                               },
        {"v=1\n",                                "expected version 0"                   },
        {"v=\n",                                 "expected version 0"                   },
        {std::string("v=0\na=fmtp:101 0\0-16\n", 21),                                     "NUL"},
        {"v=0\rm=audio 1 RTP/AVP 0\r\n",                                      "bare CR"                                               },
        {"c=IN IP4\n",                                      "<address>"                  },
        {"c=IN IP4  \t\n",                                      "<address>"                                           },
        {"c=\n",                                      "<address>"                            },
        {"a=\n",                                      "attribute"                                           },
        {"a=:x\n",                                      "attribute"                          },
        {"m=\n",                                      "<media> <port> <transport> <formats>"                                             },
        {"m=audio 5000\n",                                      "<media> <port> <transport> <formats>"                },
        {"m=audio 65536 RTP/AVP 0\n",                                      "port from 0 to 65535"                                  },
        {"m=audio -1 RTP/AVP 0\n",                                      "port from 0 to 65535"                   },
        {"m=audio 4294967296 RTP/AVP 0\n",                                      "port from 0 to 65535"                          },
        {"m=audio 18446744073709551616 RTP/AVP 0\n",                                      "port from 0 to 65535"         },
        {"m=audio 5000x RTP/AVP 0\n",                                      "port from 0 to 65535"                                         },
        {"m=audio 5\x1b[2J RTP/AVP 0\n",                                      "\"audio 5?[2J RTP/AVP 0\""},
        {"m=audio 5000/0 RTP/AVP 0\n",                                      "port from 0 to 65535"        },
        {"m=audio 5000/ RTP/AVP 0\n",                                      "port from 0 to 65535"                                          },
    };
    for (const auto& testCase : kCases)
    {
        try
        {
            DsSdpMsg::parse(testCase.m_strText);
            ADD_FAILURE() << "taken: " << testCase.m_strText;
        }
        catch (const DsException& exception)
        {
            EXPECT_NE(std::string(exception.what()).find(testCase.m_szReason), std::string::npos)
                << exception.what();
        }
    }
}

TEST(SdpMessage, BoundsSectionsAndTheLengthOfItsErrors)
{
    std::string strText = "v=0\n";
    for (std::size_t i = 0; i < DsSdpMsg::kMaxMediaDescriptions; ++i)
    {
        strText += "m=audio 5000 RTP/AVP 0\n";
    }
    EXPECT_EQ(DsSdpMsg::parse(strText)->getMediaDescriptions().size(), DsSdpMsg::kMaxMediaDescriptions);
    EXPECT_THROW(DsSdpMsg::parse(strText + "m=audio 5000 RTP/AVP 0\n"), DsException);

    try
    {
        DsSdpMsg::parse("m=audio " + std::string(60000, '9') + " RTP/AVP 0\n");
        ADD_FAILURE();
    }
    catch (const DsException& exception)
    {
        EXPECT_LT(std::string(exception.what()).size(), 300U);
    }
}

TEST(SdpRtpAttribute, ReadsMappingsAndRefusesTheRest)
{
    const auto events = DsSdpRtpAttribute::parse("101 telephone-event/8000");
    EXPECT_EQ(events.getPayloadType(), 101U);
    EXPECT_EQ(events.getEncodingName(), "telephone-event");
    EXPECT_EQ(events.getClockRate(), 8000U);
    EXPECT_EQ(DsSdpRtpAttribute::parse("  111  opus/48000/2 ").getClockRate(), 48000U);
    EXPECT_EQ(DsSdpRtpAttribute::parse("0 PCMU").getClockRate(), 0U);
    for (const char* szBad : {"",
                              "101",
                              "128 PCMU/8000",
                              "-1 PCMU/8000",
                              "4294967296 telephone-event/8000",
                              "x PCMU/8000",
                              "0 /8000",
                              "0 PCMU/",
                              "0 PCMU/0",
                              "0 PCMU/99999999999",
                              "0 PCMU/8k"})
    {
        EXPECT_THROW(DsSdpRtpAttribute::parse(szBad), DsException) << szBad;
    }
}

}  // namespace
}  // namespace Quorvex
