#include "sipstack/DsSipStack.h"

#include <future>

#include "infra/Bell.h"
#include "sipstack/DsSipNewCallinterface.h"
#include "sipstack/base/SipAgent.h"

namespace Quorvex
{

namespace
{

std::atomic<DsSipStack*> s_pInstance{nullptr};

bool isInRange(const DsSipStackConfig& in_config, std::string& out_strError)
{
    if (in_config.m_uiT1Ms < 1 || in_config.m_uiT1Ms > 10000)
    {
        out_strError = "SIP timer T1 must be 1 to 10000 ms";
    }
    else if (in_config.m_uiTimerCMs < 100 || in_config.m_uiTimerCMs > 3600000)
    {
        out_strError = "SIP timer C must be 100 to 3600000 ms";
    }
    else
    {
        return true;
    }
    return false;
}

}  // namespace

DsSipStack::DsSipStack() = default;

DsSipStack::~DsSipStack()
{
    stop(0);
}

DsSipStack* DsSipStack::instance()
{
    return s_pInstance.load();
}

bool DsSipStack::start(const DsSipStackConfig& in_config,
                       const DsHandle<DsSipNewCallinterface>& in_hNewCall,
                       std::string& out_strError)
{
    if (m_bRunning)
    {
        out_strError = "the SIP stack is running already";
        return false;
    }
    if (!isInRange(in_config, out_strError))
    {
        return false;
    }
    // Calls may come, and use the stack, before this returns.
    m_pAgent = std::make_shared<SipAgent>(in_config, in_hNewCall);
    if (!m_pAgent->start(out_strError))
    {
        m_pAgent.reset();
        return false;
    }
    m_bRunning = true;
    DsSipStack* expected = nullptr;
    s_pInstance.compare_exchange_strong(expected, this);
    return true;
}

void DsSipStack::addCredential(DsSipCredential in_credential)
{
    if (m_pAgent)
    {
        m_pAgent->post([agent = m_pAgent, credential = std::move(in_credential)]
                       { agent->addCredential(credential); });
    }
}

void DsSipStack::drain()
{
    if (m_pAgent)
    {
        m_pAgent->drain();
    }
}

void DsSipStack::refuseUnanswered()
{
    if (m_pAgent)
    {
        m_pAgent->refuseUnanswered();
    }
}

void DsSipStack::stop(unsigned int in_uiTimeoutMs)
{
    if (m_bRunning)
    {
        m_pAgent->stop(in_uiTimeoutMs);
        m_bRunning = false;
    }
    DsSipStack* expected = this;
    s_pInstance.compare_exchange_strong(expected, nullptr);
}

bool DsSipStack::isRunning() const
{
    return m_bRunning;
}

const std::vector<DsSipListenPort>& DsSipStack::getListenPorts() const
{
    return getConfig().m_vListenPorts;
}

const DsSipStackConfig& DsSipStack::getConfig() const
{
    static const DsSipStackConfig s_none;
    return m_pAgent ? m_pAgent->config() : s_none;
}

DsSipStackStatistics DsSipStack::getStatistics() const
{
    return m_pAgent ? m_pAgent->statistics() : DsSipStackStatistics();
}

bool DsSipStack::post(std::function<void()> in_job)
{
    return m_pAgent && m_pAgent->post(std::move(in_job));
}

bool DsSipStack::ping(unsigned int in_uiTimeoutMs)
{
    const auto promise = std::make_shared<std::promise<void>>();
    auto done = promise->get_future();
    if (!post([promise] { promise->set_value(); }))
    {
        return false;
    }
    Bell::Batch::ring();
    return done.wait_for(std::chrono::milliseconds(in_uiTimeoutMs)) == std::future_status::ready;
}

}  // namespace Quorvex
