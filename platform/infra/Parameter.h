#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "infra/SharedText.h"

namespace Quorvex
{

/// A typed value of the configuration, of a call leg or of an INFO message.
class ParameterValue
{
public:
    enum Type
    {
        UNDEFINED_TYPE,
        STRING_TYPE,
        INTEGER_TYPE,
        REAL_TYPE,
        BOOLEAN_TYPE
    };

    ParameterValue() = default;
    // NOLINTNEXTLINE(google-explicit-constructor)
    ParameterValue(const std::string& in_strValue) : m_value(SharedText(in_strValue)) {}
    // NOLINTNEXTLINE(google-explicit-constructor)
    ParameterValue(const char* in_szValue) : m_value(SharedText(in_szValue)) {}
    // NOLINTNEXTLINE(google-explicit-constructor)
    ParameterValue(std::int64_t in_iValue) : m_value(in_iValue) {}
    // NOLINTNEXTLINE(google-explicit-constructor)
    ParameterValue(int in_iValue) : m_value(std::int64_t{in_iValue}) {}
    // NOLINTNEXTLINE(google-explicit-constructor)
    ParameterValue(double in_fValue) : m_value(in_fValue) {}
    // NOLINTNEXTLINE(google-explicit-constructor)
    ParameterValue(bool in_bValue) : m_value(in_bValue) {}

    Type getType() const;
    static const char* getTypeName(Type in_type);

    /// The value as it is; false, with the output untouched, when it is of another type.
    bool getString(std::string& out_strValue) const;
    bool getInteger(std::int64_t& out_iValue) const;
    bool getBoolean(bool& out_bValue) const;
    /// A real, or an integer widened to one.
    bool getReal(double& out_fValue) const;

    /// The value as text, whatever its type: "true", "42", "text"; empty when undefined.
    std::string toText() const;

    /// Whether a text counts as true: everything but the empty text and "0".
    static bool isPerlTrue(std::string_view in_text);

    friend bool operator==(const ParameterValue&, const ParameterValue&) = default;

private:
    std::variant<std::monostate, SharedText, std::int64_t, double, bool> m_value;
};

std::ostream& operator<<(std::ostream& out_stream, const ParameterValue& in_value);

/// A name with its value.
class Parameter
{
public:
    Parameter(std::string in_strName, ParameterValue in_value)
        : m_strName(std::move(in_strName)), m_value(std::move(in_value))
    {
    }

    const std::string& getName() const { return m_strName; }
    const ParameterValue& getValue() const { return m_value; }

    /// Reports, at ERROR, that a parameter that must be there is not, and of which type it should be.
    static void logUndefinedParameter(const std::string& in_strName, ParameterValue::Type in_type);

    friend bool operator==(const Parameter&, const Parameter&) = default;

private:
    std::string m_strName;
    ParameterValue m_value;
};

using ParameterVector = std::vector<Parameter>;

std::ostream& operator<<(std::ostream& out_stream, const Parameter& in_parameter);

}  // namespace Quorvex
