#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CallEnd.h"
#include "calleng/CallLegInfo.h"
#include "infra/MemAccount.h"
#include "quorvex/CallInterface.h"

namespace Quorvex
{

/// Where a call, or its caller's leg, is in its life.
enum class CallState
{
    ARRIVED,
    RINGING,
    ANSWERED,
    ENDING
};

/// "arrived", "ringing", "answered", "ending".
const char* toText(CallState in_state);

/// The leg of a call that arrived: what the caller is told, and what there is to record of it. On the
/// engine's thread.
class CallerLeg final : public CallEnd
{
public:
    QUORVEX_MEM_ACCOUNT("CallerLeg");

    using Clock = std::chrono::steady_clock;

    explicit CallerLeg(std::unique_ptr<InCallLeg> in_pLeg);

    void setOffer(const CallLegInfo& in_offer) { m_offer = in_offer; }
    const CallLegInfo& getOffer() const { return m_offer; }

    void ring(RingType in_ringType);
    /// Media before the answer; once, and not when the call is answered already.
    void startEarlyMedia();
    /// The call is answered, or refused for what the analysis of the other end has heard. Whether it is
    /// answered.
    bool answer(Call::ConnectionType in_type);
    /// A final failure with the given status; 0: that of the failure's code.
    void refuse(const ConnectionFailureType& in_failure,
                std::string in_strReason,
                unsigned int in_uiStatus = 0);
    /// Repeats the verdict: answered or refused.
    void sayAgain();
    /// The caller has hung up, or its leg has failed.
    void disconnected();
    /// What the INVITE was really answered with (0: nothing), and whether the caller kept silent for too
    /// long.
    void answeredFinally(unsigned int in_uiStatus, CallInInterface::Ending in_ending);
    /// The network interface has let go of the leg: it is deleted.
    void release();

    void hangup(CallRecord::EndedBy in_endedBy) override;
    bool sendInfo(const std::vector<Parameter>& in_vParameters) override;
    void transferAccepted(RingType in_ringType) override;
    void transferFailed(const ConnectionFailureType& in_failure) override;
    void transferSucceeded() override;
    void resume() override;
    std::string getUri() const override;

    CallState getState() const { return m_state; }
    bool isReleased() const { return m_pLeg == nullptr; }
    /// Whether media may have flowed.
    bool hadMedia() const { return m_answered.has_value() || m_bEarlyMedia; }
    std::string getTo() const;
    std::chrono::milliseconds getAge() const;
    Clock::time_point getArrived() const { return m_arrived; }
    /// Its own part of a record: parties, times and how it ended. A leg that was let go without a word has
    /// been ended as `in_silently` says.
    CallRecord record(CallRecord::EndedBy in_silently) const;

private:
    template <class Verdict>
    void say(Verdict in_verdict);

    std::unique_ptr<InCallLeg> m_pLeg;
    CallLegInfo m_offer;
    CallState m_state = CallState::ARRIVED;
    bool m_bEarlyMedia = false;
    // The verdict, kept where it may go unheard: after early media.
    std::function<void(InCallLeg&)> m_verdict;
    const Clock::time_point m_arrived;
    const CallRecord::TimeOfDay m_arrivedAt;
    std::optional<Clock::time_point> m_ringing;
    std::optional<Clock::time_point> m_answered;
    std::optional<CallRecord::EndedBy> m_endedBy;
    unsigned int m_uiStatus = 0;
    std::string m_strReason;
};

}  // namespace Quorvex
