#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CallControl.h"
#include "CallRecord.h"
#include "EngineLoop.h"
#include "calleng/CallInfo.h"
#include "calleng/CallLegInfo.h"
#include "infra/Logger.h"
#include "infra/MemAccount.h"
#include "infra/Parameter.h"
#include "quorvex/CallInterface.h"
#include "quorvex/GatewayNetIf.h"

namespace Quorvex
{

/// The party that a call is placed to: tries one leg after another until one is connected, redirection
/// targets included. Lives on the engine's thread.
class OutboundParty
{
public:
    QUORVEX_MEM_ACCOUNT("OutboundParty");

    /// Who is told how it goes. Called on the engine's thread; may not delete the party.
    class Listener
    {
    public:
        Listener() = default;
        Listener(const Listener&) = delete;
        Listener& operator=(const Listener&) = delete;
        virtual ~Listener() = default;

        virtual void partyRinging(RingType in_ringType) = 0;
        virtual void partyEarlyMedia() = 0;
        virtual void partyConnected(Call::ConnectionType in_type) = 0;
        /// No leg could be connected: why the last one could not. Instead of partyConnected().
        virtual void partyFailed(const ConnectionFailureType& in_failure) = 0;
        /// The connected party has hung up, or its leg has failed; or the gateway stops, and stops those too
        /// who talk to it.
        virtual void partyDisconnected(CallRecord::EndedBy in_others) = 0;
        virtual void partyInfo(const std::vector<Parameter>& in_vParameters) = 0;
        /// The connected party asks to be transferred away, to "sip.in.referTo".
        virtual void partyTransfer(const CallLegInfo& in_leg) = 0;
        /// A leg is tried; its number counts in records and among the call's streams.
        virtual void partyLegOpened(unsigned int in_uiLeg) = 0;
        /// A leg that was tried has ended: what there is to record of it.
        virtual void partyLegEnded(CallRecord in_record, bool in_bHadMedia) = 0;
        /// Nothing is left of the party; the last word.
        virtual void partyGone() = 0;
    };

    /// What a party needs; all of it must outlive the network interface's run.
    struct Context
    {
        EngineLoop& m_loop;
        OutLegEngine& m_netIf;
        /// How long a host name may take to resolve before the INVITE is tried all the same.
        unsigned int m_uiResolveMs;
    };

    OutboundParty(Context in_context,
                  Listener& in_listener,
                  std::string in_strCallId,
                  std::string in_strRoute);
    OutboundParty(const OutboundParty&) = delete;
    OutboundParty& operator=(const OutboundParty&) = delete;
    /// Deletes what legs are left.
    ~OutboundParty();

    /// Places the call on the first of the legs, of which there must be one. Once. `in_uiFirstLeg`: how the
    /// legs are counted in records.
    void place(std::vector<CallLegInfo> in_vLegs, unsigned int in_uiFirstLeg);

    /// Gives the call up, or ends it, at any moment; nothing more is tried. `in_endedBy`: LOCAL or STOP.
    void hangup(CallRecord::EndedBy in_endedBy);
    bool sendInfo(const std::vector<Parameter>& in_vParameters);

    /// The outcome of the transfer that the connected party asked for. Nothing happens without one.
    void transferAccepted(RingType in_ringType);
    void transferFailed(const ConnectionFailureType& in_failure);
    void transferSucceeded();
    /// After a success: the party stays, and its media run again.
    void resume();
    /// The URI of the connected party; empty without one.
    std::string getUri() const;

    bool isConnected() const { return m_pConnected != nullptr; }
    /// Whether no leg is left.
    bool isGone() const { return m_vAttempts.empty(); }
    void addViews(std::vector<LegView>& io_vLegs) const;

private:
    class Attempt;
    class Outgoing;
    friend class Attempt;

    void next();
    void tryNextAfter(const Attempt& in_attempt);
    void ringing(RingType in_ringType);
    void connected(Attempt& io_attempt, Call::ConnectionType in_type);
    void failed(Attempt& io_attempt, const ConnectionFailureType& in_failure);
    void redirected(Attempt& io_attempt, const CallInfo& in_targets);
    void disconnected(Attempt& io_attempt);
    void ended(Attempt& io_attempt, unsigned int in_uiStatus, CallOutInterface::Ending in_ending);
    void transferRequested(Attempt& io_attempt, const CallLegInfo& in_leg);
    void gone(Attempt& io_attempt);
    CallInfo takeTarget();

    const Context m_context;
    Listener& m_listener;
    const std::string m_strCallId;
    const std::string m_strRoute;
    CallLogger m_logger;
    // The next one stands last.
    std::vector<CallLegInfo> m_pending;
    // Redirection: the targets offered last, least preferred first; those tried of them; the leg that they
    // come from.
    CallInfo m_targets;
    std::size_t m_targetsLeft = 0;
    CallInfo m_tried;
    CallLegInfo m_redirectedLeg;
    std::vector<std::unique_ptr<Attempt>> m_vAttempts;
    Attempt* m_pConnected = nullptr;
    // The next target is tried when this leg has ended: only then it shows whether its own still counts.
    const Attempt* m_pFailed = nullptr;
    unsigned int m_uiNextLeg = 0;
    unsigned int m_uiTried = 0;
    bool m_bEnding = false;
    bool m_bVerdict = false;
};

}  // namespace Quorvex
