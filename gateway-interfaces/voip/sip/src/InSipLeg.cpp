#include "InSipLeg.h"

#include <cstdint>
#include <sstream>

#include "VoipMedia.h"
#include "calleng/Call.h"
#include "infra/Assertion.h"
#include "infra/TraceScope.h"
#include "sip/SipFailure.h"
#include "sipstack/DsException.h"

namespace Quorvex
{

namespace
{
constexpr const char* kSdpType = "application/sdp";
constexpr const char* kDoNotSend180Key = "quorvex.sip.in.doNotSend180After183";
constexpr const char* kOverrideKey = "quorvex.sip.in.override1XXWithSDP";

void addIdentification(DsSipMessage& io_message)
{
    if (const DsHandle<DsSipHeader>& hHeader = SipStack::instance()->getIdentificationHeader();
        !hHeader.isNil())
    {
        io_message.addHeader(hHeader);
    }
}
}  // namespace

InSipLeg::InSipLeg(DsVoipGatewayNetIf& in_voipGwNetIf,
                   const DsHandle<DsSipIncomingCall>& in_hInCall,
                   const DsHandle<DsSipInviteMessage>& in_hInvite)
    : SipLeg(in_voipGwNetIf), m_hInCall(in_hInCall)
{
    construct(in_hInvite);
}

InSipLeg::InSipLeg(VoipEndpointFactory& in_endpointFactory,
                   const ROConfiguration& in_config,
                   const DsHandle<DsSipIncomingCall>& in_hInCall,
                   const DsHandle<DsSipInviteMessage>& in_hInvite)
    : SipLeg(in_endpointFactory, in_config), m_hInCall(in_hInCall)
{
    construct(in_hInvite);
}

InSipLeg::~InSipLeg()
{
    TRACE_SCOPE(getLogger(), "InSipLeg::~InSipLeg");
}

void InSipLeg::construct(const DsHandle<DsSipInviteMessage>& in_hInvite)
{
    static const StaticLogger s_logger("quorvex.voip.InSipLeg");
    setLogger(CallLogger(s_logger));
    QUORVEX_ASSERT(getLogger(), !m_hInCall.isNil());
    setInitialInviteMsg(in_hInvite);
    const DsHandle<DsSipInviteMessage>& hInviteMessage = getInitialInviteMsg();
    if (!QUORVEX_ASSERT(getLogger(), !hInviteMessage.isNil()))
    {
        return;
    }
    m_strCallID = hInviteMessage->getCallID();
    const DsHandle<DsSipDialog> hDialog =
        m_hInCall.isNil() ? DsHandle<DsSipDialog>() : m_hInCall->getDialog();
    getLogger().addLoggingId("sip_call_id=" +
                             (hDialog.isNil() ? m_strCallID : std::string(hDialog->getCallID())));

    Sip::Transport transport = Sip::eUDP;
    try
    {
        if (QUORVEX_ASSERT(getLogger(), !hInviteMessage->getViaHeader().isNil()))
        {
            transport =
                Sip::parseTransportString(hInviteMessage->getViaHeader()->getTransport()).valueOr(Sip::eUDP);
        }
    }
    catch (const DsException& exception)
    {
        QLOG_ERROR(getLogger(), "Exception occured: " << exception);
    }
    const std::string strLocalAddress = hInviteMessage->getLocalAddress().getHostAddress();
    chooseListenPort(transport, strLocalAddress);
    QUORVEX_ASSERT(getLogger(), !m_listenPort.m_hContact.isNil());
    m_pMedia->setUserAgentIPAddress(m_listenPort.getHostAddress());
}

bool InSipLeg::initialize()
{
    TRACE_SCOPE(getLogger(), "InSipLeg::initialize");
    m_bDoNotSend180After183 = getConfig().getBooleanOr(kDoNotSend180Key, false);
    m_uiOverride1XXWithSDP = 0;
    std::int64_t iOverride = 0;
    if (getConfig().getInteger(kOverrideKey, iOverride))
    {
        // 0 is off; a 100 never carries a description, and anything from 200 on would end the INVITE.
        if (iOverride != 0 && (iOverride <= 100 || iOverride >= 200))
        {
            QLOG_WARN(getLogger(),
                      "Invalid value for " << kOverrideKey << ": " << iOverride
                                           << "; expected 0 or a code from 101 to 199");
        }
        else
        {
            m_uiOverride1XXWithSDP = static_cast<unsigned int>(iOverride);
        }
    }
    return true;
}

template <class Create, class Send>
bool InSipLeg::createAndSend(const std::string& in_strWhat, Create in_create, Send in_send)
{
    if (m_bAnswered)
    {
        QLOG_DEBUG(getLogger(),
                   "Exception occured" << in_strWhat << ": the INVITE has its final response already");
        return false;
    }
    DsHandle<DsSipResponse> hResponse;
    try
    {
        hResponse = in_create();
    }
    catch (const DsException& exception)
    {
        QLOG_ERROR(getLogger(), "Exception occured: " << exception);
    }
    if (hResponse.isNil() || !QUORVEX_ASSERT(getLogger(), !m_hInCall.isNil()))
    {
        return false;
    }
    try
    {
        in_send(hResponse);
        return true;
    }
    catch (const DsException& exception)
    {
        // The far end's CANCEL or our own end may have come first: nothing is wrong.
        QLOG_DEBUG(getLogger(), "Exception occured" << in_strWhat << ": " << exception);
        return false;
    }
}

DsHandle<DsSipResponse> InSipLeg::createResponse(unsigned int in_uiResponseCode,
                                                 const std::string& in_strSdp,
                                                 std::string_view in_strReason) const
{
    if (getInitialInviteMsg().isNil())
    {
        throw DsException("the INVITE has its final response already");
    }
    return makeDs<DsSipResponse>(in_uiResponseCode, getInitialInviteMsg(), in_strReason, in_strSdp, kSdpType);
}

bool InSipLeg::noteParties(const DsHandle<DsSipInviteMessage>& in_hInvite)
{
    try
    {
        m_strRequestURI = in_hInvite->getRequestURI();
        if (const auto hTo = in_hInvite->getToHeader(); !hTo.isNil())
        {
            m_strToDisplayName = hTo->getDisplayName();
            m_strToURI = hTo->getURIText();
        }
        if (const auto hFrom = in_hInvite->getFromHeader(); !hFrom.isNil())
        {
            m_strFromDisplayName = hFrom->getDisplayName();
            m_strFromURI = hFrom->getURIText();
        }
    }
    catch (const DsException& exception)
    {
        QLOG_ERROR(getLogger(), "Exception occured: " << exception);
        return false;
    }
    return true;
}

bool InSipLeg::send100Trying(const DsHandle<DsSipIncomingCall>& in_hCall,
                             const DsHandle<DsSipInviteMessage>& in_hInvite)
{
    TRACE_SCOPE(getLogger(), "InSipLeg::send100Trying");
    if (!QUORVEX_ASSERT(getLogger(), !(in_hCall.isNil() || in_hInvite.isNil())) || !noteParties(in_hInvite))
    {
        return false;
    }
    QUORVEX_ASSERT(getLogger(), m_hInCall == in_hCall);
    return sendProvisionalResponse(100, false);
}

bool InSipLeg::isSuppressed180(unsigned int in_uiResponseCode) const
{
    return m_bDoNotSend180After183 && m_b183WithSDPSent && in_uiResponseCode == 180;
}

unsigned int InSipLeg::takeCodeWithSDP(unsigned int in_uiResponseCode)
{
    m_b183WithSDPSent = m_b183WithSDPSent || in_uiResponseCode == 183;
    return m_uiOverride1XXWithSDP != 0 ? m_uiOverride1XXWithSDP : in_uiResponseCode;
}

DsHandle<DsSipResponse> InSipLeg::createProvisionalResponse(unsigned int in_uiResponseCode, bool in_bWithSDP)
{
    DsHandle<DsSipResponse> hResponse;
    if (in_bWithSDP && m_pMedia->remoteHasMadeAnOffer())
    {
        std::ostringstream sdp;
        if (!m_pMedia->generateSdpAnswer(sdp))
        {
            QLOG_ERROR(getLogger(), "Error getting SDP answer");
            return {};
        }
        hResponse = createResponse(takeCodeWithSDP(in_uiResponseCode), sdp.str());
    }
    else
    {
        if (in_bWithSDP)
        {
            QLOG_WARN(getLogger(),
                      "No SDP received in INVITE, could not generate provisional response with SDP");
        }
        hResponse = createResponse(in_uiResponseCode, std::string());
    }
    addIdentification(*hResponse);
    setContact(*hResponse);
    return hResponse;
}

bool InSipLeg::sendProvisionalResponse(unsigned int in_uiResponseCode, bool in_bWithSDP)
{
    TRACE_SCOPE(getLogger(), "InSipLeg::sendProvisionalResponse");
    if (isSuppressed180(in_uiResponseCode))
    {
        QLOG_DEBUG(
            getLogger(),
            "not sending 180 response as 183 with SDP has already been sent and sip.out.doNotSend180After183 "
            "is set to true");
        return true;
    }
    return createAndSend(
        " in sendProvisionalResponse(" + std::to_string(in_uiResponseCode) + ")",
        [&] { return createProvisionalResponse(in_uiResponseCode, in_bWithSDP); },
        [this](const DsHandle<DsSipResponse>& in_hResponse) { m_hInCall->answer(in_hResponse); });
}

DsHandle<DsSipResponse> InSipLeg::createReliableProvisionalResponse(unsigned int in_uiResponseCode)
{
    std::ostringstream oss;
    const bool bWritten =
        m_pMedia->remoteHasMadeAnOffer()
            ? QUORVEX_ASSERT(getLogger(), m_pMedia->generateSdpAnswer(oss))
            : QUORVEX_ASSERT_TEXT(getLogger(),
                                  m_pMedia->generateSdpOffer(getConfig(), oss),
                                  "m_pMedia->generateSdpOffer(m_voipGwNetIf.getConfig(), oss)");
    if (!bWritten)
    {
        return {};
    }
    DsHandle<DsSipResponse> hResponse = createResponse(takeCodeWithSDP(in_uiResponseCode), oss.str());
    addIdentification(*hResponse);
    setContact(*hResponse);
    return hResponse;
}

bool InSipLeg::sendReliableProvisionalResponse(unsigned int in_uiResponseCode, bool in_bWithSDP)
{
    TRACE_SCOPE(getLogger(), "InSipLeg::sendReliableProvisionalResponse");
    if (!QUORVEX_ASSERT_TEXT(
            getLogger(), in_bWithSDP, "Not implemented : sendReliableProvisionalResponse() w/o SDP"))
    {
        return false;
    }
    return createAndSend(
        " in sendReliableProvisionalResponse(" + std::to_string(in_uiResponseCode) + ")",
        [&] { return createReliableProvisionalResponse(in_uiResponseCode); },
        [this](const DsHandle<DsSipResponse>& in_hResponse)
        { m_hInCall->sendReliableProvisionalResponse(in_hResponse); });
}

DsHandle<DsSipResponse> InSipLeg::create200Ok(const Fallible<Call::ConnectionType>& in_connType)
{
    const bool bAnswer = m_pMedia->remoteHasMadeAnOffer();
    std::ostringstream sdp;
    if (!(bAnswer ? m_pMedia->generateSdpAnswer(sdp) : m_pMedia->generateSdpOffer(getConfig(), sdp)))
    {
        QLOG_DEBUG(getLogger(), (bAnswer ? "Error getting SDP answer" : "Error getting SDP offer"));
        return {};
    }
    DsHandle<DsSipResponse> hResponse = createResponse(200, sdp.str());
    setContact(*hResponse);
    addIdentification(*hResponse);
    if (!QUORVEX_ASSERT(getLogger(), in_connType.valid()))
    {
        return {};
    }
    if (in_connType.value() != Call::eCONNECTION_NONE)
    {
        hResponse->addHeader(newCPDResultHeader(Call::getCPDResultString(in_connType.value())));
    }
    return hResponse;
}

bool InSipLeg::send200Ok(const Fallible<Call::ConnectionType>& in_connType)
{
    TRACE_SCOPE(getLogger(), "InSipLeg::send200Ok");
    if (in_connType.valid())
    {
        QLOG_DEBUG(getLogger(), "InSipLeg::send200Ok : " << static_cast<int>(in_connType.value()));
    }
    return createAndSend(
        std::string(),
        [&] { return create200Ok(in_connType); },
        [this](const DsHandle<DsSipResponse>& in_hResponse)
        {
            m_hInCall->answer(in_hResponse);
            m_bAnswered = true;
            // Responses were all that it was kept for.
            setInitialInviteMsg(DsHandle<DsSipInviteMessage>());
        });
}

DsHandle<DsSipResponse> InSipLeg::createRejection(unsigned int in_uiResponseCode,
                                                  const DsHandle<DsSipHeader>& in_hHeader,
                                                  std::string_view in_strReason)
{
    if (!QUORVEX_ASSERT(getLogger(), (in_uiResponseCode / 100) >= 4))
    {
        return {};
    }
    DsHandle<DsSipResponse> hResponse = createResponse(in_uiResponseCode, std::string(), in_strReason);
    addIdentification(*hResponse);
    if (!in_hHeader.isNil())
    {
        hResponse->addHeader(in_hHeader);
    }
    return hResponse;
}

bool InSipLeg::rejectIncomingCall(unsigned int in_uiResponseCode,
                                  const DsHandle<DsSipHeader>& in_hHeader,
                                  std::string_view in_strReason)
{
    TRACE_SCOPE(getLogger(), "InSipLeg::rejectIncomingCall");
    m_bEndedHere = true;
    return createAndSend(
        std::string(),
        [&] { return createRejection(in_uiResponseCode, in_hHeader, in_strReason); },
        [this](const DsHandle<DsSipResponse>& in_hResponse) { m_hInCall->answer(in_hResponse); });
}

bool InSipLeg::rejectIncomingCall(const ConnectionFailureType& in_failType, std::string_view in_strReason)
{
    return rejectIncomingCall(Sip::getResponseCode(in_failType),
                              newCPDResultHeader(Call::getCPDResultString(in_failType)),
                              in_strReason);
}

DsHandle<DsSipHeader> InSipLeg::newCPDResultHeader(const std::string& in_strResult)
{
    return makeDs<DsSipUnknownHeader>(getCPDResultHeaderName(), in_strResult);
}

bool InSipLeg::hangup()
{
    TRACE_SCOPE(getLogger(), "InSipLeg::hangup");
    m_bEndedHere = true;
    if (!QUORVEX_ASSERT(getLogger(), !m_hInCall.isNil()))
    {
        return false;
    }
    try
    {
        m_hInCall->hangup();
        return true;
    }
    catch (const DsException& exception)
    {
        QLOG_ERROR(getLogger(), "Failed to hangup SIP inbound call. Exception occured : " << exception);
        return false;
    }
}

bool InSipLeg::sendNotify(const ConnectionFailureType& in_failType)
{
    return !m_hInCall.isNil() &&
           SipLeg::sendNotify(m_hInCall->getDialog(), Fallible<unsigned int>(), in_failType);
}

bool InSipLeg::sendNotify(unsigned int in_uiResponseCode)
{
    return !m_hInCall.isNil() &&
           SipLeg::sendNotify(m_hInCall->getDialog(), in_uiResponseCode, Fallible<ConnectionFailureType>());
}

bool InSipLeg::sendInfoMsg(const std::vector<Parameter>& in_vParameters)
{
    return !m_hInCall.isNil() && SipLeg::sendInfoMsg(m_hInCall->getDialog(), in_vParameters);
}

const char* InSipLeg::getCallID() const
{
    QUORVEX_ASSERT(getLogger(), !m_strCallID.empty());
    return m_strCallID.c_str();
}

const char* InSipLeg::getContactURI() const
{
    QUORVEX_ASSERT_TEXT(getLogger(), false, "Not implemented : Contact URI");
    return "";
}

bool InSipLeg::cancelSessionTimer()
{
    return QUORVEX_ASSERT_TEXT(getLogger(), false, "Not implemented : Session timers");
}

}  // namespace Quorvex
