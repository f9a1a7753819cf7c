#include <gtest/gtest.h>

#include "sipstack/DsSipDigest.h"
#include "sipstack/DsSipMessage.h"

namespace Quorvex
{
namespace
{

std::string responseOf(const std::string& in_strValue)
{
    const std::string key = ", response=\"";
    const std::size_t begin = in_strValue.find(key);
    return begin == std::string::npos
               ? std::string()
               : in_strValue.substr(begin + key.size(),
                                    in_strValue.find('"', begin + key.size()) - begin - key.size());
}

struct Vector
{
    const char* m_szChallenge;
    const char* m_szMethod;
    const char* m_szURI;
    DsSipCredential m_credential;
    const char* m_szClientNonce;
    const char* m_szResponse;  // "": cannot be answered
};

TEST(DsSipDigest, givesThePublishedResults)
{
    const DsSipCredential mufasa{"", "Mufasa", "Circle of Life"};
    const std::vector<Vector> table = {
  // RFC 7616 section 3.9.1.
        {"Digest realm=\"http-auth@example.org\", qop=\"auth, auth-int\", algorithm=SHA-256, "
         "nonce=\"7ypf/xlj9XXwfDPEoM4URrv/xwf94BcCAzFZH4GiTo0v\", "
         "opaque=\"FQhe/qaU925kfnzjCev0ciny7QMkPqMAFRtzCUYo5tdS\"",                                         "GET",
         "/dir/index.html",                                                                                                                    mufasa,
         "f2/wE4q74E6zIJEtWaHKaf5wv/H5QzzpXusqGemxURZJ",                                                                                                                              "753927fa0e85d155564e2e272a28d1802ca10daf4496794697cf8db5856cb6c1"},
        {"Digest realm=\"http-auth@example.org\", qop=\"auth, auth-int\", algorithm=MD5, "
         "nonce=\"7ypf/xlj9XXwfDPEoM4URrv/xwf94BcCAzFZH4GiTo0v\", "
         "opaque=\"FQhe/qaU925kfnzjCev0ciny7QMkPqMAFRtzCUYo5tdS\"",                                         "GET",
         "/dir/index.html",                                                                                                                    mufasa,
         "f2/wE4q74E6zIJEtWaHKaf5wv/H5QzzpXusqGemxURZJ",                                                                                                                              "8ca523f5e9506fed4657c9700eebdbec"                                },
 // RFC 2617 section 3.5.
        {"Digest "
         "realm=\"testrealm@host.com\",qop=\"auth,auth-int\",nonce=\"dcd98b7102dd2f0e8b11d0f600bfb0c093\"", "GET",
         "/dir/index.html",                                                                                                                    {"", "Mufasa", "Circle Of Life"},
         "0a4f113b",                                                                                                                                                                  "6629fae49393a05397450978507c4ef1"                                },
 // The older form, without qop (RFC 2069, as corrected).
        {"Digest realm=\"testrealm@host.com\", nonce=\"dcd98b7102dd2f0e8b11d0f600bfb0c093\"",
         "GET",                                                                                                             "/dir/index.html",
         {"", "Mufasa", "CircleOfLife"},
         "",                                                                                                                                                                          "1949323746fe6a43ef61f9606e7febea"                                },
        {"Digest realm=\"r\", nonce=\"n\", qop=\"auth-int\"",                                                        "GET", "/",               mufasa,                           "c", ""                                                                },
        {"Digest realm=\"r\", nonce=\"n\", algorithm=SHA-512-256",                                                   "GET", "/",               mufasa,                           "c", ""                                                                },
    };
    for (const Vector& row : table)
    {
        DsSipDigest::Challenge challenge;
        ASSERT_TRUE(DsSipDigest::Challenge::parse(row.m_szChallenge, challenge)) << row.m_szChallenge;
        const std::string value = DsSipDigest::makeValue(
            challenge, row.m_szMethod, row.m_szURI, row.m_credential, row.m_szClientNonce);
        EXPECT_EQ(responseOf(value), row.m_szResponse) << value;
    }
    for (const char* const bad :
         {"", "Basic realm=\"x\"", "Digest nonce=\"x\"", "Digest realm=\"x\"", "Digest realm", "Digest \""})
    {
        DsSipDigest::Challenge challenge;
        EXPECT_FALSE(DsSipDigest::Challenge::parse(bad, challenge)) << bad;
    }
}

TEST(DsSipDigest, answersEachRealmWithItsCredentials)
{
    const auto response = DsSipMessage::parse(
                              "SIP/2.0 407 Proxy Authentication Required\r\n"
                              "Proxy-Authenticate: Digest realm=\"a\", nonce=\"n1\", algorithm=MD5\r\n"
                              "Proxy-Authenticate: Digest realm=\"a\", nonce=\"n2\", algorithm=SHA-256, "
                              "qop=\"auth\", opaque=\"\"\r\n"
                              "Proxy-Authenticate: Digest realm=\"b\", nonce=\"n3\", stale=TRUE\r\n"
                              "Proxy-Authenticate: Digest realm=\"c\", nonce=\"n4\"\r\n"
                              "WWW-Authenticate: Digest realm=\"d\", nonce=\"n5\"\r\n\r\n")
                              .dynamicCast<DsSipResponse>();
    const std::vector<DsSipCredential> credentials = {
        {"a", "ua",   "pa"},
        {"b", "u\"b", "pb"}
    };
    const auto answers = DsSipDigest::answer(*response, "INVITE", "sip:x", credentials);
    ASSERT_EQ(answers.size(), 2U);
    EXPECT_EQ(answers[0].m_strName, "Proxy-Authorization");
    EXPECT_EQ(answers[0].m_strNonce, "n2");
    EXPECT_NE(answers[0].m_strValue.find("algorithm=SHA-256"), std::string::npos);
    EXPECT_NE(answers[0].m_strValue.find("qop=auth, nc=00000001"), std::string::npos);
    EXPECT_NE(answers[0].m_strValue.find("opaque=\"\""), std::string::npos);
    EXPECT_EQ(answers[1].m_strNonce, "n3");
    EXPECT_TRUE(answers[1].m_bStale);
    EXPECT_NE(answers[1].m_strValue.find("username=\"u\\\"b\""), std::string::npos);
    EXPECT_EQ(DsSipDigest::answer(*response,
                                  "INVITE",
                                  "sip:x",
                                  {
                                      {"", "u", "p"}
    })
                  .size(),
              3U);
    EXPECT_TRUE(DsSipDigest::answer(*response, "INVITE", "sip:x", {}).empty());
}

}  // namespace
}  // namespace Quorvex
