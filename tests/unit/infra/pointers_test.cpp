#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "infra/CountedObjPtr.h"
#include "infra/Handle.h"
#include "infra/RegistrationSingleton.h"
#include "infra/UUID.h"
#include "quorvex/CloneableObjPtr.h"
#include "quorvex/CountedClass.h"

using namespace Quorvex;

namespace
{

struct Base
{
    explicit Base(int& io_iDeleted) : m_iDeleted(io_iDeleted) {}
    Base(const Base&) = delete;
    Base& operator=(const Base&) = delete;
    virtual ~Base() { ++m_iDeleted; }
    int& m_iDeleted;
};

struct Derived : Base
{
    using Base::Base;
};

}  // namespace

template <class RC>
class CountedObjPtrTest : public ::testing::Test
{
};
using Counts = ::testing::Types<ReferenceCount, TSReferenceCount>;
TYPED_TEST_SUITE(CountedObjPtrTest, Counts);

TYPED_TEST(CountedObjPtrTest, LastPointerOfAnyClassDeletesOnce)
{
    int deleted = 0;
    {
        CountedObjPtr<Derived, TypeParam> pDerived(new Derived(deleted));
        EXPECT_TRUE(pDerived.unique());
        CountedObjPtr<Base, TypeParam> pBase = pDerived;
        EXPECT_FALSE(pDerived.unique());
        auto pBack = pBase.template dynamicCast<Derived>();
        EXPECT_EQ(pBack.get(), pDerived.get());
        pDerived.reset();
        pBase = CountedObjPtr<Base, TypeParam>(pBase);  // assignment of itself through a copy
        CountedObjPtr<Base, TypeParam> pMoved = std::move(pBase);
        pBack.reset();
        EXPECT_TRUE(pMoved.unique());
        EXPECT_EQ(deleted, 0);
    }
    EXPECT_EQ(deleted, 1);
}

TEST(HandleTest, ThreadsShareAnObject)
{
    int deleted = 0;
    TSHandle<Base> hShared(new Base(deleted));
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back(
            [hShared]
            {
                for (int j = 0; j < 10000; ++j)
                {
                    const TSHandle<Base> hCopy = hShared;
                    ASSERT_FALSE(hCopy.isNull());
                }
            });
    }
    hShared.reset();
    for (auto& thread : threads)
    {
        thread.join();
    }
    threads.clear();
    EXPECT_EQ(deleted, 1);
}

namespace
{

struct Detail : virtual Cloneable
{
    explicit Detail(int in_iValue) : m_iValue(in_iValue) {}
    Detail* clone() const override { return new Detail(*this); }
    int m_iValue;
};

struct Single : MaxCountClass<Single, 1>
{
};

}  // namespace

TEST(RegistrationSingletonTest, NameIsTakenUntilDeregistered)
{
    auto& singleton = RegistrationSingleton::instance();
    TSHandle<Object> hFirst(new Detail(1));
    TSHandle<Object> hSecond(new Detail(2));
    EXPECT_FALSE(singleton.registerInstance("test", TSHandle<Object>()));
    EXPECT_TRUE(singleton.registerInstance("test", hFirst));
    EXPECT_FALSE(singleton.registerInstance("test", hSecond));
    EXPECT_EQ(singleton.lookup("test").get(), hFirst.get());
    EXPECT_TRUE(singleton.deregister("test"));
    EXPECT_FALSE(singleton.deregister("test"));
    EXPECT_TRUE(singleton.lookup("test").isNull());
}

TEST(UUIDTest, IsRandomVersion4)
{
    const std::string a = UUID().toString();
    const std::string b = UUID().toString();
    EXPECT_NE(a, b);
    ASSERT_EQ(a.size(), 36U);
    EXPECT_EQ(a[14], '4');
    EXPECT_NE(std::string("89ab").find(a[19]), std::string::npos);
    EXPECT_EQ(a.find_first_not_of("0123456789abcdef-"), std::string::npos);
}
