#include "sipstack/DsSipValueHeaders.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <iomanip>
#include <locale>
#include <random>
#include <sstream>

#include "sipstack/DsException.h"
#include "sipstack/DsInetAddress.h"
#include "sipstack/DsSipText.h"

namespace Quorvex
{

namespace
{

constexpr std::string_view kBlanks = " \t\r\n";

// The numbers and words that a value consists of.
std::vector<std::string_view> words(std::string_view in_text)
{
    std::vector<std::string_view> all;
    for (std::size_t begin = in_text.find_first_not_of(kBlanks); begin != std::string_view::npos;)
    {
        const std::size_t end = std::min(in_text.find_first_of(kBlanks, begin), in_text.size());
        all.push_back(in_text.substr(begin, end - begin));
        begin = in_text.find_first_not_of(kBlanks, end);
    }
    return all;
}

// RFC 3261 section 8.1.1.5: sequence numbers are below 2^31; what others send may use all 32 bits.
std::uint32_t numberOf(std::string_view in_text)
{
    std::uint32_t number = 0;
    if (!SipText::parseNumber(in_text, UINT32_MAX, number))
    {
        throw DsException("a number from 0 to 4294967295 was expected, found " + SipText::excerpt(in_text));
    }
    return number;
}

DsString methodOf(std::string_view in_text)
{
    if (!SipText::isToken(in_text))
    {
        throw DsException("a method was expected, found " + SipText::excerpt(in_text));
    }
    return DsString(in_text);
}

std::string_view upTo(std::string_view& io_text, char in_char)
{
    const std::size_t end = std::min(io_text.find(in_char), io_text.size());
    const std::string_view part = SipText::trim(io_text.substr(0, end));
    io_text = end == io_text.size() ? std::string_view() : io_text.substr(end + 1);
    return part;
}

// Branches differ between processes by a random beginning, within one by a count.
std::string newBranch()
{
    static const std::uint64_t s_ulStart = []
    {
        std::random_device random;
        return (static_cast<std::uint64_t>(random()) << 32U) | random();
    }();
    static std::atomic<std::uint64_t> s_ulCount{0};
    std::ostringstream text;
    text << "z9hG4bK" << std::hex << s_ulStart << "." << ++s_ulCount;
    return text.str();
}

}  // namespace

DsSipTextHeader::DsSipTextHeader(int in_iID, std::string_view in_value)
    : DsSipHeader(in_iID), m_strValue(SipText::unfold(SipText::trim(in_value)))
{
}

DsSipNumberHeader::DsSipNumberHeader(int in_iID, std::string_view in_value)
    : DsSipHeader(in_iID, SipText::unfold(SipText::trim(in_value)))
{
    std::string_view text = SipText::trim(in_value);
    const std::size_t end = std::min(text.find_first_not_of("0123456789"), text.size());
    m_uiNumber = numberOf(end == 0 ? text : text.substr(0, end));
    text = SipText::trim(text.substr(end));
    if (!text.empty() && text.front() == '(')
    {
        // A comment, for people.
        const std::size_t close = text.rfind(')');
        if (close == std::string_view::npos)
        {
            throw DsException("a comment does not close: " + SipText::excerpt(text));
        }
        text = text.substr(close + 1);
    }
    m_parameters = DsSipParameters::parse(text);
}

void DsSipNumberHeader::setNumber(std::uint32_t in_uiNumber)
{
    m_uiNumber = in_uiNumber;
    touch();
}

DsString DsSipNumberHeader::formatValue() const
{
    DsString text(std::to_string(m_uiNumber));
    m_parameters.append(text);
    return text;
}

DsSipTokenListHeader::DsSipTokenListHeader(int in_iID, std::string_view in_value)
    : DsSipHeader(in_iID), m_strValue(SipText::unfold(SipText::trim(in_value)))
{
    for (const std::string_view token : SipText::splitList(m_strValue))
    {
        m_vTokens.emplace_back(token);
    }
}

bool DsSipTokenListHeader::contains(std::string_view in_token) const
{
    return std::any_of(m_vTokens.begin(),
                       m_vTokens.end(),
                       [&](const std::string& in_known)
                       { return SipText::equalsIgnoreCase(in_known, in_token); });
}

DsSipParameterHeader::DsSipParameterHeader(int in_iID, std::string_view in_value)
    : DsSipHeader(in_iID, SipText::unfold(SipText::trim(in_value)))
{
    const std::size_t end = std::min(SipText::findOutside(in_value, ';'), in_value.size());
    m_strValue = DsString(SipText::unfold(SipText::trim(in_value.substr(0, end))));
    if (m_strValue.empty())
    {
        throw DsException("a value was expected before the parameters, found " + SipText::excerpt(in_value));
    }
    m_parameters = DsSipParameters::parse(in_value.substr(end));
}

void DsSipParameterHeader::setParameter(std::string_view in_name, std::string_view in_value)
{
    m_parameters.set(in_name, in_value);
    touch();
}

DsString DsSipParameterHeader::formatValue() const
{
    DsString text = m_strValue;
    m_parameters.append(text);
    return text;
}

void DsSipSessionExpiresHeader::setRefresher(std::string_view in_refresher)
{
    m_parameters.set("refresher", in_refresher);
    touch();
}

DsSipUserAgentHeader::DsSipUserAgentHeader(std::string_view in_product, std::string_view in_version)
    : DsSipTextHeader(kID,
                      in_version.empty() ? std::string(in_product)
                                         : std::string(in_product).append("/").append(in_version))
{
}

std::optional<std::time_t> DsSipDateHeader::getTime() const
{
    std::tm date{};
    std::istringstream text(getValue());
    text.imbue(std::locale::classic());
    text >> std::get_time(&date, "%a, %d %b %Y %H:%M:%S GMT");
    if (text.fail())
    {
        return std::nullopt;
    }
    const std::time_t time = ::timegm(&date);
    return time == static_cast<std::time_t>(-1) ? std::nullopt : std::optional<std::time_t>(time);
}

DsSipViaHeader::DsSipViaHeader(std::string_view in_value)
    : DsSipHeader(kID, SipText::unfold(SipText::trim(in_value)))
{
    std::string_view rest = SipText::trim(in_value);
    const std::string_view name = upTo(rest, '/');
    const std::string_view version = upTo(rest, '/');
    rest = SipText::trim(rest);
    const std::size_t blank = std::min(rest.find_first_of(kBlanks), rest.size());
    const std::string_view transport = rest.substr(0, blank);
    if (!SipText::equalsIgnoreCase(name, "SIP") || version != "2.0" || !SipText::isToken(transport))
    {
        throw DsException("\"SIP/2.0/\" and a transport was expected, found " + SipText::excerpt(in_value));
    }
    m_strTransport = DsString(transport);
    rest = SipText::trim(rest.substr(blank));
    const std::size_t semicolon = std::min(rest.find(';'), rest.size());
    std::string_view sentBy = SipText::trim(rest.substr(0, semicolon));
    std::size_t colon = sentBy.find(':');
    if (!sentBy.empty() && sentBy.front() == '[')
    {
        const std::size_t bracket = sentBy.find(']');
        colon = bracket == std::string_view::npos ? bracket : sentBy.find(':', bracket);
    }
    m_strHost = DsString(SipText::trim(sentBy.substr(0, colon)));
    if (m_strHost.empty() || m_strHost.find_first_of(kBlanks) != std::string::npos)
    {
        throw DsException("a host was expected behind the transport, found " + SipText::excerpt(in_value));
    }
    if (colon != std::string_view::npos)
    {
        const std::string_view text = SipText::trim(sentBy.substr(colon + 1));
        std::uint32_t port = 0;
        if (!SipText::parseNumber(text, 65535, port) || port == 0)
        {
            throw DsException("a port from 1 to 65535 was expected, found " + SipText::excerpt(text));
        }
        m_uiPort = static_cast<std::uint16_t>(port);
    }
    m_parameters = DsSipParameters::parse(rest.substr(semicolon));
}

void DsSipViaHeader::setTransport(std::string_view in_transport)
{
    m_strTransport = DsString(in_transport);
    touch();
}

void DsSipViaHeader::setBranchRFC3261()
{
    m_parameters.set("branch", newBranch());
    touch();
}

DsString DsSipViaHeader::formatValue() const
{
    DsString text("SIP/2.0/");
    text.append(m_strTransport).append(" ").append(m_strHost);
    if (m_uiPort != 0)
    {
        text.append(":").append(std::to_string(m_uiPort));
    }
    m_parameters.append(text);
    return text;
}

DsSipViaHeader* DsSipViaHeader::clone() const
{
    return new DsSipViaHeader(*this);
}

DsSipCSeqHeader::DsSipCSeqHeader(std::string_view in_value) : DsSipHeader(kID)
{
    const auto parts = words(in_value);
    if (parts.size() != 2)
    {
        throw DsException("a number and a method was expected, found " + SipText::excerpt(in_value));
    }
    m_uiNumber = numberOf(parts[0]);
    m_strMethod = methodOf(parts[1]);
}

DsSipCSeqHeader::DsSipCSeqHeader(std::uint32_t in_uiNumber, std::string_view in_method)
    : DsSipHeader(kID), m_uiNumber(in_uiNumber), m_strMethod(methodOf(in_method))
{
}

DsString DsSipCSeqHeader::formatValue() const
{
    return std::to_string(m_uiNumber) + " " + m_strMethod;
}

DsSipCSeqHeader* DsSipCSeqHeader::clone() const
{
    return new DsSipCSeqHeader(*this);
}

DsSipRAckHeader::DsSipRAckHeader(std::string_view in_value) : DsSipHeader(kID)
{
    const auto parts = words(in_value);
    if (parts.size() != 3)
    {
        throw DsException("two numbers and a method was expected, found " + SipText::excerpt(in_value));
    }
    m_uiResponse = numberOf(parts[0]);
    m_uiCSeq = numberOf(parts[1]);
    m_strMethod = methodOf(parts[2]);
}

DsString DsSipRAckHeader::formatValue() const
{
    return std::to_string(m_uiResponse) + " " + std::to_string(m_uiCSeq) + " " + m_strMethod;
}

DsSipRAckHeader* DsSipRAckHeader::clone() const
{
    return new DsSipRAckHeader(*this);
}

}  // namespace Quorvex
