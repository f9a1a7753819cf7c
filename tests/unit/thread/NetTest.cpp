#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "net/CanonicalURI.h"
#include "net/HostResolver.h"
#include "net/Net.h"

namespace Quorvex::Test
{
namespace
{

using Net::HostResolver;
using std::chrono::milliseconds;
constexpr auto kLong = std::chrono::seconds(10);

/// A name service of our own: counts look-ups, and can be held up.
class NameService
{
public:
    HostResolver::Options options()
    {
        HostResolver::Options options;
        options.m_lookUp = [this](const std::string& in_strHost, std::string& out_strAddress)
        { return lookUp(in_strHost, out_strAddress); };
        return options;
    }

    void hold(bool in_bHold)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_bHold = in_bHold;
        m_changed.notify_all();
    }

    std::atomic<int> m_numLookUps{0};

private:
    bool lookUp(const std::string& in_strHost, std::string& out_strAddress)
    {
        ++m_numLookUps;
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return !m_bHold; });
        out_strAddress = "192.0.2.1";
        return in_strHost != "unknown.test";
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_bHold = false;
};

TEST(HostResolver, RemembersGoodAndBadAnswersWithoutRegardToCase)
{
    NameService service;
    HostResolver resolver(service.options());
    std::string strAddress;
    EXPECT_TRUE(resolver.resolve("Good.test", kLong, strAddress));
    EXPECT_EQ(strAddress, "192.0.2.1");
    EXPECT_TRUE(resolver.resolve("good.TEST", milliseconds(0), strAddress));
    EXPECT_FALSE(resolver.resolve("unknown.test", kLong, strAddress));
    EXPECT_FALSE(resolver.resolve("unknown.test", kLong, strAddress));
    EXPECT_FALSE(resolver.resolve(std::string(300, 'a'), kLong, strAddress));
    EXPECT_EQ(service.m_numLookUps, 2);
    EXPECT_TRUE(resolver.resolve("192.0.2.9", milliseconds(0), strAddress));
    EXPECT_EQ(strAddress, "192.0.2.9");
    EXPECT_TRUE(resolver.resolve("[2001:db8::1]", milliseconds(0), strAddress));
    EXPECT_EQ(strAddress, "2001:db8::1");
    EXPECT_EQ(service.m_numLookUps, 2);
    resolver.clear();
    EXPECT_TRUE(resolver.resolve("good.test", kLong, strAddress));
    EXPECT_EQ(service.m_numLookUps, 3);
}

TEST(HostResolver, DeadNameServiceIsWaitedForOnce)
{
    NameService service;
    service.hold(true);
    HostResolver resolver(service.options());
    std::string strAddress;
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(resolver.resolve("slow.test", milliseconds(100), strAddress));
    const auto first = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(first, milliseconds(100));
    // The rest are told at once: all hundred take less than the first.
    for (int i = 0; i < 100; ++i)
    {
        EXPECT_FALSE(resolver.resolve("slow.test", kLong, strAddress));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, kLong);
    EXPECT_EQ(service.m_numLookUps, 1);
    service.hold(false);
    // The answer that comes late is taken all the same.
    const auto deadline = std::chrono::steady_clock::now() + kLong;
    while (!resolver.resolve("slow.test", kLong, strAddress) && std::chrono::steady_clock::now() < deadline)
    {
        std::this_thread::yield();
    }
    EXPECT_EQ(strAddress, "192.0.2.1");
}

TEST(HostResolver, CallsEveryAskerOnceAndLooksUpOnce)
{
    NameService service;
    service.hold(true);
    HostResolver resolver(service.options());
    std::vector<std::promise<std::string>> vAnswers(5);
    for (std::size_t i = 0; i < 4; ++i)
    {
        resolver.prefetch("many.test",
                          kLong,
                          [&vAnswers, i](const std::string& in_strAddress)
                          { vAnswers[i].set_value(in_strAddress); });
    }
    service.hold(false);
    for (std::size_t i = 0; i < 4; ++i)
    {
        EXPECT_EQ(vAnswers[i].get_future().get(), "192.0.2.1");
    }
    resolver.prefetch("many.test",
                      milliseconds(0),
                      [&vAnswers](const std::string& in_strAddress)
                      { vAnswers[4].set_value(in_strAddress); });
    auto last = vAnswers[4].get_future();
    ASSERT_EQ(last.wait_for(milliseconds(0)), std::future_status::ready);
    EXPECT_EQ(last.get(), "192.0.2.1");
    EXPECT_EQ(service.m_numLookUps, 1);
}

TEST(HostResolver, RefusesWhenTooManyWaitAndEndsWithLookUpsUnderWay)
{
    // Outlives the test: the thread that is in it cannot be told to leave.
    static auto* const pService = new NameService;
    pService->hold(true);
    HostResolver::Options options = pService->options();
    options.m_maxThreads = 1;
    options.m_maxWaiting = 2;
    options.m_maxAnswers = 4;
    std::atomic<int> numFailed{0};
    {
        HostResolver resolver(options);
        for (int i = 0; i < 20; ++i)
        {
            resolver.prefetch("host" + std::to_string(i) + ".test",
                              kLong,
                              [&numFailed](const std::string& in_strAddress)
                              { numFailed += in_strAddress.empty() ? 1 : 0; });
        }
        // One is being looked up at most, two wait.
        EXPECT_GE(numFailed, 17);
        EXPECT_LE(numFailed, 18);
    }
    const int iCalled = numFailed;
    pService->hold(false);
    EXPECT_EQ(numFailed, iCalled);
}

struct HostCase
{
    const char* m_szURI;
    const char* m_szHost;
};

TEST(CanonicalURI, FindsTheHost)
{
    const HostCase kCases[] = {
        {"sip:bob@example.test",                                 "example.test" },
        {"SIPS:bob@example.test:5061;transport=tls?Subject=a",   "example.test" },
        {"sip:example.test;lr",                                  "example.test" },
        {"sip:a;b=c?d:secret@h:5060",                            "h"            },
        {"sip:bob@[2001:db8::1]:5060",                           "[2001:db8::1]"},
        {"\"A <sip:x@y>\\\" Bob\" <sip:bob@example.test>;tag=1", "example.test" },
        {"Bob <sip:bob@192.0.2.1:5070>",                         "192.0.2.1"    },
        {" sip:bob@h?x",                                         "h"            },
        {"tel:+123",                                             ""             },
        {"sip:",                                                 ""             },
        {"sip:bob@",                                             ""             },
        {"sip:bob@[2001:db8::1",                                 ""             },
        {"<",                                                    ""             },
        {"\"",                                                   ""             },
        {"\\",                                                   ""             },
        {"",                                                     ""             },
    };
    for (const HostCase& c : kCases)
    {
        std::string_view host;
        EXPECT_EQ(findHostInURI(c.m_szURI, host), *c.m_szHost != '\0') << c.m_szURI;
        if (*c.m_szHost != '\0')
        {
            EXPECT_EQ(host, c.m_szHost) << c.m_szURI;
        }
    }
}

TEST(CanonicalURI, ReplacesNamesAndLeavesAddresses)
{
    const ACE_Time_Value timeout(5);
    std::string strURI;
    EXPECT_TRUE(canonicalizeURI("sip:bob@LocalHost:5060;transport=udp", strURI, timeout));
    EXPECT_EQ(strURI, "sip:bob@127.0.0.1:5060;transport=udp");
    EXPECT_TRUE(canonicalizeURI("<sip:bob@192.0.2.1>", strURI, ACE_Time_Value::zero));
    EXPECT_EQ(strURI, "<sip:bob@192.0.2.1>");
    EXPECT_TRUE(canonicalizeURI("sip:[2001:db8::1]:5060", strURI, ACE_Time_Value::zero));
    EXPECT_EQ(strURI, "sip:[2001:db8::1]:5060");
    EXPECT_FALSE(canonicalizeURI("sip:bob@a name that cannot be", strURI, timeout));
    EXPECT_EQ(strURI, "sip:bob@a name that cannot be");
    EXPECT_FALSE(canonicalizeURI("tel:+123", strURI, timeout));
    EXPECT_EQ(strURI, "tel:+123");
}

TEST(NetInterface, IsFoundForAddressesOnly)
{
    ASSERT_TRUE(Net::initializeLibrary());
    Net::Interface netInterface;
    EXPECT_TRUE(Net::Interface::getForDestination("127.0.0.1", netInterface));
    EXPECT_EQ(netInterface.getIPAdress(), "127.0.0.1");
    EXPECT_FALSE(Net::Interface::getForDestination("localhost", netInterface));
    EXPECT_FALSE(Net::Interface::getForDestination("", netInterface));
    EXPECT_FALSE(Net::Interface::getForDestination("300.1.1.1", netInterface));
    EXPECT_EQ(netInterface.getIPAdress(), "127.0.0.1");
    if (Net::Interface::getForDestination("[::1]", netInterface))  // not every machine has IPv6
    {
        EXPECT_EQ(netInterface.getIPAdress(), "::1");
    }
    Net::closeLibrary();
}

}  // namespace
}  // namespace Quorvex::Test
