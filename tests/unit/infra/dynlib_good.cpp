#include "dynlib_product.h"
#include "infra/Handle.h"
#include "infra/ROConfiguration.h"

namespace
{

class Made : public DynlibTest::Product
{
public:
    explicit Made(int in_iAnswer) : m_iAnswer(in_iAnswer) {}
    int answer() const override { return m_iAnswer; }

private:
    int m_iAnswer;
};

}  // namespace

extern "C" int LoadMethod(DynlibTest::Product** out_ppProduct,
                          const Quorvex::TSHandle<Quorvex::ROConfiguration>& in_hConfig)
{
    *out_ppProduct = new Made(static_cast<int>(in_hConfig->getIntegerOr("answer", 0)));
    return 0;
}
