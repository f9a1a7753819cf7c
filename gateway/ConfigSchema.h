#pragma once

#include <string>
#include <vector>

#include "infra/ROConfiguration.h"

namespace Quorvex
{

/// Every key that a configuration may hold, with its type and what its value must be.
class ConfigSchema
{
public:
    /// Checks a whole configuration against the table of keys. False at the first mistake; `out_strError`
    /// then names the key and what was expected, in one line without the file's name. Routes are not looked
    /// at (RouteTable does).
    static bool check(const MapConfiguration& in_config, std::string& out_strError);

    /// The known keys, in the order of the table.
    static std::vector<std::string> getKeys();

    /// Makes the paths among the values absolute: relative ones are relative to the configuration file.
    static void resolvePaths(MapConfiguration& io_config, const std::string& in_strConfigFile);
};

}  // namespace Quorvex
