#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "sipstack/DsException.h"
#include "sipstack/DsSipURL.h"

namespace Quorvex
{
namespace
{

struct Comparison
{
    const char* m_szLeft;
    const char* m_szRight;
    bool m_bEqual;
};

// The examples of RFC 3261 section 19.1.4, and the rules between them.
TEST(DsSipURL, comparesAsTheStandardSays)
{
    const std::vector<Comparison> table = {
        {"sip:%61lice@atlanta.com;transport=TCP",                                "sip:alice@AtLanTa.CoM;Transport=tcp",          true },
        {"sip:carol@chicago.com",                                                "sip:carol@chicago.com;newparam=5",             true },
        {"sip:carol@chicago.com",                                                "sip:carol@chicago.com;security=on",            true },
        {"sip:carol@chicago.com;newparam=5",                                     "sip:carol@chicago.com;security=on",            true },
        {"sip:biloxi.com;transport=tcp;method=REGISTER?to=sip:bob%40biloxi.com",
         "sip:biloxi.com;method=REGISTER;transport=tcp?to=sip:bob%40biloxi.com",                                                 true },
        {"sip:alice@atlanta.com?subject=project%20x&priority=urgent",
         "sip:alice@atlanta.com?priority=urgent&subject=project%20x",                                                            true },
        {"SIP:ALICE@AtLanTa.CoM;Transport=udp",                                  "sip:alice@AtLanTa.CoM;Transport=UDP",          false},
        {"sip:bob@biloxi.com",                                                   "sip:bob@biloxi.com:5060",                      false},
        {"sip:bob@biloxi.com",                                                   "sip:bob@biloxi.com;transport=udp",             false},
        {"sip:bob@biloxi.com",                                                   "sip:bob@biloxi.com:6000;transport=tcp",        false},
        {"sip:carol@chicago.com",                                                "sip:carol@chicago.com?Subject=next%20meeting", false},
        {"sip:bob@phone21.boxesbybob.com",                                       "sip:bob@192.0.2.4",                            false},
        {"sip:carol@chicago.com;security=on",                                    "sip:carol@chicago.com;security=off",           false},
        {"sip:a@b;maddr=239.255.255.1",                                          "sip:a@b",                                      false},
        {"sip:a@b;user=phone",                                                   "sip:a@b",                                      false},
        {"sip:a@b;ttl=1",                                                        "sip:a@b;ttl=2",                                false},
        {"sip:a@b;lr",                                                           "sip:a@b",                                      true },
        {"sip:a@b",                                                              "sips:a@b",                                     false},
        {"sip:a@b",                                                              "sip:b",                                        false},
        {"sip:a:secret@b",                                                       "sip:a@b",                                      false},
        {"sip:a%3Bb@c",                                                          "sip:a;b@c",                                    false},
        {"sip:a%3bb@c",                                                          "sip:a%3Bb@c",                                  true },
        {"sip:[2001:db8::1]:5060",                                               "sip:[2001:DB8::1]:5060",                       true },
        {"tel:+1-201",                                                           "TEL:+1-201",                                   true },
        {"tel:+1-201",                                                           "sip:+1-201@x",                                 false},
    };
    for (const Comparison& row : table)
    {
        const DsSipURL left(row.m_szLeft);
        const DsSipURL right(row.m_szRight);
        EXPECT_EQ(left == right, row.m_bEqual) << row.m_szLeft << " / " << row.m_szRight;
        EXPECT_EQ(right == left, row.m_bEqual) << row.m_szRight << " / " << row.m_szLeft;
        EXPECT_EQ(left.compareWith(right) == 0, row.m_bEqual) << row.m_szLeft << " / " << row.m_szRight;
        if (row.m_bEqual)
        {
            EXPECT_EQ(left.hashCode(), right.hashCode()) << row.m_szLeft << " / " << row.m_szRight;
        }
    }
}

TEST(DsSipURL, changesShowInTheText)
{
    DsSipURL url("a b", "::1", 5070);
    EXPECT_EQ(url.getText(), "sip:a%20b@[::1]:5070");
    url.setTransportParam("tcp");
    url.setTransportParam("udp");
    url.setParameter("lr", "");
    url.addHeader("To", "<sip:x@y>\r\nEvil: 1");
    const std::unique_ptr<DsSipURL> copy(new DsSipURL(url));
    EXPECT_EQ(copy->getText(), "sip:a%20b@[::1]:5070;transport=udp;lr?To=%3Csip:x%40y%3E%0D%0AEvil:%201");
    url.clearHeaders();
    url.clearParameters();
    url.setUser("");
    url.setPort(0);
    url.setHost("host.example");
    EXPECT_EQ(url.getText(), "sip:host.example");
    EXPECT_THROW(url.setHost("no host"), DsException);
}

TEST(DsSipURL, refusesWhatIsNoURI)
{
    const std::string longUser = "sip:" + std::string(100000, 'a') + "@b";
    EXPECT_EQ(DsSipURL(longUser).getText(), longUser);
    const std::vector<std::string> table = {
        "",
        "sip:",
        "bob@host",
        "sip:@host",
        "sip:bob@",
        "sip:bob@host:0",
        "sip:h:",
        "sip:h:65536",
        "sip:h:-1",
        "sip:h:99999999999",
        "sip:h:5060x",
        "sip:[::1",
        "sip:[::g]",
        "sip:::1",
        "sip:a b@c",
        "sip:a@b c",
        "sip:<a@b>",
        "sip:%zz@host",
        "sip:%4@h",
        "sip:a@b;=1",
        "sip:a@b?x",
        "sip:a@b?=1",
        "1sip:a@b",
        "sip:a@b;p=%g1",
        "sip:a@b/c",
        "://",
        "sip :a@b",
        "sip:a@[::1]x",
        "sip:a\"@b",
        std::string("sip:a\0@b", 8),
        "sip:a@b\nc",
        "sip:a@b@c",
        "sip:a@b?x=%q1",
        "sip:a@;x",
        "sip:a@b:5;t=\"",
    };
    for (const std::string& text : table)
    {
        EXPECT_THROW(DsSipURL{text}, DsException) << text;
        EXPECT_TRUE(DsSipURL::parse(text).isNil()) << text;
    }
    std::string many = "sip:a@b";
    std::string headers = "sip:a@b?";
    for (int i = 0; i < 30000; ++i)
    {
        many.append(";p");
        headers.append("h=1&");
    }
    EXPECT_THROW(DsSipURL{many}, DsException);
    EXPECT_THROW(DsSipURL{headers}, DsException);
    EXPECT_TRUE(DsSipURL::parse("tel:123").isNil());
    EXPECT_FALSE(DsSipURL::parse(" sip:a@b ").isNil());
}

}  // namespace
}  // namespace Quorvex
