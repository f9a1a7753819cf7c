#include "ReferTo.h"

#include <strings.h>

#include <algorithm>
#include <sstream>

namespace Quorvex
{

namespace
{

// RFC 3261 19.1.5: what a URI may not put into a request.
constexpr const char* kRefused[] = {"From",
                                    "To",
                                    "Call-ID",
                                    "CSeq",
                                    "Via",
                                    "Route",
                                    "Contact",
                                    "Record-Route",
                                    "Max-Forwards",
                                    "Content-Type",
                                    "body",
                                    "Content-Length",
                                    "Supported",
                                    "Allow",
                                    "User-Agent",
                                    "Expires",
                                    "Date",
                                    "Referred-By"};

bool isRefused(const std::string& in_strName)
{
    return std::any_of(std::begin(kRefused),
                       std::end(kRefused),
                       [&in_strName](const char* in_szRefused)
                       { return ::strcasecmp(in_szRefused, in_strName.c_str()) == 0; });
}

/// Where the headers begin; npos when there are none. A user may hold a question mark, too.
std::size_t findHeaders(const std::string& in_strText)
{
    const std::size_t mark = in_strText.find('?');
    const std::size_t at = in_strText.find('@');
    if (mark == std::string::npos || at == std::string::npos || at < mark)
    {
        return mark;
    }
    return in_strText.find('=', mark) < at ? mark : in_strText.find('?', at);
}

}  // namespace

ReferTo ReferTo::parse(const std::string& in_strText)
{
    ReferTo referTo;
    const std::size_t mark = findHeaders(in_strText);
    referTo.m_strUri = in_strText.substr(0, mark);
    if (mark == std::string::npos)
    {
        return referTo;
    }
    std::istringstream headers(in_strText.substr(mark + 1));
    for (std::string strHeader; std::getline(headers, strHeader, '&');)
    {
        const std::size_t equals = strHeader.find('=');
        const std::string strName = strHeader.substr(0, equals);
        const bool bControl = std::any_of(strHeader.begin(),
                                          strHeader.end(),
                                          [](unsigned char in_c) { return in_c < ' ' || in_c == 0x7f; });
        if (equals != std::string::npos && !strName.empty() && !bControl && !isRefused(strName))
        {
            referTo.m_vHeaders.emplace_back(strName, strHeader.substr(equals + 1));
        }
    }
    return referTo;
}

bool ReferTo::hasReplaces() const
{
    return std::any_of(m_vHeaders.begin(),
                       m_vHeaders.end(),
                       [](const auto& in_header)
                       { return ::strcasecmp("Replaces", in_header.first.c_str()) == 0; });
}

}  // namespace Quorvex
