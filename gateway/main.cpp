#include <exception>
#include <iostream>

#include "Host.h"
#include "Options.h"
#include "infra/Logger.h"

// What the allocator reads before the program begins (the one of CMakeLists.txt; others ignore it). The
// setting up of a call needs several times the memory of the call that then stands, and threads that have
// nothing more to do give nothing back by themselves: a thread of the allocator's does, a second after the
// memory was last used, and sleeps when there is none. The environment variable MALLOC_CONF goes before.
extern "C"
{
    // NOLINTNEXTLINE(readability-identifier-naming): the allocator's name for it
    __attribute__((visibility("default"))) extern const char* malloc_conf;
    const char* malloc_conf = "background_thread:true,max_background_threads:1,dirty_decay_ms:1000";
}

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
