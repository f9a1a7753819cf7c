// What a Refer-To says about the call that is to be placed, and whether it leads back to the gateway itself.

#include <gtest/gtest.h>

#include "gateway/ListenAddresses.h"
#include "gateway/ReferTo.h"
#include "infra/TomlConfiguration.h"

namespace Quorvex
{
namespace
{

TEST(ReferTo, IsTakenApart)
{
    const struct
    {
        const char* m_szText;
        const char* m_szUri;
        const char* m_szHeaders;
    } cases[] = {
        {"sip:c@h",                                                          "sip:c@h",        ""                         },
        {"",                                                                 "",               ""                         },
        {"sip:c@h:5062;transport=tcp?Replaces=1@x;to-tag=2&Q=",
         "sip:c@h:5062;transport=tcp",                                                         "Replaces=1@x;to-tag=2|Q=|"},
        {"sip:h?Replaces=a@b",                                               "sip:h",          "Replaces=a@b|"            },
        {"sip:who?what@h?X=1",                                               "sip:who?what@h", "X=1|"                     },
        {"sip:who?what@h",                                                   "sip:who?what@h", ""                         },
        {"sip:c@h?",                                                         "sip:c@h",        ""                         },
        {"sip:c@h?&=1&novalue&X=a=b",                                        "sip:c@h",        "X=a=b|"                   },
        {"sip:c@h?from=x&CALL-ID=y&Route=z&body=b&content-type=t&Via=v&Y=1", "sip:c@h",        "Y=1|"                     },
        {"sip:c@h?X=a\r\nVia: evil&Z=1",                                     "sip:c@h",        "Z=1|"                     },
    };
    for (const auto& test : cases)
    {
        const ReferTo referTo = ReferTo::parse(test.m_szText);
        EXPECT_EQ(referTo.m_strUri, test.m_szUri) << test.m_szText;
        std::string strHeaders;
        for (const auto& [strName, strValue] : referTo.m_vHeaders)
        {
            strHeaders += strName;
            strHeaders += '=' + strValue + '|';
        }
        EXPECT_EQ(strHeaders, test.m_szHeaders) << test.m_szText;
    }
    EXPECT_TRUE(ReferTo::parse("sip:c@h?rePlaces=1").hasReplaces());
    EXPECT_FALSE(ReferTo::parse("sip:c@h?X-Replaces=1").hasReplaces());
}

TEST(ListenAddresses, TellWhichUrisLeadBack)
{
    std::string strError;
    const auto hConfig = TomlConfiguration::parse(
        "[quorvex.sip]\nlisten = [\"udp:127.0.0.1:5060\", \"tcp:127.0.0.1:5070\", \"udp:0.0.0.0:5080\"]\n",
        "test",
        strError);
    ASSERT_FALSE(hConfig.isNull()) << strError;
    const ListenAddresses addresses(*hConfig);
    const struct
    {
        const char* m_szUri;
        const char* m_szTransport;
    } cases[] = {
        {"sip:gateway@127.0.0.1",                    "udp"},
        {"sip:127.0.0.1:5060;transport=UDP",         "udp"},
        {"sip:gateway@127.0.0.1:5060;transport=tcp", ""   },
        {"sip:gateway@127.0.0.1:5070",               "tcp"},
        {"sip:gateway@127.0.0.1:5071",               ""   },
        {"sip:gateway@127.0.0.2",                    ""   },
        {"sip:gateway@127.0.0.1:5080",               "udp"},
        {"sip:gateway@192.0.2.1:5080",               ""   },
        {"sip:gateway@localhost:5080",               ""   },
        {"tel:5060",                                 ""   },
    };
    for (const auto& test : cases)
    {
        EXPECT_EQ(addresses.getTransportTo(test.m_szUri), test.m_szTransport) << test.m_szUri;
    }
}

}  // namespace
}  // namespace Quorvex
