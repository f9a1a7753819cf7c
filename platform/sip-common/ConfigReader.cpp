#include "sip-common/ConfigReader.h"

namespace Quorvex
{

void ConfigReader::readString(const std::string& in_strKey, std::string& out_strValue)
{
    const ParameterValue* const value = m_config.getValue(in_strKey);
    if (value != nullptr && !value->getString(out_strValue))
    {
        fail(in_strKey, "a text was expected, found " + value->toText());
    }
}

void ConfigReader::readUnsigned(const std::string& in_strKey,
                                unsigned int in_uiMin,
                                unsigned int in_uiMax,
                                unsigned int& out_uiValue)
{
    const ParameterValue* const value = m_config.getValue(in_strKey);
    if (value == nullptr)
    {
        return;
    }
    std::int64_t number = 0;
    if (!value->getInteger(number) || number < in_uiMin || number > in_uiMax)
    {
        fail(in_strKey,
             "a whole number from " + std::to_string(in_uiMin) + " to " + std::to_string(in_uiMax) +
                 " was expected, found " + value->toText());
        return;
    }
    out_uiValue = static_cast<unsigned int>(number);
}

void ConfigReader::requireString(const std::string& in_strKey, std::string& out_strValue)
{
    readString(in_strKey, out_strValue);
    if (out_strValue.empty())
    {
        fail(in_strKey, "a text was expected, found none");
    }
}

void ConfigReader::fail(const std::string& in_strKey, const std::string& in_strWhat)
{
    if (m_strError.empty())
    {
        m_strError = in_strKey + ": " + in_strWhat;
    }
}

}  // namespace Quorvex
