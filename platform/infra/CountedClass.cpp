#include "quorvex/CountedClass.h"

#include "infra/Assertion.h"

namespace Quorvex
{

namespace
{

const Logger& logger()
{
    static const Logger s_logger("quorvex.infra.CountedClass");
    return s_logger;
}

}  // namespace

void CountedClassNoT::assertCountLargerThanZero(std::uint32_t in_uiCount)
{
    static_cast<void>(QUORVEX_ASSERT(logger(), in_uiCount > 0));
}

void MaxCountClassNoT::maxCountExceeded(std::uint32_t in_uiCount, std::uint32_t in_uiMax)
{
    QLOG_ERROR(logger(),
               "too many instances: " << in_uiCount << ", at most " << in_uiMax << " may live at a time");
}

}  // namespace Quorvex
