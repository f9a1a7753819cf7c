#include <algorithm>

#include "sipstack/DsException.h"
#include "sipstack/DsSipMessage.h"
#include "sipstack/DsSipRequest.h"
#include "sipstack/DsSipResponse.h"
#include "sipstack/DsSipText.h"

namespace Quorvex
{

namespace
{

constexpr std::string_view kVersion = "SIP/2.0";

DsSipMessageBuilder builderFor(std::string_view in_startLine, std::size_t in_expectedBytes)
{
    const std::string_view line = SipText::trim(in_startLine);
    const std::size_t first = line.find(' ');
    const std::size_t last = line.rfind(' ');
    const std::string_view head = line.substr(0, first);
    if (SipText::equalsIgnoreCase(head, kVersion))
    {
        std::string_view rest =
            first == std::string_view::npos ? std::string_view() : SipText::trim(line.substr(first));
        const std::string_view code = rest.substr(0, rest.find(' '));
        std::uint32_t status = 0;
        if (code.size() != 3 || !SipText::parseNumber(code, 699, status) || status < 100)
        {
            throw DsException("a status code from 100 to 699 was expected, found " + SipText::excerpt(line));
        }
        return {status, SipText::trim(rest.substr(code.size())), in_expectedBytes};
    }
    if (first == std::string_view::npos || first == last)
    {
        throw DsException("\"method URI SIP/2.0\" was expected, found " + SipText::excerpt(line));
    }
    if (!SipText::equalsIgnoreCase(line.substr(last + 1), kVersion))
    {
        throw DsException("\"SIP/2.0\" was expected at the end of the request line, found " +
                          SipText::excerpt(line));
    }
    if (!SipText::isToken(head))
    {
        throw DsException("a method was expected, found " + SipText::excerpt(head));
    }
    return {head, SipText::trim(line.substr(first, last - first)), in_expectedBytes};
}

}  // namespace

DsSipMessageBuilder::DsSipMessageBuilder(std::string_view in_method,
                                         std::string_view in_requestURI,
                                         std::size_t in_expectedBytes)
    : m_hMessage(DsSipRequest::create(in_method, in_requestURI))
{
    m_hMessage->m_strHeaders.reserve(in_expectedBytes);
}

DsSipMessageBuilder::DsSipMessageBuilder(unsigned int in_uiStatusCode,
                                         std::string_view in_reason,
                                         std::size_t in_expectedBytes)
    : m_hMessage(new DsSipResponse(in_uiStatusCode, in_reason))
{
    m_hMessage->m_strHeaders.reserve(in_expectedBytes);
}

bool DsSipMessageBuilder::addLine(std::string_view in_line)
{
    const std::size_t colon = in_line.find(':');
    const std::string_view name = SipText::trim(in_line.substr(0, colon));
    if (colon == std::string_view::npos || !SipText::isToken(name))
    {
        return false;
    }
    DsSipMessage::Line line;
    line.m_iID = DsSipHeader::getIDFromName(name);
    m_hMessage->store(line, name, SipText::trim(in_line.substr(colon + 1)));
    m_hMessage->m_vLines.push_back(std::move(line));
    return true;
}

void DsSipMessageBuilder::addHeader(std::string_view in_name, std::string_view in_value)
{
    DsSipMessage::Line line;
    line.m_iID = DsSipHeader::getIDFromName(in_name);
    m_hMessage->store(line, in_name, in_value);
    m_hMessage->m_vLines.push_back(std::move(line));
}

void DsSipMessageBuilder::setBody(std::string_view in_body)
{
    m_hMessage->m_strBody = std::string(in_body);
}

void DsSipMessageBuilder::setAddresses(const DsInetAddress& in_local, const DsInetAddress& in_source)
{
    m_hMessage->setAddresses(in_local, in_source);
}

DsHandle<DsSipMessage> DsSipMessageBuilder::build()
{
    return std::move(m_hMessage);
}

DsHandle<DsSipRequest> DsSipMessageBuilder::buildRequest()
{
    return build().dynamicCast<DsSipRequest>();
}

DsHandle<DsSipResponse> DsSipMessageBuilder::buildResponse()
{
    return build().dynamicCast<DsSipResponse>();
}

DsHandle<DsSipMessage> DsSipMessage::parse(std::string_view in_text)
{
    // Empty lines before a message mean nothing (RFC 3261 section 7.5).
    const std::size_t start = in_text.find_first_not_of("\r\n");
    if (start == std::string_view::npos)
    {
        throw DsException("a SIP message was expected, found nothing");
    }
    std::string_view rest = in_text.substr(start);
    const auto nextLine = [&rest](bool in_bFolds)
    {
        std::size_t end = 0;
        do
        {
            end = std::min(rest.find('\n', end), rest.size());
            end += end < rest.size() ? 1 : 0;
        } while (in_bFolds && end < rest.size() && (rest[end] == ' ' || rest[end] == '\t'));
        const std::string_view line = rest.substr(0, end);
        rest = rest.substr(end);
        return line;
    };
    DsSipMessageBuilder builder = builderFor(nextLine(false), in_text.size());
    while (!rest.empty())
    {
        if (rest.front() == '\n' || (rest.front() == '\r' && rest.size() > 1 && rest[1] == '\n'))
        {
            rest = rest.substr(rest.front() == '\r' ? 2 : 1);
            break;
        }
        const std::string_view line = nextLine(true);
        if (!builder.addLine(line))
        {
            throw DsException("\"name: value\" was expected, found " + SipText::excerpt(line));
        }
    }
    const std::string length = builder.m_hMessage->getHeaderValue("Content-Length");
    if (!length.empty())
    {
        std::uint32_t bytes = 0;
        if (!SipText::parseNumber(length, UINT32_MAX, bytes) || bytes > rest.size())
        {
            throw DsException("Content-Length " + SipText::excerpt(length) + " does not fit the " +
                              std::to_string(rest.size()) + " bytes that follow the headers");
        }
        rest = rest.substr(0, bytes);
    }
    builder.setBody(rest);
    return builder.build();
}

}  // namespace Quorvex
