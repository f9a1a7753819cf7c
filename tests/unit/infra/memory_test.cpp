#include <gtest/gtest.h>

#include <cstddef>
#include <thread>
#include <vector>

#include "infra/MemAccount.h"
#include "infra/Object.h"

using namespace Quorvex;

namespace
{

class Small : public Object
{
public:
    QUORVEX_MEM_ACCOUNT("test::Small");
    char m_bytes[24];
};

class Larger : public Small
{
    char m_more[100];
};

class Plain : public Object
{
};

struct Throwing
{
    QUORVEX_MEM_ACCOUNT("test::Throwing");
    Throwing() { throw 1; }
};

}  // namespace

TEST(MemAccountTest, ObjectsAreCountedUnderTheirAccountWithTheirOwnSize)
{
    const MemAccount& account = MemAccounts::get("test::Small");
    Object* pSmall = new Small;
    Object* pLarger = new Larger;  // deleted through a base: the size must still be its own
    auto* pArray = new Small[3];
    EXPECT_EQ(account.liveObjects(), 3U);
    EXPECT_GE(account.liveBytes(), sizeof(Small) + sizeof(Larger) + 3 * sizeof(Small));
    delete[] pArray;
    EXPECT_EQ(account.liveBytes(), sizeof(Small) + sizeof(Larger));
    delete pLarger;
    EXPECT_EQ(account.liveBytes(), sizeof(Small));
    delete pSmall;
    EXPECT_EQ(account.liveObjects(), 0U);
    EXPECT_EQ(account.liveBytes(), 0U);
    EXPECT_STREQ(Small::getMemAccountName(), "test::Small");
}

TEST(MemAccountTest, ThreadsChargeOneAccount)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back(
            []
            {
                for (int j = 0; j < 5000; ++j)
                {
                    delete new Small;
                }
            });
    }
    for (auto& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(MemAccounts::get("test::Small").liveObjects(), 0U);
    EXPECT_EQ(MemAccounts::get("test::Small").liveBytes(), 0U);
}
