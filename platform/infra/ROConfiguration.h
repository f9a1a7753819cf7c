#pragma once

#include <string>
#include <string_view>

#include "infra/Object.h"
#include "infra/ParameterTrie.h"

namespace Quorvex
{

/// The gateway's configuration, read-only: typed values under dotted keys ("quorvex.sip.mediaLibName").
/// Immutable once it is handed out, so any thread may read it.
class ROConfiguration : public virtual Object
{
public:
    /// The value of a key. False, with the output untouched, when the key is absent or of another type;
    /// another type is logged at ERROR with the key and the type that was expected.
    virtual bool getString(std::string_view in_key, std::string& out_strValue) const = 0;
    virtual bool getInteger(std::string_view in_key, std::int64_t& out_iValue) const = 0;
    virtual bool getBoolean(std::string_view in_key, bool& out_bValue) const = 0;
    /// The same for a 32-bit integer; a value outside its range counts as being of another type.
    bool getInteger(std::string_view in_key, int& out_iValue) const;

    /// The value of a key whatever its type, or null.
    virtual const ParameterValue* getValue(std::string_view in_key) const = 0;
    /// The node of a key, for tables and lists (whose elements are children named "0", "1", ...), or null.
    /// Valid as long as the configuration.
    virtual const ParameterTrieNode* getNode(std::string_view in_key) const = 0;

    /// The value of a key, or the default when it is absent.
    std::string getStringOr(std::string_view in_key, std::string in_strDefault) const;
    std::int64_t getIntegerOr(std::string_view in_key, std::int64_t in_iDefault) const;
    bool getBooleanOr(std::string_view in_key, bool in_bDefault) const;
};

/// A configuration held in a ParameterTrie; filled in code, or from a file by TomlConfiguration.
class MapConfiguration : public ROConfiguration
{
public:
    MapConfiguration() = default;
    explicit MapConfiguration(ParameterTrie in_trie) : m_trie(std::move(in_trie)) {}

    using ROConfiguration::getInteger;
    bool getString(std::string_view in_key, std::string& out_strValue) const override;
    bool getInteger(std::string_view in_key, std::int64_t& out_iValue) const override;
    bool getBoolean(std::string_view in_key, bool& out_bValue) const override;
    const ParameterValue* getValue(std::string_view in_key) const override
    {
        return m_trie.findValue(in_key);
    }
    const ParameterTrieNode* getNode(std::string_view in_key) const override { return m_trie.find(in_key); }

    /// Sets a value; only before the configuration is handed out.
    void set(std::string_view in_key, ParameterValue in_value) { m_trie.set(in_key, std::move(in_value)); }
    const ParameterTrie& getTrie() const { return m_trie; }

private:
    ParameterTrie m_trie;
};

}  // namespace Quorvex
