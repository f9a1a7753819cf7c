// Every record is formatted, so that what only a log line touches is tested too; none is shown.

#include <gtest/gtest.h>

#include <string>

#include "infra/Logger.h"

namespace
{

class LogEverythingNowhere : public testing::Environment
{
public:
    void SetUp() override
    {
        std::string strError;
        ASSERT_TRUE(Quorvex::Logging::setOutput("/dev/null", strError)) << strError;
        Quorvex::Logging::setRootLevel(Quorvex::eTRACE_LEVEL);
    }
};

const auto* const g_pEnvironment = testing::AddGlobalTestEnvironment(new LogEverythingNowhere);

}  // namespace
