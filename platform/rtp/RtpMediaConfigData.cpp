#include "rtp/RtpMediaConfigData.h"

#include <ostream>

namespace Quorvex
{

bool RtpMediaConfigData::isEqualTo(const RtpMediaConfigData& in_other) const
{
    return m_strIPAddress == in_other.m_strIPAddress && m_uiUDPPort == in_other.m_uiUDPPort &&
           m_uiPayloadType == in_other.m_uiPayloadType && m_uiPacketSizeMs == in_other.m_uiPacketSizeMs &&
           m_bRfc2833Support == in_other.m_bRfc2833Support &&
           (!m_bRfc2833Support || m_uiRfc2833PayloadType == in_other.m_uiRfc2833PayloadType);
}

std::ostream& RtpMediaConfigData::write(std::ostream& out_stream) const
{
    out_stream << "IP=" << m_strIPAddress << ", port=" << m_uiUDPPort << ", payload type=" << m_uiPayloadType
               << ", packet size=" << m_uiPacketSizeMs << "ms, RFC 2833=";
    if (m_bRfc2833Support)
    {
        return out_stream << m_uiRfc2833PayloadType;
    }
    return out_stream << "no";
}

}  // namespace Quorvex
