#include "dynlib_product.h"
#include "infra/Handle.h"
#include "infra/ROConfiguration.h"

extern "C" int LoadMethod(DynlibTest::Product**, const Quorvex::TSHandle<Quorvex::ROConfiguration>&)
{
    return 0;
}
