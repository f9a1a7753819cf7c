#include "infra/Parameter.h"

#include <ostream>
#include <sstream>

#include "infra/Logger.h"

namespace Quorvex
{

ParameterValue::Type ParameterValue::getType() const
{
    static constexpr Type kTypes[] = {UNDEFINED_TYPE, STRING_TYPE, INTEGER_TYPE, REAL_TYPE, BOOLEAN_TYPE};
    return kTypes[m_value.index()];
}

const char* ParameterValue::getTypeName(Type in_type)
{
    switch (in_type)
    {
        case STRING_TYPE:
            return "string";
        case INTEGER_TYPE:
            return "integer";
        case REAL_TYPE:
            return "real";
        case BOOLEAN_TYPE:
            return "boolean";
        case UNDEFINED_TYPE:
            break;
    }
    return "undefined";
}

bool ParameterValue::getString(std::string& out_strValue) const
{
    const auto* p = std::get_if<SharedText>(&m_value);
    if (p != nullptr)
    {
        out_strValue = p->view();
    }
    return p != nullptr;
}

bool ParameterValue::getInteger(std::int64_t& out_iValue) const
{
    const auto* p = std::get_if<std::int64_t>(&m_value);
    if (p != nullptr)
    {
        out_iValue = *p;
    }
    return p != nullptr;
}

bool ParameterValue::getBoolean(bool& out_bValue) const
{
    const auto* p = std::get_if<bool>(&m_value);
    if (p != nullptr)
    {
        out_bValue = *p;
    }
    return p != nullptr;
}

bool ParameterValue::getReal(double& out_fValue) const
{
    if (const auto* p = std::get_if<double>(&m_value))
    {
        out_fValue = *p;
        return true;
    }
    if (const auto* p = std::get_if<std::int64_t>(&m_value))
    {
        out_fValue = static_cast<double>(*p);
        return true;
    }
    return false;
}

std::string ParameterValue::toText() const
{
    if (const auto* p = std::get_if<SharedText>(&m_value))
    {
        return std::string(p->view());
    }
    if (const auto* p = std::get_if<std::int64_t>(&m_value))
    {
        return std::to_string(*p);
    }
    if (const auto* p = std::get_if<bool>(&m_value))
    {
        return *p ? "true" : "false";
    }
    if (const auto* p = std::get_if<double>(&m_value))
    {
        std::ostringstream text;
        text << *p;
        return std::move(text).str();
    }
    return "";
}

bool ParameterValue::isPerlTrue(std::string_view in_text)
{
    return !in_text.empty() && in_text != "0";
}

std::ostream& operator<<(std::ostream& out_stream, const ParameterValue& in_value)
{
    return out_stream << in_value.toText();
}

void Parameter::logUndefinedParameter(const std::string& in_strName, ParameterValue::Type in_type)
{
    static const Logger s_logger("quorvex.infra.Parameter");
    QLOG_ERROR(s_logger,
               "parameter " << in_strName << " is not defined: a " << ParameterValue::getTypeName(in_type)
                            << " is expected");
}

std::ostream& operator<<(std::ostream& out_stream, const Parameter& in_parameter)
{
    return out_stream << in_parameter.getName() << '=' << in_parameter.getValue();
}

}  // namespace Quorvex
