#include <gtest/gtest.h>

#include <vector>

#include "sip-client-reg/ClientRegistrator.h"
#include "sip-common/SipStackSettings.h"

namespace Quorvex
{
namespace
{

TEST(SipStackSettings, areReadFromTheConfiguration)
{
    MapConfiguration config;
    SipStackSettings settings;
    std::string error;
    ASSERT_TRUE(SipStackSettings::read(config, settings, error)) << error;
    ASSERT_EQ(settings.m_vListen.size(), 1U);
    EXPECT_EQ(settings.m_vListen[0].getText(), "udp:127.0.0.1:5060");

    config.set("quorvex.sip.listen.0", "udp:127.0.0.1:0");
    config.set("quorvex.sip.listen.1", "tcp:[::1]:5070");
    config.set("quorvex.sip.contactUser", "gw");
    config.set("quorvex.sip.productName", "Gate");
    config.set("quorvex.sip.productVersion", "3");
    config.set("quorvex.sip.t1Ms", 50);
    config.set("quorvex.sip.credential.0.realm", "r");
    config.set("quorvex.sip.credential.0.user", "u");
    config.set("quorvex.sip.credential.0.password", "p");
    config.set("quorvex.sip.registration.0.registrar", "sip:reg.example:5090");
    config.set("quorvex.sip.registration.0.aor", "sip:gw@example");
    config.set("quorvex.sip.registration.0.user", "ru");
    config.set("quorvex.sip.registration.0.password", "rp");
    ASSERT_TRUE(SipStackSettings::read(config, settings, error)) << error;
    ASSERT_EQ(settings.m_stack.m_vListenPorts.size(), 2U);
    EXPECT_EQ(settings.m_stack.m_vListenPorts[1].m_strAddress, "::1");
    EXPECT_EQ(settings.m_stack.m_vListenPorts[1].m_transport, DsSipTransport::eTCP);
    EXPECT_EQ(settings.m_stack.m_strProduct, "Gate/3");
    EXPECT_EQ(settings.m_stack.m_uiT1Ms, 50U);
    ASSERT_EQ(settings.m_stack.m_vCredentials.size(), 3U);
    EXPECT_EQ(settings.m_stack.m_vCredentials[1].m_strRealm, "reg.example");
    EXPECT_EQ(settings.m_stack.m_vCredentials[2].m_strRealm, "example");
    EXPECT_EQ(settings.m_stack.m_vCredentials[2].m_strUser, "ru");

    std::vector<RegistrationConfig> registrations;
    ASSERT_TRUE(ClientRegistrator::readConfiguration(config, registrations, error)) << error;
    ASSERT_EQ(registrations.size(), 1U);
    EXPECT_EQ(registrations[0].m_uiExpiresS, 3600U);
}

struct BadRow
{
    const char* m_szKey;
    ParameterValue m_value;
};

TEST(SipStackSettings, aBadValueIsNamedWithItsKey)
{
    const std::vector<BadRow> table = {
        {"quorvex.sip.listen",                   "udp:host:5060"      },
        {"quorvex.sip.listen.0",                 "tls:127.0.0.1:5061" },
        {"quorvex.sip.listen.0",                 5060                 },
        {"quorvex.sip.outboundProxy",            "proxy.example"      },
        {"quorvex.sip.t1Ms",                     0                    },
        {"quorvex.sip.t1Ms",                     "fast"               },
        {"quorvex.sip.timerCMs",                 std::int64_t{1} << 40},
        {"quorvex.sip.getHostByNameTimeoutMs",   -1                   },
        {"quorvex.sip.contactUser",              7                    },
        {"quorvex.sip.credential.0.realm",       "r"                  },
        {"quorvex.sip.registration.0.registrar", "reg.example"        },
        {"quorvex.sip.registration.0.expiresS",  0                    },
    };
    for (const BadRow& row : table)
    {
        MapConfiguration config;
        config.set(row.m_szKey, row.m_value);
        SipStackSettings settings;
        std::vector<RegistrationConfig> registrations;
        std::string error;
        EXPECT_FALSE(SipStackSettings::read(config, settings, error) &&
                     ClientRegistrator::readConfiguration(config, registrations, error))
            << row.m_szKey;
        const std::string key(row.m_szKey);
        const std::string prefix =
            key.substr(0, key.find_last_of('0') == key.npos ? key.size() : key.find_last_of('0') - 1);
        EXPECT_TRUE(error.starts_with(prefix)) << error;
        EXPECT_NE(error.find("was expected"), std::string::npos) << error;
    }
    MapConfiguration twice;
    twice.set("quorvex.sip.listen.0", "udp:127.0.0.1:5060");
    twice.set("quorvex.sip.listen.1", "udp:127.0.0.1:5060");
    SipStackSettings settings;
    std::string error;
    EXPECT_FALSE(SipStackSettings::read(twice, settings, error));
}

}  // namespace
}  // namespace Quorvex
