#include "Options.h"

#include <CLI/CLI.hpp>
#include <iostream>

namespace Quorvex
{

Options::Outcome Options::parse(int in_iArgc, const char* const* in_ppArgv)
{
    CLI::App app("A SIP telephony gateway: loads its network interface and routes the calls that it carries.",
                 "quorvex-gateway");
    app.add_option("--config", m_strConfigFile, "the configuration, a TOML file");
    app.add_flag(
        "--check", m_bCheckOnly, "check the configuration and end: 0 when it can be used, 2 when not");
    app.set_version_flag("--version", "quorvex-gateway " QUORVEX_VERSION);
    try
    {
        app.parse(in_iArgc, const_cast<char**>(in_ppArgv));  // the library does not change them
    }
    catch (const CLI::Success& success)
    {
        app.exit(success);
        return Outcome::DONE;
    }
    catch (const CLI::ParseError& error)
    {
        std::cerr << "quorvex-gateway: " << error.what() << " (--help lists the options)\n";
        return Outcome::BAD;
    }
    // Not left to the library: it would speak of the missing option before an unknown one.
    if (m_strConfigFile.empty())
    {
        std::cerr << "quorvex-gateway: --config FILE is required (--help lists the options)\n";
        return Outcome::BAD;
    }
    // Not "required": the library would complain of that before it names an option that it does not know.
    if (m_strConfigFile.empty())
    {
        std::cerr << "quorvex-gateway: --config FILE is missing (--help lists the options)\n";
        return Outcome::BAD;
    }
    return Outcome::RUN;
}

}  // namespace Quorvex
