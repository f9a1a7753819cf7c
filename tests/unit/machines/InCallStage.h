#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "InSipLegInterfaceProxy.h"
#include "InStateMachine.h"
#include "NetIfFixture.h"
#include "SipTestPeer.h"

namespace Quorvex::Test
{

/// One inbound call at a time through a running network interface: the far end is written out message by
/// message, the call engine's commands are given to the machine as events, the media engine answers or is
/// silent.
class InCallStage
{
public:
    InCallStage();
    InCallStage(const InCallStage&) = delete;
    InCallStage& operator=(const InCallStage&) = delete;

    static const std::string kOffer;
    static const std::string kUnusableSdp;

    struct Invitation
    {
        std::string m_strSdp = kOffer;
        std::string m_strHeaders;  ///< lines with their ends
        bool m_bCapacities = true;
        bool m_bWait = true;  ///< until the machine rests in INVITING_OUT, with its capacities
    };

    /// Sends the INVITE of a new call.
    void invite(const Invitation& in_invitation);
    void invite() { invite(Invitation()); }
    /// A machine whose INVITE has not come.
    void acquireWithoutInvite();

    /// A request of the caller in its dialog; an ACK or CANCEL belongs to the last INVITE. The CSeq of PRACK,
    /// BYE, ... goes on.
    void send(const std::string& in_strMethod,
              const std::string& in_strSdp = {},
              const std::string& in_strHeaders = {});
    void answer(const std::string& in_strRequest, const std::string& in_strStatus);
    /// The next message of this call whose first line contains the text; empty when none comes. Responses to
    /// several requests that are under way come in no fixed order: take them one by one.
    std::string receive(const std::string& in_strFirstLine);
    /// Whether that comes; its header of that name holds the text.
    bool gets(const std::string& in_strFirstLine,
              const std::string& in_strHeader = {},
              const std::string& in_strText = {});

    /// Gives the machine an event, on its thread; its result.
    bool feed(const VoipEvent& in_event);
    bool feed(EventType::eTYPE in_type) { return feed(VoipEvent(in_type)); }

    /// The state's name; the sub-state's in CONNECTED.
    std::string state();
    /// The state right after the event fed last, before anything else came.
    const std::string& stateAfterEvent() const { return m_strStateAfterEvent; }
    /// Waits for it; false, when another is what it stays in.
    bool waitFor(const std::string& in_strState);
    unsigned int queueSize();
    /// Waits until that many events wait in CONNECTED's own machine.
    bool waitForSubQueue(unsigned int in_uiSize);

    /// Brings a new call into a state, by its name.
    void bringTo(const std::string& in_strState);

    /// Whether the media engine answers what it is asked; each operation ("create", "configure", "start",
    /// "stop").
    void answerMedia(bool in_bAnswer);

    /// What the call engine was told of this call, in order, after its invitation.
    std::vector<std::string> told();
    bool waitForTold(const std::string& in_strWhat);

    /// The far end does its part until the network interface, which is stopping, has stopped: acknowledges
    /// and answers. False when it does not stop, or stops while a request of ours is unanswered.
    bool followStop();

    /// Lets go of what the stage itself holds of the present call.
    void letGo() { m_hProxy.reset(); }

    RunningNetIf& running() { return m_running; }
    const std::string& lastResponse() const { return m_strLastResponse; }

private:
    void begin();
    // Waits for the call; a call refused at once may have let go of its machine by then.
    void findMachine();
    // Task thread.
    std::string readState() const;
    std::string makeRequest(const std::string& in_strMethod,
                            unsigned int in_uiCSeq,
                            const std::string& in_strBranch,
                            const std::string& in_strSdp,
                            const std::string& in_strHeaders) const;

    RunningNetIf m_running;
    SipTestPeer m_peer;
    InStateMachine* m_pMachine = nullptr;
    DsHandle<InSipLegInterfaceProxy> m_hProxy;
    std::string m_strCallId;        // of the SIP call
    std::string m_strEngineCallId;  // of the call engine's
    std::string m_strTo;
    std::string m_strInviteBranch;
    std::string m_strLastResponse;
    std::string m_strStateAfterEvent;
    unsigned int m_uiCSeq = 0;
    unsigned int m_uiInviteCSeq = 0;
    unsigned int m_uiCalls = 0;
};

}  // namespace Quorvex::Test
