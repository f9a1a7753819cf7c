// Where requests go: a proxy, and the servers that the name service knows for a domain (RFC 3263).

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <future>
#include <map>
#include <mutex>
#include <set>
#include <thread>

#include "RawPeer.h"
#include "TestAgent.h"
#include "sipstack/DsSipClientTransaction.h"

namespace Quorvex
{
namespace
{

using namespace std::chrono_literals;

std::string u16(unsigned int in_uiValue)
{
    return {static_cast<char>(in_uiValue >> 8U), static_cast<char>(in_uiValue & 255U)};
}

std::string label(const std::string& in_strText)
{
    return static_cast<char>(in_strText.size()) + in_strText;
}

std::string domainName(const std::string& in_strName)
{
    std::string encoded;
    for (std::size_t begin = 0; begin <= in_strName.size();)
    {
        const std::size_t end = std::min(in_strName.find('.', begin), in_strName.size());
        encoded += label(in_strName.substr(begin, end - begin));
        begin = end + 1;
    }
    return encoded + std::string(1, '\0');
}

// The data of records, as they go over the wire.
std::string naptr(unsigned int in_uiOrder,
                  unsigned int in_uiPreference,
                  const std::string& in_strService,
                  const std::string& in_strReplacement)
{
    return u16(in_uiOrder) + u16(in_uiPreference) + label("s") + label(in_strService) + label("") +
           domainName(in_strReplacement);
}

std::string srv(unsigned int in_uiPriority,
                unsigned int in_uiWeight,
                unsigned int in_uiPort,
                const std::string& in_strTarget)
{
    return u16(in_uiPriority) + u16(in_uiWeight) + u16(in_uiPort) + domainName(in_strTarget);
}

std::string a(const std::string& in_strAddress)
{
    in_addr address{};
    EXPECT_EQ(::inet_pton(AF_INET, in_strAddress.c_str(), &address), 1);
    return {reinterpret_cast<const char*>(&address), sizeof address};
}

/// A name server on 127.0.0.1 that knows a few records, and says of all others that they do not exist; or one
/// that answers nothing.
class NameServer
{
public:
    /// The records by "type name": "srv _sip._udp.domain.example".
    using Zone = std::multimap<std::string, std::string>;

    explicit NameServer(Zone in_zone, bool in_bAnswers = true)
        : m_zone(std::move(in_zone)), m_bAnswers(in_bAnswers), m_fd(::socket(AF_INET, SOCK_DGRAM, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(::bind(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        socklen_t length = sizeof address;
        ::getsockname(m_fd, reinterpret_cast<sockaddr*>(&address), &length);
        m_strFile = testing::TempDir() + "resolv-" + std::to_string(ntohs(address.sin_port));
        std::ofstream(m_strFile) << "port " << ntohs(address.sin_port) << "\nnameserver 127.0.0.1\n";
        m_thread = std::thread([this] { run(); });
    }
    ~NameServer()
    {
        ::shutdown(m_fd, SHUT_RDWR);
        m_thread.join();
        ::close(m_fd);
        std::remove(m_strFile.c_str());
    }
    NameServer(const NameServer&) = delete;
    NameServer& operator=(const NameServer&) = delete;

    const std::string& settings() const { return m_strFile; }
    /// How many different queries (by their number; repetitions do not count) have asked for records.
    int count(const std::string& in_strRecords)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return static_cast<int>(m_asked[in_strRecords].size());
    }

private:
    void run()
    {
        for (;;)
        {
            std::array<char, 512> query{};
            sockaddr_in from{};
            socklen_t length = sizeof from;
            const ssize_t size =
                ::recvfrom(m_fd, query.data(), query.size(), 0, reinterpret_cast<sockaddr*>(&from), &length);
            if (size <= 0)
            {
                return;
            }
            const std::string answer = answerTo(query);
            if (m_bAnswers)
            {
                ::sendto(m_fd, answer.data(), answer.size(), 0, reinterpret_cast<sockaddr*>(&from), length);
            }
        }
    }

    std::string answerTo(const std::array<char, 512>& in_query)
    {
        std::string name;
        std::size_t end = 12;
        while (in_query.at(end) != 0)
        {
            const auto length = static_cast<unsigned char>(in_query.at(end));
            name += (name.empty() ? "" : ".") + std::string(in_query.data() + end + 1, length);
            end += length + 1U;
        }
        const auto type = static_cast<unsigned char>(in_query.at(end + 2));
        const std::string records = (type == 35   ? "naptr "
                                     : type == 33 ? "srv "
                                     : type == 1  ? "a "
                                                  : "? ") +
                                    name;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_asked[records].insert(std::string(in_query.data(), 2));
        }
        // The header, the question as it came, and each record under the question's name, for a minute.
        const auto found = m_zone.equal_range(records);
        const auto count = static_cast<unsigned int>(std::distance(found.first, found.second));
        std::string answer(in_query.data(), 2);
        answer += u16(count != 0 ? 0x8400 : 0x8403) + u16(1) + u16(count) + u16(0) + u16(0);
        answer.append(in_query.data() + 12, end + 5 - 12);
        for (auto i = found.first; i != found.second; ++i)
        {
            answer += u16(0xc00c) + u16(type) + u16(1) + u16(0) + u16(60) +
                      u16(static_cast<unsigned int>(i->second.size())) + i->second;
        }
        return answer;
    }

    const Zone m_zone;
    const bool m_bAnswers;
    const int m_fd;
    std::string m_strFile;
    std::mutex m_mutex;
    std::map<std::string, std::set<std::string>> m_asked;
    std::thread m_thread;
};

DsSipStackConfig withNames(const NameServer& in_names)
{
    DsSipStackConfig config = TestAgent::defaults();
    config.m_vListenPorts.push_back({DsSipTransport::eTCP, "127.0.0.1", 0});
    config.m_strResolverSettings = in_names.settings();
    config.m_uiNameTimeoutMs = 10000;
    return config;
}

// A port on which nothing listens, for both transports, for as long as this lives.
class DeadPort
{
public:
    DeadPort() : m_fd(::socket(AF_INET, SOCK_STREAM, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(::bind(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        socklen_t length = sizeof address;
        ::getsockname(m_fd, reinterpret_cast<sockaddr*>(&address), &length);
        m_uiPort = ntohs(address.sin_port);
    }
    ~DeadPort() { ::close(m_fd); }
    DeadPort(const DeadPort&) = delete;
    DeadPort& operator=(const DeadPort&) = delete;

    std::uint16_t port() const { return m_uiPort; }

private:
    const int m_fd;
    std::uint16_t m_uiPort = 0;
};

const char* const kInvite = "INVITE sip:far@domain.example SIP/2.0";

void aim(const TestAgent& in_agent, std::initializer_list<RawPeer*> in_vPeers)
{
    for (RawPeer* const peer : in_vPeers)
    {
        peer->aimAt(in_agent.port());
    }
}

void refuse(RawPeer& in_peer, const std::string& in_strInvite)
{
    in_peer.respond(in_strInvite, "486 Busy Here");
    in_peer.expect("ACK ");
}

void expectFailure(TestAgent& in_agent, unsigned int in_uiStatus)
{
    const auto response = in_agent.reports().expect("failedToConnect").response();
    ASSERT_FALSE(response.isNil());
    EXPECT_EQ(response->getStatusCode(), in_uiStatus);
    in_agent.reports().expect("dialogTerminated");
    in_agent.reports().expect("terminated");
}

TEST(RoutingTest, OutboundProxyGetsTheRequestWithoutARouteHeader)
{
    RawPeer proxy(1);
    DsSipStackConfig config = TestAgent::defaults();
    config.m_strOutboundProxy = "sip:127.0.0.1:" + std::to_string(proxy.port());
    TestAgent agent(config);
    {
        const auto call = agent.call("sip:far@far.example");
        const std::string invite = proxy.expect("INVITE sip:far@far.example SIP/2.0");
        EXPECT_TRUE(RawPeer::header(invite, "Route").empty());
        EXPECT_NE(RawPeer::header(invite, "Via").find("rport"), std::string::npos);
        call->hangup();
        agent.stack().stop(100);
    }
}

TEST(RoutingTest, SilentNameServerIsWaitedForOnceAndBriefly)
{
    NameServer names({}, false);
    DsSipStackConfig config = TestAgent::defaults();
    config.m_strResolverSettings = names.settings();
    config.m_uiNameTimeoutMs = 100;
    TestAgent agent(config);
    for (int i = 0; i < 2; ++i)
    {
        agent.call("sip:far@no-such-host.invalid");
        EXPECT_TRUE(agent.reports().expect("failedToConnect").m_hMessage.isNil());
        agent.reports().expect("dialogTerminated");
        agent.reports().expect("terminated");
        EXPECT_EQ(names.count("naptr no-such-host.invalid"), 1);
    }
    agent.expectEmpty();
}

// ---- one server after the other
// ------------------------------------------------------------------------------------------

enum class First
{
    eRefusesService,
    eSilent,
    eNobody,
    eNobodyOnTcp,
    eNobodyAtAddress
};

struct FailOver
{
    const char* m_szName;
    First m_first;
};

class FailOverTest : public testing::TestWithParam<FailOver>
{
};

TEST_P(FailOverTest, TheNextServerGetsTheRequestAndTheNextCallAtOnce)
{
    const First first = GetParam().m_first;
    RawPeer bad(1);
    RawPeer good(1);
    const DeadPort dead;
    NameServer::Zone zone;
    switch (first)
    {
        case First::eNobodyOnTcp:
            zone = {
                {"naptr domain.example",         naptr(10, 20, "SIP+D2U",   "u.domain.example")     },
                {"naptr domain.example",         naptr(10, 10, "SIP+D2T",   "t.domain.example")     },
                {"naptr domain.example",         naptr(1,  1,  "SIPS+D2T",  "secure.domain.example")},
                {"srv t.domain.example",         srv(1,    1,  dead.port(), "127.0.0.1")            },
                {"srv u.domain.example",         srv(1,    1,  good.port(), "127.0.0.1")            },
                {"srv _sip._udp.domain.example", srv(1,    1,  bad.port(),  "127.0.0.1")            }
            };
            break;
        case First::eNobodyAtAddress:
            zone = {
                {"srv _sip._udp.domain.example", srv(1,                      1, good.port(), "host.domain.example")},
                {"a host.domain.example",                   a("127.0.0.77")                      },
                {"a host.domain.example",        a("127.0.0.1")}
            };
            break;
        default:
            zone = {
                {"srv _sip._udp.domain.example", srv(20, 9, good.port(), "host.domain.example")},
                {"srv _sip._udp.domain.example",
                 srv(10,   0, first == First::eNobody ? dead.port() : bad.port(), "host.domain.example")},
                {"a host.domain.example", a("127.0.0.1")                                }
            };
    }
    NameServer names(zone);
    TestAgent agent(withNames(names));
    aim(agent, {&bad, &good});
    agent.call("sip:far@domain.example");
    std::string before;
    if (first == First::eRefusesService || first == First::eSilent)
    {
        before = bad.expect(kInvite);
    }
    if (first == First::eRefusesService)
    {
        bad.respond(before, "503 Service Unavailable", "Retry-After: 60\r\n");
        bad.expect("ACK ");
    }
    const std::string after = good.expect(kInvite, 20s);
    if (!before.empty())
    {
        for (const char* const same : {"Call-ID", "From", "To", "Contact"})
        {
            EXPECT_EQ(RawPeer::header(before, same), RawPeer::header(after, same));
        }
        EXPECT_EQ(RawPeer::header(before, "CSeq"), "1 INVITE");
        EXPECT_EQ(RawPeer::header(after, "CSeq"), "2 INVITE");
        EXPECT_NE(RawPeer::header(before, "Via"), RawPeer::header(after, "Via"));
    }
    refuse(good, after);
    expectFailure(agent, 486);

    // The failed one comes last from now on, and nobody has to be asked for names again.
    const int asked = names.count("srv _sip._udp.domain.example");
    while (bad.receive(0ms))
    {
    }
    agent.call("sip:far@domain.example");
    refuse(good, good.expect(kInvite));
    expectFailure(agent, 486);
    EXPECT_FALSE(bad.receive(0ms));
    EXPECT_EQ(names.count("srv _sip._udp.domain.example"), asked);
    agent.expectEmpty();
}

INSTANTIATE_TEST_SUITE_P(Firsts,
                         FailOverTest,
                         testing::Values(FailOver{"RefusesService", First::eRefusesService},
                                         FailOver{"Silent", First::eSilent},
                                         FailOver{"Nobody", First::eNobody},
                                         FailOver{"NobodyOnTcp", First::eNobodyOnTcp},
                                         FailOver{"NobodyAtAddress", First::eNobodyAtAddress}),
                         [](const auto& in_info) { return in_info.param.m_szName; });

TEST(RoutingTest, OnlyWhatSpeaksOfTheServerLeadsToTheNext)
{
    RawPeer first(1);
    RawPeer second(1);
    NameServer names({
        {"srv _sip._udp.domain.example", srv(1, 0, first.port(),  "127.0.0.1")},
        {"srv _sip._udp.domain.example", srv(2, 0, second.port(), "127.0.0.1")}
    });
    TestAgent agent(withNames(names));
    aim(agent, {&first, &second});
    // The callee's own answer; a refusal of service after somebody was reached; one after we gave up.
    for (const char* const how : {"callee", "reached", "cancelled"})
    {
        SCOPED_TRACE(how);
        const auto call = agent.call("sip:far@domain.example");
        const std::string invite = first.expect(kInvite);
        if (how == std::string("callee"))
        {
            refuse(first, invite);
            expectFailure(agent, 486);
            continue;
        }
        first.m_strFromTag = how;
        first.respond(invite, "180 Ringing", "Contact: <sip:127.0.0.1>\r\n");
        agent.reports().expect("provisionalResponse");
        if (how == std::string("cancelled"))
        {
            call->hangup();
            first.respond(first.expect("CANCEL "), "200 OK");
        }
        first.respond(invite, "503 Service Unavailable");
        first.expect("ACK ");
        expectFailure(agent, 503);
    }
    EXPECT_FALSE(second.receive(0ms));
    // Not found by its name, the last server's word stands: every one was tried, and once each.
    agent.call("sip:far@domain.example");
    for (RawPeer* const peer : {&first, &second})
    {
        peer->respond(peer->expect(kInvite), "503 Service Unavailable");
        peer->expect("ACK ");
    }
    expectFailure(agent, 503);
    agent.expectEmpty();
}

TEST(RoutingTest, RequestOutsideACallGoesToTheNextServerToo)
{
    const DeadPort dead;
    RawPeer good(1);
    NameServer names({
        {"srv _sip._tcp.domain.example", srv(1, 0, dead.port(), "127.0.0.1")},
        {"srv _sip._udp.domain.example", srv(1, 0, dead.port(), "127.0.0.1")},
        {"srv _sip._udp.domain.example", srv(2, 0, good.port(), "127.0.0.1")}
    });
    TestAgent agent(withNames(names));
    aim(agent, {&good});
    const auto request = DsSipRequest::create("REGISTER", "sip:domain.example");
    request->addHeader("To", "<sip:me@domain.example>");
    request->addHeader("From", "<sip:me@domain.example>");
    std::promise<unsigned int> answered;
    const auto transaction = DsSipClientTransaction::send(
        request,
        [&](const DsHandle<DsSipResponse>& in_hResponse)
        { answered.set_value(in_hResponse.isNil() ? 0 : in_hResponse->getStatusCode()); },
        &agent.stack());
    good.respond(good.expect("REGISTER sip:domain.example SIP/2.0"), "200 OK");
    auto answer = answered.get_future();
    ASSERT_EQ(answer.wait_for(10s), std::future_status::ready);
    EXPECT_EQ(answer.get(), 200U);
}

TEST(RoutingTest, EqualServersShareByWeight)
{
    RawPeer heavy(1);
    RawPeer light(1);
    NameServer names({
        {"srv _sip._udp.domain.example", srv(1, 1,     light.port(), "127.0.0.1")},
        {"srv _sip._udp.domain.example", srv(1, 65000, heavy.port(), "127.0.0.1")}
    });
    TestAgent agent(withNames(names));
    aim(agent, {&heavy, &light});
    int received = 0;
    for (int i = 0; i < 30; ++i)
    {
        const auto call = agent.call("sip:far@domain.example");
        std::optional<std::string> invite;
        RawPeer* peer = &light;
        for (int turn = 0; !invite && turn < 500; ++turn)
        {
            peer = peer == &light ? &heavy : &light;
            invite = peer->receive(10ms);
        }
        ASSERT_TRUE(invite);
        received += peer == &heavy ? 1 : 0;
        refuse(*peer, *invite);
        expectFailure(agent, 486);
    }
    EXPECT_GT(received, 20);  // 15 on average if the weights meant nothing
    agent.expectEmpty();
}

}  // namespace
}  // namespace Quorvex
