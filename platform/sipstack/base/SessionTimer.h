#pragma once

#include <memory>
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
    class Handler
    {
    public:
        /// Half of the interval has passed and the refresh is ours to send.
        virtual void onSessionRefreshDue() = 0;
        /// The session was not refreshed in time.
        virtual void onSessionExpired() = 0;
        virtual StackThread& sessionThread() = 0;

    protected:
        ~Handler() = default;
    };

    /// The handler must outlive the timer.
    explicit SessionTimer(Handler& in_handler) : m_handler(in_handler) {}

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
    struct Timers
    {
        StackTimer m_refresh;
        StackTimer m_expiry;
    };

    Handler& m_handler;
    unsigned int m_uiInterval = 0;      // s; 0: no timer
    bool m_bOurs = false;               // the refresh is
    std::unique_ptr<Timers> m_pTimers;  // once there has been an interval
};

}  // namespace Quorvex
