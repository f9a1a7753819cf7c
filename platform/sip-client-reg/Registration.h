#pragma once

#include <string>

namespace Quorvex
{

/// One entry of "quorvex.sip.registration".
struct RegistrationConfig
{
    std::string m_strRegistrar;  ///< SIP URI of the registrar
    std::string m_strAOR;        ///< the address that is registered
    std::string m_strUser;       ///< for digest challenges of this registrar; "" for none
    std::string m_strPassword;
    unsigned int m_uiExpiresS = 3600;      ///< what is asked for; 1 to 31,536,000
    unsigned int m_uiFirstRetryMs = 2000;  ///< the pause after a first failure; each further one doubles it
    unsigned int m_uiMaxRetryMs = 300000;  ///< the longest pause
    unsigned int m_uiNameTimeoutMs = 250;  ///< how long the registrar's host name is looked up
};

enum class RegistrationState
{
    eIDLE = 0,
    eREGISTERING = 1,
    eREGISTERED = 2,
    eFAILED = 3,  ///< waiting to try again
    eWITHDRAWING = 4,
    eWITHDRAWN = 5
};

/// "idle", "registering", ...
const char* getRegistrationStateName(RegistrationState in_state);

/// One registration with one registrar (RFC 3261 section 10). Any thread may call its operations, which
/// return at once; the work is done on the factory's thread. Used as long as the factory lives.
class Registration
{
public:
    Registration() = default;
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;
    virtual ~Registration() = default;

    /// Registers, and keeps registered: refreshes before the registration expires, tries again when it fails.
    virtual void start() = 0;
    /// Withdraws the registration, if there is one, and does no more until the next start().
    virtual void stop() = 0;

    virtual RegistrationState getState() const = 0;
    virtual const RegistrationConfig& getRegistrationConfig() const = 0;
};

}  // namespace Quorvex
