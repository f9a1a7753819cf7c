#include <gtest/gtest.h>

#include <sstream>
#include <thread>
#include <vector>

#include "infra/MemAccount.h"
#include "sipstack/DsException.h"
#include "sipstack/DsHandle.h"
#include "sipstack/DsInetAddress.h"
#include "sipstack/DsObject.h"
#include "sipstack/DsSipInviteMessage.h"
#include "sipstack/DsSipResponse.h"

namespace Quorvex
{
namespace
{

TEST(DsInetAddress, takesAddressesInEveryForm)
{
    EXPECT_EQ(DsInetAddress("127.0.0.1").getHostAddress(), "127.0.0.1");
    EXPECT_EQ(DsInetAddress("[2001:DB8:0:0::1]").getHostAddress(), "2001:db8::1");
    EXPECT_EQ(DsInetAddress("2001:db8::1", 0, 5060).getText(), "[2001:db8::1]:5060");
    EXPECT_TRUE(DsInetAddress("0.0.0.0").isAny());
    EXPECT_TRUE(DsInetAddress("[::]").isAny());
    EXPECT_FALSE(DsInetAddress().isValid());
    EXPECT_TRUE(DsInetAddress("::1") == DsInetAddress("[0::1]"));
    EXPECT_EQ(DsInetAddress("localhost", 5000).getHostAddress().empty(), false);
    DsInetAddress address;
    for (const char* const bad :
         {"", "[]", "[::1", "1.2.3", "1.2.3.4.5", "256.1.1.1", "::g", "host", "[127.0.0.1", "127.0.0.1 "})
    {
        EXPECT_FALSE(DsInetAddress::parseLiteral(bad, 0, address)) << bad;
    }
    EXPECT_THROW(DsInetAddress("", 10), DsException);
    EXPECT_THROW(DsInetAddress("no-such-host.invalid", 50), DsException);
    EXPECT_THROW(DsInetAddress("host", -1), DsException);
}

}  // namespace
}  // namespace Quorvex
