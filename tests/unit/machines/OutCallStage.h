#pragma once

#include <memory>
#include <string>

#include "CallStage.h"
#include "Callee.h"
#include "OutStateMachine.h"

namespace Quorvex::Test
{

/// Outbound calls.
class OutCallStage : public CallStage<OutStateMachine>
{
public:
    OutCallStage() : CallStage(0) {}

    /// Brings a new call into a state, by its name.
    void bringTo(const std::string& in_strState);

    /// The called party does its part until the network interface, which is stopping, has stopped: it answers
    /// a CANCEL and the INVITE with it, or a BYE. The call engine, which knows no better, places the call
    /// that it has not placed yet. False when the network interface does not stop, or stops while a request
    /// of ours is unanswered.
    bool followStop(bool in_bKilled = false);

    /// The party of the present call.
    Callee& callee() { return *m_pCallee; }

    /// Lets go of what the stage itself holds of the present call: nothing.
    void letGo() {}

private:
    /// A leg whose call is not placed.
    void acquire();
    /// The call is placed and on its way; with analysis, if asked for.
    void invite(bool in_bAnalysis = false);
    void answer();

    // One for each call: what an earlier call still has to say reaches nobody.
    std::unique_ptr<Callee> m_pCallee;
    ScriptedCall* m_pCall = nullptr;
    bool m_bPlaced = false;
    unsigned int m_uiCalls = 0;
};

}  // namespace Quorvex::Test
