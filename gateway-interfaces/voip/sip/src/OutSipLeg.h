#pragma once

#include <string>
#include <vector>

#include "SipLeg.h"
#include "infra/MemAccount.h"

namespace Quorvex
{

class CallInfo;
class ParameterTrie;
class SipRedirectionLegInfo;

/// The SIP leg of an outbound call: builds and sends its INVITE, and follows it up. Task thread.
///
///   made -> media configured, all capacities there -> invite
///     -> validateSdpInResponse for each response with SDP; send2XXAck, once
///     -> hangup at any moment: CANCEL before the answer, BYE after it
class OutSipLeg : public SipLeg
{
public:
    QUORVEX_MEM_ACCOUNT("OutSipLeg");

    explicit OutSipLeg(DsVoipGatewayNetIf& in_voipGwNetIf);
    /// For a leg that stands alone: it can build an INVITE, but not send it. Both references must outlive it.
    OutSipLeg(VoipEndpointFactory& in_endpointFactory, const ROConfiguration& in_config);
    ~OutSipLeg() override;

    /// Reads nothing; always true.
    bool initialize() override { return true; }

    /// Sends the INVITE that the current leg of the call information describes: to "sip.out.requestUri", or
    /// to the redirection target that the leg is. Takes ownership of the logger.
    /// @param in_szCallKey the UUID of the machine that hears of the call
    virtual bool invite(const char* in_szCallKey,
                        const CallInfo& in_callInfo,
                        const char* in_szCallId,
                        CallLogger* in_pLogger);

    /// Whether the response carries an SDP answer that the call's media can use; they then have it.
    virtual bool validateSdpInResponse(const DsHandle<DsSipResponse>& in_hResponse);

    /// Acknowledges a 2xx of the INVITE.
    virtual bool send2XXAck(const DsHandle<DsSipDialog>& in_hDialog,
                            const DsHandle<DsSipResponse>& in_hResponse);

    bool hangup() override;

    // In the call's first dialog; false, logged, while there is none.
    bool sendNotify(const ConnectionFailureType& in_failType) override;
    bool sendNotify(unsigned int in_uiResponseCode) override;
    bool sendInfoMsg(const std::vector<Parameter>& in_vParameters) override;

    /// Nil until the INVITE has been sent.
    const DsHandle<DsSipOutgoingCall>& getOutCall() const { return m_hOutCall; }

    /// The INVITE by itself, which becomes the initial one, without the sending. False, with the reason
    /// logged, when there is none to send; the stack's exceptions come through.
    bool createInvite(const CallInfo& in_callInfo, const char* in_szCallId);

private:
    bool createInviteMsgFromRequestUri(const std::string& in_strRequestUri,
                                       const CallLegInfo& in_legInfo,
                                       const char* in_szCallId);
    // The leg's parameters as header objects; nil, with an ERROR, when one is not a valid URI.
    DsHandle<DsSipToHeader> createToHeader(const CallLegInfo& in_legInfo,
                                           const std::string& in_strRequestUri) const;
    DsHandle<DsSipFromHeader> createFromHeader(const CallLegInfo& in_legInfo, const char* in_szCallId) const;
    Sip::Transport readTransport(const CallLegInfo& in_legInfo) const;
    bool createInviteMsgFromRedirection(const CallLegInfo& in_legInfo, const char* in_szCallId);
    DsHandle<DsSipInviteMessage> createInviteMsg(const DsSipURL& in_requestUrl,
                                                 const DsHandle<DsSipToHeader>& in_hTo,
                                                 const DsHandle<DsSipFromHeader>& in_hFrom,
                                                 const DsHandle<DsSipContactHeader>& in_hContact);
    bool formRequestFromURI(const DsSipURL& in_contactUrl, DsSipRequest& io_request);
    bool replaceAddressHeader(const std::string& in_strName,
                              const std::string& in_strValue,
                              DsSipRequest& io_request);
    bool selectListenAddressPortFromRequestURL(const DsSipURL& in_requestUrl);
    bool resolveDestination(const DsSipURL& in_url, const char* in_szWhat, DsInetAddress& out_address);
    bool setMessageSdpOffer(DsSipMessage& io_message);
    static void addCustomHeaders(const ParameterTrie& in_parameters, DsSipMessage& io_invite);
    DsHandle<DsSipDialog> getFirstDialog(const char* in_szRequest) const;

    DsVoipGatewayNetIf* const m_pNetIf = nullptr;
    DsHandle<DsSipOutgoingCall> m_hOutCall;
    CallLogger m_cdrLogger;
};

}  // namespace Quorvex
