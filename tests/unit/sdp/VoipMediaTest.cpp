// A call's media against a hand-written engine: negotiation, running directions, holding, changing, stopping.

#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "SdpTestSupport.h"
#include "VoipEndpointFactory.h"
#include "VoipEvent.h"
#include "VoipMedia.h"
#include "calleng/CallLegInfo.h"
#include "infra/Assertion.h"
#include "media/MediaEndpointConfig.h"

namespace Quorvex
{
namespace
{

using namespace SdpTest;

constexpr auto kRx = MediaEndpoint::RX_DIRECTION;
constexpr auto kTx = MediaEndpoint::TX_DIRECTION;

/// Notes what is asked of it ("0 start rx") and the last configuration of each stream and direction.
class FakeEngine : public VoipEndpointFactory
{
public:
    MediaEndpoint* getEndpoint(const char* in_szCallId,
                               std::uint32_t in_uiStreamId,
                               const VoipStateMachineNoT*,
                               Media::StreamMode in_mode,
                               bool in_bRedirectReceive) override;

    std::vector<std::string> take() { return std::exchange(m_vAsked, {}); }

    std::vector<std::string> m_vAsked;
    std::map<std::pair<unsigned, int>, MediaEndpointConfig> m_configs;
    int m_iEndpoints = 0;
    bool m_bRefusesEndpoints = false;
    bool m_bRuns = true;
};

class FakeEndpoint : public MediaEndpoint
{
public:
    FakeEndpoint(FakeEngine& in_engine, unsigned in_uiStream) : m_engine(in_engine), m_uiStream(in_uiStream)
    {
        ++m_engine.m_iEndpoints;
    }
    ~FakeEndpoint() override { --m_engine.m_iEndpoints; }

    bool configure(Direction in_direction, const MediaEndpointConfig& in_config) override
    {
        m_engine.m_configs.insert_or_assign({m_uiStream, in_direction}, in_config);
        return note("configure", in_direction);
    }
    bool start(Direction in_direction) override { return note("start", in_direction); }
    bool stop(Direction in_direction) override { return note("stop", in_direction); }

private:
    bool note(const char* in_szWhat, Direction in_direction)
    {
        m_engine.m_vAsked.push_back(std::to_string(m_uiStream) + ' ' + in_szWhat +
                                    (in_direction == kRx ? " rx" : " tx"));
        return m_engine.m_bRuns;
    }

    FakeEngine& m_engine;
    unsigned m_uiStream;
};

MediaEndpoint* FakeEngine::getEndpoint(const char* in_szCallId,
                                       std::uint32_t in_uiStreamId,
                                       const VoipStateMachineNoT*,
                                       Media::StreamMode in_mode,
                                       bool in_bRedirectReceive)
{
    m_vAsked.push_back(std::string(in_szCallId) + ' ' + std::to_string(in_uiStreamId) + ' ' +
                       Media::getMediaModeString(in_mode) + (in_bRedirectReceive ? " redirect" : ""));
    return m_bRefusesEndpoints ? nullptr : new FakeEndpoint(*this, in_uiStreamId);
}

using Asked = std::vector<std::string>;

class VoipMediaTest : public testing::Test
{
protected:
    VoipMediaTest() { m_media.initialize("call-1", nullptr); }
    ~VoipMediaTest() override
    {
        if (!m_bAssertionsExpected)
        {
            EXPECT_EQ(Assertion::failureCount(), m_assertions);
        }
        EXPECT_LE(MemAccounts::get("VoipMediaStream").liveObjects(), m_media.getStreamCount());
    }

    bool giveCapacity(unsigned in_uiStream, const MediaEndpointCapacity& in_capacity)
    {
        return m_media.setCapacity(in_uiStream, kRx, new MediaEndpointCapacity(in_capacity));
    }

    /// An inbound call up to its answer.
    void answerOffer(const std::string& in_strOffer, unsigned in_uiStreams = 1)
    {
        ASSERT_TRUE(m_media.setSdpOffer(inviteWith(in_strOffer)));
        for (unsigned ui = 0; ui < in_uiStreams; ++ui)
        {
            ASSERT_TRUE(giveCapacity(ui, capacity({0, 8}, 101, {20, 30}, 40000 + 2 * ui)));
        }
        m_engine.take();
        ASSERT_TRUE(renegotiate());
    }

    bool renegotiate()
    {
        m_answer.str("");
        return m_media.isSdpOfferValid(m_config) && m_media.generateSdpAnswer(m_answer);
    }

    bool report(MediaOpType in_type,
                MediaEndpoint::Direction in_direction,
                unsigned in_uiStream = 0,
                MediaEndpointCallback::EptOpStatus in_status = MediaEndpointCallback::SUCCESS_STATUS)
    {
        const VoipOpStatusMediaEvent event(in_uiStream, in_direction, in_type, in_status);
        return m_media.relayMediaOpEvent(&event);
    }

    /// Lets the engine report that everything it was asked for was done.
    void succeed()
    {
        for (const auto& strAsked : m_engine.take())
        {
            const auto uiStream = static_cast<unsigned>(std::stoul(strAsked));
            const auto direction = strAsked.ends_with("rx") ? kRx : kTx;
            const auto type = strAsked.find("configure") != std::string::npos ? MediaOpType::eCONFIG
                              : strAsked.find("start") != std::string::npos   ? MediaOpType::eSTART
                                                                              : MediaOpType::eSTOP;
            EXPECT_TRUE(report(type, direction, uiStream));
        }
    }

    unsigned sentTo(unsigned in_uiStream = 0)
    {
        unsigned uiPort = 0;
        const auto found = m_engine.m_configs.find({in_uiStream, kTx});
        if (found != m_engine.m_configs.end())
        {
            found->second.getUnsigned(MediaEndpointCapacity::UDP_PORT, uiPort);
        }
        return uiPort;
    }

    const MediaEndpointConfig& configOf(MediaEndpoint::Direction in_direction)
    {
        return m_engine.m_configs.at({0, in_direction});
    }

    const std::uint64_t m_assertions = Assertion::failureCount();
    bool m_bAssertionsExpected = false;
    FakeEngine m_engine;
    MapConfiguration m_config = configuration();
    VoipMedia m_media{m_engine};
    std::ostringstream m_answer;
};

TEST_F(VoipMediaTest, StreamsComeFromTheLeg)
{
    CallLegInfo leg;
    leg.setParameter("media.rtp.audio", "sendrecv");
    leg.setParameter("media.rtp.copy", "sendonly");
    leg.setParameter("media.rtp.strange", "loud");
    leg.setParameter("media.rtp.monitor", "sendrecv");
    leg.setParameter("media.rtp.monitor.redirectReceive", "true");
    leg.setParameter("sip.out.cpa.enabled", "TRUE");
    EXPECT_TRUE(m_media.configure(leg));
    EXPECT_EQ(m_engine.take(),
              (Asked{"call-1 0 sendrecv", "call-1 1 sendonly", "call-1 2 sendrecv redirect"}));
    EXPECT_TRUE(m_media.isCPAEnabled());
    EXPECT_EQ(m_media.getStreamCount(), 3U);
}

TEST_F(VoipMediaTest, WithoutEndpointsOrMediaParametersThereAreNoStreams)
{
    m_bAssertionsExpected = true;
    EXPECT_FALSE(m_media.configure(CallLegInfo()));
    m_engine.m_bRefusesEndpoints = true;
    CallLegInfo leg;
    leg.setParameter("media.rtp.audio", "sendrecv");
    EXPECT_TRUE(m_media.configure(leg));
    EXPECT_EQ(m_media.getStreamCount(), 0U);
    EXPECT_FALSE(m_media.setSdpOffer(inviteWith(remoteSdp("0"))));
}

TEST_F(VoipMediaTest, TakesOnlyCapacitiesThatFit)
{
    m_bAssertionsExpected = true;
    ASSERT_TRUE(m_media.setSdpOffer(inviteWith(remoteSdp("0"))));
    EXPECT_FALSE(m_media.allCapacitiesReceived());
    EXPECT_FALSE(giveCapacity(1, capacity()));
    EXPECT_FALSE(m_media.setCapacity(0, kTx, new MediaEndpointCapacity(capacity())));
    EXPECT_FALSE(giveCapacity(0, MediaEndpointCapacity()));
    EXPECT_FALSE(m_media.setCapacity(0, kRx, nullptr));
    EXPECT_FALSE(m_media.allCapacitiesReceived());
    std::ostringstream text;
    EXPECT_FALSE(m_media.generateSdpOffer(m_config, text));
    EXPECT_FALSE(m_media.isSdpOfferValid(m_config));
    EXPECT_TRUE(giveCapacity(0, capacity({8})));
    EXPECT_TRUE(giveCapacity(0, capacity({0}))) << "a later one takes the place";
    EXPECT_TRUE(m_media.allCapacitiesReceived());
    EXPECT_EQ(MemAccounts::get("MediaEndpointCapacity").liveObjects(), 1U);
    EXPECT_TRUE(renegotiate());
}

TEST_F(VoipMediaTest, HoldsAndResumes)
{
    answerOffer(remoteSdp("0"));
    m_media.startAll(false);
    succeed();
    EXPECT_FALSE(m_media.isAllOnHold());
    EXPECT_TRUE(m_media.hold());
    EXPECT_EQ(m_engine.m_vAsked, (Asked{"0 stop rx", "0 stop tx"}));
    EXPECT_FALSE(m_media.isAllOnHold());
    succeed();
    EXPECT_TRUE(m_media.isAllOnHold());
    EXPECT_TRUE(m_media.startAll(false));
    EXPECT_EQ(m_engine.m_vAsked, (Asked{"0 start rx", "0 start tx"})) << "the configuration is still good";
}

TEST_F(VoipMediaTest, WhatIsAskedTooEarlyIsDoneInTime)
{
    answerOffer(remoteSdp("0", {"sendonly"}));
    m_media.startAll(false);
    m_engine.take();
    EXPECT_TRUE(m_media.hold()) << "the direction is still starting";
    EXPECT_EQ(m_engine.take(), Asked());
    EXPECT_TRUE(report(MediaOpType::eCONFIG, kRx));
    EXPECT_TRUE(report(MediaOpType::eSTART, kRx));
    EXPECT_EQ(m_engine.take(), Asked{"0 stop rx"});
    EXPECT_TRUE(m_media.startAll(false)) << "and now still stopping";
    EXPECT_EQ(m_engine.take(), Asked());
    EXPECT_TRUE(report(MediaOpType::eSTOP, kRx));
    EXPECT_EQ(m_engine.take(), Asked{"0 start rx"});
    EXPECT_TRUE(report(MediaOpType::eSTART, kRx));
    EXPECT_TRUE(m_media.isAllStarted());
    EXPECT_EQ(m_engine.take(), Asked());
}

TEST_F(VoipMediaTest, StopsForGood)
{
    m_bAssertionsExpected = true;
    answerOffer(remoteSdp("0"));
    m_media.startAll(false);
    EXPECT_TRUE(report(MediaOpType::eSTART, kTx));
    m_engine.take();
    EXPECT_FALSE(m_media.isAllStopped());
    EXPECT_TRUE(m_media.stopAll());
    EXPECT_EQ(m_engine.take(), Asked{"0 stop tx"});
    EXPECT_EQ(m_engine.m_iEndpoints, 0);
    EXPECT_TRUE(m_media.isAllStopped());

    EXPECT_TRUE(report(MediaOpType::eSTART, kRx)) << "late outcomes are of no interest";
    EXPECT_FALSE(m_media.isAllStarted());
    EXPECT_FALSE(m_media.startAll(false));
    EXPECT_FALSE(m_media.hold());
    EXPECT_FALSE(m_media.stopAll());
    EXPECT_EQ(m_engine.take(), Asked());
}

TEST_F(VoipMediaTest, RefusesOutcomesThatDoNotFit)
{
    answerOffer(remoteSdp("0"));
    m_media.startAll(false);
    EXPECT_FALSE(report(MediaOpType::eSTART, kRx, 1));
    EXPECT_FALSE(report(MediaOpType::eSTART, kRx, 0, MediaEndpointCallback::RESOURCE_STATUS));
    EXPECT_FALSE(report(MediaOpType::eSTART, MediaEndpoint::RXTX_DIRECTION));
    EXPECT_FALSE(report(static_cast<MediaOpType>(7), kRx));
    EXPECT_FALSE(m_media.isAllStarted());
    succeed();
    EXPECT_TRUE(m_media.isAllStarted());
}

TEST_F(VoipMediaTest, AnEngineThatDoesNotRunIsNoticed)
{
    answerOffer(remoteSdp("0"));
    m_engine.m_bRuns = false;
    EXPECT_FALSE(m_media.startAll(false));
    EXPECT_EQ(m_engine.take(), (Asked{"0 configure rx", "0 configure tx"}));
    m_engine.m_bRuns = true;
    EXPECT_TRUE(m_media.startAll(false));
    succeed();
    EXPECT_TRUE(m_media.isAllStarted());
}

TEST_F(VoipMediaTest, ARejectedStreamStaysStoppedBesideOneThatRuns)
{
    answerOffer(remoteSdp("0") + "m=video 30002 RTP/AVP 31\r\nm=audio 30004 RTP/AVP 18\r\n", 3);
    EXPECT_NE(m_answer.str().find("m=video 0 "), std::string::npos);
    m_media.startAll(false);
    EXPECT_EQ(m_engine.m_vAsked, (Asked{"0 configure rx", "0 start rx", "0 configure tx", "0 start tx"}));
    succeed();
    EXPECT_TRUE(m_media.isAllStarted());
}

TEST_F(VoipMediaTest, ARefusedReinviteChangesNothing)
{
    const char* const kRefused[] = {"unreadable", "no common codec", "one section more"};
    answerOffer(remoteSdp("0"));
    m_media.startAll(false);
    succeed();
    const SdpInfo* const pRemote = &m_media.getSdp().getRemoteSdp()[0];
    for (const std::string strCase : kRefused)
    {
        SCOPED_TRACE(strCase);
        if (strCase == "unreadable")
        {
            EXPECT_FALSE(m_media.setSdpOffer(inviteWith("v=0\r\nm=audio 99999 RTP/AVP 0\r\n")));
        }
        else if (strCase == "no common codec")
        {
            EXPECT_TRUE(m_media.setSdpOffer(inviteWith(remoteSdp("18"))));
            EXPECT_FALSE(m_media.isSdpOfferValid(m_config));
        }
        else
        {
            EXPECT_TRUE(m_media.setSdpOffer(
                inviteWith(remoteSdp("8") + "m=audio 30002 RTP/AVP 0\r\n", "Record-Call: 1\r\n")));
            EXPECT_FALSE(m_media.allCapacitiesReceived()) << "the machine refuses the offer for this";
            m_media.rollbackSdpOffer();
        }
        EXPECT_EQ(m_media.getStreamCount(), 1U);
        EXPECT_EQ(m_engine.m_iEndpoints, 1);
        EXPECT_TRUE(m_media.allCapacitiesReceived());
        ASSERT_EQ(m_media.getSdp().getRemoteSdp().size(), 1U);
        EXPECT_EQ(&m_media.getSdp().getRemoteSdp()[0], pRemote);
        EXPECT_TRUE(m_media.remoteHasMadeAnOffer());
        EXPECT_TRUE(m_media.isAllStarted());
        m_engine.take();
        EXPECT_TRUE(m_media.startAll(false));
        EXPECT_EQ(m_engine.take(), Asked());
    }
}

TEST_F(VoipMediaTest, AnOfferLeftUnansweredIsForgottenByWhatComesNext)
{
    answerOffer(remoteSdp("0"));
    ASSERT_TRUE(m_media.setSdpOffer(inviteWith(remoteSdp("8") + "m=audio 30002 RTP/AVP 0\r\n")));
    m_engine.take();
    EXPECT_TRUE(m_media.startAll(false));
    EXPECT_EQ(m_engine.m_vAsked, (Asked{"0 configure rx", "0 start rx", "0 configure tx", "0 start tx"}));
    succeed();
    EXPECT_TRUE(m_media.isAllStarted());

    ASSERT_TRUE(m_media.setSdpOffer(inviteWith(remoteSdp("8") + "m=audio 30002 RTP/AVP 0\r\n")));
    ASSERT_TRUE(m_media.setSdpOffer(inviteWith(remoteSdp("8"))));
    ASSERT_TRUE(renegotiate());
    EXPECT_EQ(m_media.getStreamCount(), 1U);
}

TEST_F(VoipMediaTest, OffersAndTakesTheAnswer)
{
    CallLegInfo leg;
    leg.setParameter("media.rtp.audio", "sendrecv");
    ASSERT_TRUE(m_media.configure(leg));
    ASSERT_TRUE(giveCapacity(0, capacity()));
    m_media.setUserAgentIPAddress("10.0.0.5");
    std::ostringstream offer;
    ASSERT_TRUE(m_media.generateSdpOffer(m_config, offer));
    EXPECT_NE(offer.str().find(" IN IP4 10.0.0.5\r\n"), std::string::npos);
    EXPECT_FALSE(m_media.remoteHasMadeAnOffer());
    m_engine.take();

    // Early media of one fork, nonsense from a second, the answer of a third.
    EXPECT_TRUE(m_media.setSdpAnswer(inviteWith(remoteSdp("0", {"sendonly"}, "10.0.0.8", 28000))));
    m_media.startAll(false);
    succeed();
    EXPECT_TRUE(m_media.isAllStarted());
    for (const auto& strBad : {remoteSdp("18"),
                               remoteSdp("0") + "m=audio 5 RTP/AVP 0\r\n",
                               remoteSdp("0", {}, "10.0.0.9", 0),
                               std::string("nonsense"),
                               std::string()})
    {
        EXPECT_FALSE(m_media.setSdpAnswer(inviteWith(strBad))) << strBad;
        EXPECT_TRUE(m_media.isAllStarted()) << "the agreed one stays";
    }
    EXPECT_TRUE(m_media.setSdpAnswer(inviteWith(remoteSdp("8"))));
    EXPECT_TRUE(m_media.remoteHasMadeAnOffer());
    m_media.startAll(false);
    EXPECT_EQ(m_engine.m_vAsked, (Asked{"0 configure rx", "0 configure tx", "0 start tx"}));
    succeed();
    EXPECT_TRUE(m_media.isAllStarted());
    EXPECT_EQ(sentTo(), 30000U);
}

TEST_F(VoipMediaTest, AReinviteWithoutOfferAsksForOurs)
{
    answerOffer(remoteSdp("0"));
    m_media.startAll(false);
    succeed();
    ASSERT_TRUE(m_media.setSdpOffer(inviteWith("")));
    EXPECT_FALSE(m_media.remoteHasMadeAnOffer());
    std::ostringstream offer;
    ASSERT_TRUE(m_media.generateSdpOffer(m_config, offer));
    EXPECT_FALSE(m_media.setSdpAnswer(inviteWith(remoteSdp("18")))) << "refused: back to what was";
    EXPECT_TRUE(m_media.isAllStarted());
    EXPECT_TRUE(m_media.remoteHasMadeAnOffer());

    ASSERT_TRUE(m_media.setSdpOffer(inviteWith("")));
    ASSERT_TRUE(m_media.generateSdpOffer(m_config, offer));
    EXPECT_TRUE(m_media.setSdpAnswer(inviteWith(remoteSdp("8"))));
    EXPECT_FALSE(m_media.isAllStarted()) << "another codec";
}

TEST_F(VoipMediaTest, TellsTheLegWhatTheFarEndDoes)
{
    CallLegInfo late;
    ASSERT_TRUE(m_media.setSdpOffer(inviteWith("")));
    EXPECT_TRUE(m_media.fillLegInfo(late));
    EXPECT_EQ(late.getParameterOr("media.rtp.audio", ""), "sendrecv");

    CallLegInfo leg;
    ASSERT_TRUE(m_media.setSdpOffer(inviteWith(
        remoteSdp("0", {"sendonly"}) + "m=audio 2 RTP/AVP 0\r\na=recvonly\r\nm=video 2 RTP/AVP 31\r\n")));
    EXPECT_TRUE(m_media.fillLegInfo(leg));
    EXPECT_EQ(leg.getParameterOr("media.rtp.audio", ""), "sendrecv");
    EXPECT_EQ(leg.getParameterOr("media.rtp.audio2", ""), "recvonly");
    EXPECT_EQ(leg.getParameterOr("media.rtp.audio3", ""), "inactive");
}

TEST_F(VoipMediaTest, PassesOnRecordingWishesAndTheSipDataThatTheEngineAsksFor)
{
    const auto hInvite = inviteWith(
        remoteSdp("0"), "Record-Call: yes\r\nRecorder-Output-Id: room 7\r\nrecord-call: 0\r\nX-Own: a,b\r\n");
    ASSERT_TRUE(m_media.setSdpOffer(hInvite));
    auto asking = capacity();
    for (const char* szKey : {"get.sip.invite", "get.sip.quorvex.remote.callID", "sip.custom.header"})
    {
        asking.set(szKey, MediaValue(true));
    }
    ASSERT_TRUE(giveCapacity(0, asking));
    ASSERT_TRUE(renegotiate());
    m_media.startAll(true);

    const MediaEndpointConfig& config = configOf(kRx);
    bool bRecord = false;
    std::string strValue;
    EXPECT_TRUE(config.getBool(MediaEndpointConfig::RECORDING_ENABLED, bRecord) && bRecord);
    EXPECT_TRUE(config.getString(MediaEndpointConfig::RECORDING_OUTPUT_ID, strValue));
    EXPECT_EQ(strValue, "room 7");
    EXPECT_TRUE(config.getString("get.sip.invite", strValue));
    EXPECT_EQ(strValue, hInvite->getText());
    EXPECT_TRUE(config.getString("get.sip.quorvex.remote.callID", strValue));
    EXPECT_EQ(strValue, "abc123");
    EXPECT_TRUE(config.getString("sip.custom.header", strValue));
    EXPECT_EQ(strValue, "Record-Call: yes, Recorder-Output-Id: room 7, record-call: 0, X-Own: a,b");
    EXPECT_FALSE(config.contains(MediaEndpointConfig::CPA_ENABLED)) << "not enabled for the leg";
}

}  // namespace
}  // namespace Quorvex
