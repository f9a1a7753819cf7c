#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "SipLeg.h"
#include "infra/MemAccount.h"
#include "quorvex/CallTypes.h"

namespace Quorvex
{

/// The SIP leg of an inbound call: answers its INVITE. Task thread.
///
///   made with call and INVITE -> initialize -> send100Trying
///     -> send180Ringing, sendProvisionalResponse, sendReliableProvisionalResponse, any number of times
///     -> send200Ok or rejectIncomingCall, once
class InSipLeg final : public SipLeg
{
public:
    QUORVEX_MEM_ACCOUNT("InSipLeg");

    /// Chooses the local end of the call: the listen port on which the INVITE came.
    InSipLeg(DsVoipGatewayNetIf& in_voipGwNetIf,
             const DsHandle<DsSipIncomingCall>& in_hInCall,
             const DsHandle<DsSipInviteMessage>& in_hInvite);
    /// For a leg that stands alone; both references must outlive it.
    InSipLeg(VoipEndpointFactory& in_endpointFactory,
             const ROConfiguration& in_config,
             const DsHandle<DsSipIncomingCall>& in_hInCall,
             const DsHandle<DsSipInviteMessage>& in_hInvite);
    ~InSipLeg() override;

    /// Reads "quorvex.sip.in.doNotSend180After183" and "quorvex.sip.in.override1XXWithSDP". Always true.
    bool initialize() override;

    /// Notes what the INVITE says about its parties, for the getters below. False when that cannot be read.
    bool noteParties(const DsHandle<DsSipInviteMessage>& in_hInvite);
    /// Also notes the parties.
    bool send100Trying(const DsHandle<DsSipIncomingCall>& in_hCall,
                       const DsHandle<DsSipInviteMessage>& in_hInvite);
    bool send180Ringing(bool in_bWithSDP) { return sendProvisionalResponse(180, in_bWithSDP); }

    /// With SDP, the answer to the INVITE's offer goes along; when there was none, the response goes without.
    /// Where it is so configured, a response with SDP goes out under another code, and no 180 after a 183
    /// with SDP (true all the same).
    bool sendProvisionalResponse(unsigned int in_uiResponseCode, bool in_bWithSDP);

    /// Only with SDP: the answer to the INVITE's offer, or an offer when there was none. Retransmitted by the
    /// SIP stack until its PRACK.
    bool sendReliableProvisionalResponse(unsigned int in_uiResponseCode, bool in_bWithSDP);

    /// Answers with the answer to the INVITE's offer, or with an offer when there was none. A connection type
    /// other than none goes along as "CPD-Result".
    bool send200Ok(const Fallible<Call::ConnectionType>& in_connType);

    /// Refuses the call with a code from 400 on. The extra header may be nil; an empty reason is the code's
    /// own.
    bool rejectIncomingCall(unsigned int in_uiResponseCode,
                            const DsHandle<DsSipHeader>& in_hHeader,
                            std::string_view in_strReason = {});
    /// The same with the code and "CPD-Result" that belong to the failure.
    bool rejectIncomingCall(const ConnectionFailureType& in_failType, std::string_view in_strReason = {});

    static DsHandle<DsSipHeader> newCPDResultHeader(const std::string& in_strResult);

    bool hangup() override;
    bool sendNotify(const ConnectionFailureType& in_failType) override;
    bool sendNotify(unsigned int in_uiResponseCode) override;
    bool sendInfoMsg(const std::vector<Parameter>& in_vParameters) override;

    /// The status of the INVITE's final response, whoever chose it; 0 while there is none.
    unsigned int getFinalStatus() const { return m_hInCall.isNil() ? 0 : m_hInCall->getFinalStatus(); }

    /// Whether this side has refused or hung up the call.
    bool isEndedHere() const { return m_bEndedHere; }

    /// The INVITE's Call-ID; valid as long as the leg.
    const char* getCallID() const;

    // Empty before the parties are noted, and where the INVITE says nothing.
    const char* getRequestURI() const { return m_strRequestURI.c_str(); }
    const char* getFromURI() const { return m_strFromURI.c_str(); }
    const char* getToURI() const { return m_strToURI.c_str(); }
    const char* getFromDisplayName() const { return m_strFromDisplayName.c_str(); }
    const char* getToDisplayName() const { return m_strToDisplayName.c_str(); }
    const char* getReferToURI() const { return m_strReferToURI.c_str(); }

    /// Not supported: reported; empty, and false.
    const char* getContactURI() const;
    bool cancelSessionTimer();

    // The responses themselves, without the sending. Nil, with the reason logged, when there is none to send;
    // the stack's exceptions come through.
    DsHandle<DsSipResponse> createProvisionalResponse(unsigned int in_uiResponseCode, bool in_bWithSDP);
    DsHandle<DsSipResponse> createReliableProvisionalResponse(unsigned int in_uiResponseCode);
    DsHandle<DsSipResponse> create200Ok(const Fallible<Call::ConnectionType>& in_connType);
    DsHandle<DsSipResponse> createRejection(unsigned int in_uiResponseCode,
                                            const DsHandle<DsSipHeader>& in_hHeader,
                                            std::string_view in_strReason = {});

private:
    void construct(const DsHandle<DsSipInviteMessage>& in_hInvite);
    bool isSuppressed180(unsigned int in_uiResponseCode) const;
    DsHandle<DsSipResponse> createResponse(unsigned int in_uiResponseCode,
                                           const std::string& in_strSdp,
                                           std::string_view in_strReason = {}) const;
    unsigned int takeCodeWithSDP(unsigned int in_uiResponseCode);
    template <class Create, class Send>
    bool createAndSend(const std::string& in_strWhat, Create in_create, Send in_send);

    const DsHandle<DsSipIncomingCall> m_hInCall;
    std::string m_strCallID;
    std::string m_strRequestURI;
    std::string m_strFromURI;
    std::string m_strToURI;
    std::string m_strFromDisplayName;
    std::string m_strToDisplayName;
    std::string m_strReferToURI;
    bool m_b183WithSDPSent = false;
    bool m_bAnswered = false;
    bool m_bEndedHere = false;
    bool m_bDoNotSend180After183 = false;
    unsigned int m_uiOverride1XXWithSDP = 0;
};

}  // namespace Quorvex
