#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CallControl.h"
#include "CallRecord.h"
#include "EngineLoop.h"
#include "OutboundParty.h"
#include "Route.h"
#include "calleng/CallLegInfo.h"
#include "infra/Logger.h"
#include "infra/MemAccount.h"
#include "infra/Parameter.h"
#include "quorvex/CallInterface.h"

namespace Quorvex
{

/// What the call engine knows of one call, and what it does with it. Lives on the engine's thread.
///
/// A call is offered (invited), then its route decides: the leg is accepted, answered, hung up, or refused by
/// a service, or as the party goes that the route's legs are placed to. Whatever happens, the leg is over
/// when the network interface lets go of its side (released), and only then; the call is over when nothing is
/// left of its party either. A call that an operator places has a party only.
class GatewayCall : private OutboundParty::Listener
{
public:
    QUORVEX_MEM_ACCOUNT("GatewayCall");

    using Clock = std::chrono::system_clock;

    enum class State
    {
        ARRIVED,
        RINGING,
        ANSWERED,
        ENDING
    };

    /// The call engine, as its calls see it.
    class Owner
    {
    public:
        Owner() = default;
        Owner(const Owner&) = delete;
        Owner& operator=(const Owner&) = delete;
        virtual ~Owner() = default;

        /// What places legs; nothing while there is no network interface.
        virtual std::optional<OutboundParty::Context> getOutbound() = 0;
        virtual void legOpened(const std::string& in_strCallId, unsigned int in_uiLeg) = 0;
        virtual void legEnded(CallRecord in_record, bool in_bHadMedia) = 0;
        /// The call may be over; must not delete it at once.
        virtual void partyGone(std::uint64_t in_ulNumber) = 0;
    };

    /// The leg is null for a call that an operator places.
    GatewayCall(EngineLoop& in_loop,
                Owner& in_owner,
                std::uint64_t in_ulNumber,
                std::string in_strCallId,
                std::unique_ptr<InCallLeg> in_pLeg);
    GatewayCall(const GatewayCall&) = delete;
    GatewayCall& operator=(const GatewayCall&) = delete;
    /// Deletes the leg.
    ~GatewayCall() override;

    /// The call is offered; the route (null for none) must stay until released().
    void invited(const CallLegInfo& in_leg, std::shared_ptr<const Route> in_pRoute);
    /// Places a call; the route says what the party gets. False when there is no network interface.
    bool place(const CallLegInfo& in_leg, std::shared_ptr<const Route> in_pRoute);
    /// The call is offered while none is taken: refused as unavailable.
    void refused(const CallLegInfo& in_leg);
    void transferRequested(const CallLegInfo& in_leg);
    void infoReceived(const std::vector<Parameter>& in_vParameters);
    /// The far end, or a failure, has ended the call.
    void disconnected();
    /// The network interface has let go of the call: what there is to record of it.
    CallRecord released();

    /// Ends the call from here, at any moment. False when it is ending already.
    bool hangup(CallRecord::EndedBy in_endedBy = CallRecord::EndedBy::LOCAL);
    /// Sends an INFO. False when it could not be queued.
    bool sendInfo(const std::vector<Parameter>& in_vParameters);

    std::uint64_t getNumber() const { return m_ulNumber; }
    const std::string& getCallId() const { return m_strCallId; }
    State getState() const { return m_state; }
    bool isReleased() const { return m_bReleased; }
    /// Whether nothing is left of it.
    bool isOver() const { return m_bReleased && (m_pParty == nullptr || m_pParty->isGone()); }
    static const char* getStateName(State in_state);
    CallView getView() const;
    /// Whether media may have flowed.
    bool hadMedia() const { return m_answered.has_value() || m_bEarlyMedia; }

private:
    std::string getRouteName() const { return m_pRoute ? m_pRoute->getName() : ""; }
    std::string getFrom() const
    {
        return m_leg.getParameterOr(m_pLeg ? "sip.in.from.uri" : "sip.out.from.uri", "");
    }
    std::string getTo() const
    {
        return m_leg.getParameterOr(m_pLeg ? "sip.in.requestUri" : "sip.out.requestUri", "");
    }
    /// The caller gets a final failure: the given status, or that of the failure's code.
    void refuse(const ConnectionFailureType& in_failure,
                std::string in_strReason,
                unsigned int in_uiStatus = 0);
    void reject();
    void ring();
    void answer();
    void startService();
    void detachService();
    bool callParty(std::vector<CallLegInfo> in_vLegs, unsigned int in_uiFirstLeg);
    void endParty();

    void partyRinging(RingType in_ringType) override;
    void partyEarlyMedia() override;
    void partyConnected(Call::ConnectionType in_type) override;
    void partyFailed(const ConnectionFailureType& in_failure) override;
    void partyDisconnected() override;
    void partyInfo(const std::vector<Parameter>& in_vParameters) override;
    void partyLegOpened(unsigned int in_uiLeg) override;
    void partyLegEnded(CallRecord in_record, bool in_bHadMedia) override;
    void partyGone() override;

    EngineLoop& m_loop;
    Owner& m_owner;
    const std::uint64_t m_ulNumber;
    const std::string m_strCallId;
    CallLogger m_logger;
    std::unique_ptr<InCallLeg> m_pLeg;
    CallLegInfo m_leg;
    std::shared_ptr<const Route> m_pRoute;
    std::unique_ptr<OutboundParty> m_pParty;
    State m_state = State::ARRIVED;
    EngineLoop::TimerId m_timer = EngineLoop::kNoTimer;
    bool m_bServiceAttached = false;
    bool m_bEarlyMedia = false;
    bool m_bReleased = false;
    Clock::time_point m_invited;
    std::optional<Clock::time_point> m_ringing;
    std::optional<Clock::time_point> m_answered;
    std::optional<CallRecord::EndedBy> m_endedBy;
    unsigned int m_uiStatus = 0;
    std::string m_strReason;
};

}  // namespace Quorvex
