// The rules of packets and streams, one by one, without sockets.

#include <gtest/gtest.h>

#include <map>

#include "JitterBuffer.h"
#include "Latch.h"
#include "Rtcp.h"
#include "RtpPacket.h"
#include "RxStatistics.h"
#include "TelephoneEvent.h"
#include "TxStream.h"

namespace Quorvex::Test
{

using Bytes = std::vector<std::uint8_t>;

namespace
{

constexpr std::int64_t MS = 1'000'000;

}  // namespace

TEST(RxStatisticsTest, countsWhatReallyHappened)
{
    struct Case
    {
        const char* m_szName;
        std::vector<unsigned> m_vSequence;
        unsigned m_uiReceived;
        unsigned m_uiLost;
        unsigned m_uiDuplicates;
        unsigned m_uiReordered;
    };
    // clang-format off
    for (const Case& aCase : {Case{"in order", {1, 2, 3, 4}, 4, 0, 0, 0},
                              Case{"wrap", {65534, 65535, 0, 1}, 4, 0, 0, 0},
                              Case{"loss", {1, 2, 5, 6}, 4, 2, 0, 0},
                              Case{"loss over a wrap", {65535, 2}, 2, 2, 0, 0},
                              Case{"duplicates", {1, 1, 2, 2, 2}, 2, 0, 3, 0},
                              Case{"overtaken", {1, 3, 2, 4}, 4, 0, 0, 1},
                              Case{"overtaken over a wrap", {65535, 1, 0, 2}, 4, 0, 0, 1},
                              Case{"overtaken and then doubled", {1, 3, 2, 2, 4}, 4, 0, 1, 1},
                              Case{"one stray number", {1, 2, 40000, 3, 4}, 4, 0, 0, 0},
                              Case{"another range", {1, 2, 40000, 40001, 40002}, 4, 0, 0, 0},
                              Case{"too old", {1000, 1001, 900, 1002}, 3, 0, 0, 0}})
    // clang-format on
    {
        RxStatistics statistics;
        std::uint32_t ui32Timestamp = 0;
        for (const unsigned uiSequence : aCase.m_vSequence)
        {
            ui32Timestamp += 160;
            statistics.update(
                7, static_cast<std::uint16_t>(uiSequence), ui32Timestamp, ui32Timestamp * NS_PER_SAMPLE);
        }
        EXPECT_EQ(aCase.m_uiReceived, statistics.getReceived()) << aCase.m_szName;
        EXPECT_EQ(aCase.m_uiLost, statistics.getLost()) << aCase.m_szName;
        EXPECT_EQ(aCase.m_uiDuplicates, statistics.getDuplicates()) << aCase.m_szName;
        EXPECT_EQ(aCase.m_uiReordered, statistics.getReordered()) << aCase.m_szName;
    }
}

TEST(RxStatisticsTest, anotherSourceIsBelievedFromItsSecondPacketOn)
{
    RxStatistics statistics;
    EXPECT_EQ(RxStatistics::ACCEPTED, statistics.update(1, 10, 0, 0));
    EXPECT_EQ(RxStatistics::ACCEPTED, statistics.update(1, 13, 480, 60 * MS));
    EXPECT_EQ(RxStatistics::ON_PROBATION, statistics.update(2, 500, 0, 61 * MS));
    EXPECT_EQ(RxStatistics::ACCEPTED, statistics.update(1, 14, 640, 80 * MS));
    EXPECT_EQ(RxStatistics::ON_PROBATION, statistics.update(2, 501, 160, 81 * MS));
    EXPECT_EQ(RxStatistics::ACCEPTED, statistics.update(2, 502, 320, 101 * MS));
    EXPECT_EQ(2U, statistics.getSsrc());
    // What the first one lost is not forgotten.
    EXPECT_EQ(2U, statistics.getLost());
    EXPECT_EQ(4U, statistics.getReceived());
    EXPECT_EQ(1U, statistics.getRestarts());
}

TEST(RxStatisticsTest, jitterIsThatOfTheArrivals)
{
    RxStatistics even;
    RxStatistics uneven;
    for (unsigned i = 0; i < 500; ++i)
    {
        even.update(1, static_cast<std::uint16_t>(i), i * 160, i * 20 * MS);
        // Every second packet comes 8 ms late: arrivals alternate by 8 ms.
        uneven.update(1, static_cast<std::uint16_t>(i), i * 160, (i * 20 + (i % 2) * 8) * MS);
    }
    EXPECT_NEAR(0, even.getJitterMs(), 0.01);
    EXPECT_NEAR(8, uneven.getJitterMs(), 0.2);
}

TEST(RxStatisticsTest, opinionFallsWithLossAndDelay)
{
    EXPECT_NEAR(4.4, RxStatistics::estimateMos(0, 20), 0.05);
    EXPECT_GT(RxStatistics::estimateMos(0.01, 20), RxStatistics::estimateMos(0.05, 20));
    EXPECT_GT(RxStatistics::estimateMos(0.05, 20), RxStatistics::estimateMos(0.05, 400));
    EXPECT_LT(RxStatistics::estimateMos(0.05, 20), 4.0);
    EXPECT_LT(RxStatistics::estimateMos(0.3, 20), 2.5);
    EXPECT_GE(RxStatistics::estimateMos(5, 100000), 1.0);
}

class LatchTest : public testing::Test
{
protected:
    static SocketAddress at(unsigned in_uiPort)
    {
        SocketAddress address;
        EXPECT_TRUE(SocketAddress::make("10.0.0.1", in_uiPort, address));
        return address;
    }
    /// Sends packets in a row; how many were accepted.
    unsigned send(unsigned in_uiPort, unsigned in_uiCount)
    {
        unsigned uiAccepted = 0;
        for (unsigned i = 0; i < in_uiCount; ++i)
        {
            m_i64Now += 20 * MS;
            uiAccepted +=
                m_latch.accept(at(in_uiPort), in_uiPort, m_sequences[in_uiPort]++, m_i64Now) ? 1 : 0;
        }
        return uiAccepted;
    }
    Latch m_latch;
    std::int64_t m_i64Now = 0;
    std::map<unsigned, std::uint16_t> m_sequences;
};

TEST_F(LatchTest, followsAPartyBehindATranslator)
{
    m_latch.reset(at(1000));
    EXPECT_EQ(at(1000), m_latch.getRemote());
    EXPECT_EQ(3U, send(2000, 3));
    EXPECT_TRUE(m_latch.isLocked());
    EXPECT_EQ(at(2000), m_latch.getRemote());
}

TEST_F(LatchTest, aStrangerCannotStealALockedStream)
{
    m_latch.reset(at(1000));
    EXPECT_EQ(3U, send(1000, 3));
    EXPECT_EQ(0U, send(6666, 200));
    EXPECT_EQ(5U, send(1000, 5));
    EXPECT_EQ(at(1000), m_latch.getRemote());
    // Not after a long silence either; only a negotiation opens it.
    m_i64Now += 100'000 * MS;
    EXPECT_EQ(0U, send(6666, 10));
    m_latch.reset(at(1000));
    EXPECT_EQ(10U, send(6666, 10));
}

TEST_F(LatchTest, theSignalledAddressHasPrecedence)
{
    m_latch.reset(at(1000));
    EXPECT_EQ(2U, send(6666, 2));
    EXPECT_EQ(1U, send(1000, 1));
    EXPECT_EQ(0U, send(6666, 1));
    EXPECT_EQ(2U, send(1000, 2));
    EXPECT_EQ(at(1000), m_latch.getRemote());
}

TEST_F(LatchTest, theSignalledAddressReclaimsAStreamThatWasStolen)
{
    m_latch.reset(at(1000));
    EXPECT_EQ(3U, send(6666, 3));
    EXPECT_EQ(at(6666), m_latch.getRemote());
    send(1000, 3);
    EXPECT_EQ(at(1000), m_latch.getRemote());
    EXPECT_EQ(0U, send(6666, 5));
}

TEST_F(LatchTest, whatIsStillUnderWayDoesNotHoldAStreamThatMoves)
{
    m_latch.reset(at(1000));
    EXPECT_EQ(3U, send(1000, 3));
    // The party moves to 3000, which a translator makes 4000; some packets of its old place come first.
    m_latch.reset(at(3000));
    EXPECT_EQ(10U, send(1000, 10));
    EXPECT_EQ(at(3000), m_latch.getRemote());
    EXPECT_EQ(3U, send(4000, 3));
    EXPECT_EQ(at(4000), m_latch.getRemote());
    EXPECT_EQ(0U, send(1000, 3));
    // One that does not move in truth is followed in the end.
    m_latch.reset(at(5000));
    send(4000, Latch::GOOD_PACKETS_OF_FORMER);
    EXPECT_EQ(at(4000), m_latch.getRemote());
}

TEST_F(LatchTest, scatteredPacketsLockNothing)
{
    m_latch.reset(at(1000));
    for (unsigned i = 0; i < 20; ++i)
    {
        m_sequences[6666] = static_cast<std::uint16_t>(i * 7);
        send(6666, 1);
    }
    EXPECT_FALSE(m_latch.isLocked());
}

TEST(TelephoneEventTest, aPressIsReportedOnce)
{
    struct Packet
    {
        unsigned m_uiCode;
        bool m_bEnd;
        std::uint32_t m_ui32Timestamp;
        bool m_bMarker;
        int m_iMs;
    };
    struct Case
    {
        const char* m_szName;
        std::vector<Packet> m_vPackets;
        std::string m_strDigits;
    };
    // clang-format off
    const std::vector<Case> cases = {
        {"one press", {{5, false, 100, true, 0}, {5, false, 100, false, 20}, {5, true, 100, false, 40},
                       {5, true, 100, false, 40}, {5, true, 100, false, 40}}, "5"},
        {"only the ends came", {{5, true, 100, false, 0}, {5, true, 100, false, 1}}, "5"},
        {"the same digit twice", {{5, false, 100, true, 0}, {5, true, 100, false, 20}, {5, false, 900, true, 120},
                                  {5, true, 900, false, 140}}, "55"},
        {"the same digit twice, markers lost", {{5, false, 100, false, 0}, {5, true, 100, false, 20},
                                                {5, false, 900, false, 120}, {5, true, 900, false, 140}}, "55"},
        {"the same digit twice, ends lost", {{5, false, 100, true, 0}, {5, false, 900, true, 120}}, "55"},
        {"the timestamp changes inside the event", {{5, false, 100, true, 0}, {5, false, 260, false, 20},
                                                    {5, false, 420, false, 40}, {5, true, 580, false, 60},
                                                    {5, true, 740, false, 60}, {5, true, 900, false, 60}}, "5"},
        {"two digits", {{1, false, 100, true, 0}, {1, true, 100, false, 20}, {2, false, 500, true, 60},
                        {2, true, 500, false, 80}}, "12"},
        {"late end of the former", {{1, false, 100, true, 0}, {1, true, 100, false, 20}, {1, false, 900, true, 120},
                                    {1, true, 100, false, 121}, {1, true, 900, false, 140}}, "11"},
        {"star, pound and letters", {{10, true, 1, false, 0}, {11, true, 2, false, 200}, {12, true, 3, false, 400},
                                     {15, true, 4, false, 600}}, "*#AD"},
        {"flash is no digit", {{16, true, 1, false, 0}, {255, true, 2, false, 10}}, ""}};
    // clang-format on
    for (const Case& aCase : cases)
    {
        TelephoneEventReceiver receiver;
        std::string strDigits;
        for (const Packet& packet : aCase.m_vPackets)
        {
            const std::uint8_t payload[4] = {static_cast<std::uint8_t>(packet.m_uiCode),
                                             static_cast<std::uint8_t>(packet.m_bEnd ? 0x80 : 0),
                                             0,
                                             160};
            const char cDigit = receiver.receive(
                payload, 4, packet.m_ui32Timestamp, packet.m_bMarker, (1000 + packet.m_iMs) * MS);
            if (cDigit != '\0')
            {
                strDigits += cDigit;
            }
        }
        EXPECT_EQ(aCase.m_strDigits, strDigits) << aCase.m_szName;
    }
    const std::uint8_t shortPayload[3] = {1, 0x80, 0};
    EXPECT_EQ('\0', TelephoneEventReceiver().receive(shortPayload, 3, 1, true, 0));
}

TEST(TxStreamTest, theStreamRunsOnWhateverItComesFrom)
{
    TxStream stream;
    stream.initialize(9, 65535, 0xfffffff0);
    const std::int64_t i64Start = 1'000'000 * MS;
    // Relayed, with a gap and an overtaken packet, which keep their distances.
    const auto first = stream.relay(1, 100, 5000, i64Start);
    EXPECT_EQ(65535, first.m_ui16Sequence);
    EXPECT_TRUE(first.m_bMarker);
    EXPECT_EQ(2, stream.relay(1, 103, 5480, i64Start + 60 * MS).m_ui16Sequence);
    const auto overtaken = stream.relay(1, 102, 5320, i64Start + 61 * MS);
    EXPECT_EQ(1, overtaken.m_ui16Sequence);
    EXPECT_EQ(first.m_ui32Timestamp + 320, overtaken.m_ui32Timestamp);
    // Something of the engine's own between them pushes the rest back by one.
    EXPECT_EQ(3, stream.inserted(77).m_ui16Sequence);
    EXPECT_EQ(4, stream.relay(1, 104, 5640, i64Start + 80 * MS).m_ui16Sequence);
    // What is left out on purpose leaves no gap.
    stream.skip();
    EXPECT_EQ(5, stream.relay(1, 106, 5960, i64Start + 120 * MS).m_ui16Sequence);
    // Another source: the numbers run on, the time that has passed is in the timestamp.
    const auto clocked = stream.clocked(160, i64Start + 220 * MS);
    EXPECT_EQ(6, clocked.m_ui16Sequence);
    EXPECT_TRUE(clocked.m_bMarker);
    EXPECT_EQ(first.m_ui32Timestamp + 960 + 800, clocked.m_ui32Timestamp);
    const auto next = stream.clocked(160, i64Start + 243 * MS);
    EXPECT_EQ(clocked.m_ui32Timestamp + 160, next.m_ui32Timestamp);
    EXPECT_FALSE(next.m_bMarker);
}

TEST(JitterBufferTest, ordersPacketsAndFillsGaps)
{
    JitterBuffer buffer;
    JitterBuffer::Cursor cursor;
    const auto write = [&buffer](std::uint32_t in_ui32Timestamp, std::int16_t in_iValue)
    {
        const std::vector<std::int16_t> vSamples(160, in_iValue);
        buffer.write(in_ui32Timestamp, vSamples.data(), vSamples.size());
    };
    const auto read = [&buffer, &cursor](std::vector<std::int32_t>& out_vSum)
    {
        out_vSum.assign(160, 0);
        return buffer.mix(cursor, out_vSum.data(), 160, 480);
    };
    std::vector<std::int32_t> vSum;
    const std::uint32_t ui32Start = 0xffffff00;
    EXPECT_FALSE(read(vSum));
    write(ui32Start, 1);
    EXPECT_FALSE(read(vSum));
    write(ui32Start + 320, 3);
    write(ui32Start + 160, 2);
    for (const std::int32_t iExpected : {1, 2, 3})
    {
        EXPECT_TRUE(read(vSum));
        EXPECT_EQ(std::vector<std::int32_t>(160, iExpected), vSum);
    }
    // Empty: it waits for a delay's worth, and what never came is silence.
    EXPECT_FALSE(read(vSum));
    write(ui32Start + 640, 5);
    EXPECT_FALSE(read(vSum));
    write(ui32Start + 800, 6);
    for (const std::int32_t iExpected : {0, 5, 6})
    {
        EXPECT_TRUE(read(vSum));
        EXPECT_EQ(std::vector<std::int32_t>(160, iExpected), vSum);
    }
}

TEST(JitterBufferTest, survivesJumpsAndNonsense)
{
    JitterBuffer buffer;
    JitterBuffer::Cursor cursor;
    std::vector<std::int16_t> vSamples(1488, 7);
    std::vector<std::int32_t> vSum(480, 0);
    std::uint32_t ui32State = 1;
    for (int i = 0; i < 20000; ++i)
    {
        ui32State = ui32State * 1664525U + 1013904223U;
        buffer.write(ui32State, vSamples.data(), ui32State % vSamples.size());
        buffer.mix(cursor, vSum.data(), ui32State % vSum.size(), ui32State % 1000);
    }
    // A steady stream after that is heard whole.
    unsigned uiHeard = 0;
    for (std::uint32_t i = 0; i < 50; ++i)
    {
        buffer.write(i * 160, vSamples.data(), 160);
        std::fill(vSum.begin(), vSum.end(), 0);
        uiHeard += buffer.mix(cursor, vSum.data(), 160, 320) && vSum[159] == 7 ? 1 : 0;
    }
    EXPECT_GE(uiHeard, 48U);
}

}  // namespace Quorvex::Test
