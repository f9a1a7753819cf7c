#include <exception>
#include <iostream>

#include "Host.h"
#include "Options.h"
#include "infra/Logger.h"

int main(int argc, char** argv)
{
    using namespace Quorvex;
    try
    {
        Options options;
        switch (options.parse(argc, argv))
        {
            case Options::Outcome::DONE:
                return eEXIT_CLEAN;
            case Options::Outcome::BAD:
                return eEXIT_CONFIGURATION;
            case Options::Outcome::RUN:
                break;
        }
        const int iExitCode = Host(options).run();
        Logging::shutdown();
        return iExitCode;
    }
    catch (const std::exception& error)
    {
        std::cerr << "quorvex-gateway: " << error.what() << '\n';
        return eEXIT_FORCED;
    }
}
