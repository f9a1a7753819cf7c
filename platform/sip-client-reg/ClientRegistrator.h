#pragma once

#include <memory>
#include <string>
#include <vector>

#include "infra/CountedObjPtr.h"
#include "infra/Handle.h"
#include "infra/ROConfiguration.h"
#include "sip-client-reg/Registration.h"

namespace Quorvex
{

class ClientRegistrationFactory;

/// Registers the gateway with the registrars of "quorvex.sip.registration" and withdraws it at the end. All
/// operations belong to the network interface's thread and return at once.
class ClientRegistrator
{
public:
    ClientRegistrator();
    ~ClientRegistrator();
    ClientRegistrator(const ClientRegistrator&) = delete;
    ClientRegistrator& operator=(const ClientRegistrator&) = delete;

    /// Reads the registrations. False, logged at ERROR with the key at fault, when one cannot be used; then
    /// there are none. Without any registration: true.
    bool configure(const TSHandle<ROConfiguration>& in_hConfig,
                   const CountedObjPtr<ClientRegistrationFactory, TSReferenceCount>& in_hFactory);

    /// The same check without keeping anything.
    static bool readConfiguration(const ROConfiguration& in_config,
                                  std::vector<RegistrationConfig>& out_vRegistrations,
                                  std::string& out_strError);

    /// Begins to register everywhere. Each registration is refreshed before it expires, and tried again with
    /// growing pauses when it fails. False before configure().
    bool registerAll();

    /// Withdraws every registration; failures are not tried again. Repeatable.
    bool unregisterAll();

    const std::vector<std::shared_ptr<Registration>>& getRegistrations() const { return m_vRegistrations; }

private:
    CountedObjPtr<ClientRegistrationFactory, TSReferenceCount> m_hFactory;
    std::vector<std::shared_ptr<Registration>> m_vRegistrations;
};

}  // namespace Quorvex
