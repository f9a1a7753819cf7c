#include "sipstack/base/SessionTimer.h"

#include <algorithm>

namespace Quorvex
{

namespace
{

constexpr unsigned int kLongest = 7 * 24 * 3600;  // s

bool is(const char* in_szText, const char* in_szOther)
{
    return in_szText != nullptr && su_casematch(in_szText, in_szOther) != 0;
}

}  // namespace

std::string SessionTimer::offer(const DsSipStackConfig& in_config, unsigned int in_uiInterval)
{
    if (in_uiInterval == 0)
    {
        return std::string();
    }
    return "Session-Expires: " + std::to_string(in_uiInterval) +
           "\r\nMin-SE: " + std::to_string(in_config.m_uiMinSES) + "\r\nSupported: timer\r\n";
}

std::string SessionTimer::accept(const sip_t* in_pRequest, const DsSipStackConfig& in_config)
{
    const bool supported = sip_has_feature(in_pRequest->sip_supported, "timer") != 0;
    const sip_session_expires_t* const asked = in_pRequest->sip_session_expires;
    m_uiInterval = asked != nullptr
                       ? static_cast<unsigned int>(std::min<unsigned long>(asked->x_delta, kLongest))
                       : in_config.m_uiSessionExpiresS;
    if (m_uiInterval == 0)
    {
        stop();
        return std::string();
    }
    m_uiInterval = std::max(m_uiInterval, in_config.m_uiMinSES);
    if (in_pRequest->sip_min_se != nullptr)
    {
        m_uiInterval = std::max(
            m_uiInterval,
            static_cast<unsigned int>(std::min<unsigned long>(in_pRequest->sip_min_se->min_delta, kLongest)));
    }
    // One that does not know the timer cannot refresh; else the far end does, unless it has said that we
    // shall.
    m_bOurs = !supported || (asked != nullptr && is(asked->x_refresher, "uas"));
    std::string headers = "Session-Expires: " + std::to_string(m_uiInterval) +
                          (m_bOurs ? ";refresher=uas\r\n" : ";refresher=uac\r\n");
    if (!m_bOurs)
    {
        headers += "Require: timer\r\n";
    }
    restart();
    return headers;
}

void SessionTimer::agree(const sip_t* in_pResponse, const DsSipStackConfig& in_config)
{
    const sip_session_expires_t* const given = in_pResponse->sip_session_expires;
    if (given != nullptr)
    {
        m_uiInterval = static_cast<unsigned int>(std::min<unsigned long>(given->x_delta, kLongest));
        m_bOurs = !is(given->x_refresher, "uas");
    }
    else
    {
        // The far end knows no timer: what we asked for we keep by ourselves.
        m_uiInterval = m_uiInterval != 0 && m_bOurs ? m_uiInterval : in_config.m_uiSessionExpiresS;
        m_bOurs = true;
    }
    restart();
}

void SessionTimer::restart()
{
    stop();
    if (m_uiInterval == 0)
    {
        return;
    }
    if (!m_pTimers)
    {
        m_pTimers = std::make_unique<Timers>();
    }
    StackThread& thread = m_handler.sessionThread();
    const std::uint64_t interval = 1000ULL * m_uiInterval;
    if (m_bOurs)
    {
        m_pTimers->m_refresh.start(thread, interval / 2, [this] { m_handler.onSessionRefreshDue(); });
    }
    m_pTimers->m_expiry.start(thread,
                              interval - std::min<std::uint64_t>(32000, interval / 3),
                              [this] { m_handler.onSessionExpired(); });
}

void SessionTimer::stop()
{
    if (m_pTimers)
    {
        m_pTimers->m_refresh.stop();
        m_pTimers->m_expiry.stop();
    }
}

std::string SessionTimer::refreshHeaders() const
{
    return "Session-Expires: " + std::to_string(m_uiInterval) + ";refresher=uac\r\nSupported: timer\r\n";
}

}  // namespace Quorvex
