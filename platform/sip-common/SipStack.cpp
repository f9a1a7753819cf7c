#include "sip-common/SipStack.h"

#include "infra/Logger.h"
#include "infra/TraceScope.h"
#include "sipstack/DsException.h"
#include "sipstack/DsSipNewCallinterface.h"
#include "sipstack/DsSipURL.h"

namespace Quorvex
{

namespace
{

const Logger& logger()
{
    static const StaticLogger s_logger("quorvex.sip.SipStack");
    return s_logger;
}

constexpr unsigned int kStopTimeoutMs = 2000;

}  // namespace

DsHandle<DsSipContactHeader> SipStack::ListenAddrPort::createContactHeader(std::string_view in_user)
{
    m_hContact = nullptr;
    if (isValid() && !isAny())
    {
        const auto url = makeDs<DsSipURL>(in_user, getHostAddress(), getPort());
        if (getTransport() == Sip::eTCP)
        {
            url->setTransportParam("tcp");
        }
        m_hContact = makeDs<DsSipContactHeader>(DsSipNameAddress(url));
    }
    return m_hContact;
}

SipStack::SipStack() = default;
SipStack::~SipStack() = default;

SipStack* SipStack::instance()
{
    // Not destroyed: what still uses it while the process ends finds it there. No part of any memory account.
    static SipStack* const s_pInstance = ::new SipStack;
    return s_pInstance;
}

bool SipStack::checkConfiguration(const ROConfiguration& in_config, std::string& out_strError)
{
    SipStackSettings settings;
    return SipStackSettings::read(in_config, settings, out_strError);
}

bool SipStack::initialize(const TSHandle<ROConfiguration>& in_hConfig,
                          const DsHandle<DsSipNewCallinterface>& in_hNewCall)
{
    TRACE_SCOPE(logger(), "SipStack::initialize");
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_pStack)
    {
        QLOG_ERROR(logger(), "the SIP stack runs already: it can be initialized again once it has stopped");
        return false;
    }
    std::string error;
    SipStackSettings settings;
    if (in_hConfig.isNull() || !SipStackSettings::read(*in_hConfig, settings, error))
    {
        QLOG_ERROR(logger(),
                   "the SIP stack cannot be configured: " << (error.empty() ? "no configuration" : error));
        return false;
    }
    settings.m_stack.m_overloaded = m_overloaded;
    auto stack = std::make_unique<DsSipStack>();
    if (!stack->start(settings.m_stack, in_hNewCall, error))
    {
        QLOG_ERROR(logger(), "the SIP stack cannot be started: " << error);
        return false;
    }
    m_settings = std::move(settings);
    m_vListenPorts.clear();
    for (std::size_t i = 0; i < m_settings.m_vListen.size(); ++i)
    {
        // A configured port 0 has become a real one.
        const DsSipListenPort& bound = stack->getListenPorts().at(i);
        Sip::AddressPortTransport address;
        address.initialize(bound.m_strAddress, bound.m_uiPort, m_settings.m_vListen[i].getTransport());
        m_vListenPorts.emplace_back(address).createContactHeader(getContactUser());
        QLOG_INFO(logger(), "SIP is listened for on " << address);
    }
    m_hIdentification = makeDs<DsSipUserAgentHeader>(getProductName(), getProductVersion());
    m_pStack = std::move(stack);
    m_bRunning.store(true, std::memory_order_release);
    return true;
}

void SipStack::drain()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_pStack)
    {
        m_pStack->drain();
    }
}

void SipStack::refuseUnanswered()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_pStack)
    {
        m_pStack->refuseUnanswered();
    }
}

bool SipStack::post(std::function<void()> in_job)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_pStack != nullptr && m_pStack->post(std::move(in_job));
}

bool SipStack::getStatistics(DsSipStackStatistics& out_statistics) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_pStack)
    {
        out_statistics = m_pStack->getStatistics();
    }
    return m_pStack != nullptr;
}

bool SipStack::stop()
{
    TRACE_SCOPE(logger(), "SipStack::stop");
    if (!m_bRunning.exchange(false))
    {
        return false;
    }
    drain();
    return true;
}

bool SipStack::waitUntilDone()
{
    TRACE_SCOPE(logger(), "SipStack::waitUntilDone");
    if (isRunning())
    {
        QLOG_ERROR(logger(), "the SIP stack has not been told to stop, so its end cannot be waited for");
        return false;
    }
    std::unique_ptr<DsSipStack> stack;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        stack = std::move(m_pStack);
    }
    if (stack)
    {
        // Reports that this causes may ask for the stack: no lock is held.
        stack->stop(kStopTimeoutMs);
        m_vListenPorts.clear();
        m_hIdentification = nullptr;
        m_settings = SipStackSettings();
    }
    return true;
}

}  // namespace Quorvex
