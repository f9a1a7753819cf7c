#include <gtest/gtest.h>

#include <vector>

#include "sip-common/MySipUtils.h"
#include "sipstack/DsSipInviteMessage.h"

namespace Quorvex
{
namespace
{

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
