#include "sip/SipFailure.h"

#include <ostream>

#include "sipstack/DsSipResponse.h"

namespace Quorvex::Sip
{

std::ostream& SipConnectionFailureType::write(std::ostream& out_stream) const
{
    return out_stream << "SIP " << m_uiStatusCode;
}

unsigned int getResponseCode(const ConnectionFailureType& in_failure)
{
    if (const auto* const detail = dynamic_cast<const SipConnectionFailureType*>(in_failure.getDetail()))
    {
        const unsigned int code = detail->getStatusCode();
        if (code >= 400 && code <= 699)
        {
            return code;
        }
    }
    return Call::getFailureEntry(in_failure.getFailure()).m_uiSipStatus;
}

unsigned int getResponseCode(Call::ConnectionType in_type)
{
    return Call::getConnectionTypeEntry(in_type).m_uiSipStatus;
}

bool getNotifyData(unsigned int in_uiResponseCode, NotifyData& out_data)
{
    if (in_uiResponseCode < 100 || in_uiResponseCode > 699)
    {
        return false;
    }
    out_data.m_strFragment = "SIP/2.0 " + std::to_string(in_uiResponseCode) + " " +
                             DsSipResponse::getDefaultReason(in_uiResponseCode) + "\r\n";
    out_data.m_strSubscriptionState =
        in_uiResponseCode < 200 ? "active;expires=60" : "terminated;reason=noresource";
    return true;
}

bool getNotifyData(const ConnectionFailureType& in_failure, NotifyData& out_data)
{
    return getNotifyData(getResponseCode(in_failure), out_data);
}

}  // namespace Quorvex::Sip
