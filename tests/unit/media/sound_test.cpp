// What parties hear, on real sockets.

#include <spandsp.h>

#include <cmath>
#include <cstdlib>

#include "G711.h"
#include "MediaFixture.h"

namespace Quorvex::Test
{

class SoundTest : public MediaFixture
{
};

TEST_F(SoundTest, echoReturnsEverySampleAndNumbersOn)
{
    startEngine();
    m_pEngine->attachEcho("call");
    auto pLeg = makeStartedLeg("call");
    Peer& peer = pLeg->m_peer;
    std::uint16_t ui16Last = 0;
    std::uint32_t ui32Last = 0;
    // Silence comes until the first packet does, since nobody is heard before.
    Peer::Packet packet;
    for (unsigned i = 0; i < 50; ++i)
    {
        const auto vSound = makeSound(i, 160);
        peer.send(vSound);
        ASSERT_TRUE(peer.receive(packet));
        EXPECT_EQ(vSound, packet.m_vPayload) << i;
        EXPECT_EQ(0U, packet.m_header.m_ui8PayloadType);
        if (i > 0)
        {
            EXPECT_EQ(static_cast<std::uint16_t>(ui16Last + 1), packet.m_header.m_ui16Sequence);
            EXPECT_EQ(ui32Last + 160, packet.m_header.m_ui32Timestamp);
        }
        ui16Last = packet.m_header.m_ui16Sequence;
        ui32Last = packet.m_header.m_ui32Timestamp;
    }
    const auto vStatistics = m_pEngine->getStreamStatistics("call");
    ASSERT_EQ(1U, vStatistics.size());
    EXPECT_EQ(50U, vStatistics[0].m_ui64Received);
    EXPECT_EQ(50U, vStatistics[0].m_ui64Sent);
    EXPECT_EQ(0U, vStatistics[0].m_ui64Lost);
    EXPECT_GT(vStatistics[0].m_fMos, 4.0);
}

TEST_F(SoundTest, relayKeepsSamplesOfOneLawAndTranscodesTheOther)
{
    startEngine();
    for (const auto& [uiA, uiB] : std::vector<std::pair<unsigned, unsigned>>{
             {0, 0},
             {8, 8},
             {0, 8},
             {8, 0}
    })
    {
        Leg::Options a;
        a.m_uiPayloadType = uiA;
        Leg::Options b;
        b.m_uiPayloadType = uiB;
        auto pA = makeStartedLeg("call", a);
        auto pB = makeStartedLeg("call", b);
        for (unsigned i = 0; i < 20; ++i)
        {
            const auto vSound = makeSound(i, 160);
            pA->m_peer.send(vSound, uiA);
            Peer::Packet packet;
            do
            {
                // Before B was there, A's packets had silence to wait for; B hears A only.
                ASSERT_TRUE(pB->m_peer.receive(packet));
            } while (packet.m_vPayload == std::vector<std::uint8_t>(160, G711::silence(G711::lawOf(uiB))));
            EXPECT_EQ(uiB, packet.m_header.m_ui8PayloadType);
            ASSERT_EQ(160U, packet.m_vPayload.size());
            for (std::size_t n = 0; n < 160; ++n)
            {
                std::uint8_t ui8Expected = vSound[n];
                if (uiA != uiB)
                {
                    ui8Expected = uiA == 0 ? ulaw_to_alaw(vSound[n]) : alaw_to_ulaw(vSound[n]);
                }
                ASSERT_EQ(ui8Expected, packet.m_vPayload[n]) << uiA << " to " << uiB << " at " << n;
            }
        }
    }
}

TEST_F(SoundTest, differentPacketSizesAreRepacketedExactly)
{
    startEngine();
    Leg::Options thirty;
    thirty.m_uiPacketSizeMs = 30;
    auto pA = makeStartedLeg("call");
    auto pB = makeStartedLeg("call", thirty);
    std::vector<std::uint8_t> vSent;
    std::vector<std::uint8_t> vHeard;
    const auto start = std::chrono::steady_clock::now();
    for (unsigned i = 0; vHeard.size() < 20U * 240; ++i)
    {
        // In step with real time, as a clock is on the other side.
        Peer::Packet packet;
        const auto due = start + i * 20ms;
        const auto vSound = makeSound(i, 160);
        pA->m_peer.send(vSound);
        vSent.insert(vSent.end(), vSound.begin(), vSound.end());
        for (auto now = std::chrono::steady_clock::now(); now < due + 20ms;
             now = std::chrono::steady_clock::now())
        {
            if (pB->m_peer.receive(
                    packet, std::chrono::duration_cast<std::chrono::milliseconds>(due + 20ms - now) + 1ms))
            {
                EXPECT_EQ(240U, packet.m_vPayload.size());
                vHeard.insert(vHeard.end(), packet.m_vPayload.begin(), packet.m_vPayload.end());
            }
        }
        ASSERT_LT(i, 500U);
    }
    // What was heard is what was sent, behind some silence.
    const auto first =
        std::find_if(vHeard.begin(), vHeard.end(), [](std::uint8_t in_ui8) { return in_ui8 != 0xff; });
    const auto begin = std::search(vSent.begin(), vSent.end(), first, first + 16);
    ASSERT_NE(vSent.end(), begin);
    const auto iCompared = std::min<std::ptrdiff_t>(vHeard.end() - first, vSent.end() - begin);
    EXPECT_GT(iCompared, 10 * 240);
    EXPECT_TRUE(std::equal(first, first + iCompared, begin));
}

TEST_F(SoundTest, threePartiesHearTheSumOfTheOthers)
{
    startEngine();
    auto pA = makeStartedLeg("call");
    auto pB = makeStartedLeg("call");
    auto pC = makeStartedLeg("call");
    std::int16_t iA = 1000;
    std::int16_t iB = 2000;
    std::uint8_t ui8A = linear_to_ulaw(iA);
    std::uint8_t ui8B = linear_to_ulaw(iB);
    const std::uint8_t ui8Sum = linear_to_ulaw(ulaw_to_linear(ui8A) + ulaw_to_linear(ui8B));
    bool bA = false;
    bool bB = false;
    bool bSum = false;
    const auto end = std::chrono::steady_clock::now() + DEADLINE;
    while (!(bA && bB && bSum) && std::chrono::steady_clock::now() < end)
    {
        pA->m_peer.send(std::vector<std::uint8_t>(160, ui8A));
        pB->m_peer.send(std::vector<std::uint8_t>(160, ui8B));
        Peer::Packet packet;
        ASSERT_TRUE(pC->m_peer.receive(packet));
        bSum |= packet.m_vPayload.back() == ui8Sum;
        ASSERT_TRUE(pA->m_peer.receive(packet));
        bB |= packet.m_vPayload.back() == ui8B;
        EXPECT_NE(ui8A, packet.m_vPayload.back());
        ASSERT_TRUE(pB->m_peer.receive(packet));
        bA |= packet.m_vPayload.back() == ui8A;
    }
    EXPECT_TRUE(bA && bB && bSum);
}

TEST_F(SoundTest, redirectedSoundTakesThePlaceOfTheParty)
{
    startEngine();
    const std::string strEptId = m_pEngine->generateEptId();
    auto pA = makeLeg("call", new SndRecvEndpointSpec(), strEptId);
    startLeg(*pA, {});
    auto pB = makeStartedLeg("call");
    auto pRedirect = makeLeg("call", new RedirectRxEndpointSpec(strEptId));
    Leg::Options rxOnly;
    rxOnly.m_bTx = false;
    startLeg(*pRedirect, rxOnly);

    Peer::Packet packet;
    pA->m_peer.send(makeSound(1, 160));
    pRedirect->m_peer.send(makeSound(2, 160));
    ASSERT_TRUE(pB->m_peer.receive(packet));
    while (packet.m_vPayload == std::vector<std::uint8_t>(160, 0xff))
    {
        ASSERT_TRUE(pB->m_peer.receive(packet));
    }
    EXPECT_EQ(makeSound(2, 160), packet.m_vPayload);

    // Once it stops, the party itself is heard again, in the same stream.
    const std::uint32_t ui32Ssrc = packet.m_header.m_ui32Ssrc;
    const std::uint16_t ui16Sequence = packet.m_header.m_ui16Sequence;
    EXPECT_TRUE(pRedirect->m_pEndpoint->stop(MediaEndpoint::RX_DIRECTION));
    EXPECT_EQ("stop RX SUCCESS", pRedirect->m_pReports->next());
    pA->m_peer.send(makeSound(3, 160));
    ASSERT_TRUE(pB->m_peer.receive(packet));
    EXPECT_EQ(makeSound(3, 160), packet.m_vPayload);
    EXPECT_EQ(ui32Ssrc, packet.m_header.m_ui32Ssrc);
    EXPECT_EQ(static_cast<std::uint16_t>(ui16Sequence + 1), packet.m_header.m_ui16Sequence);
    EXPECT_TRUE(packet.m_header.m_bMarker);
}

TEST_F(SoundTest, forkSendsACopyOfWhatItsPartySends)
{
    startEngine();
    const std::string strEptId = m_pEngine->generateEptId();
    auto pA = makeLeg("call", new SndRecvEndpointSpec(), strEptId);
    startLeg(*pA, {});
    auto pFork = makeLeg("call", new ForkTxEndpointSpec(strEptId));
    Leg::Options txOnly;
    txOnly.m_bRx = false;
    txOnly.m_uiPayloadType = 8;
    startLeg(*pFork, txOnly);
    m_pEngine->attachEcho("call");
    m_pEngine->getTotals();

    pA->m_peer.send(makeSound(7, 160));
    std::vector<std::uint8_t> vExpected = makeSound(7, 160);
    G711::transcode(G711::U_LAW, makeSound(7, 160).data(), 160, vExpected.data());
    Peer::Packet packet;
    do
    {
        ASSERT_TRUE(pFork->m_peer.receive(packet));
        EXPECT_EQ(8U, packet.m_header.m_ui8PayloadType);
    } while (packet.m_vPayload != vExpected);
}

TEST_F(SoundTest, aPartyOnHoldIsNotHeardAndHearsNothing)
{
    startEngine();
    auto pA = makeStartedLeg("call");
    auto pB = makeStartedLeg("call");
    EXPECT_TRUE(pB->m_pEndpoint->stop(MediaEndpoint::RXTX_DIRECTION));
    EXPECT_EQ("stop RX SUCCESS", pB->m_pReports->next());
    EXPECT_EQ("stop TX SUCCESS", pB->m_pReports->next());
    Peer::Packet packet;
    while (pB->m_peer.receive(packet, 0ms) || pA->m_peer.receive(packet, 0ms))
    {
    }
    pB->m_peer.send(makeSound(1, 160));
    pA->m_peer.send(makeSound(2, 160));
    // The other party hears silence in an unbroken stream.
    for (int i = 0; i < 3; ++i)
    {
        ASSERT_TRUE(pA->m_peer.receive(packet));
        EXPECT_EQ(std::vector<std::uint8_t>(160, 0xff), packet.m_vPayload);
    }
    EXPECT_FALSE(pB->m_peer.receive(packet, 0ms));
}

}  // namespace Quorvex::Test
