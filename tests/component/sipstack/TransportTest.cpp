// Ports, transports, names and limits.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <future>
#include <iterator>
#include <thread>

#include "RawPeer.h"
#include "TestAgent.h"
#include "infra/Bell.h"
#include "infra/Logger.h"

namespace Quorvex
{
namespace
{

using namespace std::chrono_literals;

DsSipStackConfig on(const std::vector<DsSipListenPort>& in_vPorts)
{
    DsSipStackConfig config = TestAgent::defaults();
    config.m_vListenPorts = in_vPorts;
    return config;
}

// Answers whatever call comes and hangs it up with the caller's BYE; one thread, until told to stop.
class Answerer
{
public:
    explicit Answerer(TestAgent& in_agent) : m_agent(in_agent) {}

    void answerOne()
    {
        const Report called = m_agent.reports().expect("called");
        called.m_hIn->answer(TestAgent::response(200, called.request(), kSdp));
        m_agent.reports().expect("callConfirmed");
        const Report bye = m_agent.reports().expect("terminated");
        bye.m_hIn->respondToBye(TestAgent::response(200, bye.request()));
        m_invite = called.m_hMessage;
    }

    DsHandle<DsSipMessage> m_invite;

private:
    TestAgent& m_agent;
};

struct Way
{
    const char* m_szName;
    DsSipTransport m_transport;
    const char* m_szBind;
    const char* m_szTarget;
};

class TransportTest : public testing::TestWithParam<Way>
{
};

TEST_P(TransportTest, CallBetweenTwoAgents)
{
    const Way& way = GetParam();
    // Ports of the other kinds stand in the way of a wrong choice.
    const auto other = way.m_transport == DsSipTransport::eTCP ? DsSipTransport::eUDP : DsSipTransport::eTCP;
    TestAgent callee(on({
        {other,           "127.0.0.1",  0},
        {way.m_transport, way.m_szBind, 0}
    }));
    TestAgent caller(on({
        {other,           "127.0.0.1",  0},
        {way.m_transport, way.m_szBind, 0}
    }));
    const std::string transport =
        way.m_transport == DsSipTransport::eTCP ? ";transport=tcp" : ";transport=udp";
    {
        Answerer answerer(callee);
        std::thread thread([&] { answerer.answerOne(); });
        const auto call = caller.call("sip:far@" + std::string(way.m_szTarget) + ":" +
                                      std::to_string(callee.port(1)) + transport);
        Report report = caller.reports().next();
        while (report.m_strName == "provisionalResponse")
        {
            report = caller.reports().next();
        }
        EXPECT_EQ(report.m_strName, "succeeded");
        report.m_hDialog->ack();
        // The Contacts name the ports that the call uses, at an address that can be reached.
        const std::string contact = report.m_hMessage->getHeaderValue("Contact");
        EXPECT_NE(contact.find(":" + std::to_string(callee.port(1))), std::string::npos) << contact;
        EXPECT_EQ(contact.find("0.0.0.0"), std::string::npos) << contact;
        call->hangup();
        EXPECT_EQ(caller.reports().expect("dialogTerminated").response()->getStatusCode(), 200U);
        caller.reports().expect("terminated");
        thread.join();
        const std::string theirs = answerer.m_invite->getHeaderValue("Contact");
        EXPECT_NE(theirs.find(std::string(way.m_szTarget) + ":" + std::to_string(caller.port(1))),
                  std::string::npos)
            << theirs;
        std::string host = way.m_szTarget;
        host = host.front() == '[' ? host.substr(1, host.size() - 2) : host;
        EXPECT_FALSE(answerer.m_invite->getLocalAddress().isAny());
        if (std::string(way.m_szBind) != "0.0.0.0")
        {
            EXPECT_EQ(answerer.m_invite->getLocalAddress().getHostAddress(), host);
        }
        EXPECT_EQ(answerer.m_invite->getLocalAddress().getPort(), callee.port(1));
    }
    callee.expectEmpty();
    caller.expectEmpty();
}

INSTANTIATE_TEST_SUITE_P(Ways,
                         TransportTest,
                         testing::Values(Way{"Udp", DsSipTransport::eUDP, "127.0.0.1", "127.0.0.1"},
                                         Way{"Tcp", DsSipTransport::eTCP, "127.0.0.1", "127.0.0.1"},
                                         Way{"UdpAny", DsSipTransport::eUDP, "0.0.0.0", "127.0.0.1"},
                                         Way{"TcpAny", DsSipTransport::eTCP, "0.0.0.0", "127.0.0.1"},
                                         Way{"Udp6", DsSipTransport::eUDP, "::1", "[::1]"},
                                         Way{"Tcp6", DsSipTransport::eTCP, "::1", "[::1]"}),
                         [](const auto& in_info) { return in_info.param.m_szName; });

TEST(ListenTest, PortInUseIsToldInOneLine)
{
    TestAgent first;
    DsSipStack second;
    std::string error;
    DsSipStackConfig config = TestAgent::defaults();
    config.m_vListenPorts[0].m_uiPort = first.port();
    EXPECT_FALSE(second.start(config, nullptr, error));
    EXPECT_NE(error.find("127.0.0.1:" + std::to_string(first.port())), std::string::npos) << error;
    EXPECT_EQ(error.find('\n'), std::string::npos);
    EXPECT_FALSE(second.isRunning());
    config.m_vListenPorts.clear();
    EXPECT_FALSE(second.start(config, nullptr, error));
    config = TestAgent::defaults();
    config.m_uiT1Ms = 0;
    EXPECT_FALSE(second.start(config, nullptr, error));
    config = TestAgent::defaults();
    config.m_strResolverSettings = "/no/such/file";
    EXPECT_FALSE(second.start(config, nullptr, error));
    EXPECT_NE(error.find("/no/such/file"), std::string::npos) << error;
}

TEST(OverloadTest, NewCallsAreRefusedWhileCallsGoOn)
{
    std::atomic<bool> overloaded{false};
    DsSipStackConfig config = TestAgent::defaults();
    config.m_overloaded = [&] { return overloaded.load(); };
    TestAgent agent(config);
    RawPeer peer(agent.port());
    peer.sendRequest("INVITE", kSdp);
    {
        const Report called = agent.reports().expect("called");
        called.m_hIn->answer(TestAgent::response(200, called.request(), kSdp));
        peer.learn(peer.expect("SIP/2.0 200"));
        peer.sendRequest("ACK");
        agent.reports().expect("callConfirmed");
        overloaded = true;
        RawPeer second(agent.port());
        second.sendRequest("INVITE", kSdp);
        EXPECT_EQ(RawPeer::header(second.expect("SIP/2.0 503"), "Retry-After"), "5");
        peer.sendRequest("BYE");
        const Report bye = agent.reports().expect("terminated");
        bye.m_hIn->respondToBye(TestAgent::response(200, bye.request()));
        peer.expect("SIP/2.0 200");
    }
    EXPECT_EQ(agent.stack().getStatistics().m_ulOverloadRefused, 1U);
    agent.expectEmpty();
}

TEST(OverloadTest, NewCallsAreRefusedWhileMessagesPileUpAtThePort)
{
    std::promise<void> first;
    std::promise<void> go;
    DsSipStackConfig config = TestAgent::defaults();
    config.m_overloaded = [&, calls = 0]() mutable
    {
        if (++calls == 1)
        {
            first.set_value();
            go.get_future().wait();
        }
        return false;
    };
    DsSipListenPort other = config.m_vListenPorts.front();
    other.m_strAddress = "::1";
    config.m_vListenPorts.push_back(other);
    TestAgent agent(config);
    constexpr unsigned int kFlood = 2000;
    RawPeer peer(agent.port());
    peer.sendRequest("INVITE", kSdp);
    first.get_future().wait();
    RawPeer flood(agent.port());
    flood.m_strExtra = "X-Padding: " + std::string(800, 'x') + "\r\n";
    for (unsigned int i = 0; i < kFlood; ++i)
    {
        flood.m_strCallId = "flood-" + std::to_string(i);
        flood.sendRequest("INVITE", kSdp);
    }
    go.set_value();
    const std::string refused = flood.expect("SIP/2.0 503");
    EXPECT_EQ(RawPeer::header(refused, "Retry-After"), "5");
    EXPECT_EQ(RawPeer::header(refused, "Call-ID").rfind("flood-", 0), 0U);
    // The tag of a refusal that costs no transaction.
    EXPECT_EQ(RawPeer::tagOf(RawPeer::header(refused, "To")).rfind("overload-", 0), 0U);
    // Calls are taken again when the pile is small. Whoever is taken last comes after all of the flood.
    RawPeer last(agent.port());
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    unsigned int taken = 0;
    for (bool over = false; !over && std::chrono::steady_clock::now() < deadline;)
    {
        last.m_strCallId += "-again";
        last.sendRequest("INVITE", kSdp);
        for (bool answered = false; !answered && !over && std::chrono::steady_clock::now() < deadline;)
        {
            const auto message = last.receive(10ms);
            answered = message && message->rfind("SIP/2.0 503", 0) == 0;
            while (!agent.reports().empty())
            {
                const Report report = agent.reports().next();
                if (report.m_strName == "called")
                {
                    ++taken;
                    over =
                        over || RawPeer::header(report.request()->getText(), "Call-ID") == last.m_strCallId;
                    report.m_hIn->answer(TestAgent::response(486, report.request()));
                }
            }
        }
    }
    EXPECT_GE(taken, 2U);
    EXPECT_GT(agent.stack().getStatistics().m_ulOverloadRefused, 0U);
    agent.stack().ping(1000);
    EXPECT_EQ(agent.stack().getStatistics().m_ulMalformed, 0U);
}

TEST(StopTest, AThreadThatWakesOthersLateDoesNotWaitForItself)
{
    DsSipStack stack;
    std::string strError;
    ASSERT_TRUE(stack.start(TestAgent::defaults(), nullptr, strError)) << strError;
    const Bell::Batch bells;
    ASSERT_TRUE(stack.ping(600000));
    stack.stop(600000);
}

TEST(LimitsTest, GarbageIsToldOncePerSource)
{
    TestAgent agent;
    const std::string path = testing::TempDir() + "garbage-" + std::to_string(agent.port()) + ".log";
    std::string error;
    ASSERT_TRUE(Logging::setOutput(path, error)) << error;
    for (int i = 0; i < 20; ++i)
    {
        // Each from another port of one address that no other test uses.
        RawPeer peer(agent.port(), "127.0.0.77");
        peer.send("this is no message at all\r\n\r\n");
    }
    RawPeer probe(agent.port());
    probe.sendRequest("OPTIONS");
    EXPECT_FALSE(probe.expect("SIP/2.0 200").empty());
    ASSERT_TRUE(Logging::setOutput("", error));
    std::ifstream file(path);
    const std::string log{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    std::remove(path.c_str());
    const std::size_t line = log.find("no SIP message from udp/127.0.0.77 ");
    EXPECT_NE(line, std::string::npos) << log;
    EXPECT_EQ(log.find("no SIP message from", line + 1), std::string::npos) << log;
}

TEST(TimerCTest, UnansweredCallsEndInBothDirections)
{
    DsSipStackConfig config = TestAgent::defaults();
    config.m_uiTimerCMs = 200;
    TestAgent agent(config);
    RawPeer peer(agent.port());
    peer.sendRequest("INVITE", kSdp);
    agent.reports().expect("called");
    peer.expect("SIP/2.0 480");
    EXPECT_TRUE(agent.reports().expect("terminated").m_hMessage.isNil());
    agent.call("sip:far@127.0.0.1:" + std::to_string(peer.port()));
    const std::string invite = peer.expect("INVITE");
    peer.respond(invite, "180 Ringing");
    agent.reports().expect("provisionalResponse");
    peer.respond(peer.expect("CANCEL"), "200 OK");
    peer.respond(invite, "487 Request Terminated");
    EXPECT_EQ(agent.reports().expect("dialogTerminated").response()->getStatusCode(), 487U);
    EXPECT_TRUE(agent.reports().expect("dialogTerminated").m_hMessage.isNil());
    agent.reports().expect("terminated");
    agent.expectEmpty();
}

TEST(NamesTest, NamesOfAnInviteAreLookedUpBeforeItIsReported)
{
    TestAgent agent;
    RawPeer peer(agent.port());
    std::string text = peer.request("INVITE", kSdp);
    text.replace(text.find("sip:peer@127.0.0.1>"), 19, "sip:peer@no-such-host.invalid>");
    peer.send(text);
    const Report called = agent.reports().expect("called");
    called.m_hIn->hangup();
    peer.expect("SIP/2.0 480");
    EXPECT_TRUE(agent.reports().expect("terminated").m_hMessage.isNil());
}

// ---- TCP with a peer that does not behave
// -----------------------------------------------------------------------

class TcpPeer
{
public:
    explicit TcpPeer(std::uint16_t in_uiPort) : m_fd(::socket(AF_INET, SOCK_STREAM, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(in_uiPort);
        EXPECT_EQ(::connect(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    ~TcpPeer() { ::close(m_fd); }
    TcpPeer(const TcpPeer&) = delete;
    TcpPeer& operator=(const TcpPeer&) = delete;

    void send(const std::string& in_strText)
    {
        ::send(m_fd, in_strText.data(), in_strText.size(), MSG_NOSIGNAL);
    }

    /// What comes until the text has come; "" after the connection's end, and a failed test after too long.
    std::string readUntil(const std::string& in_strText)
    {
        while (m_strSeen.find(in_strText) == std::string::npos)
        {
            pollfd fd = {m_fd, POLLIN, 0};
            std::array<char, 8192> buffer{};
            if (::poll(&fd, 1, 5000) <= 0)
            {
                ADD_FAILURE() << "no \"" << in_strText << "\" came";
                return m_strSeen;
            }
            const ssize_t size = ::recv(m_fd, buffer.data(), buffer.size(), 0);
            if (size <= 0)
            {
                return std::string();
            }
            m_strSeen.append(buffer.data(), static_cast<std::size_t>(size));
        }
        return m_strSeen;
    }

    bool isClosedWithin(std::chrono::milliseconds in_time)
    {
        const auto deadline = std::chrono::steady_clock::now() + in_time;
        for (;;)
        {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            pollfd fd = {m_fd, POLLIN, 0};
            std::array<char, 8192> buffer{};
            if (left.count() <= 0 || ::poll(&fd, 1, static_cast<int>(left.count())) <= 0)
            {
                return false;
            }
            if (::recv(m_fd, buffer.data(), buffer.size(), 0) <= 0)
            {
                return true;
            }
        }
    }

private:
    int m_fd;
    std::string m_strSeen;
};

std::string options(const std::string& in_strCallId,
                    const std::string& in_strExtra = std::string(),
                    std::size_t in_iLength = 0)
{
    return "OPTIONS sip:a@127.0.0.1 SIP/2.0\r\nVia: SIP/2.0/TCP 127.0.0.1:9;branch=z9hG4bK" + in_strCallId +
           "\r\nFrom: <sip:b@127.0.0.1>;tag=1\r\nTo: <sip:a@127.0.0.1>\r\nCall-ID: " + in_strCallId +
           "\r\nCSeq: 1 OPTIONS\r\n" + in_strExtra + "Content-Length: " + std::to_string(in_iLength) +
           "\r\n\r\n";
}

TEST(TcpTest, MessagesAreCutOutOfTheStreamWhereverItIsBroken)
{
    TestAgent agent(on({
        {DsSipTransport::eTCP, "127.0.0.1", 0}
    }));
    TcpPeer peer(agent.port());
    const std::string both = options("one") + options("two");
    for (const char byte : both)
    {
        peer.send(std::string(1, byte));
    }
    peer.readUntil("Call-ID: two");
    peer.readUntil("Call-ID: one");
    // Line ends between messages count for nothing, also where they come in one piece with the next (RFC
    // 3261 7.5).
    peer.send("\r\n\r\n" + options("three"));
    peer.readUntil("Call-ID: three");
    peer.send("\r\n" + options("four") + "\r\n\r\n" + options("five"));
    peer.readUntil("Call-ID: five");
    peer.readUntil("Call-ID: four");
    agent.expectEmpty();
}

TEST(TcpTest, TooLargeMessageEndsItsConnectionAndNoOther)
{
    DsSipStackConfig config = on({
        {DsSipTransport::eTCP, "127.0.0.1", 0}
    });
    config.m_uiMaxMessageBytes = 8192;
    TestAgent agent(config);
    TcpPeer good(agent.port());
    TcpPeer bad(agent.port());
    bad.send(options("large", "", 1 << 20));
    const std::string body(1 << 20, 'x');
    bad.send(body);
    EXPECT_TRUE(bad.isClosedWithin(5s));
    good.send(options("fine"));
    good.readUntil("SIP/2.0 200");
}

TEST(TcpTest, SlowAndIdleConnectionsAreClosed)
{
    DsSipStackConfig config = on({
        {DsSipTransport::eTCP, "127.0.0.1", 0}
    });
    config.m_uiTcpIdleMs = 300;
    TestAgent agent(config);
    TcpPeer idle(agent.port());
    idle.send(options("once"));
    idle.readUntil("SIP/2.0 200");
    TcpPeer slow(agent.port());
    slow.send("OPTIONS sip:a@127.0.0.1 SIP/2.0\r\nVia: ");
    EXPECT_TRUE(idle.isClosedWithin(5s));
    EXPECT_TRUE(slow.isClosedWithin(5s));
    TcpPeer good(agent.port());
    good.send(options("fine"));
    good.readUntil("SIP/2.0 200");
}

TEST(TcpTest, ConnectionLostInTheMiddleOfACallLeavesNothing)
{
    TestAgent agent(on({
        {DsSipTransport::eTCP, "127.0.0.1", 0}
    }));
    {
        TcpPeer peer(agent.port());
        std::string invite = options("lost", "Contact: <sip:b@127.0.0.1:9;transport=tcp>\r\n");
        invite.replace(0, 7, "INVITE");
        invite.replace(invite.find("1 OPTIONS"), 9, "1 INVITE");
        peer.send(invite);
        const Report called = agent.reports().expect("called");
        called.m_hIn->answer(TestAgent::response(180, called.request()));
        peer.readUntil("SIP/2.0 180");
    }
    // The far end is gone; the answer finds nobody, and the call ends all the same.
    {
        agent.stack().ping(1000);
        RawPeer nobody(1);
    }
    agent.stack().stop(200);
    EXPECT_EQ(agent.stack().getStatistics().m_ulCalls, 0U);
}

}  // namespace
}  // namespace Quorvex
