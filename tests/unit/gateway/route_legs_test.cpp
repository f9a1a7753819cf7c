#include <gtest/gtest.h>

#include "calleng/CallLegInfo.h"
#include "gateway/Route.h"
#include "infra/TomlConfiguration.h"

namespace Quorvex
{
namespace
{

const char* const kHead =
    "[[route]]\nname = \"r\"\nmatch = { \"sip.in.requestUri\" = \"^sip:([0-9])([0-9]*)@\" }\n";

bool read(RouteTable& out_routes, const std::string& in_strOptions, std::string& out_strError)
{
    const auto hConfig = TomlConfiguration::parse(kHead + in_strOptions, "test", out_strError);
    return !hConfig.isNull() && out_routes.read(hConfig->getTrie(), testing::TempDir(), out_strError);
}

TEST(RouteLegsTest, LegsCarryTheRouteTheGroupsAndTheCaller)
{
    RouteTable routes;
    std::string strError;
    ASSERT_TRUE(
        read(routes,
             "legs = [{ \"sip.out.requestUri\" = \"sip:$2-$1@a\", \"sip.out.header.X-Trunk\" = 7, "
             "\"media.rtp.video\" = \"inactive\" }, "
             "{ \"sip.out.requestUri\" = \"sip:fixed@b\", \"sip.out.from.uri\" = \"sip:gw@$1.test\" }]\n",
             strError))
        << strError;
    CallLegInfo call;
    call.setParameter("sip.in.requestUri", "sip:4711@gateway.test");
    call.setParameter("sip.in.from.uri", "sip:alice@example.test");
    call.setParameter("sip.in.from.displayName", "Alice");
    const Route* pRoute = routes.find(call);
    ASSERT_NE(pRoute, nullptr);
    ASSERT_TRUE(pRoute->hasLegs());
    const std::vector<CallLegInfo> vLegs = pRoute->makeLegs(call);
    ASSERT_EQ(vLegs.size(), 2U);
    const struct
    {
        std::size_t m_leg;
        const char* m_szKey;
        const char* m_szValue;
    } cases[] = {
        {0, "sip.out.requestUri",       "sip:711-4@a"           },
        {0, "sip.out.header.X-Trunk",   "7"                     },
        {0, "sip.out.from.uri",         "sip:alice@example.test"},
        {0, "sip.out.from.displayName", "Alice"                 },
        {0, "sip.out.to.displayName",   ""                      },
        {0, "media.rtp.video",          "inactive"              },
        {0, "media.rtp.audio",          ""                      },
        {1, "sip.out.requestUri",       "sip:fixed@b"           },
        {1, "sip.out.from.uri",         "sip:gw@4.test"         },
        {1, "media.rtp.audio",          "sendrecv"              },
    };
    for (const auto& test : cases)
    {
        EXPECT_EQ(vLegs[test.m_leg].getParameterOr(test.m_szKey, ""), test.m_szValue)
            << test.m_leg << ' ' << test.m_szKey;
    }
}

TEST(RouteLegsTest, MistakesSayWhatWasExpected)
{
    const std::pair<const char*, const char*> kCases[] = {
        {"leg = \"sip:x@y\"",                                                  "leg: a table"          },
        {"leg = { \"sip.out.transport\" = \"tcp\" }",                          "\"sip.out.requestUri\""},
        {"legs = []",                                                          "legs: a list of tables"},
        {"legs = [{ \"sip.out.requestUri\" = \"\" }]",                         "\"sip.out.requestUri\""},
        {"leg = { \"sip.out.requestUri\" = \"sip:x@y\" }\nservice = \"echo\"", "one of leg, legs"      },
        {"leg = { \"sip.out.requestUri\" = \"sip:x@y\" }\nhangupAfterMs = -1", "hangupAfterMs"         },
    };
    for (const auto& [szOptions, szExpected] : kCases)
    {
        RouteTable routes;
        std::string strError;
        EXPECT_FALSE(read(routes, szOptions, strError)) << szOptions;
        EXPECT_NE(strError.find(szExpected), std::string::npos) << szOptions << ": " << strError;
    }
}

}  // namespace
}  // namespace Quorvex
