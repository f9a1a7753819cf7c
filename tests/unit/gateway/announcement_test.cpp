#include "gateway/Announcement.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "infra/TomlConfiguration.h"

namespace Quorvex
{
namespace
{

std::string announce(const std::string& in_strConfig)
{
    std::string strError;
    const auto hConfig = TomlConfiguration::parse(in_strConfig, "test", strError);
    RouteTable routes;
    if (hConfig.isNull() || !routes.read(hConfig->getTrie(), "/", strError))
    {
        ADD_FAILURE() << strError;
        return "";
    }
    return makeAnnouncement(*hConfig, routes);
}

std::string route(const std::string& in_strExpression, const std::string& in_strOptions)
{
    return "[[route]]\nname = \"r\"\nmatch = { \"sip.in.requestUri\" = '" + in_strExpression + "' }\n" +
           in_strOptions + "\n";
}

TEST(AnnouncementTest, SaysWhatAnswersAndWhere)
{
    const std::string strText = announce(
        "[quorvex.sip]\nlisten = [\"udp:127.0.0.1:5060\", \"tcp:127.0.0.1:5062\"]\n"
        "[quorvex.gateway]\nhttpListen = \"127.0.0.1:8080\"\n" +
        route("^sip:echo@", "service = \"echo\"") + route("^sip:[0-9]+@", "service = \"reject\""));
    for (const char* szLine : {"SIP   udp:127.0.0.1:5060, tcp:127.0.0.1:5062  ",
                               "HTTP  http://127.0.0.1:8080/",
                               "\n  sip:echo@127.0.0.1  hears itself\n",
                               "\n  route r  is refused with 486\n"})
    {
        EXPECT_NE(strText.find(szLine), std::string::npos) << szLine << "\n" << strText;
    }
}

TEST(AnnouncementTest, TheAddressToCallIsThatOfTheFirstPort)
{
    const std::string strText =
        announce("[quorvex.sip]\nlisten = [\"tcp:[::1]:5070\"]\n" + route("^sip:a@", "service = \"ring\""));
    EXPECT_NE(strText.find("\n  sip:a@[::1]:5070  rings and is not answered\n"), std::string::npos)
        << strText;
    EXPECT_NE(strText.find("\"make call URI=sip:echo@[::1]:5070\""), std::string::npos) << strText;
    EXPECT_EQ(strText.find("HTTP"), std::string::npos);
}

TEST(AnnouncementTest, TenLinesAtMost)
{
    std::string strConfig = "[quorvex.gateway]\nhttpListen = \"127.0.0.1:8080\"\n";
    for (int i = 0; i < 40; ++i)
    {
        strConfig += route("^sip:a@", "service = \"echo\"");
    }
    const std::string strText = announce(strConfig);
    EXPECT_LE(std::count(strText.begin(), strText.end(), '\n'), 10);
    EXPECT_NE(strText.find("and 35 more routes"), std::string::npos) << strText;
}

}  // namespace
}  // namespace Quorvex
