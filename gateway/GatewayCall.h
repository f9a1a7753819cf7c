#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CallControl.h"
#include "CallEnd.h"
#include "CallRecord.h"
#include "CallerLeg.h"
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
/// a service, or as the party goes that the route's legs are placed to. A call that an operator places has no
/// caller. Two ends talk, or one end with a service; a transfer puts a new party, or a service, in the place
/// of one of them, which then leaves. Whatever happens, the caller's leg is over when the network interface
/// lets go of its side (released), and only then; the call is over when nothing is left of its other parties
/// either.
class GatewayCall
{
public:
    QUORVEX_MEM_ACCOUNT("GatewayCall");

    using Clock = std::chrono::steady_clock;

    /// How long a party that was transferred away has to hang up by itself.
    static constexpr unsigned int kLeaveMs = 2000;

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
        virtual bool takesCalls() const = 0;
        /// The route for a new call; null when there is none.
        virtual std::shared_ptr<const Route> findRoute(const CallLegInfo& in_leg) const = 0;
        /// How a URI leads back to this gateway: "udp" or "tcp"; empty when it leads elsewhere.
        virtual std::string getTransportToSelf(const std::string& in_strUri) const = 0;
        virtual void legOpened(const std::string& in_strCallId, unsigned int in_uiLeg) = 0;
        virtual void legEnded(CallRecord in_record, bool in_bHadMedia) = 0;
        /// A transfer that a party, or else an operator, asked for has succeeded or failed.
        virtual void transferEnded(bool in_bByParty, bool in_bDone) = 0;
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
    ~GatewayCall();

    /// The call is offered; null: there is no route.
    void invited(const CallLegInfo& in_leg, std::shared_ptr<const Route> in_pRoute);
    /// Places a call; the route says what the party gets. False when there is no network interface.
    bool place(const CallLegInfo& in_leg, std::shared_ptr<const Route> in_pRoute);
    /// The call is offered while none is taken: refused as unavailable.
    void refused(const CallLegInfo& in_leg);
    /// What was said of the caller's leg last was not heard.
    void sayAgain();
    /// The call is over before it could be offered.
    void notOffered(const CallLegInfo& in_leg);
    /// The caller asks to be transferred away, to "sip.in.referTo".
    void transferRequested(const CallLegInfo& in_leg);
    void infoReceived(const std::vector<Parameter>& in_vParameters);
    /// The caller, or a failure, has ended the caller's leg.
    void disconnected();
    /// What the caller was really answered with (0: nothing), and who ended its leg.
    void answeredFinally(unsigned int in_uiStatus, CallInInterface::Ending in_ending);
    /// The network interface has let go of the caller's leg: what there is to record of it.
    CallRecord released();

    /// Ends the call from here, at any moment. False when it is ending already.
    bool hangup(CallRecord::EndedBy in_endedBy = CallRecord::EndedBy::LOCAL);
    /// Sends an INFO to the caller, or who took its place. False when it could not be queued.
    bool sendInfo(const std::vector<Parameter>& in_vParameters);
    /// Places a leg whose party takes the place of the one that the caller talks to, or of its service, when
    /// it answers. An answered call only. Why not, in one sentence; empty when the leg is being placed.
    std::string transfer(CallLegInfo in_leg);

    std::uint64_t getNumber() const { return m_ulNumber; }
    const std::string& getCallId() const { return m_strCallId; }
    CallState getState() const { return m_state; }
    /// How long nothing has changed: its state, and the legs that are tried.
    std::chrono::milliseconds getStateAge() const
    {
        return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - m_moved);
    }
    bool isReleased() const { return m_pCaller == nullptr || m_pCaller->isReleased(); }
    /// Forgets the parties that are gone. Not from inside a call of partyGone().
    void dropGone();
    /// Whether nothing is left of it.
    bool isOver() const;
    CallView getView() const;
    /// Whether the caller's media may have flowed.
    bool hadMedia() const { return m_pCaller != nullptr && m_pCaller->hadMedia(); }

private:
    class Party;
    friend class Party;

    /// A transfer until it has an outcome.
    struct Transfer
    {
        /// Who leaves when it succeeds; null: nobody does, or it has left already.
        CallEnd* m_pLeaving = nullptr;
        /// Who asked and is told how it goes; null: an operator asked, or it has left already.
        CallEnd* m_pAsking = nullptr;
        bool m_bByParty = false;
        /// Whether it has been told that the new party is alerted.
        bool m_bAlerted = false;
        /// The party that is called; null when a service takes the place.
        Party* m_pParty = nullptr;
        std::shared_ptr<const Route> m_pRoute;
    };

    void setState(CallState in_state);
    std::string getRouteName() const { return m_pRoute ? m_pRoute->getName() : ""; }
    std::string getFrom() const;
    std::string getTo() const;
    void refuse(const ConnectionFailureType& in_failure,
                std::string in_strReason,
                unsigned int in_uiStatus = 0);
    void reject();
    void ring();
    void answer();
    bool startService(const Route& in_route);
    void detachService();
    void schedule(unsigned int in_uiMs, EngineLoop::Job in_job);
    void hangupAfter(const Route& in_route);
    Party* callParty(std::vector<CallLegInfo> in_vLegs, const std::string& in_strRoute);
    /// Everybody who is left is hung up.
    void end(CallRecord::EndedBy in_endedBy);
    CallEnd* otherEnd(const CallEnd& in_end) const;
    void ended(CallEnd& in_end, CallRecord::EndedBy in_others);

    void ringing(Party& io_party, RingType in_ringType);
    void earlyMedia(Party& io_party);
    void connected(Party& io_party, Call::ConnectionType in_type);
    void failed(Party& io_party, const ConnectionFailureType& in_failure);

    void transferRequested(CallEnd& io_asking, const CallLegInfo& in_leg);
    void transferAlerting(RingType in_ringType);
    void transferToService();
    void transferDone();
    void transferFailed(const ConnectionFailureType& in_failure);
    bool isTransferTo(const Party& in_party) const
    {
        return m_transfer.has_value() && m_transfer->m_pParty == &in_party;
    }

    EngineLoop& m_loop;
    Owner& m_owner;
    const std::uint64_t m_ulNumber;
    const std::string m_strCallId;
    CallLogger m_logger;
    CallState m_state = CallState::ARRIVED;
    const Clock::time_point m_begun;
    Clock::time_point m_moved;
    std::unique_ptr<CallerLeg> m_pCaller;
    std::vector<std::unique_ptr<Party>> m_vParties;
    // Who talks: the caller or who took its place, and who it was placed to. The second is null while the
    // first has a service.
    CallEnd* m_pFirst = nullptr;
    CallEnd* m_pSecond = nullptr;
    std::shared_ptr<const Route> m_pRoute;
    // Of a call that was placed.
    CallLegInfo m_placed;
    unsigned int m_uiNextLeg = 0;
    EngineLoop::TimerId m_timer = EngineLoop::kNoTimer;
    bool m_bServiceAttached = false;
    bool m_bServed = false;

    std::optional<Transfer> m_transfer;
    EngineLoop::TimerId m_transferTimer = EngineLoop::kNoTimer;
    CallEnd* m_pLeaving = nullptr;
    EngineLoop::TimerId m_leaveTimer = EngineLoop::kNoTimer;
};

}  // namespace Quorvex
