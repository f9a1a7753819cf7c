#pragma once

#include <string>

namespace Quorvex
{

/// What the command line says.
struct Options
{
    std::string m_strConfigFile;
    bool m_bCheckOnly = false;

    enum class Outcome
    {
        RUN,   ///< go on with the options
        DONE,  ///< help or version was printed: exit code 0
        BAD    ///< one line on standard error says what is wrong: exit code 2
    };
    Outcome parse(int in_iArgc, const char* const* in_ppArgv);
};

}  // namespace Quorvex
