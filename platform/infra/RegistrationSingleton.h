#pragma once

#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include "infra/Handle.h"
#include "infra/Object.h"

namespace Quorvex
{

/// Where parts of the gateway publish instances under well-known names for parts that do not know them
/// ("TONE_PLAYER_FACTORY"). Any thread.
class RegistrationSingleton
{
public:
    static RegistrationSingleton& instance();

    /// Publishes an instance. False when the name is taken or the handle null; nothing changes then.
    bool registerInstance(std::string_view in_name, const TSHandle<Object>& in_hInstance);
    /// Takes the instance of that name back; false when there is none. Who looked it up before keeps it
    /// alive.
    bool deregister(std::string_view in_name);
    /// The instance of that name, or null.
    TSHandle<Object> lookup(std::string_view in_name) const;

private:
    RegistrationSingleton() = default;

    mutable std::mutex m_mutex;
    std::map<std::string, TSHandle<Object>, std::less<>> m_instances;
};

}  // namespace Quorvex
