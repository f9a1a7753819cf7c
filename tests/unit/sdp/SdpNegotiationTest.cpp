// Offer and answer: what one stream becomes, and the text of the whole.

#include <gtest/gtest.h>

#include <ctime>
#include <sstream>

#include "SdpTestSupport.h"
#include "sipstack/DsException.h"

namespace Quorvex
{
namespace
{

using namespace SdpTest;
using Media::StreamMode;

constexpr auto kSend = Media::SENDONLY_MODE;
constexpr auto kReceive = Media::RECVONLY_MODE;
constexpr auto kBoth = Media::SENDRECV_MODE;
constexpr auto kNone = Media::INACTIVE_MODE;

std::string sectionOf(const LocalSdpInfo& in_info)
{
    std::string strText;
    in_info.makeSection()->appendTo(strText);
    return strText;
}

/// The text from the session name on: what precedes it carries the time.
std::string afterOrigin(const std::string& in_strSdp)
{
    return in_strSdp.substr(in_strSdp.find("s="));
}

std::string originOf(const std::string& in_strSdp)
{
    const auto begin = in_strSdp.find("o=");
    return in_strSdp.substr(begin, in_strSdp.find("\r\n", begin) - begin);
}

CountedObjPtr<LocalSdpInfo> makeLocal()
{
    return CountedObjPtr<LocalSdpInfo>(new LocalSdpInfo("10.0.0.5"));
}

/// An Sdp whose local streams answer the remote description.
struct Answering
{
    explicit Answering(const std::string& in_strOffer, std::vector<MediaEndpointCapacity> in_vCapacity = {})
    {
        m_bParsed = m_sdp.initRemoteSdp(inviteWith(in_strOffer));
        Sdp::LocalSdpInfoVector vLocal;
        for (std::size_t i = 0; i < m_sdp.getRemoteSdp().size(); ++i)
        {
            auto pInfo = makeLocal();
            pInfo->initLocalAnswer(i < in_vCapacity.size() ? in_vCapacity[i] : capacity(),
                                   configuration(),
                                   m_sdp.getRemoteSdp()[i]);
            vLocal.push_back(pInfo);
        }
        m_sdp.setLocalSdp(vLocal);
    }

    std::string answer()
    {
        std::ostringstream text;
        m_bAnswered = m_sdp.generateSdpAnswer("10.0.0.5", text);
        return text.str();
    }

    Sdp m_sdp;
    bool m_bParsed = false;
    bool m_bAnswered = false;
};

TEST(SdpOffer, SaysWhatTheEngineAndTheConfigurationAllow)
{
    const auto pInfo = makeLocal();
    ASSERT_TRUE(pInfo->initLocalOffer(capacity(), configuration(), kBoth));
    Sdp sdp;
    sdp.setLocalSdp({pInfo});
    std::ostringstream first;
    const auto before = std::time(nullptr);
    ASSERT_TRUE(sdp.generateSdpOffer("10.0.0.5", first));
    EXPECT_EQ(afterOrigin(first.str()),
              lines({"s=SIP Call",
                     "c=IN IP4 10.0.0.5",
                     "t=0 0",
                     "m=audio 40000 RTP/AVP 0 8 101",
                     "a=rtpmap:0 PCMU/8000",
                     "a=rtpmap:8 PCMA/8000",
                     "a=rtpmap:101 telephone-event/8000",
                     "a=fmtp:101 0-16",
                     "a=ptime:20",
                     "a=sendrecv"}));
    EXPECT_EQ(first.str().substr(0, 5), "v=0\r\n");

    // The session keeps its identifier, each description has the next version.
    std::ostringstream second;
    ASSERT_TRUE(sdp.generateSdpOffer("10.0.0.5", second));
    unsigned long long ullId = 0;
    unsigned long long ullVersion = 0;
    ASSERT_EQ(
        std::sscanf(
            originOf(first.str()).c_str(), "o=Quorvex-Tech %llu %llu IN IP4 10.0.0.5", &ullId, &ullVersion),
        2);
    EXPECT_EQ(ullId, ullVersion);
    EXPECT_GE(ullId, static_cast<unsigned long long>(before));
    EXPECT_EQ(originOf(second.str()),
              "o=Quorvex-Tech " + std::to_string(ullId) + ' ' + std::to_string(ullVersion + 1) +
                  " IN IP4 10.0.0.5");
}

TEST(SdpOffer, PayloadTypesFollowTheConfiguration)
{
    const struct
    {
        const char* m_szEncodings;
        Types m_vCapable;
        Types m_vOffered;  // empty: no offer
    } kCases[] = {
        {"0 8 18", {8, 0}, {0, 8}},
        {"8,0",    {0, 8}, {8, 0}},
        {"18",     {0, 8}, {}    },
        {"0 8",    {},     {}    },
        {"",       {0},    {}    },
        {"x",      {0},    {}    },
        {nullptr,  {0},    {}    },
    };
    for (const auto& testCase : kCases)
    {
        const auto pInfo = makeLocal();
        const bool bOffered = pInfo->initLocalOffer(
            capacity(testCase.m_vCapable), configuration(testCase.m_szEncodings), kSend);
        EXPECT_EQ(bOffered, !testCase.m_vOffered.empty());
        EXPECT_EQ(pInfo->isValid(), bOffered);
        EXPECT_EQ(pInfo->getStreamMode(), bOffered ? kSend : kNone);
        if (bOffered)
        {
            EXPECT_EQ(pInfo->getPayloadTypes(), testCase.m_vOffered);
        }
    }
}

TEST(SdpOffer, PacketTimeIsTheFirstConfiguredOneThatTheEngineKnows)
{
    const struct
    {
        const char* m_szSizes;
        Types m_vCapable;
        unsigned m_uiExpected;
    } kCases[] = {
        {"30 20", {20, 30}, 30},
        {"30 20", {20},     20},
        {"60",    {10, 20}, 10},
        {"30",    {},       30},
        {nullptr, {},       20},
        {"",      {},       20},
        {"abc",   {30},     30},
        {"abc",   {30, 20}, 20},
    };
    for (const auto& testCase : kCases)
    {
        const auto pInfo = makeLocal();
        ASSERT_TRUE(pInfo->initLocalOffer(
            capacity({0}, 101, testCase.m_vCapable), configuration("0", testCase.m_szSizes), kBoth));
        EXPECT_EQ(pInfo->getPacketTime().value(), testCase.m_uiExpected)
            << (testCase.m_szSizes ? testCase.m_szSizes : "");
    }
    MapConfiguration number = configuration();
    number.set("quorvex.media.rtp.packetSizeMs", 30);
    const auto pInfo = makeLocal();
    ASSERT_TRUE(pInfo->initLocalOffer(capacity({0}, 101, {20, 30}), number, kBoth));
    EXPECT_EQ(pInfo->getPacketTime().value(), 30U);
}

TEST(SdpOffer, AnEngineThatSaysNonsenseOffersNothing)
{
    for (const char* szMissing : {MediaEndpointCapacity::IPV4_ADDRESS,
                                  MediaEndpointCapacity::UDP_PORT,
                                  MediaEndpointCapacity::PAYLOAD_TYPE,
                                  MediaEndpointCapacity::RFC2833_PAYLOAD_TYPE})
    {
        MediaEndpointCapacity broken = capacity();
        broken.set(szMissing, MediaValue(true));  // the name is there, the value is of no use
        EXPECT_FALSE(makeLocal()->initLocalOffer(broken, configuration(), kBoth)) << szMissing;
    }
    for (const unsigned uiPort : {0U, 40001U, 65536U})
    {
        EXPECT_FALSE(makeLocal()->initLocalOffer(capacity({0}, 101, {20}, uiPort), configuration(), kBoth))
            << uiPort;
    }
}

TEST(SdpRemote, SectionsBecomeStreams)
{
    const struct
    {
        const char* m_szName;
        std::string m_strSdp;
        bool m_bValid;
        Types m_vTypes;
        StreamMode m_mode;
        unsigned m_uiPacketTime;  // 0: not known
        unsigned m_uiEvents;      // 0: none
        // clang-format off
    } kCases[] = {
        {"plain", remoteSdp("18 8 0"), true, {18, 8, 0}, kBoth,0,0},
        {"attributes", remoteSdp("0 101", {"RTPMAP:101 Telephone-Event/8000", "PTIME:30", "SendOnly"}), true,
         {0}, kSend, 30, 101},
        {"events not in the media line", remoteSdp("0", {"rtpmap:101 telephone-event/8000"}), true, {0},
         kBoth, 0, 0},
        {"events at two clock rates",
         remoteSdp("0 101 102", {"rtpmap:101 telephone-event/8000", "rtpmap:102 telephone-event/48000"}),
         true, {0}, kBoth, 0, 101},
        {"events under a static number", remoteSdp("0 13", {"rtpmap:13 telephone-event/8000"}), true, {0},
         kBoth, 0, 13},
        {"events only", remoteSdp("0", {"rtpmap:0 telephone-event/8000"}), false, {},kNone,0,0},
        {"hold by address", remoteSdp("0", {"sendrecv"}, "0.0.0.0"),true,{0},kNone,0, 0},
        {"port 0", remoteSdp("0", {},"10.0.0.9", 0), false, {0}, kNone, 0, 0},
        {"dynamic types only",remoteSdp("96 101"),false, {}, kNone,0,0},
        {"garbage after a codec", remoteSdp("0 4294967296 8"), true, {0}, kBoth,0,0},
        {"garbage before a codec", remoteSdp("x 8"), false, {}, kNone,0, 0},
        {"number with a tail", remoteSdp("0 8x"), true, {0}, kBoth,0,0},
        {"no formats", remoteSdp(""), false, {}, kNone,0,0},
        {"packet time of nothing", remoteSdp("0", {"ptime:0"}), true, {0},kBoth,0,0},
        {"packet time of an age", remoteSdp("0", {"ptime:99999999999"}), true, {0},kBoth, 0, 0},
        {"packet time without value", remoteSdp("0", {"ptime"}), true, {0},kBoth,0,0},
        {"packet time with a fraction", remoteSdp("0", {"ptime:20.0"}), true, {0}, kBoth,20,0},
        {"blanks around the address", remoteSdp("0", {}, " 10.0.0.9\t"), true,{0},kBoth,0, 0},
        {"IPv6", "v=0\nc=IN IP6 ::1\nm=audio 30000 RTP/AVP 0\n", false,{0},kNone,0,0},
        {"no connection", "v=0\nm=audio 30000 RTP/AVP 0\n",false,{0},kNone,0,0},
        {"own connection", "v=0\nc=IN IP4 0.0.0.0\nm=audio 30000 RTP/AVP 0\nc=IN IP4 10.0.0.9\n", true, {0},
         kBoth, 0, 0},
        {"session direction", "v=0\nc=IN IP4 10.0.0.9\na=recvonly\nm=audio 30000 RTP/AVP 0\n", true, {0},
         kReceive, 0, 0},
        {"own direction", "v=0\nc=IN IP4 10.0.0.9\na=recvonly\nm=audio 30000 RTP/AVP 0\na=sendonly\n", true,
         {0}, kSend, 0, 0},
        {"fax", "v=0\nc=IN IP4 10.0.0.9\nm=image 30000 udptl T38\n", false, {}, kNone,0,0},
        {"video", "v=0\nc=IN IP4 10.0.0.9\nm=video 30000 RTP/AVP 31\n", false, {}, kNone,0,0},
        {"encrypted", "v=0\nc=IN IP4 10.0.0.9\nm=audio 30000 RTP/SAVP 0\n", false, {}, kNone,0,0},
        {"any case", "v=0\nc=in ip4 10.0.0.9\nm=AUDIO 30000 rtp/avp 0\n", true, {0}, kBoth,0,0},
    };
    // clang-format on
    for (const auto& testCase : kCases)
    {
        SCOPED_TRACE(testCase.m_szName);
        const auto infos = infosOf(testCase.m_strSdp);
        ASSERT_EQ(infos.size(), 1U);
        const SdpInfo& info = infos[0];
        EXPECT_EQ(info.isValid(), testCase.m_bValid);
        EXPECT_EQ(info.getPayloadTypes(), testCase.m_vTypes);
        EXPECT_EQ(info.getStreamMode(), testCase.m_mode);
        if (testCase.m_bValid)
        {
            EXPECT_EQ(info.getPacketTime().valueOr(0), testCase.m_uiPacketTime);
            EXPECT_EQ(
                info.getMediaConfig().getRfc2833Support() ? info.getMediaConfig().getRfc2833PayloadType() : 0,
                testCase.m_uiEvents);
            EXPECT_EQ(info.getMediaConfig().getIPAddress(),
                      std::string_view(testCase.m_szName) == "hold by address" ? "0.0.0.0" : "10.0.0.9");
        }
    }
}

TEST(SdpRemote, WhatCannotBeReadLeavesTheFormerDescription)
{
    Sdp sdp;
    ASSERT_TRUE(sdp.initRemoteSdp(inviteWith(remoteSdp("0"))));
    EXPECT_FALSE(sdp.initRemoteSdp(inviteWith("")));
    EXPECT_FALSE(sdp.initRemoteSdp(inviteWith(remoteSdp("8"), "", "text/plain")));
    EXPECT_FALSE(sdp.initRemoteSdp(inviteWith("not a description")));
    EXPECT_FALSE(sdp.initRemoteSdp(inviteWith(remoteSdp("0", {"rtpmap:4294967296 telephone-event/8000"}))));
    EXPECT_FALSE(sdp.initRemoteSdp(inviteWith(remoteSdp("0", {}, "224.2.1.1/127"))));
    EXPECT_FALSE(sdp.initRemoteSdp(inviteWith(remoteSdp("0", {}, "host.invalid"))));
    EXPECT_FALSE(sdp.initRemoteSdp(DsHandle<DsSipMessage>()));
    ASSERT_EQ(sdp.getRemoteSdp().size(), 1U);
    EXPECT_EQ(sdp.getRemoteSdp()[0].getPayloadTypes(), Types{0});

    EXPECT_TRUE(sdp.initRemoteSdp(inviteWith(remoteSdp("8"), "", "Application/SDP;charset=utf-8")));
    EXPECT_EQ(sdp.getRemoteSdp()[0].getPayloadTypes(), Types{8});
    EXPECT_TRUE(sdp.clearRemoteSdp());
    EXPECT_TRUE(sdp.getRemoteSdpMsg().isNil());
    EXPECT_TRUE(sdp.getRemoteSdp().empty());
}

TEST(SdpAnswer, RejectsSectionsItCannotUseAndKeepsTheirPlaces)
{
    Answering call(remoteSdp("0") + lines({"m=video 30002/2 RTP/AVP 31 34",
                                           "a=recvonly",
                                           "m=audio 30004 RTP/AVP 18",
                                           "m=image 30006 udptl t38"}),
                   {capacity({0}, 101, {20}, 40000, "10.0.0.6")});
    EXPECT_EQ(afterOrigin(call.answer()),
              lines({"s=SIP Call",
                     "c=IN IP4 10.0.0.6",
                     "t=0 0",
                     "m=audio 40000 RTP/AVP 0",
                     "a=rtpmap:0 PCMU/8000",
                     "a=ptime:20",
                     "a=sendrecv",
                     "m=video 0 RTP/AVP 31 34",
                     "c=IN IP4 10.0.0.5",
                     "m=audio 0 RTP/AVP 18",
                     "c=IN IP4 10.0.0.5",
                     "m=image 0 udptl t38",
                     "c=IN IP4 10.0.0.5"}));
    EXPECT_TRUE(call.m_bAnswered);
    const auto strAgain = afterOrigin(call.answer());
    EXPECT_NE(strAgain.find("m=image 0 udptl t38\r\nc=IN IP4 10.0.0.5\r\n"), std::string::npos)
        << "said twice alike";
}

TEST(SdpAnswer, EqualConnectionsStandOnceForTheSession)
{
    const auto strOffer = remoteSdp("0") + "m=audio 30002 RTP/AVP 0\r\nm=video 30004 RTP/AVP 31\r\n";
    Answering same(strOffer);
    const auto strSame = same.answer();
    EXPECT_EQ(strSame.find("c="), strSame.rfind("c="));
    EXPECT_LT(strSame.find("c="), strSame.find("m="));

    Answering different(strOffer, {capacity(), capacity({0}, 101, {20}, 40002, "10.0.0.7")});
    const auto strDifferent = different.answer();
    EXPECT_NE(strDifferent.find("s=SIP Call\r\nc=IN IP4 10.0.0.5\r\n"), std::string::npos);
    EXPECT_NE(strDifferent.find("m=audio 40002 RTP/AVP 0\r\nc=IN IP4 10.0.0.7\r\n"), std::string::npos);
}

TEST(SdpAnswer, TelephoneEvents)
{
    const struct
    {
        unsigned m_uiLocal;
        bool m_bOffered;
        bool m_bValid;
        bool m_bSupport;
    } kCases[] = {
        {101,       true,  true,  true },
        {101,       false, true,  false},
        {kNoEvents, false, true,  false},
        {kNoEvents, true,  false, false}
    };
    for (const auto& testCase : kCases)
    {
        const auto infos = testCase.m_bOffered
                               ? infosOf(remoteSdp("0 97", {"rtpmap:97 telephone-event/8000"}))
                               : infosOf(remoteSdp("0"));
        const auto pInfo = makeLocal();
        EXPECT_TRUE(pInfo->initLocalAnswer(capacity({0}, testCase.m_uiLocal), configuration(), infos[0]));
        EXPECT_EQ(pInfo->isValid(), testCase.m_bValid);
        if (testCase.m_bValid)
        {
            EXPECT_EQ(pInfo->getMediaConfig().getRfc2833Support(), testCase.m_bSupport);
            EXPECT_EQ(pInfo->getRemoteConfig().value().getRfc2833Support(), testCase.m_bSupport);
        }
        else
        {
            EXPECT_EQ(sectionOf(*pInfo), "m=audio 0 RTP/AVP 0 97\r\nc=IN IP4 10.0.0.5\r\n");
            EXPECT_FALSE(pInfo->getRemoteConfig().valid());
        }
    }
}

TEST(SdpAnswer, PacketSizes)
{
    const struct
    {
        Types m_vCapable;
        const char* m_szRemote;  // null: no packet time
        unsigned m_uiRemote;
    } kCases[] = {
        {{20, 30}, "ptime:30", 30},
        {{20},     "ptime:30", 20},
        {{},       "ptime:30", 30},
        {{20, 30}, nullptr,    20}
    };
    for (const auto& testCase : kCases)
    {
        const auto infos =
            testCase.m_szRemote ? infosOf(remoteSdp("0", {testCase.m_szRemote})) : infosOf(remoteSdp("0"));
        const auto pInfo = makeLocal();
        ASSERT_TRUE(
            pInfo->initLocalAnswer(capacity({0}, 101, testCase.m_vCapable), configuration(), infos[0]));
        EXPECT_EQ(pInfo->getMediaConfig().getPacketSizeMs(), 20U);
        EXPECT_EQ(pInfo->getRemoteConfig().value().getPacketSizeMs(), testCase.m_uiRemote);
    }
}

TEST(SdpSummary, TellsTheOperatorWhyMediaFailed)
{
    const struct
    {
        std::string m_strOffer;
        unsigned m_uiEvents;
        const char* m_szText;
    } kCases[] = {
        {remoteSdp("18"),
         101,       "SDP : Failed to find a RTP payload type supported by both local and remote SDPs"},
        { remoteSdp("0 101", {"rtpmap:101 telephone-event/8000"}),
         kNoEvents,     "SDP : Local media endpoint does not support RFC2833 and remote requested it"},
    };
    for (const auto& testCase : kCases)
    {
        const Records records("quorvex.voip.Sdp.summary");
        Answering call(testCase.m_strOffer, {capacity({0, 8}, testCase.m_uiEvents)});
        call.answer();
        ASSERT_EQ(records.m_vRecords.size(), 2U);
        EXPECT_EQ(records.m_vRecords[0].second, testCase.m_szText);
        EXPECT_EQ(records.m_vRecords[1].second,
                  "SDP : Remote SDP offer is invalid because not a single media description is supported");
        EXPECT_EQ(records.m_vRecords[1].first, eINFO_LEVEL);
    }
    const Records records("quorvex.voip.Sdp.summary");
    const auto pInfo = makeLocal();
    ASSERT_TRUE(pInfo->initLocalOffer(capacity(), configuration(), kSend));
    pInfo->setRemoteAnswer(infosOf(remoteSdp("0"))[0]);
    ASSERT_EQ(records.m_vRecords.size(), 1U);
    EXPECT_EQ(records.m_vRecords[0].second,
              "SDP : Local and remote stream modes are incompatible. Local=sendonly Remote=sendrecv");
}

constexpr const char* kModeNames[] = {"sendonly", "recvonly", "sendrecv", "inactive"};

TEST(SdpAnswer, FromTheFarEndMustFitOurDirection)
{
    // Rows: what we offered; columns: what they answered; -1: does not fit.
    const int kExpected[4][4] = {
        {-1,       kSend, -1,    kNone}, // we offered sendonly
        {kReceive, -1,    -1,    kNone}, // recvonly
        {kReceive, kSend, kBoth, kNone}, // sendrecv
        {-1,       -1,    -1,    kNone}
    };             // inactive
    for (int local = 0; local < 4; ++local)
    {
        for (int remote = 0; remote < 4; ++remote)
        {
            SCOPED_TRACE(std::string(kModeNames[local]) + " answered " + kModeNames[remote]);
            const auto pInfo = makeLocal();
            ASSERT_TRUE(pInfo->initLocalOffer(capacity(), configuration(), static_cast<StreamMode>(local)));
            pInfo->setRemoteAnswer(infosOf(remoteSdp("0", {kModeNames[remote]}))[0]);
            const int expected = kExpected[local][remote];
            EXPECT_EQ(pInfo->isValid(), expected >= 0);
            EXPECT_EQ(pInfo->getStreamMode(), expected >= 0 ? expected : kNone);
        }
    }
}

TEST(SdpAnswer, FromTheFarEndNarrowsTheOffer)
{
    const auto pInfo = makeLocal();
    ASSERT_TRUE(pInfo->initLocalOffer(capacity(), configuration(), kBoth));
    ASSERT_TRUE(pInfo->setRemoteAnswer(
        infosOf(remoteSdp("0 96", {"rtpmap:96 telephone-event/8000", "sendonly"}, "10.0.0.8"))[0]));
    EXPECT_EQ(pInfo->getPayloadTypes(), Types{0});
    EXPECT_EQ(pInfo->getMediaConfig().getRfc2833PayloadType(), 101U) << "we keep the type that we offered";
    EXPECT_EQ(pInfo->getRemoteConfig().value().getRfc2833PayloadType(), 96U)
        << "and send what they asked for";

    // An answer that fits nothing, and then the one of another fork: each is measured against the offer.
    EXPECT_TRUE(pInfo->setRemoteAnswer(infosOf(remoteSdp("18"))[0]));
    EXPECT_FALSE(pInfo->isValid());
    ASSERT_TRUE(pInfo->setRemoteAnswer(infosOf(remoteSdp("8", {"sendrecv"}))[0]));
    EXPECT_TRUE(pInfo->isValid());
    EXPECT_EQ(pInfo->getPayloadTypes(), Types{8});
    EXPECT_EQ(pInfo->getStreamMode(), kBoth);
    EXPECT_EQ(pInfo->getRemoteConfig().value().getIPAddress(), "10.0.0.9");
}

}  // namespace
}  // namespace Quorvex
