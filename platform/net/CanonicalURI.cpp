#include "net/CanonicalURI.h"

#include <chrono>

#include "infra/Logger.h"
#include "net/HostResolver.h"

namespace Quorvex
{

namespace
{
bool startsWithNoCase(std::string_view in_text, std::string_view in_lowerPrefix)
{
    if (in_text.size() < in_lowerPrefix.size())
    {
        return false;
    }
    for (std::size_t i = 0; i < in_lowerPrefix.size(); ++i)
    {
        const char c = in_text[i];
        if ((c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c) != in_lowerPrefix[i])
        {
            return false;
        }
    }
    return true;
}

/// The URI inside a name-addr ("display" <sip:...>;tag=1), or all of it. A display name may hold a quoted
/// '<'.
std::string_view insideBrackets(std::string_view in_uri)
{
    bool bQuoted = false;
    for (std::size_t i = 0; i < in_uri.size(); ++i)
    {
        if (bQuoted && in_uri[i] == '\\')
        {
            ++i;
        }
        else if (in_uri[i] == '"')
        {
            bQuoted = !bQuoted;
        }
        else if (!bQuoted && in_uri[i] == '<')
        {
            in_uri.remove_prefix(i + 1);
            return in_uri.substr(0, in_uri.find('>'));
        }
    }
    const std::size_t first = in_uri.find_first_not_of(" \t");
    return first == std::string_view::npos ? std::string_view() : in_uri.substr(first);
}
}  // namespace

bool findHostInURI(std::string_view in_uri, std::string_view& out_host)
{
    std::string_view uri = insideBrackets(in_uri);
    if (startsWithNoCase(uri, "sip:"))
    {
        uri.remove_prefix(4);
    }
    else if (startsWithNoCase(uri, "sips:"))
    {
        uri.remove_prefix(5);
    }
    else
    {
        return false;
    }
    // A user part may hold ';', '?' and '/', but no bare '@'; parameters and headers may hold an '@' only in
    // a URI without a user part, which nobody sends unescaped.
    const std::size_t at = uri.find('@');
    if (at != std::string_view::npos)
    {
        uri.remove_prefix(at + 1);
    }
    if (!uri.empty() && uri.front() == '[')
    {
        const std::size_t close = uri.find(']');
        out_host = close == std::string_view::npos ? std::string_view() : uri.substr(0, close + 1);
    }
    else
    {
        out_host = uri.substr(0, uri.find_first_of(":;?> \t,"));
    }
    return !out_host.empty();
}

bool canonicalizeURI(const std::string& in_strURI,
                     std::string& out_strCanonical,
                     const ACE_Time_Value& in_timeout)
{
    static const StaticLogger s_logger("quorvex.net.CanonicalURI");
    out_strCanonical = in_strURI;
    std::string_view host;
    if (!findHostInURI(in_strURI, host))
    {
        QLOG_DEBUG(s_logger, "no host in \"" << in_strURI << '"');
        return false;
    }
    const std::string strHost(host);
    if (Net::HostResolver::isAddress(strHost))
    {
        return true;
    }
    const auto timeout =
        std::chrono::seconds(in_timeout.sec()) + std::chrono::microseconds(in_timeout.usec());
    std::string strAddress;
    if (!Net::HostResolver::instance().resolve(strHost, timeout, strAddress))
    {
        QLOG_DEBUG(s_logger, "no address for \"" << strHost << '"');
        return false;
    }
    if (strAddress.find(':') != std::string::npos)
    {
        strAddress = '[' + strAddress + ']';
    }
    const auto position = static_cast<std::size_t>(host.data() - in_strURI.data());
    out_strCanonical.replace(position, host.size(), strAddress);
    return true;
}

}  // namespace Quorvex
