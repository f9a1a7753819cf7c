#include "sipstack/DsSdpMsg.h"

#include <ostream>

#include "sipstack/DsException.h"

namespace Quorvex
{

namespace
{

void appendLine(std::string& io_strText, char in_cType, std::string_view in_value)
{
    io_strText += in_cType;
    io_strText += '=';
    io_strText.append(in_value);
    io_strText += "\r\n";
}

void appendConnection(std::string& io_strText, const DsSdpConnectionField& in_field)
{
    appendLine(
        io_strText, 'c', in_field.getNetType() + ' ' + in_field.getAddrType() + ' ' + in_field.getAddress());
}

void appendAttributes(std::string& io_strText, const DsSdpAttributeVector& in_vAttributes)
{
    for (const auto& attribute : in_vAttributes)
    {
        io_strText += "a=";
        io_strText += attribute.getName();
        if (attribute.hasValue())
        {
            io_strText += ':';
            io_strText += attribute.getValue();
        }
        io_strText += "\r\n";
    }
}

[[noreturn]] void refuseLine(std::size_t in_uiLine, const std::string& in_strFault)
{
    throw DsException("SDP line " + std::to_string(in_uiLine) + ": " + in_strFault);
}

}  // namespace

void DsSdpMediaDescription::appendTo(std::string& io_strText) const
{
    if (m_mediaField)
    {
        auto strLine = m_mediaField->getMediaType() + ' ' + std::to_string(m_mediaField->getPort()) + ' ' +
                       m_mediaField->getTransport();
        if (!m_mediaField->getFormats().empty())
        {
            strLine += ' ' + m_mediaField->getFormats();
        }
        appendLine(io_strText, 'm', strLine);
    }
    if (m_connection)
    {
        appendConnection(io_strText, *m_connection);
    }
    appendAttributes(io_strText, m_vAttributes);
}

DsHandle<DsSdpMsg> DsSdpMsg::parse(std::string_view in_text)
{
    auto hMsg = makeDs<DsSdpMsg>();
    bool bAnyLine = false;
    for (std::size_t uiLine = 1; !in_text.empty(); ++uiLine)
    {
        const auto end = in_text.find('\n');
        auto line = in_text.substr(0, end);
        in_text.remove_prefix(end == std::string_view::npos ? in_text.size() : end + 1);
        while (!line.empty() && line.back() == '\r')
        {
            line.remove_suffix(1);
        }
        if (line.empty())
        {
            continue;
        }
        if (line.find('\0') != std::string_view::npos || line.find('\r') != std::string_view::npos)
        {
            refuseLine(uiLine, "a NUL or a bare CR in it");
        }
        if (line.size() < 2 || line[0] < 'a' || line[0] > 'z' || line[1] != '=')
        {
            refuseLine(uiLine, "expected \"<letter>=<value>\"");
        }
        try
        {
            hMsg->takeLine(line[0], line.substr(2));
        }
        catch (const DsException& exception)
        {
            refuseLine(uiLine, exception.what());
        }
        bAnyLine = true;
    }
    if (!bAnyLine)
    {
        throw DsException("SDP: expected a session description, got an empty text");
    }
    return hMsg;
}

void DsSdpMsg::takeLine(char in_cType, std::string_view in_value)
{
    DsSdpMediaDescription* const pMedia = m_vMedia.empty() ? nullptr : &*m_vMedia.back();
    switch (in_cType)
    {
        case 'v':
            if (in_value.substr(0, in_value.find_last_not_of(" \t") + 1) != "0")
            {
                throw DsException("expected version 0");
            }
            break;
        case 'o':
            if (!m_origin)
            {
                m_origin = DsSdpOriginField::parse(in_value);
            }
            break;
        case 's':
            if (!m_sessionName)
            {
                m_sessionName = DsSdpSessionNameField(in_value);
            }
            break;
        case 't':
            if (!m_time)
            {
                m_time = DsSdpTimeDescription::parse(in_value);
            }
            break;
        case 'c':
        {
            auto connection = DsSdpConnectionField::parse(in_value);
            if (pMedia == nullptr && !m_connection)
            {
                m_connection = std::move(connection);
            }
            else if (pMedia != nullptr && pMedia->getConnectionField() == nullptr)
            {
                pMedia->setConnectionField(std::move(connection));
            }
            break;
        }
        case 'a':
            pMedia == nullptr ? addAttributeField(DsSdpAttributeField::parse(in_value))
                              : pMedia->addAttributeField(DsSdpAttributeField::parse(in_value));
            break;
        case 'm':
            if (m_vMedia.size() == kMaxMediaDescriptions)
            {
                throw DsException("expected no more than " + std::to_string(kMaxMediaDescriptions) +
                                  " media sections");
            }
            addMediaDescription(makeDs<DsSdpMediaDescription>(DsSdpMediaField::parse(in_value)));
            break;
        default:
            break;
    }
}

std::string DsSdpMsg::toString() const
{
    std::string strText;
    strText.reserve(512);
    appendLine(strText, 'v', "0");
    if (m_origin)
    {
        appendLine(strText, 'o', m_origin->getText());
    }
    if (m_sessionName)
    {
        appendLine(strText, 's', m_sessionName->getName());
    }
    if (m_connection)
    {
        appendConnection(strText, *m_connection);
    }
    if (m_time)
    {
        appendLine(strText, 't', m_time->getStart() + ' ' + m_time->getStop());
    }
    appendAttributes(strText, m_vAttributes);
    for (const auto& hMedia : m_vMedia)
    {
        hMedia->appendTo(strText);
    }
    return strText;
}

std::ostream& DsSdpMsg::display(std::ostream& out_stream) const
{
    return out_stream << toString();
}

}  // namespace Quorvex
