#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "infra/SharedName.h"

namespace Quorvex
{

/// One value that passes between the media engine and its users.
using MediaValue = std::variant<std::string, std::int64_t, bool, std::vector<unsigned>>;

/// Writes a value as text; lists are separated by blanks.
std::ostream& writeMediaValue(std::ostream& out_stream, const MediaValue& in_value);

/// Named values in the order in which they were set.
class MediaValueList
{
public:
    using value_type = std::pair<SharedName, MediaValue>;
    using const_iterator = std::vector<value_type>::const_iterator;

    const_iterator begin() const { return m_vValues.begin(); }
    const_iterator end() const { return m_vValues.end(); }
    /// The value of that name, or end().
    const_iterator find(std::string_view in_name) const;
    bool contains(std::string_view in_name) const { return find(in_name) != end(); }

    /// Sets a value, in the place of a former one of that name.
    void set(std::string_view in_name, MediaValue in_value);
    void set(std::string_view in_name, const char* in_szValue)
    {
        set(in_name, MediaValue(std::string(in_szValue)));
    }
    void set(std::string_view in_name, bool in_bValue) { set(in_name, MediaValue(in_bValue)); }
    void set(std::string_view in_name, unsigned in_uiValue)
    {
        set(in_name, MediaValue(std::int64_t{in_uiValue}));
    }

    /// The value of that name; false, with the output untouched, when it is absent or of another type (or,
    /// for an unsigned, negative or too large).
    bool getString(std::string_view in_name, std::string& out_strValue) const;
    bool getUnsigned(std::string_view in_name, unsigned& out_uiValue) const;
    bool getBool(std::string_view in_name, bool& out_bValue) const;
    bool getUnsignedList(std::string_view in_name, std::vector<unsigned>& out_vValue) const;

    /// "name=value, name=value".
    std::ostream& writeValues(std::ostream& out_stream) const;

    friend bool operator==(const MediaValueList&, const MediaValueList&) = default;

private:
    std::vector<value_type> m_vValues;
};

}  // namespace Quorvex
