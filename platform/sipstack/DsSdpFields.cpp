#include "sipstack/DsSdpFields.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "sipstack/DsException.h"
#include "sipstack/DsSipText.h"

namespace Quorvex
{

namespace
{

constexpr bool isBlank(char in_char)
{
    return in_char == ' ' || in_char == '\t';
}

/// Takes the next word off the text; empty at its end.
std::string_view takeWord(std::string_view& io_text)
{
    const auto* const pBegin = std::find_if_not(io_text.begin(), io_text.end(), isBlank);
    const auto* const pEnd = std::find_if(pBegin, io_text.end(), isBlank);
    const auto word = io_text.substr(static_cast<std::size_t>(pBegin - io_text.begin()),
                                     static_cast<std::size_t>(pEnd - pBegin));
    io_text.remove_prefix(static_cast<std::size_t>(pEnd - io_text.begin()));
    return word;
}

[[noreturn]] void refuse(const char* in_szWhat, std::string_view in_value, const std::string& in_strExpected)
{
    throw DsException(std::string(in_szWhat) + " " + SipText::excerpt(in_value) + ": expected " +
                      in_strExpected);
}

std::optional<unsigned> toNumber(std::string_view in_text, unsigned in_uiMin, unsigned in_uiMax)
{
    unsigned uiNumber = 0;
    const auto [pEnd, error] = std::from_chars(in_text.data(), in_text.data() + in_text.size(), uiNumber);
    if (error != std::errc() || pEnd != in_text.data() + in_text.size() || uiNumber < in_uiMin ||
        uiNumber > in_uiMax)
    {
        return std::nullopt;
    }
    return uiNumber;
}

}  // namespace

DsSdpOriginField::DsSdpOriginField(std::string_view in_user,
                                   std::uint64_t in_uiSessionId,
                                   std::uint64_t in_uiVersion,
                                   std::string_view in_address)
    : m_strText(in_user)
{
    m_strText.append(" ").append(std::to_string(in_uiSessionId));
    m_strText.append(" ").append(std::to_string(in_uiVersion));
    m_strText.append(" IN IP4 ").append(in_address);
}

DsSdpOriginField DsSdpOriginField::parse(std::string_view in_value)
{
    return DsSdpOriginField(std::string(in_value));
}

DsSdpTimeDescription DsSdpTimeDescription::parse(std::string_view in_value)
{
    const auto start = takeWord(in_value);
    return DsSdpTimeDescription(start, takeWord(in_value));
}

DsSdpConnectionField DsSdpConnectionField::parse(std::string_view in_value)
{
    auto rest = in_value;
    const auto netType = takeWord(rest);
    const auto addrType = takeWord(rest);
    if (SipText::trim(rest).empty())
    {
        refuse("connection", in_value, R"("IN IP4 <address>")");
    }
    rest.remove_prefix(1);
    return {netType, addrType, rest};
}

DsSdpAttributeField DsSdpAttributeField::parse(std::string_view in_value)
{
    const auto colon = in_value.find(':');
    const auto name = SipText::trim(in_value.substr(0, colon));
    if (name.empty())
    {
        refuse("attribute", in_value, R"("<name>" or "<name>:<value>")");
    }
    return colon == std::string_view::npos ? DsSdpAttributeField(name)
                                           : DsSdpAttributeField(name, in_value.substr(colon + 1));
}

DsSdpMediaField DsSdpMediaField::parse(std::string_view in_value)
{
    auto rest = in_value;
    const auto mediaType = takeWord(rest);
    const auto ports = takeWord(rest);
    const auto transport = takeWord(rest);
    if (transport.empty())
    {
        refuse("media line", in_value, R"("<media> <port> <transport> <formats>")");
    }
    const auto slash = ports.find('/');
    const auto uiPort = toNumber(ports.substr(0, slash), 0, 65535);
    if (!uiPort || (slash != std::string_view::npos && !toNumber(ports.substr(slash + 1), 1, 65535)))
    {
        refuse("media line", in_value, "a port from 0 to 65535");
    }
    return {mediaType, static_cast<std::uint16_t>(*uiPort), transport, SipText::trim(rest)};
}

DsSdpRtpAttribute DsSdpRtpAttribute::parse(std::string_view in_value)
{
    auto rest = in_value;
    const auto uiPayloadType = toNumber(takeWord(rest), 0, 127);
    if (!uiPayloadType)
    {
        refuse("rtpmap", in_value, "a payload type from 0 to 127");
    }
    const auto encoding = takeWord(rest);
    const auto slash = encoding.find('/');
    const auto name = encoding.substr(0, slash);
    if (name.empty())
    {
        refuse("rtpmap", in_value, R"("<payload type> <encoding>/<clock rate>")");
    }
    if (slash == std::string_view::npos)
    {
        return {*uiPayloadType, name, 0};
    }
    const auto rate = encoding.substr(slash + 1);
    const auto uiClockRate = toNumber(rate.substr(0, rate.find('/')), 1, 1'000'000'000);
    if (!uiClockRate)
    {
        refuse("rtpmap", in_value, "a clock rate from 1 to 1000000000");
    }
    return {*uiPayloadType, name, *uiClockRate};
}

}  // namespace Quorvex
