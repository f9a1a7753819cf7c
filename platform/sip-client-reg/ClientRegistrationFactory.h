#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "sip-client-reg/Registration.h"
#include "thread/TimerScheduler.h"
#include "thread/UserDefHandlerTaskManager.h"

namespace Quorvex
{

class RegistrationImpl;

/// The task on whose thread registrations live: their timers, and the answers of the registrars. When it is
/// stopped it ends once every withdrawal has been answered, or after two seconds.
class ClientRegistrationFactory : public UserDefHandlerTaskManager, private TimeoutProcessor
{
public:
    ClientRegistrationFactory();
    ClientRegistrationFactory(const ClientRegistrationFactory&) = delete;
    ClientRegistrationFactory& operator=(const ClientRegistrationFactory&) = delete;
    ~ClientRegistrationFactory() override;

    /// A registration that is kept by this task; it does nothing until it is started. Any thread.
    std::shared_ptr<Registration> newRegistration(const RegistrationConfig& in_config);

    /// Runs jobs on a factory's thread for as long as the factory is there; outlives it.
    class JobGate;

protected:
    void handleMOCallStop() override;
    void handleMOCallKill() override;

private:
    friend class RegistrationImpl;
    bool processTimeout(const ACE_Time_Value& in_expiryTime, TimeoutData* in_pData) override;
    /// A registration has nothing more to wait for.
    void onQuiet();
    void end();
    std::vector<std::shared_ptr<RegistrationImpl>> getRegistrations();

    const std::shared_ptr<JobGate> m_pGate;
    std::mutex m_registrationsMutex;
    std::vector<std::shared_ptr<RegistrationImpl>> m_vRegistrations;
    bool m_bEnding = false;  // task thread, as is the timer
    TimerScheduler::TimerId m_endTimer = TimerScheduler::NO_TIMER;
};

/// See above.
class ClientRegistrationFactory::JobGate
{
public:
    explicit JobGate(ClientRegistrationFactory& in_factory) : m_pFactory(&in_factory) {}

    /// False when the factory is gone; the job is then dropped.
    bool post(std::function<void()> in_job);
    void close();

private:
    std::mutex m_mutex;
    ClientRegistrationFactory* m_pFactory;
};

}  // namespace Quorvex
