#include "sipstack/DsSipParameters.h"

#include <algorithm>

#include "sipstack/DsException.h"
#include "sipstack/DsSipText.h"

namespace Quorvex
{

namespace
{

constexpr std::size_t kMaxParameters = 256;

}  // namespace

DsSipParameters DsSipParameters::parse(std::string_view in_text)
{
    DsSipParameters parameters;
    std::string_view rest = SipText::trim(in_text);
    while (!rest.empty())
    {
        if (rest.front() != ';')
        {
            throw DsException("expected ';' before a parameter, found " + SipText::excerpt(rest));
        }
        // A quote that does not close swallows the rest, which then is no value.
        const std::size_t end = std::min(SipText::findOutside(rest, ';', 1), rest.size());
        const std::string_view parameter = rest.substr(1, end - 1);
        rest = rest.substr(end);
        const std::size_t equals = parameter.find('=');
        const std::string_view name = SipText::trim(parameter.substr(0, equals));
        if (name.empty())
        {
            if (equals != std::string_view::npos)
            {
                throw DsException("a parameter has no name: " + SipText::excerpt(parameter));
            }
            continue;
        }
        Parameter entry{SipText::unfold(name), {}, equals != std::string_view::npos};
        if (entry.m_bHasValue)
        {
            const std::string_view value = SipText::trim(parameter.substr(equals + 1));
            if (!value.empty() && value.front() == '"' && SipText::endOfQuoted(value, 0) != value.size())
            {
                throw DsException("the quoted value of parameter " + SipText::excerpt(name) +
                                  " does not end as it should");
            }
            entry.m_strValue = SipText::unfold(value);
        }
        // Names are looked for one by one, and nobody has this many to say.
        if (parameters.m_vParameters.size() == kMaxParameters)
        {
            throw DsException("at most " + std::to_string(kMaxParameters) +
                              " parameters were expected, found more");
        }
        parameters.m_vParameters.push_back(std::move(entry));
    }
    return parameters;
}

const DsSipParameters::Parameter* DsSipParameters::find(std::string_view in_name) const
{
    const auto found = std::find_if(m_vParameters.begin(),
                                    m_vParameters.end(),
                                    [&](const Parameter& in_parameter)
                                    { return SipText::equalsIgnoreCase(in_parameter.m_strName, in_name); });
    return found == m_vParameters.end() ? nullptr : &*found;
}

std::optional<std::string> DsSipParameters::get(std::string_view in_name) const
{
    const Parameter* const found = find(in_name);
    return found == nullptr ? std::nullopt : std::optional<std::string>(found->m_strValue);
}

std::string DsSipParameters::getUnquoted(std::string_view in_name) const
{
    const Parameter* const found = find(in_name);
    return found == nullptr ? std::string() : SipText::unquote(found->m_strValue);
}

void DsSipParameters::set(std::string_view in_name, std::string_view in_value)
{
    if (const Parameter* const found = find(in_name))
    {
        Parameter& parameter = m_vParameters[static_cast<std::size_t>(found - m_vParameters.data())];
        parameter.m_strValue = std::string(in_value);
        parameter.m_bHasValue = true;
        return;
    }
    m_vParameters.push_back({std::string(in_name), std::string(in_value), true});
}

void DsSipParameters::setFlag(std::string_view in_name)
{
    remove(in_name);
    m_vParameters.push_back({std::string(in_name), {}, false});
}

bool DsSipParameters::remove(std::string_view in_name)
{
    return std::erase_if(m_vParameters,
                         [&](const Parameter& in_parameter)
                         { return SipText::equalsIgnoreCase(in_parameter.m_strName, in_name); }) != 0;
}

void DsSipParameters::append(std::string& io_strText) const
{
    for (const Parameter& parameter : m_vParameters)
    {
        io_strText.append(";").append(parameter.m_strName);
        if (parameter.m_bHasValue)
        {
            io_strText.append("=").append(parameter.m_strValue);
        }
    }
}

}  // namespace Quorvex
