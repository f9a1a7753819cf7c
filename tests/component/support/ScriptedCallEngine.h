#pragma once

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Waiting.h"
#include "calleng/CallInfo.h"
#include "calleng/CallLegInfo.h"
#include "quorvex/CallInterface.h"
#include "quorvex/GatewayNetIf.h"

namespace Quorvex::Test
{

class ScriptedCallEngine;

/// One leg, as the scripted engine keeps it. Engine thread, unless said otherwise.
class ScriptedCall
{
public:
    const std::string& getCallId() const { return m_strCallId; }
    /// Null once deleted.
    CallLeg* getLeg() const { return m_pLeg.get(); }
    OutCallLeg* getOutLeg() const { return dynamic_cast<OutCallLeg*>(m_pLeg.get()); }
    void deleteLeg() { m_pLeg.reset(); }
    /// The targets of the last redirection; none before one.
    const CallInfo& getTargets() const { return m_targets; }

private:
    friend class ScriptedCallEngine;

    std::string m_strCallId;
    std::unique_ptr<CallLeg> m_pLeg;
    CallInfo m_targets;
};

/// A call engine with a thread of its own that records what it is told and does what the test says.
///
/// What it is told, per call: "newInCall", "invite", "transfer", "disconnected", "info", "proceeding",
/// "ringing N", "connected N", "connectFailed N", "callFailed N", "redirected", "earlyMedia", and "gone" when
/// the network interface deletes its interface. Inbound invitations are accepted at once unless
/// acceptInvitations(false) was called.
class ScriptedCallEngine final : public CallEngine
{
public:
    /// Runs on the engine's thread for each thing that it is told.
    using Script = std::function<void(ScriptedCall& io_call, const std::string& in_strWhat)>;

    ScriptedCallEngine();
    /// Deletes the legs that are left, on its thread.
    ~ScriptedCallEngine() override;

    /// Before calls come.
    void setScript(Script in_script);
    /// Whether invite() of inbound calls returns true.
    void acceptInvitations(bool in_bAccept);
    /// Whether newInCall gives an interface at all.
    void takeCalls(bool in_bTake);

    /// Places a call on the engine's thread: asks for the leg, then runs the action with it (may be null).
    void placeCall(OutLegEngine& in_engine,
                   const std::string& in_strCallId,
                   std::function<void(ScriptedCall&)> in_action);
    /// Runs a job on the engine's thread.
    void post(std::function<void()> in_job);
    /// Runs a job there and waits for it.
    void run(const std::function<void()>& in_job);
    /// Runs a job there with the call of that name and waits for it; false when there is none.
    bool runWithCall(const std::string& in_strCallId, const std::function<void(ScriptedCall&)>& in_job);
    /// Deletes all legs there.
    void deleteLegs();

    /// All that was told about a call, in order; of all calls when the identifier is empty.
    std::vector<std::string> getTold(const std::string& in_strCallId = {}) const;
    /// Waits until that has been told that often, over all calls.
    bool waitForTold(const std::string& in_strWhat, std::size_t in_count = 1) const;
    std::size_t count(const std::string& in_strWhat) const;
    /// The identifiers of the calls, in the order of their coming.
    std::vector<std::string> getCallIds() const;

    CallInInterface* newInCall(InCallLeg* in_pLeg, const char* in_szCallId) override;

private:
    class In;
    class Out;
    struct Told
    {
        std::string m_strCallId;
        std::string m_strWhat;
    };
    struct State
    {
        std::vector<Told> m_vTold;
        std::vector<std::string> m_vCallIds;
        std::vector<std::function<void()>> m_vJobs;
        Script m_script;
        bool m_bAccept = true;
        bool m_bTake = true;
        bool m_bEnd = false;
    };

    bool tell(const std::shared_ptr<ScriptedCall>& in_pCall, const std::string& in_strWhat);
    void svc();

    Awaited<State> m_state;
    // Engine thread.
    std::vector<std::shared_ptr<ScriptedCall>> m_vCalls;
    std::thread m_thread;
};

}  // namespace Quorvex::Test
