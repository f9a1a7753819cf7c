#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "Registrar.h"
#include "infra/MemAccount.h"
#include "sip-client-reg/ClientRegistrationFactory.h"
#include "sip-client-reg/ClientRegistrator.h"
#include "sip-common/SipStack.h"
#include "sipstack/DsSipClientTransaction.h"
#include "sipstack/DsSipDigest.h"
#include "sipstack/DsSipNewCallinterface.h"

namespace Quorvex
{
namespace
{

using namespace std::chrono_literals;

const std::string kOK = "SIP/2.0 200 OK\r\n";

std::string okFor(const DsSipRequest& in_request, const std::string& in_strExpires)
{
    return kOK + "Contact: <sip:else@10.0.0.1>;expires=5, " + in_request.getHeaderValue("Contact") +
           ";expires=" + in_strExpires + "\r\n";
}

/// A running stack and factory, and one registration with the test's registrar.
class RegistrationTest : public testing::Test
{
protected:
    void begin(Registrar::Answer in_answer, unsigned int in_uiExpiresS = 3600)
    {
        m_pRegistrar = std::make_unique<Registrar>(std::move(in_answer));
        auto* const config = new MapConfiguration;
        const std::string key = "quorvex.sip.registration.0.";
        config->set("quorvex.sip.listen.0", "udp:127.0.0.1:0");
        config->set("quorvex.sip.contactUser", "gw");
        config->set("quorvex.sip.productName", "Gate");
        config->set("quorvex.sip.t1Ms", 20);
        config->set(key + "registrar", "sip:127.0.0.1:" + std::to_string(m_pRegistrar->getPort()));
        config->set(key + "aor", "sip:gw@example.test");
        config->set(key + "user", "gw");
        config->set(key + "password", "secret");
        config->set(key + "expiresS", static_cast<int>(in_uiExpiresS));
        m_hConfig = TSHandle<ROConfiguration>(config);
        ASSERT_TRUE(SipStack::instance()->initialize(m_hConfig, nullptr));
        m_hFactory =
            CountedObjPtr<ClientRegistrationFactory, TSReferenceCount>(new ClientRegistrationFactory);
        ASSERT_TRUE(m_hFactory->start());
    }

    void registerByConfiguration()
    {
        ASSERT_TRUE(m_registrator.configure(m_hConfig, m_hFactory));
        ASSERT_TRUE(m_registrator.registerAll());
        m_pRegistration = m_registrator.getRegistrations().at(0);
    }

    /// The same with short pauses.
    void registerImpatiently()
    {
        std::vector<RegistrationConfig> configs;
        std::string error;
        ASSERT_TRUE(ClientRegistrator::readConfiguration(*m_hConfig, configs, error)) << error;
        configs[0].m_uiFirstRetryMs = 50;
        configs[0].m_uiMaxRetryMs = 200;
        m_pRegistration = m_hFactory->newRegistration(configs[0]);
        m_pRegistration->start();
    }

    bool reaches(RegistrationState in_state)
    {
        const auto deadline = std::chrono::steady_clock::now() + 5s;
        while (m_pRegistration->getState() != in_state)
        {
            if (std::chrono::steady_clock::now() > deadline)
            {
                return false;
            }
            std::this_thread::sleep_for(1ms);
        }
        return true;
    }

    void stopFactory()
    {
        if (!m_hFactory.isNull())
        {
            m_hFactory->stop();
            m_hFactory->waitUntilDone();
        }
    }

    void TearDown() override
    {
        stopFactory();
        SipStack::instance()->stop();
        SipStack::instance()->waitUntilDone();
        m_pRegistrar.reset();
        EXPECT_EQ(MemAccounts::get("DsSipMessage").liveObjects(), 0U);
    }

    std::unique_ptr<Registrar> m_pRegistrar;
    TSHandle<ROConfiguration> m_hConfig;
    CountedObjPtr<ClientRegistrationFactory, TSReferenceCount> m_hFactory;
    ClientRegistrator m_registrator;
    std::shared_ptr<Registration> m_pRegistration;
};

TEST_F(RegistrationTest, registersAndIsWithdrawnAtTheStop)
{
    begin([](const DsSipRequest& in_request) { return okFor(in_request, "600"); });
    registerByConfiguration();
    {
        const auto request = m_pRegistrar->next();
        ASSERT_FALSE(request.isNil());
        EXPECT_EQ(request->getMethod(), "REGISTER");
        EXPECT_EQ(request->getRequestURI(), "sip:127.0.0.1:" + std::to_string(m_pRegistrar->getPort()));
        EXPECT_EQ(request->getToHeader()->getURIText(), "sip:gw@example.test");
        EXPECT_EQ(request->getFromHeader()->getURIText(), "sip:gw@example.test");
        EXPECT_EQ(request->getContactHeader()->getURL()->getText(),
                  "sip:gw@" + SipStack::instance()->getListenPort(0).getAddress().getText());
        EXPECT_EQ(request->getHeaderValue("Expires"), "3600");
        EXPECT_EQ(request->getHeaderValue("User-Agent"), "Gate");
        EXPECT_TRUE(reaches(RegistrationState::eREGISTERED));
        EXPECT_TRUE(m_registrator.unregisterAll());
        EXPECT_TRUE(m_registrator.unregisterAll());
        stopFactory();
        const auto withdrawal = m_pRegistrar->next(0);
        ASSERT_FALSE(withdrawal.isNil());
        EXPECT_EQ(withdrawal->getHeaderValue("Expires"), "0");
        EXPECT_EQ(withdrawal->getCallID(), request->getCallID());
        EXPECT_GT(withdrawal->getCSeqHeader()->getNumber(), request->getCSeqHeader()->getNumber());
        EXPECT_EQ(m_pRegistration->getState(), RegistrationState::eWITHDRAWN);
        EXPECT_TRUE(m_pRegistrar->next(0).isNil());
    }
}

TEST_F(RegistrationTest, answersAChallengeOnce)
{
    const DsSipCredential credential{"", "gw", "secret"};
    begin(
        [credential](const DsSipRequest& in_request) -> std::string
        {
            const std::string given = in_request.getHeaderValue("Authorization");
            if (given.empty())
            {
                return "SIP/2.0 401 Unauthorized\r\n"
                       "WWW-Authenticate: Digest realm=\"its own name\", nonce=\"n0\", algorithm=MD5\r\n"
                       "WWW-Authenticate: Digest realm=\"its own name\", nonce=\"n1\", algorithm=SHA-256\r\n";
            }
            DsSipDigest::Challenge challenge;
            DsSipDigest::Challenge::parse("Digest realm=\"its own name\", nonce=\"n1\", algorithm=SHA-256",
                                          challenge);
            return given == DsSipDigest::makeValue(
                                challenge, in_request.getMethod(), in_request.getRequestURI(), credential, "")
                       ? okFor(in_request, "600")
                       : "SIP/2.0 403 Forbidden\r\n";
        });
    registerByConfiguration();
    EXPECT_TRUE(reaches(RegistrationState::eREGISTERED));
    EXPECT_FALSE(m_pRegistrar->next().isNil());
    EXPECT_FALSE(m_pRegistrar->next().isNil());
    // Its realm is known now, to all requests of the stack.
    const auto request =
        DsSipRequest::create("REGISTER", "sip:127.0.0.1:" + std::to_string(m_pRegistrar->getPort()));
    request->addHeader("From", "<sip:gw@example.test>");
    request->addHeader("To", "<sip:gw@example.test>");
    request->addHeader("Contact", "<sip:gw@127.0.0.1>");
    std::promise<bool> promise;
    const auto transaction = DsSipClientTransaction::send(
        request,
        [&](const DsHandle<DsSipResponse>& in_hResponse)
        { promise.set_value(!in_hResponse.isNil() && in_hResponse->getStatusCode() == 200); },
        SipStack::instance()->getStack());
    auto accepted = promise.get_future();
    ASSERT_EQ(accepted.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_TRUE(accepted.get());
    EXPECT_FALSE(m_pRegistrar->next().isNil());
    EXPECT_FALSE(m_pRegistrar->next().isNil());
    // The withdrawal is challenged as well.
    m_registrator.unregisterAll();
    EXPECT_TRUE(reaches(RegistrationState::eWITHDRAWN));
    EXPECT_FALSE(m_pRegistrar->next().isNil());
    EXPECT_FALSE(m_pRegistrar->next().isNil());
}

TEST_F(RegistrationTest, wrongCredentialsAreNotTriedWithoutEnd)
{
    begin([](const DsSipRequest&)
          { return "SIP/2.0 401 Unauthorized\r\nWWW-Authenticate: Digest realm=\"r\", nonce=\"same\"\r\n"; });
    registerByConfiguration();
    EXPECT_FALSE(m_pRegistrar->next().isNil());
    EXPECT_FALSE(m_pRegistrar->next().isNil());
    EXPECT_TRUE(reaches(RegistrationState::eFAILED));
    EXPECT_TRUE(m_pRegistrar->next(0).isNil());
}

TEST_F(RegistrationTest, refreshesBeforeItExpires)
{
    begin([](const DsSipRequest& in_request) { return okFor(in_request, "1"); });
    registerByConfiguration();
    ASSERT_FALSE(m_pRegistrar->next().isNil());
    const auto first = std::chrono::steady_clock::now();
    ASSERT_FALSE(m_pRegistrar->next().isNil());
    EXPECT_LT(std::chrono::steady_clock::now() - first, 1s);
    EXPECT_TRUE(reaches(RegistrationState::eREGISTERED));
}

TEST_F(RegistrationTest, failuresAreTriedAgainWithGrowingPauses)
{
    // Answers go on until the registrar is gone, after this function.
    const auto count = std::make_shared<std::atomic<int>>(0);
    begin([count](const DsSipRequest& in_request) -> std::string
          { return ++*count <= 3 ? "SIP/2.0 503 Service Unavailable\r\n" : okFor(in_request, "600"); });
    registerImpatiently();
    ASSERT_FALSE(m_pRegistrar->next().isNil());
    auto last = std::chrono::steady_clock::now();
    for (const auto atLeast : {40ms, 80ms, 160ms})
    {
        ASSERT_FALSE(m_pRegistrar->next().isNil());
        const auto now = std::chrono::steady_clock::now();
        EXPECT_GT(now - last, atLeast - 10ms);
        last = now;
    }
    EXPECT_TRUE(reaches(RegistrationState::eREGISTERED));
}

TEST_F(RegistrationTest, takesTheRegistrarsMinimum)
{
    begin(
        [](const DsSipRequest& in_request) -> std::string
        {
            return in_request.getHeaderValue("Expires") == "30"
                       ? "SIP/2.0 423 Interval Too Brief\r\nMin-Expires: 90\r\n"
                       : okFor(in_request, "90");
        },
        30);
    registerByConfiguration();
    ASSERT_FALSE(m_pRegistrar->next().isNil());
    const auto request = m_pRegistrar->next();
    ASSERT_FALSE(request.isNil());
    EXPECT_EQ(request->getHeaderValue("Expires"), "90");
    EXPECT_TRUE(reaches(RegistrationState::eREGISTERED));
}

TEST_F(RegistrationTest, aSilentRegistrarDoesNotHoldUpTheEnd)
{
    begin([](const DsSipRequest&) { return std::string(); });
    registerByConfiguration();
    ASSERT_FALSE(m_pRegistrar->next().isNil());
    m_registrator.unregisterAll();
    const auto begin = std::chrono::steady_clock::now();
    stopFactory();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 4s);
    EXPECT_EQ(m_pRegistration->getState(), RegistrationState::eWITHDRAWN);
}

TEST_F(RegistrationTest, aStackThatIsTakenUpAgainRegistersAgain)
{
    begin([](const DsSipRequest& in_request) { return okFor(in_request, "600"); });
    registerByConfiguration();
    EXPECT_TRUE(reaches(RegistrationState::eREGISTERED));
    m_registrator.unregisterAll();
    stopFactory();
    DsSipStackStatistics statistics;
    EXPECT_TRUE(SipStack::instance()->getStatistics(statistics));
    EXPECT_EQ(statistics.m_ulClientTransactions, 0U);
    EXPECT_TRUE(SipStack::instance()->stop());
    EXPECT_FALSE(SipStack::instance()->stop());
    EXPECT_TRUE(SipStack::instance()->waitUntilDone());
    EXPECT_FALSE(SipStack::instance()->getStatistics(statistics));
    ASSERT_TRUE(SipStack::instance()->initialize(m_hConfig, nullptr));
    EXPECT_FALSE(SipStack::instance()->initialize(m_hConfig, nullptr));
    ASSERT_TRUE(m_hFactory->start());
    m_registrator.registerAll();
    EXPECT_TRUE(reaches(RegistrationState::eREGISTERED));
}

}  // namespace
}  // namespace Quorvex
