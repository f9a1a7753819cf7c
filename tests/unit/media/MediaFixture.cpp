#include "MediaFixture.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>

#include "infra/MemAccount.h"

namespace Quorvex::Test
{

bool TestCallback::notifyEvent(MediaNotificationEvent* in_pEvent)
{
    const std::unique_ptr<MediaNotificationEvent> pEvent(in_pEvent);
    std::ostringstream text;
    text << "notify " << *pEvent;
    m_pReports->add(text.str());
    return true;
}

Peer::Peer() : m_iSocket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t uiSize = sizeof address;
    EXPECT_EQ(0, ::bind(m_iSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    EXPECT_EQ(0, ::getsockname(m_iSocket, reinterpret_cast<sockaddr*>(&address), &uiSize));
    m_uiPort = ntohs(address.sin_port);
    const int iSize = 1 << 20;
    ::setsockopt(m_iSocket, SOL_SOCKET, SO_RCVBUF, &iSize, sizeof iSize);
    m_next.m_ui32Ssrc = 0x1000 + m_uiPort;
    m_next.m_ui16Sequence = 65530;
    m_next.m_ui32Timestamp = 0xffffff00;
}

Peer::~Peer()
{
    ::close(m_iSocket);
}

void Peer::setRemote(unsigned in_uiPort)
{
    EXPECT_TRUE(SocketAddress::make("127.0.0.1", in_uiPort, m_remote));
}

void Peer::sendRaw(const std::vector<std::uint8_t>& in_vData)
{
    const sockaddr_in address = m_remote.toSockaddr();
    EXPECT_EQ(static_cast<ssize_t>(in_vData.size()),
              ::sendto(m_iSocket,
                       in_vData.data(),
                       in_vData.size(),
                       0,
                       reinterpret_cast<const sockaddr*>(&address),
                       sizeof address));
}

void Peer::sendPacket(const RtpPacket& in_header, const std::vector<std::uint8_t>& in_vPayload)
{
    std::vector<std::uint8_t> vData(RtpPacket::HEADER_SIZE + in_vPayload.size());
    in_header.writeHeader(vData.data());
    std::copy(in_vPayload.begin(), in_vPayload.end(), vData.begin() + RtpPacket::HEADER_SIZE);
    sendRaw(vData);
}

void Peer::send(const std::vector<std::uint8_t>& in_vPayload, unsigned in_uiPayloadType)
{
    m_next.m_ui8PayloadType = static_cast<std::uint8_t>(in_uiPayloadType);
    sendPacket(m_next, in_vPayload);
    ++m_next.m_ui16Sequence;
    m_next.m_ui32Timestamp += static_cast<std::uint32_t>(in_vPayload.size());
}

void Peer::sendEvent(unsigned in_uiPayloadType,
                     unsigned in_uiCode,
                     bool in_bEnd,
                     unsigned in_uiDuration,
                     std::uint32_t in_ui32Timestamp,
                     bool in_bMarker)
{
    std::vector<std::uint8_t> vData(RtpPacket::HEADER_SIZE + 4);
    RtpPacket header = m_next;
    header.m_ui8PayloadType = static_cast<std::uint8_t>(in_uiPayloadType);
    header.m_ui32Timestamp = in_ui32Timestamp;
    header.m_bMarker = in_bMarker;
    header.writeHeader(vData.data());
    vData[12] = static_cast<std::uint8_t>(in_uiCode);
    vData[13] = in_bEnd ? 0x8a : 0x0a;
    writeU16(vData.data() + 14, static_cast<std::uint16_t>(in_uiDuration));
    sendRaw(vData);
    ++m_next.m_ui16Sequence;
}

bool Peer::receive(Packet& out_packet, std::chrono::milliseconds in_timeout)
{
    pollfd descriptor{m_iSocket, POLLIN, 0};
    if (::poll(&descriptor, 1, static_cast<int>(in_timeout.count())) != 1)
    {
        return false;
    }
    std::uint8_t data[2048];
    const ssize_t iSize = ::recv(m_iSocket, data, sizeof data, 0);
    if (iSize < 0 || !out_packet.m_header.parse(data, static_cast<std::size_t>(iSize)))
    {
        ADD_FAILURE() << "received something that is no RTP packet";
        return false;
    }
    const RtpPacket& header = out_packet.m_header;
    out_packet.m_vPayload.assign(header.m_pPayload, header.m_pPayload + header.m_uiPayloadSize);
    return true;
}

std::vector<std::uint8_t> Peer::receiveSound(std::size_t in_uiBytes, std::chrono::milliseconds in_timeout)
{
    std::vector<std::uint8_t> vSound;
    Packet packet;
    while (vSound.size() < in_uiBytes && receive(packet, in_timeout))
    {
        vSound.insert(vSound.end(), packet.m_vPayload.begin(), packet.m_vPayload.end());
    }
    return vSound;
}

void MediaFixture::SetUp()
{
    m_pEngine = std::make_unique<RtpMediaEngine>();
}

void MediaFixture::TearDown()
{
    stopEngine();
    m_pEngine.reset();
    for (const MemAccounts::Balance& balance : MemAccounts::snapshot())
    {
        if (balance.m_strName.find("Media") != std::string::npos || balance.m_strName == "RtpEndpoint")
        {
            EXPECT_EQ(0U, balance.m_ui64Objects) << balance.m_strName;
        }
    }
}

std::string MediaFixture::freeRange(unsigned in_uiPairs)
{
    Peer peer;
    const unsigned uiFirst = (peer.getPort() & ~1U) - 2 * in_uiPairs;
    return std::to_string(uiFirst) + "-" + std::to_string(uiFirst + 2 * in_uiPairs - 1);
}

void MediaFixture::startEngine(const std::vector<std::pair<std::string, ParameterValue>>& in_vKeys)
{
    auto pConfig = std::make_unique<MapConfiguration>();
    pConfig->set("quorvex.rtp.portRange", "20000-31999");
    for (const auto& [strKey, value] : in_vKeys)
    {
        pConfig->set(strKey, value);
    }
    ASSERT_TRUE(m_pEngine->configure(TSHandle<ROConfiguration>(pConfig.release())));
    ASSERT_TRUE(m_pEngine->start());
}

void MediaFixture::stopEngine()
{
    m_pEngine->stop();
    EXPECT_TRUE(m_pEngine->waitUntilDone());
}

std::unique_ptr<Leg> MediaFixture::makeLeg(const std::string& in_strCallId,
                                           MediaEndpointSpec* in_pSpec,
                                           const std::string& in_strEptId)
{
    auto pLeg = std::make_unique<Leg>();
    auto* pCallback = new TestCallback(pLeg->m_pReports);
    pLeg->m_pEndpoint.reset(in_strEptId.empty() ? m_pEngine->createEndpoint(pCallback, in_strCallId, in_pSpec)
                                                : m_pEngine->createIdentifiedEndpoint(
                                                      pCallback, in_strCallId, in_strEptId, in_pSpec));
    EXPECT_NE(nullptr, pLeg->m_pEndpoint);
    if (pLeg->m_pReports->next() == "capacity")
    {
        EXPECT_TRUE(pLeg->m_pReports->m_pCapacity->getUnsigned("UDP Port", pLeg->m_uiPort));
        pLeg->m_peer.setRemote(pLeg->m_uiPort);
    }
    return pLeg;
}

void MediaFixture::startLeg(Leg& io_leg, const Leg::Options& in_options)
{
    for (const auto direction : {MediaEndpoint::RX_DIRECTION, MediaEndpoint::TX_DIRECTION})
    {
        if (direction == MediaEndpoint::RX_DIRECTION ? !in_options.m_bRx : !in_options.m_bTx)
        {
            continue;
        }
        MediaEndpointConfig config(direction);
        config.set("IPv4 Address", "127.0.0.1");
        const unsigned uiSignalled =
            in_options.m_uiSignalledPort != 0 ? in_options.m_uiSignalledPort : io_leg.m_peer.getPort();
        config.set("UDP Port", direction == MediaEndpoint::RX_DIRECTION ? io_leg.m_uiPort : uiSignalled);
        config.set("Payload type", in_options.m_uiPayloadType);
        config.set("Payload size", in_options.m_uiPacketSizeMs);
        config.set("Rfc 2833 support", in_options.m_uiEventPayloadType != 0);
        config.set("Rfc 2833 payload type", in_options.m_uiEventPayloadType);
        config.set("sip.out.cpa.enabled", in_options.m_bCpa);
        config.enableRecording(in_options.m_bRecord);
        config.setRecordingOutputId(in_options.m_strRecordingId);
        const std::string strDirection = MediaEndpoint::getDirectionString(direction);
        EXPECT_TRUE(io_leg.m_pEndpoint->configure(direction, config));
        EXPECT_EQ("configure " + strDirection + " SUCCESS", io_leg.m_pReports->next());
        EXPECT_TRUE(io_leg.m_pEndpoint->start(direction));
        EXPECT_EQ("start " + strDirection + " SUCCESS", io_leg.m_pReports->next());
    }
}

std::unique_ptr<Leg> MediaFixture::makeStartedLeg(const std::string& in_strCallId,
                                                  const Leg::Options& in_options)
{
    auto pLeg = makeLeg(in_strCallId);
    startLeg(*pLeg, in_options);
    return pLeg;
}

std::vector<std::uint8_t> makeSound(unsigned in_uiSeed, std::size_t in_uiBytes)
{
    std::vector<std::uint8_t> vSound(in_uiBytes);
    std::uint32_t ui32State = in_uiSeed * 2654435761U + 1;
    for (std::uint8_t& ui8Byte : vSound)
    {
        ui32State = ui32State * 1664525U + 1013904223U;
        ui8Byte = static_cast<std::uint8_t>(ui32State >> 24);
        // The second code of zero in mu-law does not survive a linear stage, as it must not need to.
        ui8Byte = ui8Byte == 0x7f ? 0xff : ui8Byte;
    }
    return vSound;
}

}  // namespace Quorvex::Test
