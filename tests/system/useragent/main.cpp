// A user agent on the SIP object layer, for tests to drive: inbound calls do what the user part of their
// Request-URI says, placed ones what standard input says.
//
//   sip-useragent [--udp PORT] [--tcp PORT] [--address A] [--t1 MS] [--timer-c MS] [--max-bytes N]
//   [--tcp-idle MS]
//                 [--user NAME --password TEXT] [--log LEVEL]
//
// Without --udp and --tcp it listens on a free port for both. It prints its ports in one line ("ports 40001
// 40002"), then answers every line of standard input with one line:
//
//   status                        the counters
//   call URI SCRIPT [N [RATE]]    places N calls, RATE per second
//   hangup [N]                    ends N calls, or every one
//   trim                          gives free memory back to the system
//
// At the end of standard input it ends what is left, prints the counters, and what is not clean; the exit
// code is 0 only when every call had exactly one closing report and nothing is left.

#include <malloc.h>

#include <charconv>
#include <iostream>
#include <limits>
#include <map>
#include <sstream>
#include <string>

#include "UserAgent.h"
#include "infra/Logger.h"

using namespace Quorvex;

namespace
{

bool readNumber(const std::string& in_strText, unsigned int in_uiMost, unsigned int& out_uiNumber)
{
    const char* const end = in_strText.data() + in_strText.size();
    const auto result = std::from_chars(in_strText.data(), end, out_uiNumber);
    return result.ec == std::errc() && result.ptr == end && out_uiNumber <= in_uiMost;
}

bool readOptions(int in_iCount, char** in_pArguments, DsSipStackConfig& out_config)
{
    std::map<std::string, std::string> options;
    for (int i = 1; i + 1 < in_iCount; i += 2)
    {
        options[in_pArguments[i]] = in_pArguments[i + 1];
    }
    const auto take = [&](const char* in_szName)
    {
        const auto node = options.extract(in_szName);
        return node.empty() ? std::string() : node.mapped();
    };
    const auto number = [&](const char* in_szName, unsigned int in_uiMost, unsigned int in_uiDefault)
    {
        unsigned int value = in_uiDefault;
        const std::string text = take(in_szName);
        if (!text.empty() && !readNumber(text, in_uiMost, value))
        {
            options["a number below " + std::to_string(in_uiMost) + " for " + in_szName] = text;
        }
        return value;
    };
    const std::string address = take("--address");
    constexpr unsigned int kNone = 65536;
    unsigned int udp = number("--udp", 65535, kNone);
    unsigned int tcp = number("--tcp", 65535, kNone);
    if (udp == kNone && tcp == kNone)
    {
        udp = tcp = 0;
    }
    for (const auto& [transport, port] : {
             std::pair{DsSipTransport::eUDP, udp},
             std::pair{DsSipTransport::eTCP, tcp}
    })
    {
        if (port != kNone)
        {
            out_config.m_vListenPorts.push_back(
                {transport, address.empty() ? "127.0.0.1" : address, static_cast<std::uint16_t>(port)});
        }
    }
    out_config.m_uiT1Ms = number("--t1", 10000, 500);
    out_config.m_uiTimerCMs = number("--timer-c", 3600000, 180000);
    out_config.m_uiMaxMessageBytes = number("--max-bytes", 1U << 30, 65536);
    out_config.m_uiTcpIdleMs = number("--tcp-idle", 3600000, 600000);
    const std::string user = take("--user");
    const std::string password = take("--password");
    if (!user.empty())
    {
        out_config.m_vCredentials.push_back({"", user, password});
    }
    int level = eWARN_LEVEL;
    const std::string log = take("--log");
    if (!log.empty() && !Logging::parseLevel(log, level))
    {
        options["--log " + log] = "";
    }
    std::string error;
    Logging::setOutput("", error);
    Logging::setRootLevel(level);
    if (!options.empty() || in_iCount % 2 == 0)
    {
        std::cerr << "sip-useragent: cannot use "
                  << (options.empty() ? in_pArguments[in_iCount - 1] : options.begin()->first.c_str())
                  << '\n';
        return false;
    }
    out_config.m_strContactUser = "agent";
    return true;
}

std::string obey(UserAgent& in_agent, const std::string& in_strLine)
{
    std::istringstream words(in_strLine);
    std::string command;
    words >> command;
    if (command == "status")
    {
        return in_agent.describe();
    }
    if (command == "call")
    {
        std::string uri;
        std::string script;
        unsigned long count = 1;
        unsigned int rate = 0;
        words >> uri >> script;
        words >> count >> rate;
        return in_agent.placeCalls(uri, script, count, rate) ? "ok" : "no such script";
    }
    if (command == "hangup")
    {
        std::size_t count = 0;
        in_agent.hangup(words >> count ? count : std::numeric_limits<std::size_t>::max());
        return "ok";
    }
    if (command == "trim")
    {
        ::malloc_trim(0);
        return "ok";
    }
    return "no such command";
}

}  // namespace

int main(int argc, char** argv)
{
    // Which arena a thread gets is chance: with one, the same calls need the same memory in each round.
    ::mallopt(M_ARENA_MAX, 1);
    DsSipStackConfig config;
    if (!readOptions(argc, argv, config))
    {
        return 2;
    }
    std::string error;
    bool clean = false;
    {
        UserAgent agent;
        if (!agent.start(config, error))
        {
            std::cerr << "sip-useragent: " << error << '\n';
            return 2;
        }
        std::cout << "ports";
        for (const DsSipListenPort& port : agent.stack().getListenPorts())
        {
            std::cout << ' ' << port.m_uiPort;
        }
        std::cout << std::endl;
        for (std::string line; std::getline(std::cin, line);)
        {
            std::cout << obey(agent, line) << std::endl;
        }
        agent.stop(10000);
        std::cout << agent.describe() << std::endl;
        std::string left;
        clean = agent.isClean(left);
        if (!clean)
        {
            std::cout << "left:" << left << std::endl;
        }
    }
    return clean ? 0 : 1;
}
