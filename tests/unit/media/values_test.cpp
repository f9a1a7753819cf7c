// Value types and parsers of the media and RTP libraries.

#include <gtest/gtest.h>

#include <sstream>

#include "media/Media.h"
#include "media/MediaEndpointCapacity.h"
#include "media/MediaEndpointConfig.h"
#include "media/RtpMediaConfig.h"
#include "rtp/RFC1890.h"
#include "rtp/Rtp.h"

namespace Quorvex::Test
{

TEST(MediaValues, numberLists)
{
    using List = std::vector<unsigned>;
    struct Case
    {
        const char* m_szText;
        bool m_bPayloadTypes;
        bool m_bPacketSizes;
        List m_vNumbers;
    };
    for (const Case& aCase : {
             Case{"0 8",            true,  false, {0, 8}  },
             Case{"20,30",          true,  true,  {20, 30}},
             Case{" 20 ,\t30, 20 ", true,  true,  {20, 30}},
             Case{"",               false, false, {}      },
             Case{" , ",            false, false, {}      },
             Case{"8x",             false, false, {}      },
             Case{"-1",             false, false, {}      },
             Case{"128",            false, true,  {128}   },
             Case{"201",            false, false, {}      },
             Case{"4294967296",     false, false, {}      },
             Case{"20 abc",         false, false, {}      }
    })
    {
        List vNumbers{99};
        EXPECT_EQ(aCase.m_bPayloadTypes, RFC1890::parsePayloadTypeListString(aCase.m_szText, vNumbers))
            << aCase.m_szText;
        EXPECT_EQ(aCase.m_bPayloadTypes ? aCase.m_vNumbers : List{}, vNumbers) << aCase.m_szText;
        EXPECT_EQ(aCase.m_bPacketSizes, Rtp::parsePacketSizeVector(aCase.m_szText, vNumbers))
            << aCase.m_szText;
        EXPECT_EQ(aCase.m_bPacketSizes ? aCase.m_vNumbers : List{}, vNumbers) << aCase.m_szText;
    }
}

TEST(MediaValues, modes)
{
    for (const char* szName : {"sendonly", "recvonly", "sendrecv", "inactive"})
    {
        EXPECT_STREQ(szName, Media::getMediaModeString(Media::parseMediaMode(szName)));
    }
    EXPECT_EQ(Media::RECVONLY_MODE, Media::parseMediaMode("RecvOnly"));
    for (const char* szText : {"", "send", "sendonlyx", "rtpmap"})
    {
        EXPECT_EQ(Media::UNKNOWN_MODE, Media::parseMediaMode(szText)) << szText;
    }
}

TEST(MediaValues, configurationsKeepTypesApart)
{
    RtpMediaConfigData data;
    data.setIPAddress("10.0.0.1");
    data.setUDPPort(4000);
    data.setPacketSizeMs(30);
    data.setRfc2833Support(true);
    data.setRfc2833PayloadType(97);
    MediaEndpointConfig config(MediaEndpoint::TX_DIRECTION);
    config.enableRecording(true);
    RtpMediaConfig(data).copyInto(config);
    std::string strValue = "untouched";
    unsigned uiValue = 7;
    bool bValue = false;
    EXPECT_FALSE(config.getString("UDP Port", strValue));
    EXPECT_FALSE(config.getUnsigned("IPv4 Address", uiValue));
    EXPECT_EQ("untouched", strValue);
    EXPECT_EQ(7U, uiValue);
    EXPECT_TRUE(config.getUnsigned("Rfc 2833 payload type", uiValue));
    EXPECT_EQ(97U, uiValue);
    EXPECT_TRUE(config.getBool("recording.enabled", bValue));
    EXPECT_TRUE(bValue);
    std::ostringstream text;
    text << config;
    EXPECT_EQ(
        "direction=TX, recording.enabled=true, IPv4 Address=10.0.0.1, UDP Port=4000, Payload type=0, Payload "
        "size=30, Rfc 2833 support=true, Rfc 2833 payload type=97",
        text.str());
}

TEST(MediaValues, aClonedCapacityIsItsOwn)
{
    auto pCapacity = std::make_unique<MediaEndpointCapacity>();
    pCapacity->set("Payload type", std::vector<unsigned>{0, 8});
    const std::unique_ptr<MediaEndpointCapacity> pClone(pCapacity->clone());
    pCapacity.reset();
    std::vector<unsigned> vTypes;
    EXPECT_TRUE(pClone->getUnsignedList("Payload type", vTypes));
    EXPECT_EQ((std::vector<unsigned>{0, 8}), vTypes);
    EXPECT_NE(pClone->end(), pClone->find("Payload type"));
    EXPECT_EQ(pClone->end(), pClone->find("Payload"));
}

}  // namespace Quorvex::Test
