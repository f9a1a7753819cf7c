// Streams on real sockets: hostile packets, digits, files and tones, reports, recordings, analysis.

#include <dirent.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <thread>

#include "G711.h"
#include "MediaFixture.h"
#include "Rtcp.h"
#include "WavFile.h"

namespace Quorvex::Test
{

using testing::StartsWith;

class StreamTest : public MediaFixture
{
protected:
    void SetUp() override
    {
        MediaFixture::SetUp();
        char szTemplate[] = "/tmp/media_test_XXXXXX";
        m_strDirectory = ::mkdtemp(szTemplate);
    }
    void TearDown() override
    {
        MediaFixture::TearDown();
        for (const std::string& strName : files())
        {
            ::unlink((m_strDirectory + "/" + strName).c_str());
        }
        ::rmdir(m_strDirectory.c_str());
    }
    std::vector<std::string> files() const
    {
        std::vector<std::string> vNames;
        DIR* pDirectory = ::opendir(m_strDirectory.c_str());
        while (const dirent* pEntry = ::readdir(pDirectory))
        {
            if (pEntry->d_name[0] != '.')
            {
                vNames.emplace_back(pEntry->d_name);
            }
        }
        ::closedir(pDirectory);
        std::sort(vNames.begin(), vNames.end());
        return vNames;
    }
    std::string writeWav(const std::vector<std::int16_t>& in_vSamples)
    {
        const auto header = WavFile::makeHeader(1, static_cast<std::uint32_t>(2 * in_vSamples.size()));
        const std::string strPath = m_strDirectory + "/play.wav";
        std::ofstream file(strPath, std::ios::binary);
        file.write(reinterpret_cast<const char*>(header.data()), header.size());
        file.write(reinterpret_cast<const char*>(in_vSamples.data()),
                   static_cast<std::streamsize>(2 * in_vSamples.size()));
        return strPath;
    }
    StreamStatistics statistics(const std::string& in_strCallId, std::size_t in_uiIndex = 0)
    {
        const auto vStatistics = m_pEngine->getStreamStatistics(in_strCallId);
        return in_uiIndex < vStatistics.size() ? vStatistics[in_uiIndex] : StreamStatistics();
    }

    std::string m_strDirectory;
};

class RecordingObserver final : public MediaObserver
{
public:
    void streamEnded(const StreamStatistics& in_statistics) override
    {
        m_reports.add("ended " + in_statistics.m_strCallId + " " + std::to_string(in_statistics.m_uiIndex) +
                      " " + in_statistics.m_strCodec + " " + std::to_string(in_statistics.m_ui64Received));
    }
    void playEnded(const std::string& in_strCallId) override { m_reports.add("played " + in_strCallId); }
    void digitReceived(const std::string& in_strCallId, unsigned in_uiIndex, char in_cDigit) override
    {
        m_reports.add("digit " + in_strCallId + " " + std::to_string(in_uiIndex) + " " + in_cDigit);
    }
    Reports m_reports;
};

TEST_F(StreamTest, everyKindOfBadPacketIsCountedAndHarmless)
{
    startEngine();
    m_pEngine->attachEcho("victim");
    m_pEngine->attachEcho("other");
    auto pVictim = makeStartedLeg("victim");
    auto pOther = makeStartedLeg("other");
    Peer& peer = pVictim->m_peer;
    Peer rtcp;
    rtcp.setRemote(pVictim->m_uiPort + 1);
    const auto raw = [](std::initializer_list<std::uint8_t> in_start, std::size_t in_uiSize)
    {
        std::vector<std::uint8_t> vData(in_start);
        vData.resize(in_uiSize, 0xff);
        return [vData](Peer& io_peer) { io_peer.sendRaw(vData); };
    };
    const auto sound = [](Peer& io_peer) { io_peer.send(makeSound(1, 160)); };
    const auto jump = [&sound](int in_iPackets)
    {
        return [in_iPackets, &sound](Peer& io_peer)
        {
            io_peer.m_next.m_ui16Sequence =
                static_cast<std::uint16_t>(io_peer.m_next.m_ui16Sequence + in_iPackets);
            io_peer.m_next.m_ui32Timestamp += static_cast<std::uint32_t>(in_iPackets * 160);
            sound(io_peer);
        };
    };
    const auto overtake = [&](Peer& io_peer)
    {
        jump(1)(io_peer);
        jump(-2)(io_peer);
        io_peer.m_next.m_ui16Sequence++;
        io_peer.m_next.m_ui32Timestamp += 160;
    };
    struct Case
    {
        const char* m_szName;
        Peer& m_peer;
        std::function<void(Peer&)> m_send;
        std::uint64_t m_ui64Received;
        std::uint64_t m_ui64Dropped;
        std::uint64_t m_ui64Duplicates;
        std::uint64_t m_ui64Lost;
        std::uint64_t m_ui64Reordered;
    };
    // clang-format off
    const std::vector<Case> vCases = {
        {"the first",                      peer, sound,                        1, 0, 0, 0, 0},
        {"nothing",                        peer, raw({}, 0),                   0, 1, 0, 0, 0},
        {"too short",                      peer, raw({0x80, 0x00}, 11),        0, 1, 0, 0, 0},
        {"version 0",                      peer, raw({0x00, 0x00}, 172),       0, 1, 0, 0, 0},
        {"version 3",                      peer, raw({0xc0, 0x00}, 172),       0, 1, 0, 0, 0},
        {"sources beyond its end",         peer, raw({0x8f, 0x00}, 40),        0, 1, 0, 0, 0},
        {"an extension beyond its end",    peer, raw({0x90, 0x00}, 40),        0, 1, 0, 0, 0},
        {"padding beyond its end",         peer, raw({0xa0, 0x00}, 40),        0, 1, 0, 0, 0},
        {"RTCP on the port of RTP",        peer, raw({0x80, 0xc8}, 28),        0, 1, 0, 0, 0},
        {"an unknown payload type",        peer, raw({0x80, 0x23}, 172),       0, 1, 0, 0, 0},
        {"a dynamic payload type",         peer, raw({0x80, 0x7f}, 172),       0, 1, 0, 0, 0},
        {"larger than any packet",         peer, raw({0x80, 0x00}, 4000),      0, 1, 0, 0, 0},
        {"RTCP too short",                 rtcp, raw({0x80, 0xc8}, 5),         0, 1, 0, 0, 0},
        {"RTCP of version 1",              rtcp, raw({0x40, 0xc8}, 28),        0, 1, 0, 0, 0},
        {"RTCP beyond its end",            rtcp, raw({0x80, 0xc8}, 28),        0, 1, 0, 0, 0},
        {"a duplicate",                    peer, jump(-1),                     0, 0, 1, 0, 0},
        {"a gap of two",                   peer, jump(2),                      1, 0, 0, 2, 0},
        {"one overtakes another",          peer, overtake,                     2, 0, 0, 0, 1},
        {"a jump, not yet believed",       peer, jump(20000),                  0, 1, 0, 0, 0},
        {"a jump, believed",               peer, sound,                        1, 0, 0, 0, 0},
        {"another source, not yet believed", peer,
         [&](Peer& io_peer) { io_peer.m_next.m_ui32Ssrc++; sound(io_peer); },  0, 1, 0, 0, 0},
        {"another source, believed",       peer, sound,                        1, 0, 0, 0, 0}
    };
    // clang-format on
    StreamStatistics expected;
    for (const Case& aCase : vCases)
    {
        aCase.m_send(aCase.m_peer);
        expected.m_ui64Received += aCase.m_ui64Received;
        expected.m_ui64Dropped += aCase.m_ui64Dropped;
        expected.m_ui64Duplicates += aCase.m_ui64Duplicates;
        expected.m_ui64Lost += aCase.m_ui64Lost;
        expected.m_ui64Reordered += aCase.m_ui64Reordered;
        const auto sum = [](const StreamStatistics& in_statistics) {
            return in_statistics.m_ui64Received + in_statistics.m_ui64Dropped +
                   in_statistics.m_ui64Duplicates;
        };
        StreamStatistics seen = statistics("victim");
        for (const auto end = std::chrono::steady_clock::now() + DEADLINE;
             sum(seen) < sum(expected) && std::chrono::steady_clock::now() < end;
             seen = statistics("victim"))
        {
        }
        EXPECT_EQ(expected.m_ui64Received, seen.m_ui64Received) << aCase.m_szName;
        EXPECT_EQ(expected.m_ui64Dropped, seen.m_ui64Dropped) << aCase.m_szName;
        EXPECT_EQ(expected.m_ui64Duplicates, seen.m_ui64Duplicates) << aCase.m_szName;
        EXPECT_EQ(expected.m_ui64Lost, seen.m_ui64Lost) << aCase.m_szName;
        EXPECT_EQ(expected.m_ui64Reordered, seen.m_ui64Reordered) << aCase.m_szName;
    }
    // What was good came back, and nothing else did.
    EXPECT_EQ(expected.m_ui64Received, statistics("victim").m_ui64Sent);
    pOther->m_peer.send(makeSound(2, 160));
    EXPECT_EQ(makeSound(2, 160), pOther->m_peer.receiveSound(160));
    EXPECT_EQ(0U, statistics("other").m_ui64Dropped);
}

TEST_F(StreamTest, aFloodOnOnePortDoesNotReachTheOthers)
{
    startEngine();
    m_pEngine->attachEcho("victim");
    m_pEngine->attachEcho("other");
    auto pVictim = makeStartedLeg("victim");
    auto pOther = makeStartedLeg("other");
    Peer stranger;
    stranger.setRemote(pVictim->m_uiPort);
    unsigned uiEchoed = 0;
    for (unsigned i = 0; i < 50; ++i)
    {
        for (unsigned n = 0; n < 400; ++n)
        {
            stranger.send(std::vector<std::uint8_t>(160, 0x11));
        }
        pOther->m_peer.send(makeSound(i, 160));
        uiEchoed += pOther->m_peer.receiveSound(160, 1000ms) == makeSound(i, 160) ? 1 : 0;
    }
    EXPECT_EQ(50U, uiEchoed);
    // The engine read what a stream can be, and left the rest where it was.
    EXPECT_LT(m_pEngine->getTotals().m_ui64PacketsReceived, 10000U);
}

TEST_F(StreamTest, digitsArriveOnceUnderTheOtherPartysPayloadType)
{
    startEngine();
    RecordingObserver observer;
    m_pEngine->setMediaObserver(&observer);
    Leg::Options a;
    a.m_uiEventPayloadType = 96;
    auto pA = makeStartedLeg("call", a);
    auto pB = makeStartedLeg("call");
    pA->m_peer.send(makeSound(1, 160));
    const std::uint32_t ui32Timestamp = pA->m_peer.m_next.m_ui32Timestamp;
    pA->m_peer.sendEvent(96, 5, false, 160, ui32Timestamp, true);
    pA->m_peer.sendEvent(96, 5, false, 320, ui32Timestamp);
    for (int i = 0; i < 3; ++i)
    {
        pA->m_peer.sendEvent(96, 5, true, 480, ui32Timestamp);
    }
    Peer::Packet packet;
    unsigned uiEvents = 0;
    unsigned uiEnds = 0;
    std::uint32_t ui32Relayed = 0;
    while (uiEnds < 3)
    {
        ASSERT_TRUE(pB->m_peer.receive(packet));
        if (packet.m_header.m_ui8PayloadType == 101)
        {
            ASSERT_EQ(4U, packet.m_vPayload.size());
            EXPECT_EQ(5U, packet.m_vPayload[0]);
            EXPECT_EQ(uiEvents == 0, packet.m_header.m_bMarker);
            ui32Relayed = uiEvents == 0 ? packet.m_header.m_ui32Timestamp : ui32Relayed;
            EXPECT_EQ(ui32Relayed, packet.m_header.m_ui32Timestamp);
            ++uiEvents;
            uiEnds += (packet.m_vPayload[1] & 0x80) != 0 ? 1 : 0;
        }
    }
    EXPECT_EQ(5U, uiEvents);
    EXPECT_EQ("notify DTMF digit=5, duration=20ms", pA->m_pReports->next());
    EXPECT_EQ("digit call 0 5", observer.m_reports.next());
    pA->m_pEndpoint.reset();
    EXPECT_EQ("ended call 0 PCMU 6", observer.m_reports.next());
    m_pEngine->setMediaObserver(nullptr);
}

TEST_F(StreamTest, digitsAreSentAsEventsOrAsTones)
{
    startEngine();
    RecordingObserver observer;
    m_pEngine->setMediaObserver(&observer);
    // Two calls of the engine joined by the test: what one sends, the other one hears.
    for (const unsigned uiEventType : {101U, 0U})
    {
        Leg::Options options;
        options.m_uiEventPayloadType = uiEventType;
        auto pFrom = makeStartedLeg("from", options);
        auto pTo = makeStartedLeg("to", options);
        EXPECT_FALSE(m_pEngine->sendDigits("from", "12x", 100));
        EXPECT_TRUE(m_pEngine->sendDigits("from", "13#", 100));
        std::string strHeard;
        Peer::Packet packet;
        for (unsigned i = 0; i < 100 && strHeard.size() < 3; ++i)
        {
            ASSERT_TRUE(pFrom->m_peer.receive(packet));
            pTo->m_peer.sendPacket(packet.m_header, packet.m_vPayload);
            for (std::string strReport = pTo->m_pReports->next(0ms); !strReport.empty();
                 strReport = pTo->m_pReports->next(0ms))
            {
                EXPECT_THAT(strReport, StartsWith("notify DTMF digit="));
                strHeard += strReport[strReport.find('=') + 1];
            }
        }
        EXPECT_EQ("13#", strHeard) << uiEventType;
        for (const char cDigit : std::string("13#"))
        {
            EXPECT_EQ(std::string("digit to 0 ") + cDigit, observer.m_reports.next());
        }
        pFrom->m_pEndpoint.reset();
        pTo->m_pEndpoint.reset();
        EXPECT_THAT(observer.m_reports.next(), StartsWith("ended from"));
        EXPECT_THAT(observer.m_reports.next(), StartsWith("ended to"));
    }
    m_pEngine->setMediaObserver(nullptr);
}

TEST_F(StreamTest, aFileIsPlayedSampleBySampleAndItsEndReported)
{
    startEngine();
    RecordingObserver observer;
    m_pEngine->setMediaObserver(&observer);
    std::vector<std::int16_t> vSamples(1000);
    for (std::size_t i = 0; i < vSamples.size(); ++i)
    {
        vSamples[i] = static_cast<std::int16_t>(i * 60 - 30000);
    }
    std::string strError;
    EXPECT_FALSE(m_pEngine->attachFile("call", m_strDirectory + "/none.wav", false, strError));
    EXPECT_NE(std::string::npos, strError.find("none.wav"));
    ASSERT_TRUE(m_pEngine->attachFile("call", writeWav(vSamples), false, strError)) << strError;
    Leg::Options options;
    options.m_uiPayloadType = 8;
    auto pLeg = makeStartedLeg("call", options);
    std::vector<std::uint8_t> vExpected(1000);
    G711::encode(G711::A_LAW, vSamples.data(), vSamples.size(), vExpected.data());
    auto vHeard = pLeg->m_peer.receiveSound(1120);
    EXPECT_EQ(G711::silence(G711::A_LAW), vHeard.back());
    vHeard.resize(1000);
    EXPECT_EQ(vExpected, vHeard);
    EXPECT_EQ("played call", observer.m_reports.next());

    // Once another party is there, the two hear one another; alone again, the party hears what is attached
    // now.
    EXPECT_TRUE(m_pEngine->attachFile("call", m_strDirectory + "/play.wav", true, strError));
    auto pB = makeStartedLeg("call");
    EXPECT_TRUE(m_pEngine->detach("call"));
    m_pEngine->setMediaObserver(nullptr);
}

TEST_F(StreamTest, reportsAreExchanged)
{
    startEngine();
    m_pEngine->attachEcho("call");
    // The far end's RTCP port is the one after its RTP port: two peers in a row.
    std::vector<std::unique_ptr<Peer>> vPeers;
    auto pLeg = makeStartedLeg("call");
    Peer rtcp;
    rtcp.setRemote(pLeg->m_uiPort + 1);
    pLeg->m_peer.send(makeSound(1, 160));
    Peer::Packet packet;
    ASSERT_TRUE(pLeg->m_peer.receive(packet));
    std::uint8_t data[RtcpWriter::MAX_SIZE];
    RtcpReportBlock block;
    block.m_ui32Ssrc = packet.m_header.m_ui32Ssrc;
    block.m_ui8FractionLost = 64;
    const std::size_t uiSize = RtcpWriter::write(data, 5, nullptr, &block, "peer", false);
    rtcp.sendRaw(std::vector<std::uint8_t>(data, data + uiSize));
    rtcp.sendRaw(std::vector<std::uint8_t>(data, data + 5));
    const auto end = std::chrono::steady_clock::now() + DEADLINE;
    while (statistics("call").m_ui64Dropped == 0 && std::chrono::steady_clock::now() < end)
    {
    }
    EXPECT_NEAR(0.25, statistics("call").m_fRemoteLossRate, 0.001);
}

TEST_F(StreamTest, aRecordingHoldsBothDirections)
{
    startEngine({
        {"quorvex.media.recordingDir", m_strDirectory}
    });
    m_pEngine->attachEcho("call");
    Leg::Options options;
    options.m_bRecord = true;
    options.m_strRecordingId = "../../etc/x y";
    auto pLeg = makeStartedLeg("call", options);
    for (unsigned i = 0; i < 10; ++i)
    {
        pLeg->m_peer.send(std::vector<std::uint8_t>(160, 0x10));
        EXPECT_EQ(160U, pLeg->m_peer.receiveSound(160).size());
    }
    pLeg->m_pEndpoint.reset();
    EXPECT_TRUE(pLeg->m_pReports->waitReleased());
    stopEngine();
    // The name cannot leave the directory.
    const auto vFiles = files();
    ASSERT_EQ(1U, vFiles.size());
    EXPECT_EQ("_.._.._etc_x_y.wav", vFiles[0]);
    std::ifstream file(m_strDirectory + "/" + vFiles[0], std::ios::binary);
    const std::vector<char> vData((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    ASSERT_GE(vData.size(), 44U + 4 * 1600);
    std::int16_t iExpected = 0;
    const std::uint8_t ui8Code = 0x10;
    G711::decode(G711::U_LAW, &ui8Code, 1, &iExpected);
    unsigned uiLeft = 0;
    unsigned uiRight = 0;
    for (std::size_t i = 44; i + 4 <= vData.size(); i += 4)
    {
        std::int16_t frame[2];
        std::memcpy(frame, vData.data() + i, 4);
        uiLeft += frame[0] == iExpected ? 1 : 0;
        uiRight += frame[1] == iExpected ? 1 : 0;
    }
    EXPECT_EQ(1600U, uiLeft);
    EXPECT_EQ(1600U, uiRight);
}

TEST_F(StreamTest, callProgressIsReportedOnceAndInBoundedTime)
{
    startEngine({
        {"quorvex.media.cpaMaxTimeMs", 1000}
    });
    Leg::Options options;
    options.m_bCpa = true;
    // Nothing at all is heard.
    auto pSilent = makeStartedLeg("silent", options);
    EXPECT_EQ("notify CPA success, connection type=0 (nothing)", pSilent->m_pReports->next());
    stopEngine();
    startEngine();
    // A busy tone, sent as fast as the engine takes it.
    auto pBusy = makeStartedLeg("busy", options);
    ToneDescription tone;
    ASSERT_TRUE(ToneDescription::find("busy", tone));
    const auto pSource = makeToneRecipe(tone)->makeSource();
    for (unsigned i = 0; i < 150; ++i)
    {
        SampleVector samples(160);
        std::vector<std::uint8_t> vCodes(160);
        pSource->read(samples.data(), samples.size());
        G711::encode(G711::U_LAW, samples.data(), samples.size(), vCodes.data());
        pBusy->m_peer.send(vCodes);
        std::this_thread::sleep_for(2ms);
    }
    EXPECT_EQ("notify CPA failure, code=1 (busy)", pBusy->m_pReports->next());
    EXPECT_EQ("", pBusy->m_pReports->next(50ms));
}

}  // namespace Quorvex::Test
