#include "sip-common/MySipUtils.h"

#include <ostream>

#include "sipstack/DsException.h"
#include "sipstack/DsSipURL.h"

namespace Quorvex
{

namespace
{

bool isAddress(std::string_view in_uri)
{
    try
    {
        return !makeDs<DsSipURL>(in_uri)->getScheme().empty();
    }
    catch (const DsException&)
    {
        return false;
    }
}

}  // namespace

bool MySipUtils::sIsValidRequestURI(std::string_view in_uri)
{
    const DsHandle<DsSipURL> url = DsSipURL::parse(in_uri);
    // RFC 3261 section 19.1.1: a Request-URI carries neither headers nor a method.
    return !url.isNil() && url->getHeaders().empty() && !url->hasParameter("method");
}

bool MySipUtils::sIsValidToHeader(std::string_view in_uri)
{
    return isAddress(in_uri);
}

bool MySipUtils::sIsValidFromHeader(std::string_view in_uri)
{
    return isAddress(in_uri);
}

std::string MySipUtils::serializeSipMsgBody(const DsHandle<DsSipMessage>& in_hMessage)
{
    return in_hMessage.isNil() ? std::string() : in_hMessage->getBody();
}

std::ostream& MySipUtils::serializeSipMsgBody(const DsHandle<DsSipMessage>& in_hMessage,
                                              std::ostream& out_stream)
{
    return in_hMessage.isNil() ? out_stream : out_stream << in_hMessage->getBody();
}

}  // namespace Quorvex
