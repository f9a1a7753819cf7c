#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "CallRecord.h"
#include "OutboundParty.h"
#include "calleng/CallInfo.h"
#include "infra/MemAccount.h"
#include "quorvex/CallInterface.h"

namespace Quorvex
{

// What a leg says of where it goes: a URI, or a redirection target.
inline constexpr const char* kRequestUriKey = "sip.out.requestUri";
inline constexpr const char* kRedirectOutKey = "sip.out.redirect.Contact";

/// One leg that is tried: what became of it, for its party and for the record. Lives on the engine's thread.
class OutboundParty::Attempt
{
public:
    QUORVEX_MEM_ACCOUNT("OutboundParty::Attempt");

    using Clock = std::chrono::steady_clock;

    enum class State
    {
        eCALLING,
        eRINGING,
        eANSWERED,
        eENDING
    };

    /// The way from the network interface's side to the attempt; empty when the attempt is no more.
    struct Link
    {
        Attempt* m_pAttempt = nullptr;
    };

    Attempt(OutboundParty& in_party, unsigned int in_uiLeg, CallInfo in_callInfo)
        : m_party(in_party),
          m_uiLeg(in_uiLeg),
          m_callInfo(std::move(in_callInfo)),
          m_pLink(std::make_shared<Link>()),
          m_invited(Clock::now()),
          m_invitedAt(std::chrono::system_clock::now())
    {
        m_pLink->m_pAttempt = this;
    }
    Attempt(const Attempt&) = delete;
    Attempt& operator=(const Attempt&) = delete;
    ~Attempt() { m_pLink->m_pAttempt = nullptr; }

    void begin();
    void invite();
    void hangup(CallRecord::EndedBy in_endedBy);
    /// There is something to hear, now if not before.
    void alerted() { m_alerted = m_alerted.value_or(Clock::now()); }
    /// The leg is over: what its INVITE was really answered with (0: nothing), and who ended it.
    void answeredFinally(unsigned int in_uiStatus, CallOutInterface::Ending in_ending);
    /// Whether a 3xx has ended the leg without naming a target.
    bool isRedirectedNowhere() const { return m_uiFinalStatus / 100 == 3 && !m_bRedirected; }
    bool isAnalysed() const;
    /// What call-progress analysis has ended the leg for; empty when it has not.
    std::string failedAnalysis() const;
    CallRecord record() const;

    OutboundParty& m_party;
    const unsigned int m_uiLeg;
    const CallInfo m_callInfo;
    const std::shared_ptr<Link> m_pLink;
    std::unique_ptr<OutCallLeg> m_pLeg;
    State m_state = State::eCALLING;
    bool m_bVerdict = false;
    bool m_bRedirected = false;
    bool m_bMedia = false;
    const Clock::time_point m_invited;
    const CallRecord::TimeOfDay m_invitedAt;
    std::string m_strSipCallId;
    std::optional<Clock::time_point> m_sent;
    std::optional<Clock::time_point> m_alerted;
    std::optional<Clock::time_point> m_ringing;
    std::optional<Clock::time_point> m_answered;
    std::optional<CallRecord::EndedBy> m_endedBy;
    unsigned int m_uiFinalStatus = 0;
    unsigned int m_uiStatus = 0;
    std::string m_strReason;
    std::optional<std::int32_t> m_failure;
    std::string m_strCpa;
};

}  // namespace Quorvex
