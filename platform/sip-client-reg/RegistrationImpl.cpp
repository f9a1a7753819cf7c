#include "sip-client-reg/RegistrationImpl.h"

#include <algorithm>
#include <random>
#include <utility>

#include "infra/Logger.h"
#include "infra/UUID.h"
#include "net/Net.h"
#include "sip-common/SipStack.h"
#include "sipstack/DsException.h"
#include "sipstack/DsSipClientTransaction.h"
#include "sipstack/DsSipDigest.h"
#include "sipstack/DsSipURL.h"

namespace Quorvex
{

namespace
{

const Logger& logger()
{
    static const StaticLogger s_logger("quorvex.sip.Registration");
    return s_logger;
}

constexpr unsigned int kMaxExpiresS = 31536000;
constexpr unsigned int kMaxRetryAfterS = 3600;

// A spread, so that a registrar that comes back is not met by everybody at once.
std::uint64_t spread(std::uint64_t in_ulMs)
{
    static thread_local std::minstd_rand s_random{std::random_device{}()};
    std::uniform_int_distribution<std::uint64_t> permille(800, 1000);
    return in_ulMs * permille(s_random) / 1000;
}

}  // namespace

const char* getRegistrationStateName(RegistrationState in_state)
{
    switch (in_state)
    {
        case RegistrationState::eIDLE:
            return "idle";
        case RegistrationState::eREGISTERING:
            return "registering";
        case RegistrationState::eREGISTERED:
            return "registered";
        case RegistrationState::eFAILED:
            return "failed";
        case RegistrationState::eWITHDRAWING:
            return "withdrawing";
        case RegistrationState::eWITHDRAWN:
            return "withdrawn";
    }
    return "unknown";
}

RegistrationImpl::RegistrationImpl(ClientRegistrationFactory& in_factory,
                                   std::shared_ptr<ClientRegistrationFactory::JobGate> in_pGate,
                                   RegistrationConfig in_config)
    : m_factory(in_factory),
      m_pGate(std::move(in_pGate)),
      m_config(std::move(in_config)),
      m_strCallID(UUID().toString()),
      m_strTag(UUID().toString()),
      m_uiExpiresS(std::clamp(m_config.m_uiExpiresS, 1U, kMaxExpiresS))
{
}

RegistrationImpl::~RegistrationImpl() = default;

void RegistrationImpl::start()
{
    m_pGate->post([self = shared_from_this()] { self->doStart(); });
}

void RegistrationImpl::stop()
{
    m_pGate->post([self = shared_from_this()] { self->doStop(); });
}

void RegistrationImpl::doStart()
{
    if (m_bWanted)
    {
        return;
    }
    m_bWanted = true;
    m_uiFailures = 0;
    if (m_pTransaction == nullptr)
    {
        send(m_uiExpiresS);
    }
}

void RegistrationImpl::doStop()
{
    if (!m_bWanted)
    {
        return;
    }
    m_bWanted = false;
    cancelTimer();
    // A registration under way is withdrawn when its answer has come.
    if (m_pTransaction == nullptr)
    {
        if (m_bBound)
        {
            send(0);
        }
        else
        {
            onWithdrawn();
        }
    }
}

void RegistrationImpl::abandon()
{
    if (m_timer != TimerScheduler::NO_TIMER)
    {
        cancelTimer();
    }
    m_bWanted = false;
    m_bBound = false;
    m_pTransaction.reset();
    ++m_ulTransaction;
    if (getState() != RegistrationState::eIDLE)
    {
        setState(RegistrationState::eWITHDRAWN);
    }
}

bool RegistrationImpl::processTimeout(const ACE_Time_Value& /*in_expiryTime*/, TimeoutData* /*in_pData*/)
{
    m_timer = TimerScheduler::NO_TIMER;
    send(m_uiExpiresS);
    return true;
}

DsHandle<DsSipContactHeader> RegistrationImpl::makeContact(const DsSipURL& in_registrar) const
{
    const SipStack& stack = *SipStack::instance();
    const auto transport = DsSocketImpl::convertTransport(in_registrar.getTransportParam());
    if (!transport.valid())
    {
        throw DsException("the registrar's transport is not known: " + in_registrar.getTransportParam());
    }
    for (const SipStack::ListenAddrPort& port : stack.getListenPorts())
    {
        if (port.getTransport() != transport.value())
        {
            continue;
        }
        if (!port.m_hContact.isNil())
        {
            return port.m_hContact;
        }
        const DsInetAddress registrar(in_registrar.getHost(), static_cast<int>(m_config.m_uiNameTimeoutMs));
        Net::Interface interface;
        SipStack::ListenAddrPort local;
        if (Net::Interface::getForDestination(registrar.getHostAddress(), interface) &&
            local.initialize(interface.getIPAdress(), port.getPort(), port.getTransport()))
        {
            return local.createContactHeader(stack.getContactUser());
        }
    }
    throw DsException(std::string("no listen port of transport ") +
                      Sip::getTransportString(transport.value()) + " to be registered");
}

DsHandle<DsSipRequest> RegistrationImpl::makeRequest(unsigned int in_uiExpiresS)
{
    const DsSipURL registrar(m_config.m_strRegistrar);
    DsHandle<DsSipRequest> request = makeDs<DsSipRequest>("REGISTER", registrar);
    const auto aor = makeDs<DsSipURL>(m_config.m_strAOR);
    DsSipFromHeader from{DsSipNameAddress(aor)};
    from.setTag(m_strTag);
    request->addHeader(from);
    request->addHeader(DsSipToHeader(DsSipNameAddress(aor)));
    request->addHeader("Call-ID", m_strCallID);
    request->addHeader(DsSipCSeqHeader(++m_uiCSeq, "REGISTER"));
    if (in_uiExpiresS != 0 || m_strContact.empty())
    {
        m_strContact = makeContact(registrar)->getValueText();
    }
    request->addHeader("Contact", m_strContact);
    request->addHeader("Expires", std::to_string(in_uiExpiresS));
    if (const auto& identification = SipStack::instance()->getIdentificationHeader(); !identification.isNil())
    {
        request->addHeader(identification);
    }
    if (!m_strAuthorization.empty())
    {
        request->addHeader(m_strAuthorizationName, std::exchange(m_strAuthorization, std::string()));
    }
    return request;
}

void RegistrationImpl::send(unsigned int in_uiExpiresS)
{
    setState(in_uiExpiresS == 0 ? RegistrationState::eWITHDRAWING : RegistrationState::eREGISTERING);
    m_uiSentExpiresS = in_uiExpiresS;
    try
    {
        const auto request = makeRequest(in_uiExpiresS);
        m_bBound = m_bBound || in_uiExpiresS != 0;
        const std::uint64_t number = ++m_ulTransaction;
        // Comes on the SIP stack's thread.
        auto callback =
            [gate = m_pGate, weak = weak_from_this(), number](const DsHandle<DsSipResponse>& in_hResponse)
        { gate->post([weak, number, in_hResponse] { deliver(weak, number, in_hResponse); }); };
        m_pTransaction =
            DsSipClientTransaction::send(request, std::move(callback), SipStack::instance()->getStack());
    }
    catch (const DsException& exception)
    {
        onFailure(exception.getReason(), 0);
    }
}

void RegistrationImpl::deliver(const std::weak_ptr<RegistrationImpl>& in_pRegistration,
                               std::uint64_t in_ulTransaction,
                               const DsHandle<DsSipResponse>& in_hResponse)
{
    const auto registration = in_pRegistration.lock();
    if (registration != nullptr && registration->m_ulTransaction == in_ulTransaction)
    {
        registration->onResponse(in_hResponse);
    }
}

void RegistrationImpl::onResponse(const DsHandle<DsSipResponse>& in_hResponse)
{
    m_pTransaction.reset();
    if (!in_hResponse.isNil() && retryAtOnce(*in_hResponse))
    {
        return;
    }
    const bool answeredChallenge = std::exchange(m_bAnsweredChallenge, false);
    m_bRaisedExpires = false;
    if (!in_hResponse.isNil() && in_hResponse->getStatusCode() / 100 == 2)
    {
        DsSipStack* const stack = SipStack::instance()->getStack();
        if (answeredChallenge && stack != nullptr)
        {
            // What the registrar takes, its proxies ask calls for.
            stack->addCredential({m_strRealm, m_config.m_strUser, m_config.m_strPassword});
        }
        if (m_uiSentExpiresS == 0)
        {
            onWithdrawn();
        }
        else
        {
            onRegistered(*in_hResponse);
        }
        return;
    }
    unsigned int retryAfterS = 0;
    std::string why = "no answer";
    if (!in_hResponse.isNil())
    {
        why = std::to_string(in_hResponse->getStatusCode()) + " " + in_hResponse->getReasonPhrase();
        const auto header =
            in_hResponse->getHeaderByID(DsSipHeaderID::eRETRY_AFTER).dynamicCast<DsSipRetryAfterHeader>();
        retryAfterS = header.isNil() ? 0 : std::min(header->getNumber(), kMaxRetryAfterS);
    }
    onFailure(why, retryAfterS);
}

bool RegistrationImpl::retryAtOnce(const DsSipResponse& in_response)
{
    const unsigned int code = in_response.getStatusCode();
    if ((code == 401 || code == 407) && !m_bAnsweredChallenge && !m_config.m_strUser.empty())
    {
        // The credentials are this registrar's, whatever it calls its realm.
        const auto answers =
            DsSipDigest::answer(in_response,
                                "REGISTER",
                                DsSipURL(m_config.m_strRegistrar).getText(),
                                {
                                    {std::string(), m_config.m_strUser, m_config.m_strPassword}
        });
        if (answers.empty())
        {
            return false;
        }
        m_bAnsweredChallenge = true;
        m_strAuthorizationName = answers.front().m_strName;
        m_strAuthorization = answers.front().m_strValue;
        m_strRealm = answers.front().m_strRealm;
        send(m_uiSentExpiresS);
        return true;
    }
    if (code == 423 && m_uiSentExpiresS != 0 && !m_bRaisedExpires)
    {
        const auto minimum =
            in_response.getHeaderByID(DsSipHeaderID::eMIN_EXPIRES).dynamicCast<DsSipMinExpiresHeader>();
        if (minimum.isNil() || minimum->getNumber() <= m_uiExpiresS || minimum->getNumber() > kMaxExpiresS)
        {
            return false;
        }
        m_bRaisedExpires = true;
        m_bAnsweredChallenge = false;
        m_uiExpiresS = minimum->getNumber();
        send(m_uiExpiresS);
        return true;
    }
    return false;
}

void RegistrationImpl::onRegistered(const DsSipResponse& in_response)
{
    m_uiFailures = 0;
    if (!m_bWanted)
    {
        send(0);
        return;
    }
    // The registrar lists every contact of the address; ours says how long it holds.
    unsigned int expiresS = m_uiSentExpiresS;
    if (const auto header =
            in_response.getHeaderByID(DsSipHeaderID::eEXPIRES).dynamicCast<DsSipExpiresHeader>();
        !header.isNil())
    {
        expiresS = header->getNumber();
    }
    const DsSipContactHeader ours{std::string_view(m_strContact)};
    for (const auto& contact : in_response.getAllTyped<DsSipContactHeader>())
    {
        if (!contact->getURL().isNil() && *contact->getURL() == *ours.getURL() && contact->getExpires())
        {
            expiresS = *contact->getExpires();
        }
    }
    expiresS = std::clamp(expiresS, 1U, kMaxExpiresS);
    setState(RegistrationState::eREGISTERED);
    QLOG_INFO(logger(),
              m_config.m_strAOR << " is registered with " << m_config.m_strRegistrar << " for " << expiresS
                                << " s");
    // In good time: a refresh that fails once can be tried again before the registration ends.
    scheduleMs(std::uint64_t{expiresS} * 1000 * 4 / 5);
}

void RegistrationImpl::onFailure(const std::string& in_strWhy, unsigned int in_uiRetryAfterS)
{
    m_pTransaction.reset();
    if (m_uiSentExpiresS == 0 || !m_bWanted)
    {
        QLOG_WARN(logger(),
                  m_config.m_strAOR << " could not be withdrawn from " << m_config.m_strRegistrar << ": "
                                    << in_strWhy);
        onWithdrawn();
        return;
    }
    const unsigned int doublings = std::min(m_uiFailures, 16U);
    ++m_uiFailures;
    std::uint64_t pauseMs = std::min(std::uint64_t{m_config.m_uiFirstRetryMs} << doublings,
                                     std::uint64_t{m_config.m_uiMaxRetryMs});
    pauseMs = std::max(spread(pauseMs), std::uint64_t{in_uiRetryAfterS} * 1000);
    setState(RegistrationState::eFAILED);
    QLOG_ERROR(logger(),
               m_config.m_strAOR << " could not be registered with " << m_config.m_strRegistrar << ": "
                                 << in_strWhy << "; next attempt in " << pauseMs << " ms");
    scheduleMs(pauseMs);
}

void RegistrationImpl::onWithdrawn()
{
    m_bBound = false;
    setState(RegistrationState::eWITHDRAWN);
    if (m_bWanted)
    {
        // Started again meanwhile.
        send(m_uiExpiresS);
        return;
    }
    m_factory.onQuiet();
}

void RegistrationImpl::scheduleMs(std::uint64_t in_ulDelayMs)
{
    cancelTimer();
    const auto seconds = static_cast<time_t>(in_ulDelayMs / 1000);
    const auto micros = static_cast<suseconds_t>(in_ulDelayMs % 1000 * 1000);
    m_timer = m_factory.getTimerScheduler().scheduleTimer(this, nullptr, ACE_Time_Value(seconds, micros));
}

void RegistrationImpl::cancelTimer()
{
    if (m_timer != TimerScheduler::NO_TIMER)
    {
        m_factory.getTimerScheduler().cancelTimer(std::exchange(m_timer, TimerScheduler::NO_TIMER));
    }
}

}  // namespace Quorvex
