#include "sipstack/DsSipAddressHeaders.h"

#include <algorithm>
#include <utility>

#include "sipstack/DsException.h"
#include "sipstack/DsSipText.h"

namespace Quorvex
{

DsSipNameAddress::DsSipNameAddress(DsHandle<DsSipURL> in_hURL, std::string_view in_displayName)
    : m_hURL(std::move(in_hURL)), m_strDisplayName(in_displayName)
{
}

DsSipNameAddress DsSipNameAddress::parse(std::string_view in_text, std::string_view& out_rest)
{
    DsSipNameAddress address;
    std::string_view text = SipText::trim(in_text);
    std::size_t bracket = text.find('<');
    if (!text.empty() && text.front() == '"')
    {
        const std::size_t end = SipText::endOfQuoted(text, 0);
        if (end == std::string_view::npos)
        {
            throw DsException("the quotes of a display name do not close: " + SipText::excerpt(text));
        }
        bracket = text.find_first_not_of(" \t\r\n", end);
        if (bracket == std::string_view::npos || text[bracket] != '<')
        {
            throw DsException("'<' was expected behind a display name: " + SipText::excerpt(text));
        }
        address.m_strDisplayName = DsString(SipText::unquote(SipText::unfold(text.substr(0, end))));
    }
    else if (bracket != std::string_view::npos)
    {
        address.m_strDisplayName = DsString(SipText::unfold(SipText::trim(text.substr(0, bracket))));
    }
    std::string_view uri;
    if (bracket != std::string_view::npos)
    {
        const std::size_t end = text.find('>', bracket);
        if (end == std::string_view::npos)
        {
            throw DsException("the angle bracket of an address does not close: " + SipText::excerpt(text));
        }
        uri = SipText::trim(text.substr(bracket + 1, end - bracket - 1));
        out_rest = text.substr(end + 1);
    }
    else
    {
        // Without brackets the parameters are the header's, not the URI's.
        const std::size_t end = std::min(text.find(';'), text.size());
        uri = SipText::trim(text.substr(0, end));
        out_rest = text.substr(end);
    }
    try
    {
        address.m_hURL = makeDs<DsSipURL>(uri);
    }
    catch (const DsException&)
    {
        address.m_strURI = SipText::unfold(uri);
    }
    return address;
}

void DsSipNameAddress::setURL(const DsHandle<DsSipURL>& in_hURL)
{
    m_hURL = in_hURL;
    m_strURI.clear();
}

DsString DsSipNameAddress::getURIText() const
{
    return m_hURL.isNil() ? DsString(m_strURI) : m_hURL->getText();
}

void DsSipNameAddress::append(std::string& io_strText) const
{
    if (!m_strDisplayName.empty())
    {
        io_strText.append(SipText::quote(m_strDisplayName)).append(" ");
    }
    io_strText.append("<").append(getURIText()).append(">");
}

DsSipAddressHeader::DsSipAddressHeader(int in_iID, std::string_view in_value)
    : DsSipHeader(in_iID, SipText::unfold(SipText::trim(in_value)))
{
    std::string_view rest;
    m_address = DsSipNameAddress::parse(in_value, rest);
    m_parameters = DsSipParameters::parse(rest);
}

DsSipAddressHeader::DsSipAddressHeader(int in_iID, DsSipNameAddress in_address)
    : DsSipHeader(in_iID), m_address(std::move(in_address))
{
}

DsSipAddressHeader::DsSipAddressHeader(const DsSipAddressHeader& in_other)
    : DsSipHeader(in_other), m_address(in_other.m_address), m_parameters(in_other.m_parameters)
{
    if (!m_address.getURL().isNil())
    {
        m_address.setURL(DsHandle<DsSipURL>(m_address.getURL()->clone()));
    }
}

void DsSipAddressHeader::setNameAddress(const DsSipNameAddress& in_address)
{
    m_address = in_address;
    touch();
}

DsString DsSipAddressHeader::getParameter(std::string_view in_name) const
{
    return m_parameters.get(in_name).value_or(std::string());
}

void DsSipAddressHeader::setParameter(std::string_view in_name, std::string_view in_value)
{
    m_parameters.set(in_name, in_value);
    touch();
}

bool DsSipAddressHeader::removeParameter(std::string_view in_name)
{
    touch();
    return m_parameters.remove(in_name);
}

DsString DsSipAddressHeader::formatValue() const
{
    DsString text;
    if (m_address.getURL().isNil() && m_address.getURIText() == "*")
    {
        text = "*";
    }
    else
    {
        m_address.append(text);
    }
    m_parameters.append(text);
    return text;
}

std::optional<std::uint32_t> DsSipContactHeader::getExpires() const
{
    std::uint32_t seconds = 0;
    return SipText::parseNumber(SipText::trim(getParameter("expires")), UINT32_MAX, seconds)
               ? std::optional<std::uint32_t>(seconds)
               : std::nullopt;
}

}  // namespace Quorvex
