#include "media/MediaNotificationEvent.h"

#include <ostream>

namespace Quorvex
{

std::ostream& DtmfNotificationEvent::write(std::ostream& out_stream) const
{
    return out_stream << "DTMF digit=" << m_cDigit << ", duration=" << m_uiDurationMs << "ms";
}

std::ostream& CPASuccessNotificationEvent::write(std::ostream& out_stream) const
{
    return out_stream << "CPA success, connection type=" << m_iConnectionType << " (" << m_strResult << ")";
}

std::ostream& CPAFailureNotificationEvent::write(std::ostream& out_stream) const
{
    return out_stream << "CPA failure, code=" << m_iFailureCode << " (" << m_strResult << ")";
}

std::ostream& StreamStatisticsNotificationEvent::write(std::ostream& out_stream) const
{
    return out_stream << "Stream statistics: codec=" << m_statistics.m_strCodec
                      << ", sent=" << m_statistics.m_ui64Sent << ", received=" << m_statistics.m_ui64Received
                      << ", lost=" << m_statistics.m_ui64Lost << ", jitter=" << m_statistics.m_fJitterMs
                      << "ms, MOS=" << m_statistics.m_fMos;
}

}  // namespace Quorvex
