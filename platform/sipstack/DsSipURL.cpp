#include "sipstack/DsSipURL.h"

#include <algorithm>
#include <array>
#include <functional>
#include <ostream>

#include "sipstack/DsException.h"
#include "sipstack/DsInetAddress.h"
#include "sipstack/DsSipText.h"

namespace Quorvex
{

namespace
{

// URIs are compared header by header.
constexpr std::size_t kMaxHeaders = 256;

bool isUnreserved(char in_char)
{
    return (in_char >= 'a' && in_char <= 'z') || (in_char >= 'A' && in_char <= 'Z') ||
           SipText::isDigit(in_char) || std::string_view("-_.!~*'()").find(in_char) != std::string_view::npos;
}

int hexValue(char in_char)
{
    if (SipText::isDigit(in_char))
    {
        return in_char - '0';
    }
    if (in_char >= 'a' && in_char <= 'f')
    {
        return in_char - 'a' + 10;
    }
    return in_char >= 'A' && in_char <= 'F' ? in_char - 'A' + 10 : -1;
}

// The escape at a place: its byte, or -1.
int escapeAt(std::string_view in_text, std::size_t in_pos)
{
    if (in_pos + 2 >= in_text.size() || in_text[in_pos] != '%')
    {
        return -1;
    }
    const int high = hexValue(in_text[in_pos + 1]);
    const int low = hexValue(in_text[in_pos + 2]);
    return high < 0 || low < 0 ? -1 : high * 16 + low;
}

std::string encode(std::string_view in_text, std::string_view in_alsoAllowed)
{
    constexpr std::string_view kHex = "0123456789ABCDEF";
    std::string text;
    text.reserve(in_text.size());
    for (const char c : in_text)
    {
        if (isUnreserved(c) || in_alsoAllowed.find(c) != std::string_view::npos)
        {
            text.push_back(c);
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        text.push_back('%');
        text.push_back(kHex[byte >> 4U]);
        text.push_back(kHex[byte & 15U]);
    }
    return text;
}

// One spelling for texts that are equal but for how they are escaped: only a reserved character differs from
// its escape.
std::string canonical(std::string_view in_text)
{
    std::string text;
    text.reserve(in_text.size());
    for (std::size_t i = 0; i < in_text.size(); ++i)
    {
        const int byte = escapeAt(in_text, i);
        if (byte < 0)
        {
            text.push_back(in_text[i]);
            continue;
        }
        const char c = static_cast<char>(byte);
        const bool reserved = std::string_view(";/?:@&=+$,%").find(c) != std::string_view::npos;
        text.append(reserved ? encode(std::string_view(&c, 1), {}) : std::string(1, c));
        i += 2;
    }
    return text;
}

void checkEscapes(std::string_view in_text, const char* in_szWhere)
{
    for (std::size_t i = in_text.find('%'); i != std::string_view::npos; i = in_text.find('%', i + 1))
    {
        if (escapeAt(in_text, i) < 0)
        {
            throw DsException(std::string("bad escape in the ") + in_szWhere +
                              " of URI: " + SipText::excerpt(in_text));
        }
    }
}

bool isHostName(std::string_view in_host)
{
    return !in_host.empty() && std::all_of(in_host.begin(),
                                           in_host.end(),
                                           [](char in_char)
                                           {
                                               return (in_char >= 'a' && in_char <= 'z') ||
                                                      (in_char >= 'A' && in_char <= 'Z') ||
                                                      SipText::isDigit(in_char) || in_char == '-' ||
                                                      in_char == '.' || in_char == '_';
                                           });
}

std::string_view withoutBrackets(std::string_view in_host)
{
    return in_host.size() >= 2 && in_host.front() == '[' && in_host.back() == ']'
               ? in_host.substr(1, in_host.size() - 2)
               : in_host;
}

// Parameters that count also when only one of two URIs has them.
bool isAlwaysCompared(std::string_view in_name)
{
    constexpr std::array<std::string_view, 5> kNames = {"user", "ttl", "method", "maddr", "transport"};
    return std::any_of(kNames.begin(),
                       kNames.end(),
                       [&](std::string_view in_known)
                       { return SipText::equalsIgnoreCase(in_known, in_name); });
}

// Of two parameters of one name the first counts.
bool parametersMatch(const DsSipParameters& in_lhs, const DsSipParameters& in_rhs)
{
    return std::all_of(in_lhs.getAll().begin(),
                       in_lhs.getAll().end(),
                       [&](const DsSipParameters::Parameter& in_parameter)
                       {
                           const auto other = in_rhs.get(in_parameter.m_strName);
                           return other
                                      ? SipText::equalsIgnoreCase(
                                            canonical(*in_lhs.get(in_parameter.m_strName)), canonical(*other))
                                      : !isAlwaysCompared(in_parameter.m_strName);
                       });
}

bool headersMatch(const std::vector<DsSipURL::Header>& in_lhs, const std::vector<DsSipURL::Header>& in_rhs)
{
    return in_lhs.size() == in_rhs.size() &&
           std::is_permutation(
               in_lhs.begin(),
               in_lhs.end(),
               in_rhs.begin(),
               [](const DsSipURL::Header& in_a, const DsSipURL::Header& in_b)
               { return SipText::equalsIgnoreCase(in_a.first, in_b.first) && in_a.second == in_b.second; });
}

}  // namespace

DsSipURL::~DsSipURL() = default;

DsSipURL::DsSipURL(const DsSipURL& in_other) = default;

DsSipURL::DsSipURL(std::string_view in_text)
{
    const std::string_view text = SipText::trim(in_text);
    if (std::any_of(text.begin(),
                    text.end(),
                    [](char in_char)
                    {
                        return static_cast<unsigned char>(in_char) <= ' ' || in_char == '<' ||
                               in_char == '>' || in_char == '"' || in_char == '\x7f';
                    }))
    {
        throw DsException("a character that may not stand in a URI: " + SipText::excerpt(text));
    }
    const std::size_t colon = text.find(':');
    const std::string_view scheme = text.substr(0, colon);
    if (colon == std::string_view::npos || !SipText::isToken(scheme) || SipText::isDigit(scheme.front()))
    {
        throw DsException("a URI with its scheme (\"sip:\") was expected, found " + SipText::excerpt(text));
    }
    m_strScheme = SipText::toLower(scheme);
    m_bSip = m_strScheme == "sip" || m_strScheme == "sips";
    const std::string_view rest = text.substr(colon + 1);
    if (rest.empty())
    {
        throw DsException("nothing follows the scheme of URI " + SipText::excerpt(text));
    }
    if (m_bSip)
    {
        parseSip(rest);
    }
    else
    {
        m_strUser = std::string(rest);
    }
}

DsSipURL::DsSipURL(std::string_view in_user, std::string_view in_host, std::uint16_t in_uiPort)
    : m_uiPort(in_uiPort), m_strUser(encodeUser(in_user))
{
    setHost(in_host);
}

DsHandle<DsSipURL> DsSipURL::parse(std::string_view in_text)
{
    try
    {
        const auto url = makeDs<DsSipURL>(in_text);
        return url->isSipURL() ? url : nullptr;
    }
    catch (const DsException&)
    {
        return nullptr;
    }
}

void DsSipURL::parseSip(std::string_view in_rest)
{
    std::string_view rest = in_rest;
    if (const std::size_t at = rest.find('@'); at != std::string_view::npos)
    {
        const std::string_view userinfo = rest.substr(0, at);
        const std::size_t colon = userinfo.find(':');
        m_strUser = std::string(userinfo.substr(0, colon));
        if (colon != std::string_view::npos)
        {
            m_bHasPassword = true;
            m_strPassword = std::string(userinfo.substr(colon + 1));
        }
        if (m_strUser.empty())
        {
            throw DsException("the user part of a URI is empty: " + SipText::excerpt(in_rest));
        }
        checkEscapes(userinfo, "user part");
        rest = rest.substr(at + 1);
    }
    const std::size_t question = rest.find('?');
    const std::string_view headers =
        question == std::string_view::npos ? std::string_view() : rest.substr(question + 1);
    rest = rest.substr(0, question);
    const std::size_t semicolon = rest.find(';');
    parseHostPort(rest.substr(0, semicolon));
    if (semicolon != std::string_view::npos)
    {
        checkEscapes(rest.substr(semicolon), "parameters");
        m_parameters = DsSipParameters::parse(rest.substr(semicolon));
    }
    checkEscapes(headers, "headers");
    for (std::size_t begin = 0; begin < headers.size();)
    {
        const std::size_t end = std::min(headers.find('&', begin), headers.size());
        const std::string_view header = headers.substr(begin, end - begin);
        const std::size_t equals = header.find('=');
        if (m_vHeaders.size() == kMaxHeaders)
        {
            throw DsException("at most " + std::to_string(kMaxHeaders) +
                              " headers were expected in a URI, found more");
        }
        if (equals != std::string_view::npos && equals != 0)
        {
            m_vHeaders.emplace_back(decode(header.substr(0, equals)), decode(header.substr(equals + 1)));
        }
        else if (!header.empty())
        {
            throw DsException("\"name=value\" was expected in the headers of a URI, found " +
                              SipText::excerpt(header));
        }
        begin = end + 1;
    }
}

void DsSipURL::parseHostPort(std::string_view in_text)
{
    std::size_t end = in_text.find(':');
    if (!in_text.empty() && in_text.front() == '[')
    {
        const std::size_t bracket = in_text.find(']');
        if (bracket == std::string_view::npos)
        {
            throw DsException("the bracket of an IPv6 address does not close: " + SipText::excerpt(in_text));
        }
        end = bracket + 1;
    }
    setHost(in_text.substr(0, end));
    if (end >= in_text.size())
    {
        return;
    }
    std::uint32_t port = 0;
    if (in_text[end] != ':' || !SipText::parseNumber(in_text.substr(end + 1), 65535, port) || port == 0)
    {
        throw DsException("a port from 1 to 65535 was expected in " + SipText::excerpt(in_text));
    }
    m_uiPort = static_cast<std::uint16_t>(port);
}

DsString DsSipURL::getUser() const
{
    return m_bSip ? decode(m_strUser) : DsString();
}

void DsSipURL::setUser(std::string_view in_user)
{
    m_strUser = encodeUser(in_user);
}

void DsSipURL::setHost(std::string_view in_host)
{
    const std::string_view host = withoutBrackets(in_host);
    const bool ipv6 = host.size() != in_host.size() || host.find(':') != std::string_view::npos;
    DsInetAddress address;
    if (ipv6 ? !DsInetAddress::parseLiteral(host, 0, address) : !isHostName(host))
    {
        throw DsException("a host name or an IP address was expected, found " + SipText::excerpt(in_host));
    }
    m_strHost = std::string(host);
}

DsString DsSipURL::getTransportParam() const
{
    return getParameter("transport");
}

void DsSipURL::setTransportParam(std::string_view in_transport)
{
    setParameter("transport", in_transport);
}

DsString DsSipURL::getParameter(std::string_view in_name) const
{
    return decode(m_parameters.get(in_name).value_or(std::string()));
}

void DsSipURL::setParameter(std::string_view in_name, std::string_view in_value)
{
    if (in_value.empty())
    {
        m_parameters.setFlag(in_name);
        return;
    }
    m_parameters.set(in_name, encode(in_value, "[]/:&+$"));
}

bool DsSipURL::hasHeader(std::string_view in_name) const
{
    return std::any_of(m_vHeaders.begin(),
                       m_vHeaders.end(),
                       [&](const Header& in_header)
                       { return SipText::equalsIgnoreCase(in_header.first, in_name); });
}

DsString DsSipURL::getHeader(std::string_view in_name) const
{
    const auto found = std::find_if(m_vHeaders.begin(),
                                    m_vHeaders.end(),
                                    [&](const Header& in_header)
                                    { return SipText::equalsIgnoreCase(in_header.first, in_name); });
    return found == m_vHeaders.end() ? DsString() : DsString(found->second);
}

void DsSipURL::addHeader(std::string_view in_name, std::string_view in_value)
{
    m_vHeaders.emplace_back(in_name, in_value);
}

bool DsSipURL::removeHeader(std::string_view in_name)
{
    return std::erase_if(m_vHeaders,
                         [&](const Header& in_header)
                         { return SipText::equalsIgnoreCase(in_header.first, in_name); }) != 0;
}

DsString DsSipURL::getText() const
{
    DsString text;
    append(text);
    return text;
}

void DsSipURL::append(std::string& io_strText) const
{
    io_strText.append(m_strScheme).append(":").append(m_strUser);
    if (!m_bSip)
    {
        return;
    }
    if (m_bHasPassword)
    {
        io_strText.append(":").append(m_strPassword);
    }
    if (!m_strUser.empty())
    {
        io_strText.append("@");
    }
    const bool ipv6 = m_strHost.find(':') != std::string::npos;
    io_strText.append(ipv6 ? "[" : "").append(m_strHost).append(ipv6 ? "]" : "");
    if (m_uiPort != 0)
    {
        io_strText.append(":").append(std::to_string(m_uiPort));
    }
    m_parameters.append(io_strText);
    char separator = '?';
    for (const Header& header : m_vHeaders)
    {
        io_strText.push_back(separator);
        io_strText.append(encodeHeader(header.first)).append("=").append(encodeHeader(header.second));
        separator = '&';
    }
}

bool operator==(const DsSipURL& in_lhs, const DsSipURL& in_rhs)
{
    if (in_lhs.m_strScheme != in_rhs.m_strScheme)
    {
        return false;
    }
    if (!in_lhs.m_bSip)
    {
        return in_lhs.m_strUser == in_rhs.m_strUser;
    }
    return in_lhs.m_uiPort == in_rhs.m_uiPort && in_lhs.m_bHasPassword == in_rhs.m_bHasPassword &&
           SipText::equalsIgnoreCase(in_lhs.m_strHost, in_rhs.m_strHost) &&
           canonical(in_lhs.m_strUser) == canonical(in_rhs.m_strUser) &&
           canonical(in_lhs.m_strPassword) == canonical(in_rhs.m_strPassword) &&
           parametersMatch(in_lhs.m_parameters, in_rhs.m_parameters) &&
           parametersMatch(in_rhs.m_parameters, in_lhs.m_parameters) &&
           headersMatch(in_lhs.m_vHeaders, in_rhs.m_vHeaders);
}

DsSipURL* DsSipURL::clone() const
{
    return new DsSipURL(*this);
}

int DsSipURL::compareWith(const DsObject& in_other) const
{
    const auto* const other = dynamic_cast<const DsSipURL*>(&in_other);
    if (other == nullptr)
    {
        return DsObject::compareWith(in_other);
    }
    if (*this == *other)
    {
        return 0;
    }
    const int order = getText().compare(other->getText());
    return order == 0 ? DsObject::compareWith(in_other) : order;
}

std::size_t DsSipURL::hashCode() const
{
    // What URIs may differ in and still be equal stays out.
    return std::hash<std::string>()(m_strScheme + canonical(m_strUser) + "@" + SipText::toLower(m_strHost)) ^
           m_uiPort;
}

std::ostream& DsSipURL::display(std::ostream& out_stream) const
{
    return out_stream << getText();
}

DsString DsSipURL::decode(std::string_view in_text)
{
    DsString text;
    text.reserve(in_text.size());
    for (std::size_t i = 0; i < in_text.size(); ++i)
    {
        const int byte = escapeAt(in_text, i);
        if (byte < 0)
        {
            text.push_back(in_text[i]);
            continue;
        }
        text.push_back(static_cast<char>(byte));
        i += 2;
    }
    return text;
}

DsString DsSipURL::encodeUser(std::string_view in_text)
{
    return encode(in_text, "&=+$,;?/");
}

DsString DsSipURL::encodeHeader(std::string_view in_text)
{
    return encode(in_text, "[]/?:+$");
}

}  // namespace Quorvex
