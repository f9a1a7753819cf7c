// Any bytes as what comes to one endpoint's ports: the first byte says whether they are a sound file or a
// series of datagrams, each preceded by two bytes: from where, and how long it is.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "G711.h"
#include "JitterBuffer.h"
#include "Latch.h"
#include "RtcpSession.h"
#include "RtpPacket.h"
#include "RxAnalysis.h"
#include "RxStatistics.h"
#include "TelephoneEvent.h"
#include "TxStream.h"
#include "WavFile.h"

namespace
{

using namespace Quorvex;

/// What the media thread does with a datagram, in the order in which it does it.
class Stream
{
public:
    Stream() : m_rtcp(-1)
    {
        m_tx.initialize(1, 65530, 0xffffff00);
        m_analysis.startCpa(2000, m_i64Now);
        m_analysis.startDtmf();
        SocketAddress signalled;
        if (SocketAddress::make("10.0.0.1", 4000, signalled))
        {
            m_latch.reset(signalled);
        }
    }

    void receive(unsigned in_uiFrom, const std::uint8_t* in_pData, std::size_t in_uiSize)
    {
        m_i64Now += (in_uiFrom >> 3) * NS_PER_MS;
        if ((in_uiFrom & 4U) != 0)
        {
            m_rtcp.receive(in_pData, in_uiSize, 1, m_i64Now);
            std::array<std::uint8_t, RtcpWriter::MAX_SIZE> report;
            const std::size_t uiSize = m_rtcp.write(report.data(), m_tx, m_rx, "fuzz@host", true, m_i64Now);
            RtcpReader reader;
            check(reader.parse(report.data(), uiSize, 2));
            return;
        }
        SocketAddress from;
        check(SocketAddress::make("10.0.0.1", 4000 + (in_uiFrom & 3U), from));
        RtpPacket packet;
        if (!packet.parse(in_pData, in_uiSize))
        {
            return;
        }
        check(packet.m_pPayload + packet.m_uiPayloadSize <= in_pData + in_uiSize);
        if (!m_latch.accept(from, packet.m_ui32Ssrc, packet.m_ui16Sequence, m_i64Now) ||
            m_rx.update(packet.m_ui32Ssrc, packet.m_ui16Sequence, packet.m_ui32Timestamp, m_i64Now) !=
                RxStatistics::ACCEPTED)
        {
            return;
        }
        m_tx.relay(packet.m_ui32Ssrc, packet.m_ui16Sequence, packet.m_ui32Timestamp, m_i64Now);
        m_tx.count(packet.m_uiPayloadSize);
        if (packet.m_ui8PayloadType >= 96)
        {
            m_events.receive(packet.m_pPayload,
                             packet.m_uiPayloadSize,
                             packet.m_ui32Timestamp,
                             packet.m_bMarker,
                             m_i64Now);
            return;
        }
        std::array<std::int16_t, 256> samples;
        const std::size_t uiCount = std::min(packet.m_uiPayloadSize, samples.size());
        G711::decode(G711::lawOf(packet.m_ui8PayloadType), packet.m_pPayload, uiCount, samples.data());
        m_buffer.write(packet.m_ui32Timestamp, samples.data(), uiCount);
        std::array<std::int32_t, 160> sum{};
        m_buffer.mix(m_cursor, sum.data(), sum.size(), 320);
        m_analysis.process(packet.m_ui32Timestamp, samples.data(), uiCount, m_i64Now);
        m_analysis.takeDigit();
        m_analysis.takeResult();
        const double fMos = RxStatistics::estimateMos(
            static_cast<double>(m_rx.getLost()) / static_cast<double>(m_rx.getExpected() + 1),
            m_rx.getJitterMs());
        check(fMos >= 1.0 && fMos <= 4.6);
    }

private:
    static void check(bool in_bHolds)
    {
        if (!in_bHolds)
        {
            std::abort();
        }
    }

    std::int64_t m_i64Now = 1'000'000'000;
    Latch m_latch;
    RxStatistics m_rx;
    TxStream m_tx;
    RtcpSession m_rtcp;
    TelephoneEventReceiver m_events;
    JitterBuffer m_buffer;
    JitterBuffer::Cursor m_cursor;
    RxAnalysis m_analysis;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* in_pData, std::size_t in_uiSize)
{
    if (in_uiSize == 0)
    {
        return 0;
    }
    if ((in_pData[0] & 1U) != 0)
    {
        SampleVector samples;
        std::string strError;
        WavFile::parse(in_pData + 1, in_uiSize - 1, samples, strError);
        return 0;
    }
    Stream stream;
    for (std::size_t pos = 1; pos + 2 <= in_uiSize;)
    {
        const unsigned uiFrom = in_pData[pos];
        const std::size_t uiSize = std::min<std::size_t>(in_pData[pos + 1], in_uiSize - pos - 2);
        stream.receive(uiFrom, in_pData + pos + 2, uiSize);
        pos += 2 + uiSize;
    }
    return 0;
}
