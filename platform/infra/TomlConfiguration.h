#pragma once

#include <string>

#include "infra/Handle.h"
#include "infra/ROConfiguration.h"

namespace Quorvex
{

/// Reads configurations from TOML files. A table becomes a node, a key with dots (quoted or not) nested
/// nodes, the elements of a list children named "0", "1", ... Dates and times become text.
class TomlConfiguration
{
public:
    /// Reads a file. Null when it cannot be read or is not TOML; `out_strError` then holds one line that
    /// names the file and, for a syntax error, line and column and what is wrong there.
    static TSHandle<MapConfiguration> load(const std::string& in_strFile, std::string& out_strError);

    /// The same from text; `in_strName` stands for the file in the error.
    static TSHandle<MapConfiguration> parse(const std::string& in_strText,
                                            const std::string& in_strName,
                                            std::string& out_strError);
};

}  // namespace Quorvex
