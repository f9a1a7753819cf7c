#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "infra/ROConfiguration.h"

namespace Quorvex
{

/// Reads configuration values that are checked: the first one that cannot be used leaves a line that names
/// its key and what was expected. Reading goes on, so that the callers need no checks between.
class ConfigReader
{
public:
    explicit ConfigReader(const ROConfiguration& in_config) : m_config(in_config) {}

    bool ok() const { return m_strError.empty(); }
    const std::string& getError() const { return m_strError; }

    /// Absent keys leave the output as it is.
    void readString(const std::string& in_strKey, std::string& out_strValue);
    void readUnsigned(const std::string& in_strKey,
                      unsigned int in_uiMin,
                      unsigned int in_uiMax,
                      unsigned int& out_uiValue);
    /// Absent or empty: an error.
    void requireString(const std::string& in_strKey, std::string& out_strValue);

    /// Keeps the first error: "key: what".
    void fail(const std::string& in_strKey, const std::string& in_strWhat);

    const ROConfiguration& getConfig() const { return m_config; }

private:
    const ROConfiguration& m_config;
    std::string m_strError;
};

}  // namespace Quorvex
