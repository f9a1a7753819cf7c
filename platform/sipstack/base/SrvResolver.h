#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <string>

#include "sipstack/base/StackThread.h"

struct sres_resolver_s;

namespace Quorvex
{

/// Looks up which host and port serve SIP for a domain (SRV records, RFC 3263 section 4.2). SIP stack thread.
class SrvResolver
{
public:
    /// The host and port that were chosen by priority and weight; an empty host when there is none, or none
    /// in time.
    using Callback = std::function<void(const std::string& in_strHost, std::uint16_t in_uiPort)>;

    /// @param in_strSettings a file in resolv.conf's form; "" for the system's
    SrvResolver(su_root_s* in_pRoot, StackThread& in_thread, const std::string& in_strSettings);
    ~SrvResolver();
    SrvResolver(const SrvResolver&) = delete;
    SrvResolver& operator=(const SrvResolver&) = delete;

    /// Calls back once, never from inside the call; not at all when this is destroyed before.
    void lookUp(const std::string& in_strDomain,
                bool in_bTcp,
                unsigned int in_uiTimeoutMs,
                Callback in_callback);

private:
    class LookUp;
    void finish(LookUp& in_lookUp, const std::string& in_strHost, std::uint16_t in_uiPort);

    StackThread& m_thread;
    sres_resolver_s* m_pResolver;  // null when the base library cannot make one
    std::list<std::unique_ptr<LookUp>> m_vLookUps;
};

}  // namespace Quorvex
