#include "infra/Assertion.h"
#include "infra/RecursivityGuard.h"
#include "infra/ScratchMember.h"

namespace Quorvex
{

namespace
{

const Logger& logger()
{
    static const Logger s_logger("quorvex.infra.Guards");
    return s_logger;
}

}  // namespace

void ScratchMemberGuard::scratchMemberInUseAssert()
{
    Assertion::report("scratch member is not in use", logger(), __FILE__, __LINE__);
}

void RecursivityGuard::recursivityAssert()
{
    Assertion::report("operation is not entered recursively", logger(), __FILE__, __LINE__);
}

}  // namespace Quorvex
