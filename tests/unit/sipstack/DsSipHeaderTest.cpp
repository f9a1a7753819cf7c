#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sipstack/DsException.h"
#include "sipstack/DsSipHeaders.h"

namespace Quorvex
{
namespace
{

struct AddressRow
{
    const char* m_szValue;
    const char* m_szDisplayName;
    const char* m_szURI;  // "" when there is no URL
    const char* m_szTag;
    const char* m_szText;  // written anew
};

TEST(DsSipAddressHeaders, readEveryFormOfAnAddress)
{
    const std::vector<AddressRow> table = {
        {"sip:bob@b",                         "",               "sip:bob@b",    "",  "<sip:bob@b>"                       },
        {"sip:bob@b;tag=1",                   "",               "sip:bob@b",    "1", "<sip:bob@b>;tag=1"                 },
        {"<sip:bob@b;lr>;tag=1",              "",               "sip:bob@b;lr", "1", "<sip:bob@b;lr>;tag=1"              },
        {"Bob <sip:bob@b>;TAG=x;y",           "Bob",            "sip:bob@b",    "x", "\"Bob\" <sip:bob@b>;TAG=x;y"       },
        {"Bob  the Great <sip:bob@b>",        "Bob  the Great", "sip:bob@b",    "",  "\"Bob  the Great\" <sip:bob@b>"    },
        {"\"a \\\"b\\\" <c>, d\"<sip:bob@b>",
         "a \"b\" <c>, d",                                      "sip:bob@b",
         "",                                                                         "\"a \\\"b\\\" <c>, d\" <sip:bob@b>"},
        {"\"\" <sip:bob@b>",                  "",               "sip:bob@b",    "",  "<sip:bob@b>"                       },
        {"<tel:+1;ext=2>",                    "",               "tel:+1;ext=2", "",  "<tel:+1;ext=2>"                    },
        {"<bob@b>;tag=2",                     "",               "",             "2", "<bob@b>;tag=2"                     },
        {"\xc3\x84rger <sip:a@b>",            "\xc3\x84rger",   "sip:a@b",      "",  "\"\xc3\x84rger\" <sip:a@b>"        },
        {" \t<sip:a@b> ; tag = z ",           "",               "sip:a@b",      "z", "<sip:a@b>;tag=z"                   },
    };
    for (const AddressRow& row : table)
    {
        DsSipToHeader header{std::string_view(row.m_szValue)};
        EXPECT_EQ(header.getDisplayName(), row.m_szDisplayName) << row.m_szValue;
        EXPECT_EQ(header.getURL().isNil() ? DsString() : header.getURL()->getText(), row.m_szURI)
            << row.m_szValue;
        EXPECT_EQ(header.getTag(), row.m_szTag) << row.m_szValue;
        header.setNameAddress(header.getNameAddress());
        EXPECT_EQ(header.getValueText(), row.m_szText) << row.m_szValue;
    }
    for (const char* const bad : {"\"Bob <sip:b@c>",
                                  "Bob <sip:b@c",
                                  "\"Bob\" sip:b@c",
                                  "<sip:b@c> x",
                                  "<sip:b@c>;=1",
                                  "<sip:b@c>;tag=\"x"})
    {
        EXPECT_THROW(DsSipToHeader{std::string_view(bad)}, DsException) << bad;
    }
}

struct ViaRow
{
    const char* m_szValue;
    const char* m_szTransport;
    const char* m_szHost;
    unsigned int m_uiPort;
};

TEST(DsSipViaHeader, readsWhatTheWorldSends)
{
    const std::vector<ViaRow> table = {
        {"SIP/2.0/UDP a.example:5070;branch=z9hG4bKx",                      "UDP",  "a.example",         5070},
        {"SIP / 2.0 / TCP first.example.com: 4000;ttl=16 ;branch=z9hG4bKx", "TCP",  "first.example.com", 4000},
        {"sip/2.0/tls [2001:db8::1];branch=z9hG4bKx;rport",                 "tls",  "[2001:db8::1]",     0   },
        {"SIP/2.0/SCTP\t[::1]:5;branch=z9hG4bKx",                           "SCTP", "[::1]",             5   },
    };
    for (const ViaRow& row : table)
    {
        const DsSipViaHeader via{std::string_view(row.m_szValue)};
        EXPECT_EQ(via.getTransport(), row.m_szTransport) << row.m_szValue;
        EXPECT_EQ(via.getHost(), row.m_szHost) << row.m_szValue;
        EXPECT_EQ(via.getPort(), row.m_uiPort) << row.m_szValue;
        EXPECT_EQ(via.getBranch(), "z9hG4bKx") << row.m_szValue;
    }
    for (const char* const bad : {"",
                                  "SIP/2.0",
                                  "SIP/2.0/UDP",
                                  "SIP/2.0/UDP :5060",
                                  "SIP/3.0/UDP a",
                                  "SIP/2.0/UDP a:0",
                                  "SIP/2.0/UDP a:65536",
                                  "SIP/2.0/UDP a b",
                                  "SIP/2.0/UDP a:",
                                  "X/2.0/UDP a",
                                  "SIP/2.0/U DP a"})
    {
        EXPECT_THROW(DsSipViaHeader{std::string_view(bad)}, DsException) << bad;
    }
    DsSipViaHeader via{std::string_view("SIP/2.0/UDP a;branch=old;rport")};
    via.setBranchRFC3261();
    const std::string first = via.getBranch();
    via.setBranchRFC3261();
    EXPECT_TRUE(first.starts_with("z9hG4bK"));
    EXPECT_NE(first, via.getBranch());
    EXPECT_EQ(via.getValueText(), "SIP/2.0/UDP a;branch=" + via.getBranch() + ";rport");
}

struct NumberRow
{
    const char* m_szName;
    const char* m_szValue;
    bool m_bGood;
};

TEST(DsSipHeader, everyNumberIsChecked)
{
    const std::vector<NumberRow> table = {
        {"CSeq",            "4294967295 INVITE",                true },
        {"CSeq",            "0 \t INVITE",                      true },
        {"CSeq",            "4294967296 INVITE",                false},
        {"CSeq",            "-1 INVITE",                        false},
        {"CSeq",            "1",                                false},
        {"CSeq",            "1 IN(VITE",                        false},
        {"CSeq",            "1 INVITE x",                       false},
        {"RAck",            "1 2 INVITE",                       true },
        {"RAck",            "1 INVITE",                         false},
        {"RAck",            "1 99999999999 INVITE",             false},
        {"Max-Forwards",    "70",                               true },
        {"Max-Forwards",    "seventy",                          false},
        {"Content-Length",  "18446744073709551616",             false},
        {"Content-Length",  "",                                 false},
        {"Expires",         "+5",                               false},
        {"Session-Expires", "1800;refresher=uac",               true },
        {"Session-Expires", "1800 refresher=uac",               false},
        {"Retry-After",     "120 (in a meeting);duration=3600", true },
        {"Retry-After",     "18000 (unclosed",                  false},
        {"RSeq",            "0x10",                             false},
        {"Min-SE",          "90",                               true },
    };
    for (const NumberRow& row : table)
    {
        if (row.m_bGood)
        {
            EXPECT_NO_THROW(DsSipHeader::create(row.m_szName, row.m_szValue))
                << row.m_szName << ": " << row.m_szValue;
        }
        else
        {
            EXPECT_THROW(DsSipHeader::create(row.m_szName, row.m_szValue), DsException)
                << row.m_szName << ": " << row.m_szValue;
        }
    }
    const DsSipSessionExpiresHeader timer{std::string_view("1800;refresher=uac")};
    EXPECT_EQ(timer.getNumber(), 1800U);
    EXPECT_EQ(timer.getRefresher(), "uac");
}

struct NameRow
{
    const char* m_szName;
    int m_iID;
};

TEST(DsSipHeader, knowsNamesInEveryForm)
{
    // These five numbers are known outside the layer.
    const std::vector<NameRow> table = {
        {"Call-ID",    1 },
        {"i",          1 },
        {"CALL-id",    1 },
        {"Contact",    4 },
        {"m",          4 },
        {"M",          4 },
        {"From",       5 },
        {"f",          5 },
        {"To",         6 },
        {"t",          6 },
        {"User-Agent", 18},
        {"X-Anything", 55},
        {"Accept",     55},
        {"Call-IDs",   55},
        {"z",          55},
        {"Subject",    55},
        {"",           55},
    };
    for (const NameRow& row : table)
    {
        EXPECT_EQ(DsSipHeader::getIDFromName(row.m_szName), row.m_iID) << row.m_szName;
    }
    EXPECT_EQ(DsSipHeader::getNameFromID(18), "User-Agent");
    EXPECT_EQ(DsSipHeader::getNameFromID(55), "");
    EXPECT_EQ(DsSipHeader::create("t", "<sip:a@b>")->getText(), "t: <sip:a@b>");
}

TEST(DsSipHeader, valuesWithParameters)
{
    const DsSipContentTypeHeader type{std::string_view("Application/SDP ; charset=\"a;b\"")};
    EXPECT_EQ(type.getMediaType(), "Application/SDP");
    EXPECT_EQ(type.getParameter("CHARSET"), "a;b");
    const DsSipReplacesHeader replaces{
        std::string_view("98732@sip.example.com\r\n ;from-tag=r33th4x0r;to-tag=ff87ff;early-only")};
    EXPECT_EQ(replaces.getCallID(), "98732@sip.example.com");
    EXPECT_EQ(replaces.getFromTag(), "r33th4x0r");
    EXPECT_EQ(replaces.getToTag(), "ff87ff");
    EXPECT_TRUE(replaces.isEarlyOnly());
    EXPECT_THROW(DsSipEventHeader{std::string_view(";id=1")}, DsException);
    EXPECT_THROW(DsSipEventHeader{std::string_view("refer;id=\"1")}, DsException);

    const DsSipAllowHeader allow{std::string_view("INVITE,\tACK , BYE,,")};
    EXPECT_EQ(allow.getTokens().size(), 3U);
    EXPECT_TRUE(allow.contains("bye"));
    EXPECT_EQ(DsSipUserAgentHeader("Gate", "1.2").getText(), "User-Agent: Gate/1.2");
    EXPECT_EQ(DsSipUserAgentHeader("Gate", "").getValue(), "Gate");
    EXPECT_EQ(DsSipDateHeader{std::string_view("Sat, 13 Nov 2010 23:29:00 GMT")}.getTime(), 1289690940);
    EXPECT_FALSE(DsSipDateHeader{std::string_view("yesterday")}.getTime().has_value());
}

}  // namespace
}  // namespace Quorvex
