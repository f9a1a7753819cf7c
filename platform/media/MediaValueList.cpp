#include "media/MediaValueList.h"

#include <algorithm>
#include <limits>
#include <ostream>

namespace Quorvex
{

namespace
{

template <class T>
bool getAs(const MediaValueList& in_list, std::string_view in_name, T& out_value)
{
    const auto found = in_list.find(in_name);
    const T* pValue = found == in_list.end() ? nullptr : std::get_if<T>(&found->second);
    if (pValue == nullptr)
    {
        return false;
    }
    out_value = *pValue;
    return true;
}

}  // namespace

std::ostream& writeMediaValue(std::ostream& out_stream, const MediaValue& in_value)
{
    if (const auto* pList = std::get_if<std::vector<unsigned>>(&in_value))
    {
        const char* szSeparator = "";
        for (const unsigned uiValue : *pList)
        {
            out_stream << szSeparator << uiValue;
            szSeparator = " ";
        }
    }
    else if (const bool* pBool = std::get_if<bool>(&in_value))
    {
        out_stream << (*pBool ? "true" : "false");
    }
    else if (const auto* pNumber = std::get_if<std::int64_t>(&in_value))
    {
        out_stream << *pNumber;
    }
    else
    {
        out_stream << std::get<std::string>(in_value);
    }
    return out_stream;
}

MediaValueList::const_iterator MediaValueList::find(std::string_view in_name) const
{
    return std::find_if(begin(),
                        end(),
                        [in_name](const value_type& in_value)
                        { return in_value.first.getText() == in_name; });
}

void MediaValueList::set(std::string_view in_name, MediaValue in_value)
{
    const auto found = find(in_name);
    if (found == end())
    {
        // An endpoint's capacity has half a dozen, and is kept as long as the endpoint.
        constexpr std::size_t kFew = 6;
        if (m_vValues.empty())
        {
            m_vValues.reserve(kFew);
        }
        m_vValues.emplace_back(SharedName(in_name), std::move(in_value));
    }
    else
    {
        m_vValues[static_cast<std::size_t>(found - begin())].second = std::move(in_value);
    }
}

bool MediaValueList::getString(std::string_view in_name, std::string& out_strValue) const
{
    return getAs(*this, in_name, out_strValue);
}

bool MediaValueList::getUnsigned(std::string_view in_name, unsigned& out_uiValue) const
{
    std::int64_t iValue = 0;
    if (!getAs(*this, in_name, iValue) || iValue < 0 || iValue > std::numeric_limits<unsigned>::max())
    {
        return false;
    }
    out_uiValue = static_cast<unsigned>(iValue);
    return true;
}

bool MediaValueList::getBool(std::string_view in_name, bool& out_bValue) const
{
    return getAs(*this, in_name, out_bValue);
}

bool MediaValueList::getUnsignedList(std::string_view in_name, std::vector<unsigned>& out_vValue) const
{
    return getAs(*this, in_name, out_vValue);
}

std::ostream& MediaValueList::writeValues(std::ostream& out_stream) const
{
    const char* szSeparator = "";
    for (const auto& [name, value] : m_vValues)
    {
        out_stream << szSeparator << name.getText() << '=';
        writeMediaValue(out_stream, value);
        szSeparator = ", ";
    }
    return out_stream;
}

}  // namespace Quorvex
