#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Quorvex
{

/// The parameters of a URI or of a header value (";name=value;flag"), in their order and with their spelling.
/// Names are equal in any case; the first of two of one name counts. Values are kept as written (quoted,
/// escaped).
class DsSipParameters
{
public:
    struct Parameter
    {
        std::string m_strName;
        std::string m_strValue;
        bool m_bHasValue;
    };

    DsSipParameters() = default;

    /// Parses what follows a value: empty, or beginning with ';'. Throws a DsException.
    static DsSipParameters parse(std::string_view in_text);

    bool has(std::string_view in_name) const { return find(in_name) != nullptr; }
    /// The value as written, empty for a flag; nothing when absent.
    std::optional<std::string> get(std::string_view in_name) const;
    /// The value without its quotes, empty when absent.
    std::string getUnquoted(std::string_view in_name) const;

    /// Replaces the parameter, or adds it behind the others.
    void set(std::string_view in_name, std::string_view in_value);
    void setFlag(std::string_view in_name);
    bool remove(std::string_view in_name);
    void clear() { m_vParameters.clear(); }

    bool empty() const { return m_vParameters.empty(); }
    const std::vector<Parameter>& getAll() const { return m_vParameters; }

    /// Appends ";name=value;flag".
    void append(std::string& io_strText) const;

private:
    const Parameter* find(std::string_view in_name) const;
    std::vector<Parameter> m_vParameters;
};

}  // namespace Quorvex
