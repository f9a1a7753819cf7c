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

TEST(DsHandle, keepsItsObjectForAsLongAsItIsHeld)
{
    const std::uint64_t before = MemAccounts::get("DsSipMessage").liveObjects();
    {
        const auto invite = makeDs<DsSipInviteMessage>("sip:a@b");
        DsHandle<DsSipMessage> message = invite;
        EXPECT_EQ(invite->getRefCount(), 2U);
        EXPECT_TRUE(message == invite);
        EXPECT_FALSE(dsDynamicCast<DsSipInviteMessage>(message).isNil());
        EXPECT_TRUE(dsDynamicCast<DsSipResponse>(message).isNil());
        message = message;  // NOLINT(clang-diagnostic-self-assign-overloaded): on purpose
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i)
        {
            threads.emplace_back(
                [message]
                {
                    for (int n = 0; n < 10000; ++n)
                    {
                        const DsHandle<DsSipMessage> copy = message;
                    }
                });
        }
        for (std::thread& thread : threads)
        {
            thread.join();
        }
        EXPECT_EQ(invite->getRefCount(), 2U);
        EXPECT_EQ(MemAccounts::get("DsSipMessage").liveObjects(), before + 1);
    }
    EXPECT_EQ(MemAccounts::get("DsSipMessage").liveObjects(), before);
    std::ostringstream text;
    text << DsHandle<DsSipMessage>() << " " << DsException("why");
    EXPECT_EQ(text.str(), "nil why");
}

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
