#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace Quorvex
{

class ClientRegistrationFactory;

/// One entry of "quorvex.sip.registration". The digest credentials are given to the SIP stack.
struct RegistrationConfig
{
    std::string m_strRegistrar;  ///< SIP URI of the registrar
    std::string m_strAOR;        ///< the address that is registered
    std::string m_strUser;
    std::string m_strPassword;
    unsigned int m_uiExpiresS = 3600;  ///< 10 to 86,400
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

/// One registration with one registrar (RFC 3261 section 10). Any thread may call its operations; the work is
/// done on the factory's thread.
class Registration : public std::enable_shared_from_this<Registration>
{
public:
    virtual ~Registration();

    virtual void start() = 0;
    /// Withdraws it, if it was made.
    virtual void stop() = 0;

    virtual RegistrationState getState() const = 0;
    virtual const RegistrationConfig& getRegistrationConfig() const = 0;
};

}  // namespace Quorvex
