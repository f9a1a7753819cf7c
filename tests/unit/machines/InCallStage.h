#pragma once

#include <string>

#include "CallStage.h"
#include "InSipLegInterfaceProxy.h"
#include "InStateMachine.h"
#include "SipTestPeer.h"

namespace Quorvex::Test
{

/// Inbound calls.
class InCallStage : public CallStage<InStateMachine>
{
public:
    InCallStage() : CallStage(2) {}

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

    /// Brings a new call into a state, by its name.
    void bringTo(const std::string& in_strState);

    /// The far end does its part until the network interface, which is stopping, has stopped: acknowledges
    /// and answers. False when it does not stop, or stops, without being killed, while a request of
    /// ours is unanswered.
    bool followStop(bool in_bKilled = false);

    /// Lets go of what the stage itself holds of the present call.
    void letGo() { m_hProxy.reset(); }

    const std::string& lastResponse() const { return m_strLastResponse; }

private:
    void begin();
    void findMachine();
    std::string makeRequest(const std::string& in_strMethod,
                            unsigned int in_uiCSeq,
                            const std::string& in_strBranch,
                            const std::string& in_strSdp,
                            const std::string& in_strHeaders) const;

    SipTestPeer m_peer;
    DsHandle<InSipLegInterfaceProxy> m_hProxy;
    std::string m_strCallId;  // of the SIP call
    std::string m_strTo;
    std::string m_strInviteBranch;
    std::string m_strLastResponse;
    unsigned int m_uiCSeq = 0;
    unsigned int m_uiInviteCSeq = 0;
    unsigned int m_uiCalls = 0;
};

}  // namespace Quorvex::Test
