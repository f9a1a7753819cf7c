#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "Script.h"
#include "Timers.h"
#include "sipstack/DsSipStack.h"

namespace Quorvex
{

/// What the user agent counts; all since its start.
struct Counters
{
    std::atomic<unsigned long> m_inbound{0};
    std::atomic<unsigned long> m_outbound{0};
    std::atomic<unsigned long> m_answered{0};   ///< 200 sent or received
    std::atomic<unsigned long> m_confirmed{0};  ///< ACK received, or 200 received
    std::atomic<unsigned long> m_ended{0};      ///< calls that the stack has let go
    std::atomic<unsigned long> m_misreported{
        0};  ///< of these, the ones without exactly one closing report, or with reports after it
    std::atomic<unsigned long> m_cancelled{0};  ///< by the far end
    std::atomic<unsigned long> m_byes{0};       ///< received
    std::atomic<unsigned long> m_failed{0};  ///< placed calls that were refused, with or without a response
    std::atomic<unsigned long> m_redirected{0};  ///< placed calls that got a 3xx
    std::atomic<unsigned long> m_pracks{0};      ///< received
    std::atomic<unsigned long> m_reliable{0};    ///< reliable provisional responses received
    std::atomic<unsigned long> m_reinvitesIn{0};
    std::atomic<unsigned long> m_reinvitesConfirmed{0};  ///< of these, those whose ACK came
    std::atomic<unsigned long> m_reinvitesOk{0};         ///< ours that got a 2xx
    std::atomic<unsigned long> m_reinvitesRefused{0};    ///< ours that got something else, or nothing
    std::atomic<unsigned long> m_timeOuts{0};            ///< re-INVITEs without ACK or answer
    std::atomic<unsigned long> m_requests{0};            ///< other requests received in dialogs
    std::atomic<unsigned long> m_crossed{0};             ///< 200s received after the call was hung up
    std::atomic<unsigned long> m_thrown{0};  ///< operations that the layer refused with an exception
};

/// A user agent on the SIP object layer. Inbound calls do what the user part of the Request-URI says (see
/// Script.h; a user that is no script is answered 404), placed calls what they are told.
class UserAgent
{
public:
    UserAgent() = default;
    ~UserAgent() = default;
    UserAgent(const UserAgent&) = delete;
    UserAgent& operator=(const UserAgent&) = delete;

    bool start(const DsSipStackConfig& in_config, std::string& out_strError);
    /// Ends what is left and waits for it.
    void stop(unsigned int in_uiTimeoutMs);

    /// Places calls, at most so many per second (0: all at once). False when the script cannot be read.
    bool placeCalls(const std::string& in_strUri,
                    const std::string& in_strScript,
                    unsigned long in_ulCount,
                    unsigned int in_uiPerSecond);

    /// Ends every call.
    void hangup(std::size_t in_uiCount);

    /// Everything that is counted, as one line of "name=value".
    std::string describe() const;
    /// True when every call has ended with its one closing report and nothing is left in the layer: calls,
    /// dialogs, transactions, memory accounts. `out_strLeft` names what is.
    bool isClean(std::string& out_strLeft) const;

    // For the calls, on the SIP stack thread.
    Counters& counters() { return m_counters; }
    DsSipStack& stack() { return m_stack; }
    /// Runs a job later, on the SIP stack thread.
    void after(unsigned int in_uiMs, std::function<void()> in_job);
    void place(const std::string& in_strUri, const std::vector<Step>& in_vSteps);
    void add(class Actor& in_actor) { m_actors.insert(&in_actor); }
    void remove(class Actor& in_actor) { m_actors.erase(&in_actor); }

private:
    void placeNext(const std::string& in_strUri,
                   const std::vector<Step>& in_vSteps,
                   unsigned long in_ulCount,
                   unsigned int in_uiPerSecond);

    Counters m_counters;
    std::set<class Actor*> m_actors;  // SIP stack thread
    DsSipStack m_stack;
    Timers m_timers;
};

}  // namespace Quorvex
