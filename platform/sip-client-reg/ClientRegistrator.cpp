#include "sip-client-reg/ClientRegistrator.h"

#include "infra/Logger.h"
#include "infra/TraceScope.h"
#include "sip-client-reg/ClientRegistrationFactory.h"
#include "sip-common/ConfigReader.h"
#include "sipstack/DsSipURL.h"

namespace Quorvex
{

namespace
{

const Logger& logger()
{
    static const StaticLogger s_logger("quorvex.sip.ClientRegistrator");
    return s_logger;
}

}  // namespace

ClientRegistrator::ClientRegistrator() = default;
ClientRegistrator::~ClientRegistrator() = default;

bool ClientRegistrator::readConfiguration(const ROConfiguration& in_config,
                                          std::vector<RegistrationConfig>& out_vRegistrations,
                                          std::string& out_strError)
{
    ConfigReader reader(in_config);
    std::vector<RegistrationConfig> registrations;
    unsigned int nameTimeoutMs = RegistrationConfig().m_uiNameTimeoutMs;
    reader.readUnsigned("quorvex.sip.getHostByNameTimeoutMs", 0, 86400000, nameTimeoutMs);
    const ParameterTrieNode* const node = in_config.getNode("quorvex.sip.registration");
    for (std::size_t i = 0; node != nullptr && i < node->getChildren().size(); ++i)
    {
        const std::string& key = node->getChildren()[i]->getFullName();
        RegistrationConfig& registration = registrations.emplace_back();
        registration.m_uiNameTimeoutMs = nameTimeoutMs;
        for (const auto& [name, target] : {std::pair(".registrar", &registration.m_strRegistrar),
                                           std::pair(".aor", &registration.m_strAOR)})
        {
            reader.requireString(key + name, *target);
            if (DsSipURL::parse(*target).isNil())
            {
                reader.fail(key + name,
                            "a SIP URI (\"sip:example.test\") was expected, found \"" + *target + "\"");
            }
        }
        reader.readString(key + ".user", registration.m_strUser);
        reader.readString(key + ".password", registration.m_strPassword);
        reader.readUnsigned(key + ".expiresS", 1, 31536000, registration.m_uiExpiresS);
    }
    if (!reader.ok())
    {
        out_strError = reader.getError();
        return false;
    }
    out_vRegistrations = std::move(registrations);
    return true;
}

bool ClientRegistrator::configure(
    const TSHandle<ROConfiguration>& in_hConfig,
    const CountedObjPtr<ClientRegistrationFactory, TSReferenceCount>& in_hFactory)
{
    TRACE_SCOPE(logger(), "ClientRegistrator::configure");
    m_vRegistrations.clear();
    m_hFactory = in_hFactory;
    std::string error = "no configuration, or no factory";
    std::vector<RegistrationConfig> configs;
    if (in_hConfig.isNull() || in_hFactory.isNull() || !readConfiguration(*in_hConfig, configs, error))
    {
        QLOG_ERROR(logger(), "the registrations cannot be configured: " << error);
        return false;
    }
    for (const RegistrationConfig& config : configs)
    {
        m_vRegistrations.push_back(m_hFactory->newRegistration(config));
    }
    return true;
}

bool ClientRegistrator::registerAll()
{
    TRACE_SCOPE(logger(), "ClientRegistrator::registerAll");
    for (const auto& registration : m_vRegistrations)
    {
        registration->start();
    }
    return !m_hFactory.isNull();
}

bool ClientRegistrator::unregisterAll()
{
    TRACE_SCOPE(logger(), "ClientRegistrator::unregisterAll");
    for (const auto& registration : m_vRegistrations)
    {
        registration->stop();
    }
    return !m_hFactory.isNull();
}

}  // namespace Quorvex
