#pragma once

#include <functional>
#include <string>

#include "sipstack/DsSipStack.h"
#include "sipstack/base/Sofia.h"
#include "sipstack/base/StackThread.h"

namespace Quorvex
{

/// The session timer of a dialog (RFC 4028): what was agreed, and the two moments that follow from it. SIP
/// stack thread.
class SessionTimer
{
public:
    /// @param in_onRefresh half of the interval has passed and the refresh is ours to send
    /// @param in_onExpiry the session was not refreshed in time
    SessionTimer(StackThread& in_thread,
                 std::function<void()> in_onRefresh,
                 std::function<void()> in_onExpiry)
        : m_thread(in_thread), m_onRefresh(std::move(in_onRefresh)), m_onExpiry(std::move(in_onExpiry))
    {
    }

    /// The header lines of our requests that may set a timer; "" when we ask for none.
    static std::string offer(const DsSipStackConfig& in_config, unsigned int in_uiInterval);

    /// Our 2xx to a request: agrees on the terms, and gives the header lines for the answer ("" without a
    /// timer).
    std::string accept(const sip_t* in_pRequest, const DsSipStackConfig& in_config);

    /// A 2xx to a request of ours.
    void agree(const sip_t* in_pResponse, const DsSipStackConfig& in_config);

    /// Starts anew with the terms agreed on; does nothing when there are none.
    void restart();
    void stop();

    unsigned int getInterval() const { return m_uiInterval; }
    /// The header line of a refresh of ours.
    std::string refreshHeaders() const;

private:
    StackThread& m_thread;
    const std::function<void()> m_onRefresh;
    const std::function<void()> m_onExpiry;
    unsigned int m_uiInterval = 0;  // s; 0: no timer
    bool m_bOurs = false;           // the refresh is
    StackTimer m_refreshTimer;
    StackTimer m_expiryTimer;
};

}  // namespace Quorvex
