#pragma once

#include <string>
#include <vector>

#include "infra/Logger.h"
#include "infra/Parameter.h"
#include "quorvex/ConnectionFailureType.h"
#include "quorvex/Fallible.h"
#include "sip-common/SipStack.h"
#include "sipstack/DsHandle.h"
#include "sipstack/DsSipDialog.h"
#include "sipstack/DsSipIncomingCall.h"
#include "sipstack/DsSipInviteMessage.h"
#include "sipstack/DsSipOutgoingCall.h"
#include "sipstack/DsSipResponse.h"
#include "sipstack/DsSipServerTransaction.h"

namespace Quorvex
{

class CallLegInfo;
class DsVoipGatewayNetIf;
class VoipEndpointFactory;
class VoipMedia;

/// The SIP messages of one call, as its machine's states ask for them: what inbound and outbound calls share.
/// Owns the call's media. Task thread.
///
///   they re-INVITE:        validateReInvite -> respondToReinvite
///   they INVITE, Replaces: respondToInviteReplaces, which also ends or keeps the replaced dialog
///   they REFER:            validateRefer -> respondToReferRequest -> sendNotify ...
///   they BYE:              respondToBye
///   we INFO, NOTIFY, end:  sendInfoMsg, sendNotify, hangup
///
/// Every operation that sends says by false that nothing was sent, and has logged why.
class SipLeg : public ObjectWithLogger<CallLogger>
{
public:
    explicit SipLeg(DsVoipGatewayNetIf& in_voipGwNetIf);
    SipLeg(const SipLeg&) = delete;
    SipLeg& operator=(const SipLeg&) = delete;
    ~SipLeg() override;

    /// To be called once, before anything is sent.
    virtual bool initialize() = 0;

    /// Ends the call in whatever way fits its state.
    virtual bool hangup() = 0;

    /// Answers a re-INVITE. A 2xx carries the answer to its offer, or an offer when it brought none; anything
    /// else leaves the media as they were before the offer came.
    virtual bool respondToReinvite(const DsHandle<DsSipCall>& in_hCall,
                                   const DsHandle<DsSipDialog>& in_hDialog,
                                   const DsHandle<DsSipInviteMessage>& in_hInvite,
                                   unsigned int in_uiResponseCode);

    /// Answers an INVITE that is to replace a dialog of the call. A 2xx puts the new dialog in the place of
    /// the replaced one, which is ended; anything else, or a description that cannot be written, keeps the
    /// old.
    virtual bool respondToInviteReplaces(const DsHandle<DsSipCall>& in_hCall,
                                         const DsHandle<DsSipDialog>& in_hReplacedDialog,
                                         const DsHandle<DsSipDialog>& in_hNewDialog,
                                         const DsHandle<DsSipInviteMessage>& in_hInvite,
                                         unsigned int in_uiResponseCode);

    /// Acknowledges the final response to a re-INVITE of ours. True, with nothing sent, for none and for a
    /// provisional one.
    virtual bool ackReinviteResponse(const DsHandle<DsSipIncomingCall>& in_hCall,
                                     const DsHandle<DsSipDialog>& in_hDialog,
                                     const DsHandle<DsSipResponse>& in_hResponse);
    virtual bool ackReinviteResponse(const DsHandle<DsSipOutgoingCall>& in_hCall,
                                     const DsHandle<DsSipDialog>& in_hDialog,
                                     const DsHandle<DsSipResponse>& in_hResponse);

    /// Whether a re-INVITE can be accepted: it brings no offer, or one that the call's media can answer.
    virtual bool validateReInvite(const DsHandle<DsSipInviteMessage>& in_hInvMsg);

    /// Reports the progress of a transfer: its failure, or a status code.
    virtual bool sendNotify(const ConnectionFailureType& in_failType) = 0;
    virtual bool sendNotify(unsigned int in_uiResponseCode) = 0;

    /// Sends an INFO: "body" becomes the body, "Content-Type" its type (text/plain without it), every other
    /// parameter a header. All values must be strings.
    virtual bool sendInfoMsg(const std::vector<Parameter>& in_vParameters) = 0;

    /// Answers a BYE with 200.
    bool respondToBye(const DsHandle<DsSipOutgoingCall>& in_hCall,
                      const DsHandle<DsSipDialog>& in_hDialog,
                      const DsHandle<DsSipMessage>& in_hBye);
    bool respondToBye(const DsHandle<DsSipIncomingCall>& in_hCall,
                      const DsHandle<DsSipDialog>& in_hDialog,
                      const DsHandle<DsSipMessage>& in_hBye);

    bool respondToReferRequest(unsigned int in_uiResponseCode,
                               const DsHandle<DsSipServerTransaction>& in_hTransaction,
                               const DsHandle<DsSipRequest>& in_hRefer);

    /// The status with which a REFER is to be answered: 202 when its target can be called. Then the texts are
    /// the parties of the transfer: the Refer-To URI complete, the others without parameters and headers.
    /// What the REFER does not say is left as it was.
    unsigned int validateRefer(const DsHandle<DsSipRequest>& in_hRefer,
                               std::string& out_strReferToURI,
                               std::string& out_strReferredByURI,
                               std::string& out_strReferredByDisplayName,
                               std::string& out_strToURI,
                               std::string& out_strFromURI,
                               std::string& out_strToDisplayName,
                               std::string& out_strFromDisplayName);

    /// Copies headers into what the call engine learns about the leg, as "sip.in.header.<name>": the first
    /// Call-ID, Contact, From, To and User-Agent, with their usual spelling.
    bool fillInLegInfoFromKnownHeaders(const DsHandle<DsSipMessage>& in_hMessage,
                                       CallLegInfo& io_legInfo) const;
    /// The same for every header that the SIP stack has no class for, spelled as received; the last of a name
    /// wins.
    bool fillInLegInfoFromUnknownHeaders(const DsHandle<DsSipMessage>& in_hMessage,
                                         CallLegInfo& io_legInfo) const;

    /// The present time; nil on failure.
    static DsHandle<DsSipDateHeader> createDateHeader();

    /// The header that carries a call-progress-detection result.
    static const char* getCPDResultHeaderName() { return "CPD-Result"; }

    VoipMedia& getMedia() const { return *m_pMedia; }

    /// The call's first INVITE, received or sent; nil before, and once the call has been answered.
    void setInitialInviteMsg(const DsHandle<DsSipInviteMessage>& in_hInvite)
    {
        m_hInitialInvite = in_hInvite;
    }
    const DsHandle<DsSipInviteMessage>& getInitialInviteMsg() const { return m_hInitialInvite; }

    /// The local end of the call's SIP traffic, with its Contact.
    const SipStack::ListenAddrPort& getListenAddrPort() const { return m_listenPort; }

    /// How long a host name may take to resolve, in ms ("quorvex.sip.getHostByNameTimeoutMs").
    int getNameResolutionTimeoutMs() const { return m_iNameResolutionTimeoutMs; }

    /// From callStart to callEnd every log line of the leg begins with the call's identifier.
    void callStart(const char* in_szCallId)
    {
        getLogger().callStart(in_szCallId != nullptr ? in_szCallId : "");
    }
    void callEnd() { getLogger().callEnd(); }

protected:
    /// For legs that stand alone.
    SipLeg(VoipEndpointFactory& in_endpointFactory, const ROConfiguration& in_config);

    const ROConfiguration& getConfig() const { return m_config; }

    bool sendInfoMsg(const DsHandle<DsSipDialog>& in_hDialog, const std::vector<Parameter>& in_vParameters);

    /// Exactly one of code and failure is valid.
    bool sendNotify(const DsHandle<DsSipDialog>& in_hDialog,
                    const Fallible<unsigned int>& in_uiResponseCode,
                    const Fallible<ConnectionFailureType>& in_failType);

    bool resolveIPAddress(const char* in_szHost, int in_iTimeoutMs, DsInetAddress* out_pAddress = nullptr);

    // The messages themselves, without the sending. Nil, with the reason logged, when there is none to send;
    // the stack's exceptions come through.
    DsHandle<DsSipResponse> createReinviteResponse(const DsHandle<DsSipInviteMessage>& in_hInvite,
                                                   unsigned int in_uiResponseCode);
    /// Whether the far end has ended the dialog before we could say something in it: logged, and no fault.
    bool isOver(const DsSipDialog& in_dialog, const char* in_szWhat) const;
    bool fillInInfo(const DsHandle<DsSipRequest>& in_hInfo, const std::vector<Parameter>& in_vParameters);
    bool fillInNotify(const DsHandle<DsSipRequest>& in_hNotify,
                      const Fallible<unsigned int>& in_uiResponseCode,
                      const Fallible<ConnectionFailureType>& in_failType);
    DsHandle<DsSipResponse> createReferResponse(unsigned int in_uiResponseCode,
                                                const DsHandle<DsSipRequest>& in_hRefer) const;

    /// Makes the listen port of that transport on that local address, else the last of that transport, the
    /// local end of the call. Without one of that transport it stays as it was.
    void chooseListenPort(Sip::Transport in_transport, const std::string& in_strLocalAddress);

    /// The leg's Contact in the place of the message's.
    void setContact(DsSipMessage& io_message) const;

    SipStack::ListenAddrPort m_listenPort;
    VoipMedia* const m_pMedia;

private:
    bool generateSdp(const DsSipInviteMessage& in_invite, std::string& out_strSdp);
    template <class Send>
    bool sendByeResponse(bool in_bCall, const DsHandle<DsSipMessage>& in_hBye, Send in_send);
    template <class Send>
    bool sendReinviteAck(bool in_bCall, const DsHandle<DsSipResponse>& in_hResponse, Send in_send);

    const ROConfiguration& m_config;
    const int m_iNameResolutionTimeoutMs;
    DsHandle<DsSipInviteMessage> m_hInitialInvite;
};

}  // namespace Quorvex
