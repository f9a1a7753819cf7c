#include "sipstack/DsSipMessage.h"

#include <algorithm>
#include <limits>
#include <ostream>

#include "sipstack/DsException.h"
#include "sipstack/DsSipRequest.h"
#include "sipstack/DsSipResponse.h"
#include "sipstack/DsSipText.h"

namespace Quorvex
{

namespace
{

// Headers of which each value of a comma list is an object.
bool isValueList(int in_iID)
{
    return in_iID == DsSipHeaderID::eCONTACT || in_iID == DsSipHeaderID::eVIA ||
           in_iID == DsSipHeaderID::eROUTE || in_iID == DsSipHeaderID::eRECORD_ROUTE;
}

// As many headers a message has, as a rule, besides those that it copies.
constexpr std::size_t kOwnLines = 6;

// A value that cannot end its line.
std::string oneLine(std::string_view in_value)
{
    std::string value(in_value);
    std::replace_if(
        value.begin(), value.end(), [](char in_char) { return in_char == '\r' || in_char == '\n'; }, ' ');
    return value;
}

}  // namespace

DsSipMessage::~DsSipMessage() = default;

DsSipMessage::DsSipMessage(const DsSipMessage& in_other)
    : DsObject(in_other),
      m_strBody(in_other.m_strBody),
      m_localAddress(in_other.m_localAddress),
      m_sourceAddress(in_other.m_sourceAddress),
      m_connectionAddress(in_other.m_connectionAddress)
{
    const std::lock_guard<std::mutex> lock(in_other.m_mutex);
    m_strHeaders.reserve(in_other.m_strHeaders.size());
    m_vLines.reserve(in_other.m_vLines.size());
    for (const Line& line : in_other.m_vLines)
    {
        Line copy;
        copy.m_iID = line.m_iID;
        const bool modified = isModified(line);
        store(copy,
              in_other.nameOf(line),
              modified ? in_other.valueOf(line) : std::string(in_other.rawValueOf(line)));
        m_vLines.push_back(std::move(copy));
    }
}

std::string_view DsSipMessage::nameOf(const Line& in_line) const
{
    return std::string_view(m_strHeaders).substr(in_line.m_uiName, in_line.m_uiNameLength);
}

std::string_view DsSipMessage::rawValueOf(const Line& in_line) const
{
    return std::string_view(m_strHeaders).substr(in_line.m_uiValue, in_line.m_uiValueLength);
}

// With m_mutex held, or by the owner, as valueOf().
bool DsSipMessage::isModified(const Line& in_line)
{
    return std::any_of(in_line.m_vTyped.begin(),
                       in_line.m_vTyped.end(),
                       [](const DsHandle<DsSipHeader>& in_h) { return in_h->m_bModified; });
}

std::string DsSipMessage::valueOf(const Line& in_line) const
{
    std::string value;
    appendValue(value, in_line);
    return value;
}

void DsSipMessage::appendValue(std::string& io_strText, const Line& in_line) const
{
    if (!isModified(in_line))
    {
        const std::string_view value = rawValueOf(in_line);
        SipText::isFolded(value) ? io_strText.append(SipText::unfold(value)) : io_strText.append(value);
        return;
    }
    const char* separator = "";
    for (const DsHandle<DsSipHeader>& header : in_line.m_vTyped)
    {
        io_strText.append(separator).append(header->getValueText());
        separator = ", ";
    }
}

bool DsSipMessage::hasName(const Line& in_line, int in_iID, std::string_view in_name) const
{
    return in_line.m_iID == in_iID &&
           (in_iID != DsSipHeaderID::eUNKNOWN || SipText::equalsIgnoreCase(nameOf(in_line), in_name));
}

void DsSipMessage::store(Line& out_line, std::string_view in_name, std::string_view in_value)
{
    if (m_strHeaders.size() + in_name.size() + in_value.size() > std::numeric_limits<std::uint32_t>::max())
    {
        throw DsException("the headers of a message are longer than 4 GiB");
    }
    out_line.m_uiName = static_cast<std::uint32_t>(m_strHeaders.size());
    out_line.m_uiNameLength = static_cast<std::uint32_t>(in_name.size());
    m_strHeaders.append(in_name);
    out_line.m_uiValue = static_cast<std::uint32_t>(m_strHeaders.size());
    out_line.m_uiValueLength = static_cast<std::uint32_t>(in_value.size());
    m_strHeaders.append(in_value);
}

void DsSipMessage::insertLine(int in_iID, std::string_view in_name, std::string_view in_value)
{
    forgetTyped(in_iID);
    Line line;
    line.m_iID = in_iID;
    store(line, in_name, in_value);
    const auto last = std::find_if(m_vLines.rbegin(),
                                   m_vLines.rend(),
                                   [&](const Line& in_line) { return hasName(in_line, in_iID, in_name); });
    m_vLines.insert(last == m_vLines.rend() ? m_vLines.end() : last.base(), std::move(line));
}

// The texts of changed header objects are kept; the objects lose their message.
void DsSipMessage::forgetTyped(int in_iID)
{
    for (Line& line : m_vLines)
    {
        if (line.m_iID != in_iID || line.m_vTyped.empty())
        {
            continue;
        }
        if (isModified(line))
        {
            const std::string name(nameOf(line));
            const std::string value = valueOf(line);
            store(line, name, value);
        }
        line.m_vTyped.clear();
    }
}

// With m_mutex held.
void DsSipMessage::makeTypedLine(Line& io_line) const
{
    const std::string_view name = nameOf(io_line);
    const std::string value = SipText::unfold(rawValueOf(io_line));
    std::vector<std::string_view> values;
    if (isValueList(io_line.m_iID))
    {
        values = SipText::splitList(value);
    }
    if (values.empty())
    {
        values.emplace_back(value);
    }
    io_line.m_vTyped.reserve(values.size());
    for (const std::string_view text : values)
    {
        try
        {
            io_line.m_vTyped.push_back(DsSipHeader::create(name, text));
        }
        catch (const DsException& e)
        {
            io_line.m_vTyped.emplace_back(new DsSipUnknownHeader(io_line.m_iID, name, text, e.getReason()));
        }
    }
}

// With m_mutex held.
void DsSipMessage::makeTyped(int in_iID) const
{
    DsHandle<DsSipHeader> last;
    for (Line& line : m_vLines)
    {
        if (line.m_iID != in_iID)
        {
            continue;
        }
        if (!line.m_vTyped.empty())
        {
            return;
        }
        makeTypedLine(line);
        for (const DsHandle<DsSipHeader>& header : line.m_vTyped)
        {
            if (!last.isNil())
            {
                last->m_hNext = header;
            }
            last = header;
        }
    }
}

DsSipMessage::HeaderLine DsSipMessage::getHeaderAt(std::size_t in_index) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const Line& line = m_vLines.at(in_index);
    return {line.m_iID, nameOf(line), valueOf(line)};
}

void DsSipMessage::appendHeaders(std::string& io_strText,
                                 const std::function<bool(int in_iID)>& in_isWanted) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (const Line& line : m_vLines)
    {
        if (in_isWanted(line.m_iID))
        {
            io_strText.append(nameOf(line)).append(": ");
            appendValue(io_strText, line);
            io_strText.append("\r\n");
        }
    }
}

DsHandle<DsSipHeader> DsSipMessage::getHeaderByID(int in_iID) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = std::find_if(
        m_vLines.begin(), m_vLines.end(), [&](const Line& in_line) { return in_line.m_iID == in_iID; });
    if (found == m_vLines.end())
    {
        return nullptr;
    }
    makeTyped(in_iID);
    return found->m_vTyped.front();
}

DsHandle<DsSipHeader> DsSipMessage::getReadable(int in_iID) const
{
    DsHandle<DsSipHeader> header = getHeaderByID(in_iID);
    if (const auto* const unreadable = dynamic_cast<const DsSipUnknownHeader*>(header.get());
        unreadable != nullptr && !unreadable->getError().empty())
    {
        throw DsException(unreadable->getError());
    }
    return header;
}

DsHandle<DsSipHeader> DsSipMessage::getHeader(std::string_view in_name) const
{
    const int id = DsSipHeader::getIDFromName(in_name);
    DsHandle<DsSipHeader> header = getHeaderByID(id);
    while (id == DsSipHeaderID::eUNKNOWN && !header.isNil() &&
           !SipText::equalsIgnoreCase(header->getToken(), in_name))
    {
        header = header->getNext();
    }
    return header;
}

bool DsSipMessage::hasHeader(std::string_view in_name) const
{
    const int id = DsSipHeader::getIDFromName(in_name);
    return std::any_of(
        m_vLines.begin(), m_vLines.end(), [&](const Line& in_line) { return hasName(in_line, id, in_name); });
}

DsString DsSipMessage::getHeaderValue(std::string_view in_name) const
{
    const int id = DsSipHeader::getIDFromName(in_name);
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = std::find_if(
        m_vLines.begin(), m_vLines.end(), [&](const Line& in_line) { return hasName(in_line, id, in_name); });
    return found == m_vLines.end() ? DsString() : DsString(valueOf(*found));
}

DsString DsSipMessage::getCallID() const
{
    return getHeaderValue("Call-ID");
}

DsString DsSipMessage::getFromTag() const
{
    const auto header = getHeaderByID(DsSipHeaderID::eFROM).dynamicCast<DsSipFromHeader>();
    return header.isNil() ? DsString() : header->getTag();
}

DsString DsSipMessage::getToTag() const
{
    const auto header = getHeaderByID(DsSipHeaderID::eTO).dynamicCast<DsSipToHeader>();
    return header.isNil() ? DsString() : header->getTag();
}

void DsSipMessage::addHeader(const DsHandle<DsSipHeader>& in_hHeader)
{
    if (in_hHeader.isNil())
    {
        throw DsException("a header was expected, found nil");
    }
    addHeader(*in_hHeader);
}

void DsSipMessage::addHeader(const DsSipHeader& in_header)
{
    addHeader(in_header.getToken(), in_header.getValueText());
}

void DsSipMessage::addHeader(std::string_view in_name, std::string_view in_value)
{
    if (!SipText::isToken(in_name))
    {
        throw DsException("a header name was expected, found " + SipText::excerpt(in_name));
    }
    insertLine(DsSipHeader::getIDFromName(in_name), in_name, oneLine(in_value));
}

bool DsSipMessage::removeHeader(std::string_view in_name)
{
    const int id = DsSipHeader::getIDFromName(in_name);
    if (!hasHeader(in_name))
    {
        return false;
    }
    forgetTyped(id);
    return std::erase_if(m_vLines, [&](const Line& in_line) { return hasName(in_line, id, in_name); }) != 0;
}

bool DsSipMessage::removeHeaderByID(int in_iID)
{
    return std::erase_if(m_vLines, [&](const Line& in_line) { return in_line.m_iID == in_iID; }) != 0;
}

void DsSipMessage::updateHeader(const DsSipHeader& in_header)
{
    // The texts first: the header may be one of this message.
    const DsString name = in_header.getToken();
    const DsString value = in_header.getValueText();
    removeHeader(name);
    addHeader(name, value);
}

void DsSipMessage::copyHeaders(const DsSipMessage& in_other, std::initializer_list<int> in_ids)
{
    const std::lock_guard<std::mutex> lock(in_other.m_mutex);
    m_vLines.reserve(m_vLines.size() + in_ids.size() + kOwnLines);
    m_strHeaders.reserve(m_strHeaders.size() + in_other.m_strHeaders.size() / 2);
    for (const int iID : in_ids)
    {
        forgetTyped(iID);
        for (const Line& line : in_other.m_vLines)
        {
            if (line.m_iID != iID)
            {
                continue;
            }
            Line copy;
            copy.m_iID = iID;
            const std::string_view value = in_other.rawValueOf(line);
            if (isModified(line) || SipText::isFolded(value))
            {
                store(copy, in_other.nameOf(line), in_other.valueOf(line));
            }
            else
            {
                store(copy, in_other.nameOf(line), value);
            }
            m_vLines.push_back(std::move(copy));
        }
    }
}

bool DsSipMessage::isListed(int in_iID, std::string_view in_token) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (const Line& line : m_vLines)
    {
        if (line.m_iID != in_iID)
        {
            continue;
        }
        const std::string value = valueOf(line);
        for (const std::string_view token : SipText::splitList(value))
        {
            if (SipText::equalsIgnoreCase(token, in_token))
            {
                return true;
            }
        }
    }
    return false;
}

bool DsSipMessage::isSupported(std::string_view in_optionTag) const
{
    return isListed(DsSipHeaderID::eSUPPORTED, in_optionTag);
}

bool DsSipMessage::isRequired(std::string_view in_optionTag) const
{
    return isListed(DsSipHeaderID::eREQUIRE, in_optionTag);
}

DsString DsSipMessage::getBodyType() const
{
    const std::string value = getHeaderValue("Content-Type");
    return DsString(SipText::trim(std::string_view(value).substr(0, value.find(';'))));
}

void DsSipMessage::setBody(std::string_view in_body, std::string_view in_type)
{
    m_strBody = std::string(in_body);
    removeHeaderByID(DsSipHeaderID::eCONTENT_TYPE);
    if (!in_body.empty())
    {
        addHeader("Content-Type", in_type);
    }
    updateContentLength();
}

void DsSipMessage::updateContentLength()
{
    if (removeHeaderByID(DsSipHeaderID::eCONTENT_LENGTH))
    {
        addHeader("Content-Length", std::to_string(m_strBody.size()));
    }
}

void DsSipMessage::setAddresses(const DsInetAddress& in_local, const DsInetAddress& in_source)
{
    m_localAddress = in_local;
    m_sourceAddress = in_source;
}

std::string DsSipMessage::getText() const
{
    std::string text;
    text.reserve(m_strHeaders.size() + m_vLines.size() * 4 + m_strBody.size() + 128);
    text.append(getStartLine()).append("\r\n");
    const std::lock_guard<std::mutex> lock(m_mutex);
    bool hasLength = false;
    for (const Line& line : m_vLines)
    {
        text.append(nameOf(line)).append(": ");
        if (line.m_iID == DsSipHeaderID::eCONTENT_LENGTH)
        {
            hasLength = true;
            text.append(std::to_string(m_strBody.size()));
        }
        else if (!isModified(line))
        {
            text.append(rawValueOf(line));
        }
        else
        {
            text.append(valueOf(line));
        }
        text.append("\r\n");
    }
    if (!hasLength)
    {
        text.append("Content-Length: ").append(std::to_string(m_strBody.size())).append("\r\n");
    }
    text.append("\r\n").append(m_strBody);
    return text;
}

std::ostream& DsSipMessage::display(std::ostream& out_stream) const
{
    return out_stream << getText();
}

}  // namespace Quorvex
