#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace Quorvex::Net
{

/// Looks host names up (the hosts file, then the name service) on threads of its own and remembers the
/// answers, good and bad, for a while. Any thread.
class HostResolver
{
public:
    using Duration = std::chrono::steady_clock::duration;
    /// The address, or an empty text.
    using Callback = std::function<void(const std::string& in_strAddress)>;
    /// What looks a name up: the system, or what a test puts in its place. May block; any thread.
    using LookUp = std::function<bool(const std::string& in_strHost, std::string& out_strAddress)>;

    struct Options
    {
        LookUp m_lookUp;  // empty: the system's
        Duration m_goodAnswerLife = std::chrono::seconds(60);
        Duration m_badAnswerLife = std::chrono::seconds(10);
        std::size_t m_maxThreads = 8;
        std::size_t m_maxAnswers = 4096;
        // Names that wait for a thread; beyond it look-ups fail at once.
        std::size_t m_maxWaiting = 1024;
    };

    /// The process's resolver.
    static HostResolver& instance();

    explicit HostResolver(Options in_options);
    HostResolver(const HostResolver&) = delete;
    HostResolver& operator=(const HostResolver&) = delete;
    /// Does not wait for look-ups under way; nobody is called back after it.
    ~HostResolver();

    /// Whether the host is an address already (dotted IPv4, IPv6 with or without brackets).
    static bool isAddress(const std::string& in_strHost);

    /// Waits for the address, for no longer than the time-out. A name whose look-up has outlived a time-out
    /// already counts as bad until its answer comes, so that one dead name server is waited for once, not by
    /// every caller.
    bool resolve(const std::string& in_strHost, Duration in_timeout, std::string& out_strAddress);

    /// The same without waiting: the callback is called exactly once, from inside this call when the answer
    /// is known (or the host is an address), else on a thread of the resolver with the answer or after the
    /// time-out.
    void prefetch(const std::string& in_strHost, Duration in_timeout, Callback in_callback);

    /// Forgets all answers.
    void clear();

private:
    struct Shared;
    std::shared_ptr<Shared> m_pShared;
};

}  // namespace Quorvex::Net
