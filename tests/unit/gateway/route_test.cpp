#include "gateway/Route.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "calleng/CallLegInfo.h"
#include "infra/TomlConfiguration.h"

namespace Quorvex
{
namespace
{

bool read(RouteTable& out_routes, const std::string& in_strConfig, std::string& out_strError)
{
    const auto hConfig = TomlConfiguration::parse(in_strConfig, "test", out_strError);
    return !hConfig.isNull() && out_routes.read(hConfig->getTrie(), testing::TempDir(), out_strError);
}

TEST(RouteTableTest, TheFirstRouteWhoseExpressionsAreAllFoundDecides)
{
    RouteTable routes;
    std::string strError;
    ASSERT_TRUE(
        read(routes,
             "[[route]]\nname = \"both\"\nservice = \"echo\"\n"
             "match = { \"sip.in.requestUri\" = \"^sip:a@\", \"sip.in.from.uri\" = \"vip\" }\n"
             "[[route]]\nname = \"part\"\nservice = \"echo\"\nmatch = { \"sip.in.requestUri\" = \"a\" }\n"
             "[[route]]\nname = \"header\"\nservice = \"echo\"\n"
             "match = { \"sip.in.header.X-Trunk\" = \"^[0-9]+$\" }\n",
             strError))
        << strError;
    const struct
    {
        const char* m_szUri;
        const char* m_szFrom;
        const char* m_szTrunk;
        const char* m_szRoute;
    } cases[] = {
        {"sip:a@x",         "sip:vip@y", "",    "both"  },
        {"sip:a@x",         "sip:me@y",  "",    "part"  },
        {"sip:b@a.example", "sip:me@y",  "7",   "part"  },
        {"sip:b@x",         "sip:vip@y", "42",  "header"},
        {"sip:b@x",         "sip:vip@y", "42b", ""      },
        {"sip:b@x",         "sip:vip@y", "",    ""      },
    };
    for (const auto& test : cases)
    {
        CallLegInfo leg;
        leg.setParameter("sip.in.requestUri", test.m_szUri);
        leg.setParameter("sip.in.from.uri", test.m_szFrom);
        if (*test.m_szTrunk != '\0')
        {
            leg.setParameter("sip.in.header.X-Trunk", test.m_szTrunk);
        }
        const Route* pRoute = routes.find(leg);
        EXPECT_EQ(pRoute == nullptr ? "" : pRoute->getName(), test.m_szRoute)
            << test.m_szUri << ' ' << test.m_szFrom;
    }
    CallLegInfo hostile;
    hostile.setParameter("sip.in.requestUri", "sip:" + std::string(1'000'000, 'a'));
    EXPECT_EQ(routes.find(hostile), nullptr)
        << "what a far end sends must not choose the depth of the search";
}

TEST(RouteTableTest, MistakesNameTheRouteTheOptionAndWhatWasExpected)
{
    const std::string strText =
        testing::TempDir() + "quorvex-route-test-" + std::to_string(getpid()) + ".txt";
    std::ofstream(strText) << "this is not audio";
    const std::string strHead = "[[route]]\nname = \"r\"\nmatch = { \"sip.in.requestUri\" = \"x\" }\n";
    const struct
    {
        std::string m_strConfig;
        std::string m_strError;
    } cases[] = {
        {"route = 1",                                                      "route: a list of tables is expected ([[route]], with two brackets)"},
        {"[route]\nservice = \"echo\"",                                    "route: a list of tables is expected ([[route]], with two brackets)"},
        {"[[route]]\nservice = \"echo\"",                                  "route 1: match: is missing"                                        },
        {strHead + "service = \"echo\"\n[[route]]\nmatch = { a = \"x\" }", "route 2: service: is missing"                                      },
        {"[[route]]\nname = \"r\"\nmatch = \"x\"\nservice = \"echo\"",
         "match: a table of leg keys is expected"                                                                                              },
        {"[[route]]\nname = \"r\"\nmatch = { a = 7 }\nservice = \"echo\"",
         "match: a: a regular expression (a string)"                                                                                           },
        {strHead + "service = \"sing\"",
         "service: echo, play, tone, ring or reject is expected, not \"sing\""                                                                 },
        {strHead + "service = \"echo\"\nanswerAfter = 1",
         "answerAfter: unknown option; the nearest known one is answerAfterMs"                                                                 },
        {strHead + "service = \"echo\"\nanswerAfterMs = -1",               "answerAfterMs: an integer from 0 to 86400000"                      },
        {strHead + "service = \"echo\"\nhangupAfterMs = 99999999999",
         "hangupAfterMs: an integer from 0 to 86400000"                                                                                        },
        {strHead + "service = \"echo\"\nprogress = 1",                     "progress: true or false is expected"                               },
        {strHead + "service = \"reject\"\nreject = 200",                   "reject: a status code from 400 to 699, or busy, "                  },
        {strHead + "service = \"reject\"\nreject = \"bussy\"",
         "reject: a status code from 400 to 699, or busy, "                                                                                    },
        {strHead + "service = \"play\"",                                   "file: is missing"                                                  },
        {strHead + "service = \"play\"\nfile = \"not-there.wav\"",
         "not-there.wav cannot be read; a WAV file is expected"                                                                                },
        {strHead + "service = \"play\"\nfile = \"" + strText + "\"",       ".txt is no WAV file; one is expected"                              },
        {strHead + "service = \"tone\"\ntone = \"loud\"",                  "tone: the name of a tone is expected"                              },
    };
    for (const auto& test : cases)
    {
        RouteTable routes;
        std::string strError;
        EXPECT_FALSE(read(routes, test.m_strConfig, strError)) << test.m_strConfig;
        EXPECT_NE(strError.find(test.m_strError), std::string::npos) << test.m_strConfig << "\n" << strError;
        EXPECT_EQ(strError.find('\n'), std::string::npos) << strError;
    }
    std::filesystem::remove(strText);
}

}  // namespace
}  // namespace Quorvex
