#pragma once

#include <memory>
#include <string>

#include "sip-client-reg/Registration.h"
#include "thread/UserDefHandlerTaskManager.h"

namespace Quorvex
{

/// The task on whose thread registrations live: their timers, and the answers of the registrars.
class ClientRegistrationFactory : public UserDefHandlerTaskManager
{
public:
    ClientRegistrationFactory();
    ~ClientRegistrationFactory() override;

    /// A registration that is kept by this task's thread; it does nothing until it is started.
    std::shared_ptr<Registration> newRegistration(const RegistrationConfig& in_config);
};

}  // namespace Quorvex
