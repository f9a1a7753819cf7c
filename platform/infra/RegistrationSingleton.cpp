#include "infra/RegistrationSingleton.h"

namespace Quorvex
{

RegistrationSingleton& RegistrationSingleton::instance()
{
    static RegistrationSingleton s_instance;
    return s_instance;
}

bool RegistrationSingleton::registerInstance(std::string_view in_name, const TSHandle<Object>& in_hInstance)
{
    if (in_hInstance.isNull())
    {
        return false;
    }
    const std::lock_guard guard(m_mutex);
    return m_instances.emplace(in_name, in_hInstance).second;
}

bool RegistrationSingleton::deregister(std::string_view in_name)
{
    // Declared before the guard, so that it is released after the lock: its end may call back.
    TSHandle<Object> hInstance;
    const std::lock_guard guard(m_mutex);
    const auto it = m_instances.find(in_name);
    if (it == m_instances.end())
    {
        return false;
    }
    hInstance = it->second;
    m_instances.erase(it);
    return true;
}

TSHandle<Object> RegistrationSingleton::lookup(std::string_view in_name) const
{
    const std::lock_guard guard(m_mutex);
    const auto it = m_instances.find(in_name);
    return it == m_instances.end() ? TSHandle<Object>() : it->second;
}

}  // namespace Quorvex
