// Rules of offer and answer that hold for every pair of an offer and an engine (RFC 3264 section 6), tried on
// random ones. A failure prints the seed and the texts.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sstream>

#include "SdpTestSupport.h"
#include "SdpText.h"

namespace Quorvex
{
namespace
{

using namespace SdpTest;

class Dice
{
public:
    explicit Dice(unsigned in_uiSeed) : m_engine(in_uiSeed) {}
    unsigned upTo(unsigned in_uiMax)
    {
        return std::uniform_int_distribution<unsigned>(0, in_uiMax)(m_engine);
    }
    bool once(unsigned in_uiIn) { return upTo(in_uiIn - 1) == 0; }
    template <class T>
    const T& oneOf(const std::vector<T>& in_v)
    {
        return in_v[upTo(static_cast<unsigned>(in_v.size()) - 1)];
    }
    Types someOf(Types in_v)
    {
        std::shuffle(in_v.begin(), in_v.end(), m_engine);
        in_v.resize(upTo(static_cast<unsigned>(in_v.size())));
        return in_v;
    }

private:
    std::mt19937 m_engine;
};

std::string joined(const Types& in_v)
{
    std::string strText;
    for (const unsigned ui : in_v)
    {
        strText += ' ' + std::to_string(ui);
    }
    return strText;
}

const std::vector<std::string> kModes = {
    "", "a=sendonly\r\n", "a=recvonly\r\n", "a=sendrecv\r\n", "a=inactive\r\n"};

std::string randomSection(Dice& io_dice)
{
    const std::string strMedia = io_dice.once(6) ? "video" : "audio";
    const std::string strTransport = io_dice.once(8) ? "RTP/SAVP" : "RTP/AVP";
    const unsigned uiEvents = io_dice.oneOf<unsigned>({0, 0, 13, 96, 101, 127});
    auto vTypes = io_dice.someOf({0, 3, 8, 9, 18, 97, 110});
    if (uiEvents != 0 && !io_dice.once(8))
    {
        vTypes.push_back(uiEvents);
    }
    auto strText = "m=" + strMedia + ' ' + std::to_string(io_dice.once(8) ? 0 : 2 * io_dice.upTo(32767)) +
                   ' ' + strTransport + joined(vTypes) + "\r\n";
    if (io_dice.once(4))
    {
        strText += "c=IN IP4 10.0." + std::to_string(io_dice.upTo(255)) + ".9\r\n";
    }
    if (uiEvents != 0)
    {
        strText += "a=rtpmap:" + std::to_string(uiEvents) + " telephone-event/" +
                   (io_dice.once(5) ? "16000" : "8000") + "\r\n";
    }
    if (io_dice.once(2))
    {
        strText += "a=ptime:" + std::to_string(io_dice.upTo(70)) + "\r\n";
    }
    return strText + io_dice.oneOf(kModes);
}

std::string randomOffer(Dice& io_dice)
{
    auto strText = lines({"v=0", "o=peer 1 1 IN IP4 10.0.0.9", "s=-"});
    strText += io_dice.once(8) ? "" : io_dice.once(8) ? "c=IN IP4 0.0.0.0\r\n" : "c=IN IP4 10.0.0.9\r\n";
    strText += "t=0 0\r\n" + io_dice.oneOf(kModes);
    for (unsigned ui = io_dice.upTo(3) + 1; ui > 0; --ui)
    {
        strText += randomSection(io_dice);
    }
    return strText;
}

std::vector<std::string> wordsOf(const std::string& in_strText)
{
    std::istringstream stream(in_strText);
    return {std::istream_iterator<std::string>(stream), std::istream_iterator<std::string>()};
}

/// The direction that a section has in a description: its own, or the session's, or both ways; none for a
/// zero address.
std::string directionOf(const DsSdpMsg& in_msg, const DsSdpMediaDescription& in_section)
{
    std::string strDirection = "sendrecv";
    for (const auto* pAttributes : {&in_msg.getAttributeFields(), &in_section.getAttributeFields()})
    {
        for (const auto& attribute : *pAttributes)
        {
            if (Media::parseMediaMode(attribute.getName()) != Media::UNKNOWN_MODE)
            {
                strDirection = attribute.getName();
            }
        }
    }
    const auto* pConnection = in_section.getConnectionField() != nullptr ? in_section.getConnectionField()
                                                                         : in_msg.getConnectionField();
    return pConnection != nullptr && pConnection->getAddress() == "0.0.0.0" ? "inactive" : strDirection;
}

bool mayAnswer(const std::string& in_strOffered, const std::string& in_strAnswered)
{
    return in_strAnswered == "inactive" || in_strOffered == "sendrecv" ||
           (in_strOffered == "sendonly" && in_strAnswered == "recvonly") ||
           (in_strOffered == "recvonly" && in_strAnswered == "sendonly");
}

void checkSection(const DsSdpMsg& in_offer,
                  const DsSdpMsg& in_answer,
                  std::size_t in_index,
                  const Types& in_vCapable)
{
    const auto& offered = *in_offer.getMediaDescriptions()[in_index];
    const auto& answered = *in_answer.getMediaDescriptions()[in_index];
    EXPECT_EQ(answered.getMediaField()->getMediaType(), offered.getMediaField()->getMediaType());
    EXPECT_EQ(answered.getMediaField()->getTransport(), offered.getMediaField()->getTransport());
    EXPECT_TRUE(answered.getConnectionField() != nullptr || in_answer.getConnectionField() != nullptr);
    if (answered.getMediaField()->getPort() == 0)
    {
        return;
    }
    EXPECT_NE(offered.getMediaField()->getPort(), 0) << "a removed stream is not revived";
    const auto vOffered = wordsOf(offered.getMediaField()->getFormats());
    const auto vAnswered = wordsOf(answered.getMediaField()->getFormats());
    ASSERT_FALSE(vAnswered.empty());
    for (const auto& strFormat : vAnswered)
    {
        EXPECT_NE(std::find(vOffered.begin(), vOffered.end(), strFormat), vOffered.end()) << strFormat;
    }
    const auto uiCodec = static_cast<unsigned>(std::stoul(vAnswered[0]));
    EXPECT_NE(std::find(in_vCapable.begin(), in_vCapable.end(), uiCodec), in_vCapable.end()) << uiCodec;
    EXPECT_TRUE(mayAnswer(directionOf(in_offer, offered), directionOf(in_answer, answered)))
        << directionOf(in_offer, offered) << " answered " << directionOf(in_answer, answered);
}

TEST(SdpProperty, EveryAnswerFitsItsOffer)
{
    constexpr unsigned kRounds = 5000;
    const QuietLog quiet;
    unsigned uiAccepted = 0;
    for (unsigned uiSeed = 0; uiSeed < kRounds && !testing::Test::HasFailure(); ++uiSeed)
    {
        Dice dice(uiSeed);
        const auto strOffer = randomOffer(dice);
        const auto vCapable = dice.someOf({0, 8, 18});
        const auto config = configuration(dice.oneOf<const char*>({"0", "8 0", "0 8", "18 0", "0 8 18"}),
                                          dice.oneOf<const char*>({"20", "30 20", nullptr}));
        Sdp sdp;
        ASSERT_TRUE(sdp.initRemoteSdp(inviteWith(strOffer))) << strOffer;
        Sdp::LocalSdpInfoVector vLocal;
        for (const auto& pRemote : sdp.getRemoteSdp())
        {
            vLocal.emplace_back(new LocalSdpInfo("10.0.0.5"));
            vLocal.back()->initLocalAnswer(capacity(vCapable,
                                                    dice.oneOf<unsigned>({kNoEvents, 101}),
                                                    dice.someOf({10, 20, 30}),
                                                    40000 + 2 * static_cast<unsigned>(vLocal.size())),
                                           config,
                                           *pRemote);
        }
        sdp.setLocalSdp(vLocal);
        std::ostringstream answer;
        uiAccepted += sdp.generateSdpAnswer("10.0.0.5", answer) ? 1 : 0;

        SCOPED_TRACE("seed " + std::to_string(uiSeed) + "\n" + strOffer + "\nanswered\n" + answer.str());
        const auto hOffer = DsSdpMsg::parse(strOffer);
        const auto hAnswer = DsSdpMsg::parse(answer.str());
        EXPECT_EQ(hAnswer->toString(), answer.str());
        ASSERT_EQ(hAnswer->getMediaDescriptions().size(), hOffer->getMediaDescriptions().size());
        for (std::size_t i = 0; i < hOffer->getMediaDescriptions().size(); ++i)
        {
            checkSection(*hOffer, *hAnswer, i, vCapable);
        }
    }
    EXPECT_GT(uiAccepted, kRounds / 10) << "too few offers that could be accepted to mean anything";
}

}  // namespace
}  // namespace Quorvex
