#include "sip-client-reg/ClientRegistrationFactory.h"

#include <ace/Method_Request.h>

#include <algorithm>
#include <utility>

#include "infra/Logger.h"
#include "infra/MemAccount.h"
#include "sip-client-reg/RegistrationImpl.h"

namespace Quorvex
{

namespace
{

const Logger& logger()
{
    static const StaticLogger s_logger("quorvex.sip.ClientRegistrationFactory");
    return s_logger;
}

constexpr long kEndTimeoutS = 2;

class JobRequest final : public ACE_Method_Request
{
public:
    QUORVEX_MEM_ACCOUNT("ClientRegistrationFactory::JobRequest");

    explicit JobRequest(std::function<void()> in_job) : m_job(std::move(in_job)) {}
    int call() override
    {
        m_job();
        return 0;
    }

private:
    std::function<void()> m_job;
};

}  // namespace

bool ClientRegistrationFactory::JobGate::post(std::function<void()> in_job)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_pFactory != nullptr &&
           m_pFactory->enqueue(new JobRequest(std::move(in_job)), "ClientRegistrationFactory::JobGate::post");
}

void ClientRegistrationFactory::JobGate::close()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_pFactory = nullptr;
}

ClientRegistrationFactory::ClientRegistrationFactory()
    : UserDefHandlerTaskManager("ClientRegistrationFactory"), m_pGate(std::make_shared<JobGate>(*this))
{
}

ClientRegistrationFactory::~ClientRegistrationFactory()
{
    m_pGate->close();
    abandon();
    for (const auto& registration : m_vRegistrations)
    {
        registration->abandon();
    }
}

std::shared_ptr<Registration> ClientRegistrationFactory::newRegistration(const RegistrationConfig& in_config)
{
    auto registration = std::make_shared<RegistrationImpl>(*this, m_pGate, in_config);
    const std::lock_guard<std::mutex> lock(m_registrationsMutex);
    m_vRegistrations.push_back(registration);
    return registration;
}

void ClientRegistrationFactory::handleMOCallStop()
{
    for (const auto& registration : getRegistrations())
    {
        registration->doStop();
    }
    m_bEnding = true;
    m_endTimer = getTimerScheduler().scheduleTimer(this, nullptr, ACE_Time_Value(kEndTimeoutS));
    onQuiet();
}

void ClientRegistrationFactory::handleMOCallKill()
{
    end();
}

bool ClientRegistrationFactory::processTimeout(const ACE_Time_Value& /*in_expiryTime*/,
                                               TimeoutData* /*in_pData*/)
{
    m_endTimer = TimerScheduler::NO_TIMER;
    QLOG_WARN(
        logger(),
        "registrations were not withdrawn within " << kEndTimeoutS << " s: the registrars do not answer");
    end();
    return true;
}

void ClientRegistrationFactory::onQuiet()
{
    if (!m_bEnding)
    {
        return;
    }
    const auto registrations = getRegistrations();
    if (std::all_of(registrations.begin(),
                    registrations.end(),
                    [](const auto& in_registration) { return in_registration->isQuiet(); }))
    {
        end();
    }
}

std::vector<std::shared_ptr<RegistrationImpl>> ClientRegistrationFactory::getRegistrations()
{
    const std::lock_guard<std::mutex> lock(m_registrationsMutex);
    return m_vRegistrations;
}

void ClientRegistrationFactory::end()
{
    m_bEnding = false;
    if (m_endTimer != TimerScheduler::NO_TIMER)
    {
        getTimerScheduler().cancelTimer(std::exchange(m_endTimer, TimerScheduler::NO_TIMER));
    }
    for (const auto& registration : getRegistrations())
    {
        registration->abandon();
    }
    completeStop();
}

}  // namespace Quorvex
