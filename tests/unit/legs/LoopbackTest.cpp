// An inbound leg over the real SIP stack: a bare socket is the peer, the test's thread the task.

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>

#include "InSipLeg.h"
#include "LegsTestSupport.h"
#include "UnknownRequest.h"
#include "calleng/Call.h"
#include "infra/Assertion.h"
#include "infra/MemAccount.h"
#include "sipstack/DsSipAckMessage.h"
#include "sipstack/DsSipIncomingCallinterface.h"
#include "sipstack/DsSipNewCallinterface.h"
#include "sipstack/DsSipPrackMessage.h"

namespace Quorvex::LegsTest
{
namespace
{

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr int kDeadlineMs = 10000;

/// What the stack reported, with the objects that came along.
struct Report
{
    std::string m_strWhat;
    DsHandle<DsSipIncomingCall> m_hCall;
    DsHandle<DsSipMessage> m_hMessage;
    DsHandle<DsSipServerTransaction> m_hTransaction;
};

class Reports
{
public:
    void add(Report in_report)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_reports.push_back(std::move(in_report));
        m_added.notify_one();
    }

    void clear()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_reports.clear();
    }

    /// The next report of that kind; those before it are dropped. Empty when none came in time.
    Report waitFor(const std::string& in_strWhat)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kDeadlineMs);
        for (;;)
        {
            if (!m_added.wait_until(lock, deadline, [this] { return !m_reports.empty(); }))
            {
                ADD_FAILURE() << "no " << in_strWhat;
                return {};
            }
            Report report = std::move(m_reports.front());
            m_reports.pop_front();
            if (report.m_strWhat == in_strWhat)
            {
                return report;
            }
        }
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_added;
    std::deque<Report> m_reports;
};

using InCall = DsHandle<DsSipIncomingCall>;

class CallInterface final : public DsSipIncomingCallinterface
{
public:
    explicit CallInterface(Reports& in_reports) : m_reports(in_reports) {}

    void called(const InCall& in_hCall, const DsHandle<DsSipInviteMessage>& in_hInvite) override
    {
        m_reports.add({"called", in_hCall, in_hInvite, {}});
    }
    void prack(const InCall& in_hCall, const DsHandle<DsSipPrackMessage>& in_hPrack) override
    {
        m_reports.add({"prack", in_hCall, in_hPrack, {}});
    }
    void callConfirmed(const InCall& in_hCall, const DsHandle<DsSipAckMessage>& in_hAck) override
    {
        m_reports.add({"confirmed", in_hCall, in_hAck, {}});
    }
    void terminated(const InCall& in_hCall, const DsHandle<DsSipMessage>& in_hMessage) override
    {
        m_reports.add({"terminated", in_hCall, in_hMessage, {}});
    }
    void unknownRequest(const InCall& in_hCall,
                        const DsHandle<DsSipServerTransaction>& in_hTransaction,
                        const DsHandle<DsSipRequest>& in_hRequest) override
    {
        m_reports.add({"unknown", in_hCall, in_hRequest, in_hTransaction});
    }
    void referRequest(const InCall& in_hCall,
                      const DsHandle<DsSipServerTransaction>& in_hTransaction,
                      const DsHandle<DsSipRequest>& in_hRefer) override
    {
        m_reports.add({"refer", in_hCall, in_hRefer, in_hTransaction});
    }
    void notifyResponse(const InCall& in_hCall, const DsHandle<DsSipResponse>& in_hResponse) override
    {
        m_reports.add({"notifyResponse", in_hCall, in_hResponse, {}});
    }
    void reinviteRequest(const InCall& in_hCall, const DsHandle<DsSipInviteMessage>& in_hInvite) override
    {
        m_reports.add({"reinvite", in_hCall, in_hInvite, {}});
    }
    void reinviteCancel(const InCall&, const DsHandle<DsSipRequest>&) override {}
    void reinviteResponse(const InCall&, const DsHandle<DsSipResponse>&) override {}
    void reinviteAck(const InCall& in_hCall, const DsHandle<DsSipAckMessage>& in_hAck) override
    {
        m_reports.add({"reinviteAck", in_hCall, in_hAck, {}});
    }
    void reinviteTimeOut(const InCall&, const DsHandle<DsSipInviteMessage>&) override {}
    void onSessionTimeOut(const InCall&) override {}
    void onSessionRefreshTime(const InCall&) override {}
    void replacesDialog(const InCall&,
                        const DsHandle<DsSipDialog>&,
                        const DsHandle<DsSipDialog>&,
                        const DsHandle<DsSipInviteMessage>&) override
    {
    }

private:
    Reports& m_reports;
};

class NewCalls final : public DsSipNewCallinterface
{
public:
    explicit NewCalls(Reports& in_reports) : m_reports(in_reports) {}
    InCall newCall(const DsHandle<DsSipInviteMessage>& in_hInvite) override
    {
        return makeDs<DsSipIncomingCall>(in_hInvite, makeDs<CallInterface>(m_reports));
    }

private:
    Reports& m_reports;
};

/// A peer that is nothing but a socket.
class Peer
{
public:
    explicit Peer(std::uint16_t in_uiGatewayPort) : m_iSocket(::socket(AF_INET, SOCK_DGRAM, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(::bind(m_iSocket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        socklen_t length = sizeof address;
        ::getsockname(m_iSocket, reinterpret_cast<sockaddr*>(&address), &length);
        m_strAddress = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
        address.sin_port = htons(in_uiGatewayPort);
        EXPECT_EQ(::connect(m_iSocket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    ~Peer() { ::close(m_iSocket); }

    void send(const std::string& in_strMethod,
              unsigned int in_uiCSeq,
              const std::string& in_strHeaders = "",
              const std::string& in_strBody = "",
              const std::string& in_strType = "application/sdp")
    {
        const std::string strText =
            in_strMethod + " sip:gateway@127.0.0.1 SIP/2.0\r\nVia: SIP/2.0/UDP " + m_strAddress +
            ";branch=z9hG4bK-" + in_strMethod + std::to_string(in_uiCSeq) +
            "\r\nFrom: \"Alice\" <sip:alice@192.0.2.1>;tag=a\r\nTo: <sip:bob@192.0.2.2>" +
            (m_strToTag.empty() ? "" : ";tag=" + m_strToTag) +
            "\r\nCall-ID: loop-1\r\nCSeq: " + std::to_string(in_uiCSeq) + ' ' + in_strMethod +
            "\r\nMax-Forwards: 70\r\nContact: <sip:alice@" + m_strAddress + ">\r\n" + in_strHeaders +
            (in_strBody.empty() ? "" : "Content-Type: " + in_strType + "\r\n") +
            "Content-Length: " + std::to_string(in_strBody.size()) + "\r\n\r\n" + in_strBody;
        EXPECT_EQ(::send(m_iSocket, strText.data(), strText.size(), 0), static_cast<ssize_t>(strText.size()));
    }

    void answer(const DsSipMessage& in_request)
    {
        const auto hRequest = DsSipMessage::parse(in_request.getText()).dynamicCast<DsSipRequest>();
        const std::string strText = makeDs<DsSipResponse>(200U, hRequest)->getText();
        EXPECT_EQ(::send(m_iSocket, strText.data(), strText.size(), 0), static_cast<ssize_t>(strText.size()));
    }

    /// The next message whose first line begins so; others (retransmissions) are dropped. Nil when none came.
    DsHandle<DsSipMessage> receive(const std::string& in_strStart)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kDeadlineMs);
        std::string strBuffer(65536, '\0');
        while (std::chrono::steady_clock::now() < deadline)
        {
            pollfd descriptor{m_iSocket, POLLIN, 0};
            if (::poll(&descriptor, 1, kDeadlineMs) <= 0)
            {
                break;
            }
            const ssize_t length = ::recv(m_iSocket, strBuffer.data(), strBuffer.size(), 0);
            if (length <= 0 || strBuffer.compare(0, in_strStart.size(), in_strStart) != 0)
            {
                continue;
            }
            DsHandle<DsSipMessage> hMessage =
                DsSipMessage::parse(std::string_view(strBuffer).substr(0, static_cast<std::size_t>(length)));
            if (!hMessage->isRequest() && !hMessage->getToTag().isEmpty())
            {
                m_strToTag = hMessage->getToTag();
            }
            return hMessage;
        }
        ADD_FAILURE() << "no \"" << in_strStart << '"';
        return {};
    }

private:
    const int m_iSocket;
    std::string m_strAddress;
    std::string m_strToTag;
};

class LoopbackTest : public testing::Test
{
protected:
    void start(std::initializer_list<std::pair<const char*, ParameterValue>> in_more,
               const char* in_szListen = "udp:127.0.0.1:0")
    {
        auto* const pConfig = new MapConfiguration(configuration(in_more));
        pConfig->set("quorvex.sip.listen.0", "tcp:127.0.0.1:0");
        pConfig->set("quorvex.sip.listen.1", in_szListen);
        pConfig->set("quorvex.sip.t1Ms", 50);
        m_hConfig = TSHandle<ROConfiguration>(pConfig);
        ASSERT_TRUE(SipStack::instance()->initialize(m_hConfig, makeDs<NewCalls>(m_reports)));
        ASSERT_EQ(SipStack::instance()->getNumListenPorts(), 2U);
        m_uiPort = SipStack::instance()->getListenPort(1).getPort();
        m_pPeer = std::make_unique<Peer>(m_uiPort);
    }

    /// An INVITE arrives, and gets its leg.
    void invite(const std::string& in_strBody = kOffer, const std::string& in_strHeaders = "")
    {
        m_pPeer->send("INVITE", 1, in_strHeaders, in_strBody);
        Report report = m_reports.waitFor("called");
        ASSERT_FALSE(report.m_hCall.isNil());
        m_hCall = report.m_hCall;
        m_hInvite = report.m_hMessage.dynamicCast<DsSipInviteMessage>();
        m_pLeg = std::make_unique<InSipLeg>(m_engine, *m_hConfig, m_hCall, m_hInvite);
        m_pLeg->initialize();
        VoipMedia& media = m_pLeg->getMedia();
        media.initialize("call-1", nullptr);
        ASSERT_TRUE(media.setSdpOffer(m_hInvite));
        if (!in_strBody.empty())
        {
            ASSERT_TRUE(giveCapacity(media));
            ASSERT_TRUE(media.isSdpOfferValid(*m_hConfig));
        }
    }

    void answerAndConfirm()
    {
        ASSERT_TRUE(m_pLeg->send200Ok(Call::eCONNECTION_NONE));
        ASSERT_FALSE(m_pPeer->receive("SIP/2.0 200 ").isNil());
        m_pPeer->send("ACK", 1);
        ASSERT_FALSE(m_reports.waitFor("confirmed").m_hCall.isNil());
    }

    void endByPeer(unsigned int in_uiCSeq)
    {
        m_pPeer->send("BYE", in_uiCSeq);
        const Report report = m_reports.waitFor("terminated");
        ASSERT_FALSE(report.m_hMessage.isNil());
        EXPECT_TRUE(m_pLeg->respondToBye(report.m_hCall, report.m_hCall->getDialog(), report.m_hMessage));
        EXPECT_EQ(m_pPeer->receive("SIP/2.0 200 ")->getMethod(), "BYE");
    }

    void TearDown() override
    {
        m_pLeg.reset();
        m_hCall = nullptr;
        m_hInvite = nullptr;
        SipStack::instance()->stop();
        SipStack::instance()->waitUntilDone();
        m_reports.clear();
        EXPECT_EQ(MemAccounts::get("DsSipIncomingCall").liveObjects(), 0U);
        EXPECT_EQ(MemAccounts::get("DsSipDialog").liveObjects(), 0U);
        EXPECT_EQ(MemAccounts::get("InSipLeg").liveObjects(), 0U);
        EXPECT_EQ(Assertion::failureCount(), m_uiAssertions);
    }

    const std::uint64_t m_uiAssertions = Assertion::failureCount();
    IdleEngine m_engine;
    TSHandle<ROConfiguration> m_hConfig;
    Reports m_reports;
    std::unique_ptr<Peer> m_pPeer;
    std::uint16_t m_uiPort = 0;
    DsHandle<DsSipIncomingCall> m_hCall;
    DsHandle<DsSipInviteMessage> m_hInvite;
    std::unique_ptr<InSipLeg> m_pLeg;
};

TEST_F(LoopbackTest, CallFromTryingToBye)
{
    start({});
    invite();
    ASSERT_TRUE(m_pLeg->send100Trying(m_hCall, m_hInvite));
    EXPECT_STREQ(m_pLeg->getRequestURI(), "sip:gateway@127.0.0.1");
    EXPECT_STREQ(m_pLeg->getFromURI(), "sip:alice@192.0.2.1");
    EXPECT_STREQ(m_pLeg->getFromDisplayName(), "Alice");
    EXPECT_STREQ(m_pLeg->getToURI(), "sip:bob@192.0.2.2");
    EXPECT_STREQ(m_pLeg->getToDisplayName(), "");
    EXPECT_STREQ(m_pLeg->getCallID(), "loop-1");
    EXPECT_EQ(m_pLeg->getListenAddrPort().getTransport(), Sip::eUDP);
    EXPECT_EQ(m_pLeg->getListenAddrPort().getPort(), m_uiPort);
    EXPECT_FALSE(m_pPeer->receive("SIP/2.0 100 ").isNil());

    ASSERT_TRUE(m_pLeg->send180Ringing(false));
    const auto hRinging = m_pPeer->receive("SIP/2.0 180 ");
    ASSERT_FALSE(hRinging.isNil());
    EXPECT_THAT(hRinging->getText(),
                HasSubstr("Contact: <sip:gateway@127.0.0.1:" + std::to_string(m_uiPort) + ">"));
    EXPECT_TRUE(hRinging->hasHeader("User-Agent"));

    ASSERT_TRUE(m_pLeg->send200Ok(Call::eCONNECTION_VOICE));
    const auto hOk = m_pPeer->receive("SIP/2.0 200 ");
    ASSERT_FALSE(hOk.isNil());
    EXPECT_EQ(hOk->getHeaderValue("CPD-Result"), Call::getCPDResultString(Call::eCONNECTION_VOICE));
    EXPECT_THAT(hOk->getBody(), HasSubstr("c=IN IP4 127.0.0.1\r\n"));
    m_pPeer->send("ACK", 1);
    ASSERT_FALSE(m_reports.waitFor("confirmed").m_hCall.isNil());
    // Its time is over: refused by the stack, and no more than that.
    EXPECT_FALSE(m_pLeg->send180Ringing(false));
    EXPECT_FALSE(m_pLeg->rejectIncomingCall(486, DsHandle<DsSipHeader>()));
    endByPeer(2);
}

TEST_F(LoopbackTest, NoRingingAfterEarlyMediaWhereThatIsConfigured)
{
    start({
        {"quorvex.sip.in.doNotSend180After183", true}
    });
    invite();
    ASSERT_TRUE(m_pLeg->send180Ringing(false));
    EXPECT_FALSE(m_pPeer->receive("SIP/2.0 180 ").isNil());
    ASSERT_TRUE(m_pLeg->sendProvisionalResponse(183, true));
    const auto hProgress = m_pPeer->receive("SIP/2.0 183 ");
    ASSERT_FALSE(hProgress.isNil());
    EXPECT_THAT(hProgress->getBody(), HasSubstr("m=audio "));
    EXPECT_TRUE(m_pLeg->send180Ringing(false));
    ASSERT_TRUE(m_pLeg->rejectIncomingCall(ConnectionFailureType(eBUSY_FAILURE)));
    // What comes next is the rejection.
    const auto hBusy = m_pPeer->receive("SIP/2.0 ");
    ASSERT_FALSE(hBusy.isNil());
    EXPECT_THAT(hBusy->getStartLine(), StartsWith("SIP/2.0 486 "));
    EXPECT_EQ(hBusy->getHeaderValue("CPD-Result"), Call::getCPDResultString(eBUSY_FAILURE));
    EXPECT_FALSE(hBusy->hasHeader("Contact"));
    m_pPeer->send("ACK", 1);
}

TEST_F(LoopbackTest, ReliableProgressIsConfirmedByItsPrack)
{
    start({});
    invite(kOffer, "Supported: 100rel\r\n");
    ASSERT_TRUE(m_pLeg->sendReliableProvisionalResponse(183, true));
    const auto hProgress = m_pPeer->receive("SIP/2.0 183 ");
    ASSERT_FALSE(hProgress.isNil());
    ASSERT_TRUE(hProgress->hasHeader("RSeq"));
    m_pPeer->send("PRACK", 2, "RAck: " + hProgress->getHeaderValue("RSeq") + " 1 INVITE\r\n");
    EXPECT_EQ(m_pPeer->receive("SIP/2.0 200 ")->getMethod(), "PRACK");
    EXPECT_FALSE(m_reports.waitFor("prack").m_hMessage.isNil());
    ASSERT_TRUE(m_pLeg->hangup());
    ASSERT_TRUE(m_pLeg->hangup());  // repeatable
    EXPECT_FALSE(m_pPeer->receive("SIP/2.0 480 ").isNil());
    m_pPeer->send("ACK", 1);
}

TEST_F(LoopbackTest, ReliableProgressNeedsAPeerThatKnowsIt)
{
    start({});
    invite();
    EXPECT_FALSE(m_pLeg->sendReliableProvisionalResponse(183, true));
    ASSERT_TRUE(m_pLeg->rejectIncomingCall(ConnectionFailureType(eUNAVAILABLE_FAILURE)));
    EXPECT_FALSE(m_pPeer->receive("SIP/2.0 503 ").isNil());
    m_pPeer->send("ACK", 1);
}

TEST_F(LoopbackTest, ContactOfAPortOnAllAddressesNamesTheOneThatWasCalled)
{
    start({}, "udp:0.0.0.0:0");
    invite();
    EXPECT_EQ(m_pLeg->getListenAddrPort().getHostAddress(), "127.0.0.1");
    ASSERT_TRUE(m_pLeg->send180Ringing(false));
    EXPECT_THAT(m_pPeer->receive("SIP/2.0 180 ")->getHeaderValue("Contact"),
                HasSubstr("gateway@127.0.0.1:" + std::to_string(m_uiPort)));
    ASSERT_TRUE(m_pLeg->rejectIncomingCall(488, InSipLeg::newCPDResultHeader("x")));
    EXPECT_FALSE(m_pPeer->receive("SIP/2.0 488 ").isNil());
    m_pPeer->send("ACK", 1);
}

TEST_F(LoopbackTest, RequestsWithinTheCall)
{
    start({});
    invite();
    answerAndConfirm();

    // A re-INVITE with a new port is accepted; one that offers nothing usable is refused and changes nothing.
    m_pPeer->send(
        "INVITE", 2, "", std::string(kOffer).replace(std::string(kOffer).find("30000"), 5, "30002"));
    Report report = m_reports.waitFor("reinvite");
    auto hReinvite = report.m_hMessage.dynamicCast<DsSipInviteMessage>();
    ASSERT_FALSE(hReinvite.isNil());
    ASSERT_TRUE(m_pLeg->getMedia().setSdpOffer(hReinvite));
    ASSERT_TRUE(m_pLeg->validateReInvite(hReinvite));
    ASSERT_TRUE(m_pLeg->respondToReinvite(m_hCall, m_hCall->getDialog(), hReinvite, 200));
    EXPECT_THAT(m_pPeer->receive("SIP/2.0 200 ")->getBody(), HasSubstr("m=audio "));
    m_pPeer->send("ACK", 2);
    ASSERT_FALSE(m_reports.waitFor("reinviteAck").m_hCall.isNil());
    m_pPeer->send("INVITE", 3, "", std::string(kOffer).replace(std::string(kOffer).find("0 8"), 3, "99"));
    report = m_reports.waitFor("reinvite");
    hReinvite = report.m_hMessage.dynamicCast<DsSipInviteMessage>();
    ASSERT_FALSE(hReinvite.isNil());
    EXPECT_FALSE(m_pLeg->getMedia().setSdpOffer(hReinvite) && m_pLeg->validateReInvite(hReinvite));
    ASSERT_TRUE(m_pLeg->respondToReinvite(m_hCall, m_hCall->getDialog(), hReinvite, 488));
    EXPECT_EQ(m_pPeer->receive("SIP/2.0 488 ")->getBodyLength(), 0U);
    m_pPeer->send("ACK", 3);

    // REFER, and the NOTIFY that tells how it went.
    m_pPeer->send("REFER", 4, "Refer-To: <sip:carol@127.0.0.1>\r\n");
    report = m_reports.waitFor("refer");
    ASSERT_TRUE(m_pLeg->respondToReferRequest(
        202, report.m_hTransaction, report.m_hMessage.dynamicCast<DsSipRequest>()));
    EXPECT_EQ(m_pPeer->receive("SIP/2.0 202 ")->getStartLine(), "SIP/2.0 202 Accepted");
    ASSERT_TRUE(m_pLeg->sendNotify(200U));
    const auto hNotify = m_pPeer->receive("NOTIFY ");
    ASSERT_FALSE(hNotify.isNil());
    EXPECT_THAT(hNotify->getBody(), StartsWith("SIP/2.0 200 OK"));
    m_pPeer->answer(*hNotify);
    ASSERT_FALSE(m_reports.waitFor("notifyResponse").m_hMessage.isNil());

    // INFO, our way.
    ASSERT_TRUE(m_pLeg->sendInfoMsg({Parameter("X-Key", "value"), Parameter("body", "hello")}));
    const auto hInfo = m_pPeer->receive("INFO ");
    ASSERT_FALSE(hInfo.isNil());
    EXPECT_EQ(hInfo->getHeaderValue("X-Key"), "value");
    EXPECT_EQ(hInfo->getBody(), "hello");
    EXPECT_EQ(hInfo->getBodyType(), "text/plain");
    EXPECT_TRUE(hInfo->hasHeader("User-Agent"));
    m_pPeer->answer(*hInfo);

    // What has no callback of its own.
    unsigned int uiCSeq = 5;
    for (const auto& [szMethod, szStart] : {std::pair("OPTIONS", "SIP/2.0 200 "),
                                            std::pair("MESSAGE", "SIP/2.0 405 "),
                                            std::pair("INFO", "SIP/2.0 200 ")})
    {
        m_pPeer->send(szMethod, uiCSeq++, "", "x", "text/plain");
        report = m_reports.waitFor("unknown");
        UnknownRequestNoT unknown(report.m_hTransaction, report.m_hMessage.dynamicCast<DsSipRequest>());
        const std::string strMethod = szMethod;
        strMethod == "OPTIONS" ? static_cast<void>(unknown.optionsRequest())
        : strMethod == "INFO"  ? static_cast<void>(unknown.infoRequest())
                               : unknown.unsupportedRequest();
        const auto hResponse = m_pPeer->receive(szStart);
        ASSERT_FALSE(hResponse.isNil());
        EXPECT_EQ(hResponse->getMethod(), strMethod);
        unknown.infoRequest();  // answered already: no harm
        report = {};
    }
    endByPeer(uiCSeq);
}

}  // namespace
}  // namespace Quorvex::LegsTest
