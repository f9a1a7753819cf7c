#include <gtest/gtest.h>

#include <vector>

#include "sip-common/MySipUtils.h"
#include "sip/Sip.h"
#include "sipstack/DsSipInviteMessage.h"

namespace Quorvex
{
namespace
{

struct FailureRow
{
    std::int32_t m_iFailure;
    unsigned int m_uiDetail;  // 0: none
    unsigned int m_uiStatus;
};

TEST(Sip, failuresHaveTheirStatusCodes)
{
    const std::vector<FailureRow> table = {
        {1,  0,   486},
        {2,  0,   500},
        {3,  0,   488},
        {4,  0,   480},
        {5,  0,   404},
        {8,  0,   503},
        {21, 0,   500},
        {99, 0,   500},
        {21, 603, 603},
        {1,  404, 404},
        {21, 302, 500},
        {21, 700, 500},
    };
    for (const FailureRow& row : table)
    {
        const auto code = static_cast<ConnectionFailureEnum>(row.m_iFailure);
        const ConnectionFailureType failure =
            row.m_uiDetail == 0
                ? ConnectionFailureType(code)
                : ConnectionFailureType(code, new Sip::SipConnectionFailureType(row.m_uiDetail));
        EXPECT_EQ(Sip::getResponseCode(ConnectionFailureType(failure)), row.m_uiStatus) << row.m_iFailure;
    }
    EXPECT_EQ(Sip::getResponseCode(Call::eCONNECTION_VOICE), 200U);
    EXPECT_EQ(Sip::getResponseCode(Call::eCONNECTION_HUNG_UP_BEFORE_ANSWER), 403U);
}

TEST(Sip, transferProgressIsToldInFragments)
{
    Sip::NotifyData data;
    ASSERT_TRUE(Sip::getNotifyData(100U, data));
    EXPECT_EQ(data.m_strFragment, "SIP/2.0 100 Trying\r\n");
    EXPECT_EQ(data.m_strSubscriptionState, "active;expires=60");
    ASSERT_TRUE(Sip::getNotifyData(200U, data));
    EXPECT_EQ(data.m_strFragment, "SIP/2.0 200 OK\r\n");
    EXPECT_EQ(data.m_strSubscriptionState, "terminated;reason=noresource");
    ASSERT_TRUE(Sip::getNotifyData(ConnectionFailureType(eBUSY_FAILURE), data));
    EXPECT_EQ(data.m_strFragment, "SIP/2.0 486 Busy Here\r\n");
    for (const unsigned int bad : {0U, 99U, 700U, 4294967295U})
    {
        EXPECT_FALSE(Sip::getNotifyData(bad, data)) << bad;
    }
    EXPECT_EQ(data.m_strFragment, "SIP/2.0 486 Busy Here\r\n");
}

struct ListenRow
{
    const char* m_szText;
    const char* m_szWritten;  // "": refused
};

TEST(AddressPortTransport, readsListenPorts)
{
    const std::vector<ListenRow> table = {
        {"udp:127.0.0.1:5060",  "udp:127.0.0.1:5060"    },
        {"TCP:127.0.0.1",       "tcp:127.0.0.1:5060"    },
        {"tcp:[::1]:5070",      "tcp:[::1]:5070"        },
        {"udp:[2001:DB8::1]",   "udp:[2001:db8::1]:5060"},
        {"udp:0.0.0.0:0",       "udp:0.0.0.0"           },
        {"udp:::1:5060",        ""                      },
        {"tls:127.0.0.1:5061",  ""                      },
        {"127.0.0.1:5060",      ""                      },
        {"udp:localhost:5060",  ""                      },
        {"udp:127.0.0.1:65536", ""                      },
        {"udp:127.0.0.1:",      ""                      },
        {"udp:127.0.0.1:x",     ""                      },
        {"udp",                 ""                      },
        {"",                    ""                      },
    };
    for (const ListenRow& row : table)
    {
        Sip::AddressPortTransport address;
        std::string error;
        EXPECT_EQ(address.parse(row.m_szText, error), *row.m_szWritten != '\0') << row.m_szText;
        EXPECT_EQ(address.isValid() ? address.getText() : "", row.m_szWritten) << row.m_szText;
        EXPECT_EQ(error.empty(), *row.m_szWritten != '\0') << error;
    }
    EXPECT_EQ(Sip::parseTransportString("Udp").value(), Sip::eUDP);
    EXPECT_FALSE(Sip::parseTransportString("sctp").valid());
    EXPECT_EQ(DsSocketImpl::convertTransport("").value(), Sip::eUDP);
    EXPECT_EQ(DsSocketImpl::convertTransport("tcp").value(), Sip::eTCP);
    EXPECT_FALSE(DsSocketImpl::convertTransport("tls").valid());
}

struct URIRow
{
    const char* m_szURI;
    bool m_bRequest;
    bool m_bAddress;
};

TEST(MySipUtils, tellsWhatMayStandWhere)
{
    const std::vector<URIRow> table = {
        {"sip:bob@host",                 true,  true },
        {"sips:host:5061;transport=tcp", true,  true },
        {"sip:bob@host?Subject=x",       false, true },
        {"sip:bob@host;method=INVITE",   false, true },
        {"tel:+123",                     false, true },
        {"sip:undefined",                true,  true },
        {"bob@host",                     false, false},
        {"<sip:bob@host>",               false, false},
        {"sip:",                         false, false},
        {"",                             false, false},
        {"sip:bob@host\r\nX: 1",         false, false},
    };
    for (const URIRow& row : table)
    {
        EXPECT_EQ(MySipUtils::sIsValidRequestURI(row.m_szURI), row.m_bRequest) << row.m_szURI;
        EXPECT_EQ(MySipUtils::sIsValidToHeader(row.m_szURI), row.m_bAddress) << row.m_szURI;
        EXPECT_EQ(MySipUtils::sIsValidFromHeader(row.m_szURI), row.m_bAddress) << row.m_szURI;
    }
    const auto invite = makeDs<DsSipInviteMessage>("sip:a@b");
    invite->setBody(std::string_view("a\0b", 3), "text/plain");
    EXPECT_EQ(MySipUtils::serializeSipMsgBody(invite), std::string("a\0b", 3));
    EXPECT_EQ(MySipUtils::serializeSipMsgBody(nullptr), "");
}

}  // namespace
}  // namespace Quorvex
