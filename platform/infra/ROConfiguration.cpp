#include "infra/ROConfiguration.h"

#include <limits>

#include "infra/Logger.h"

namespace Quorvex
{

namespace
{

const Logger& logger()
{
    static const Logger s_logger("quorvex.infra.Configuration");
    return s_logger;
}

void logWrongType(std::string_view in_key, ParameterValue::Type in_expected, const ParameterValue& in_value)
{
    QLOG_ERROR(logger(),
               "parameter " << in_key << " is of type " << ParameterValue::getTypeName(in_value.getType())
                            << " (" << in_value << "): a " << ParameterValue::getTypeName(in_expected)
                            << " is expected");
}

}  // namespace

bool ROConfiguration::getInteger(std::string_view in_key, int& out_iValue) const
{
    std::int64_t value = 0;
    if (!getInteger(in_key, value))
    {
        return false;
    }
    if (value < std::numeric_limits<int>::min() || value > std::numeric_limits<int>::max())
    {
        QLOG_ERROR(logger(), "parameter " << in_key << " is out of range (" << value << ")");
        return false;
    }
    out_iValue = static_cast<int>(value);
    return true;
}

std::string ROConfiguration::getStringOr(std::string_view in_key, std::string in_strDefault) const
{
    getString(in_key, in_strDefault);
    return in_strDefault;
}

std::int64_t ROConfiguration::getIntegerOr(std::string_view in_key, std::int64_t in_iDefault) const
{
    getInteger(in_key, in_iDefault);
    return in_iDefault;
}

bool ROConfiguration::getBooleanOr(std::string_view in_key, bool in_bDefault) const
{
    getBoolean(in_key, in_bDefault);
    return in_bDefault;
}

bool MapConfiguration::getString(std::string_view in_key, std::string& out_strValue) const
{
    const ParameterValue* pValue = getValue(in_key);
    if (pValue == nullptr)
    {
        return false;
    }
    if (!pValue->getString(out_strValue))
    {
        logWrongType(in_key, ParameterValue::STRING_TYPE, *pValue);
        return false;
    }
    return true;
}

bool MapConfiguration::getInteger(std::string_view in_key, std::int64_t& out_iValue) const
{
    const ParameterValue* pValue = getValue(in_key);
    if (pValue == nullptr)
    {
        return false;
    }
    if (!pValue->getInteger(out_iValue))
    {
        logWrongType(in_key, ParameterValue::INTEGER_TYPE, *pValue);
        return false;
    }
    return true;
}

bool MapConfiguration::getBoolean(std::string_view in_key, bool& out_bValue) const
{
    const ParameterValue* pValue = getValue(in_key);
    if (pValue == nullptr)
    {
        return false;
    }
    if (!pValue->getBoolean(out_bValue))
    {
        logWrongType(in_key, ParameterValue::BOOLEAN_TYPE, *pValue);
        return false;
    }
    return true;
}

}  // namespace Quorvex
