#include "infra/TomlConfiguration.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <toml.hpp>

namespace Quorvex
{

namespace
{

using TomlValue = toml::basic_value<toml::discard_comments, std::map, std::vector>;

std::string join(const std::string& in_strPrefix, const std::string& in_strName)
{
    return in_strPrefix.empty() ? in_strName : in_strPrefix + "." + in_strName;
}

void fill(ParameterTrie& io_trie, const std::string& in_strKey, const TomlValue& in_value)
{
    if (in_value.is_table())
    {
        io_trie.touch(in_strKey);
        for (const auto& [name, value] : in_value.as_table())
        {
            fill(io_trie, join(in_strKey, name), value);
        }
    }
    else if (in_value.is_array())
    {
        io_trie.touch(in_strKey);
        std::size_t index = 0;
        for (const auto& value : in_value.as_array())
        {
            fill(io_trie, join(in_strKey, std::to_string(index++)), value);
        }
    }
    else if (in_value.is_string())
    {
        io_trie.set(in_strKey, in_value.as_string().str);
    }
    else if (in_value.is_integer())
    {
        io_trie.set(in_strKey, std::int64_t{in_value.as_integer()});
    }
    else if (in_value.is_boolean())
    {
        io_trie.set(in_strKey, in_value.as_boolean());
    }
    else if (in_value.is_floating())
    {
        io_trie.set(in_strKey, in_value.as_floating());
    }
    else
    {
        std::ostringstream text;
        text << in_value;
        io_trie.set(in_strKey, std::move(text).str());
    }
}

/// The library explains an error over several lines with a picture; a log wants one. Its location and its
/// first sentence say enough.
std::string oneLine(const toml::exception& in_error, const std::string& in_strName)
{
    std::string what = in_error.what();
    const std::size_t end = what.find('\n');
    std::string sentence = what.substr(0, end);
    // "[error] toml::parse_table: invalid line format": the part behind the function's name is for people.
    for (const char* szPrefix : {"[error] ", "toml::"})
    {
        if (sentence.rfind(szPrefix, 0) == 0)
        {
            sentence.erase(0, std::strlen(szPrefix));
        }
    }
    const std::size_t colon = sentence.find(": ");
    if (colon != std::string::npos && sentence.find(' ') > colon)
    {
        sentence.erase(0, colon + 2);
    }
    std::ostringstream text;
    text << in_strName << ":" << in_error.location().line() << ":" << in_error.location().column()
         << ": TOML syntax: " << sentence;
    return std::move(text).str();
}

}  // namespace

TSHandle<MapConfiguration> TomlConfiguration::parse(const std::string& in_strText,
                                                    const std::string& in_strName,
                                                    std::string& out_strError)
{
    try
    {
        std::istringstream stream(in_strText);
        const auto value = toml::parse<toml::discard_comments, std::map, std::vector>(stream, in_strName);
        ParameterTrie trie;
        fill(trie, "", value);
        return TSHandle<MapConfiguration>(new MapConfiguration(std::move(trie)));
    }
    catch (const toml::exception& error)
    {
        out_strError = oneLine(error, in_strName);
    }
    catch (const std::exception& error)
    {
        out_strError = in_strName + ": TOML syntax: " + error.what();
    }
    return {};
}

TSHandle<MapConfiguration> TomlConfiguration::load(const std::string& in_strFile, std::string& out_strError)
{
    errno = 0;
    std::error_code ignored;
    if (std::filesystem::is_directory(in_strFile, ignored))
    {
        out_strError = in_strFile + ": cannot be read: it is a directory, a TOML file is expected";
        return {};
    }
    std::ifstream file(in_strFile, std::ios::binary);
    if (!file)
    {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): its text is not shared on glibc
        out_strError = in_strFile + ": cannot be read: " + std::strerror(errno);
        return {};
    }
    std::ostringstream text;
    text << file.rdbuf();
    return parse(text.str(), in_strFile, out_strError);
}

}  // namespace Quorvex
