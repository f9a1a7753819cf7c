#include <gtest/gtest.h>

#include "dynlib_product.h"
#include "quorvex/DynlibObjectFactory.h"

using namespace Quorvex;
using Factory = DynlibObjectFactory<DynlibTest::Product>;

namespace
{

std::string library(const char* in_szKind)
{
    return std::string(TEST_LIB_DIR) + "/libinfra_test_" + in_szKind + ".so";
}

TSHandle<ROConfiguration> config()
{
    auto* pConfig = new MapConfiguration;
    pConfig->set("answer", 42);
    pConfig->set("lib", library("good"));
    pConfig->set("number", 1);
    pConfig->set("missing", "libdoes-not-exist.so");
    return TSHandle<ROConfiguration>(pConfig);
}

}  // namespace

TEST(DynlibObjectFactoryTest, ObjectOutlivesFactoryAndKeepsItsLibrary)
{
    DynLibObjPtr<DynlibTest::Product> pProduct;
    {
        Factory factory;
        ASSERT_TRUE(factory.openDynlib(config(), "lib"));
        pProduct = factory.create("LoadMethod", config());
    }
    ASSERT_FALSE(pProduct.isNull());
    const auto hProduct = pProduct.as<DynlibTest::Product>();
    pProduct = DynLibObjPtr<DynlibTest::Product>();
    EXPECT_EQ(hProduct->answer(), 42);
}

TEST(DynlibObjectFactoryTest, EveryFailureGivesNull)
{
    Factory factory;
    EXPECT_TRUE(factory.create("LoadMethod", config()).isNull()) << "nothing opened";
    EXPECT_FALSE(factory.openDynlib(config(), "absent"));
    EXPECT_FALSE(factory.openDynlib(config(), "number"));
    EXPECT_FALSE(factory.openDynlib(config(), "missing"));
    EXPECT_NE(factory.getOpenError(), "");
    ASSERT_TRUE(factory.openDynlib(library("empty")));
    EXPECT_TRUE(factory.create("LoadMethod", config()).isNull()) << "no such symbol";
    ASSERT_TRUE(factory.openDynlib(library("failing")));
    EXPECT_TRUE(factory.create("LoadMethod", config()).isNull()) << "makes nothing";
}

TEST(DynLibTest, NamesAreLookedForInTheSearchFoldersFirst)
{
    std::string error;
    EXPECT_TRUE(DynLib::open("libinfra_test_good.so", error).isNull());
    DynLib::addSearchFolder(TEST_LIB_DIR);
    EXPECT_FALSE(DynLib::open("libinfra_test_good.so", error).isNull()) << error;
}
