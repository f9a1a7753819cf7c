#include "SipLeg.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <sstream>

#include "DsVoipGatewayNetIf.h"
#include "VoipMedia.h"
#include "calleng/CallLegInfo.h"
#include "infra/Assertion.h"
#include "infra/TraceScope.h"
#include "sipstack/DsException.h"
#include "sipstack/DsSipAckMessage.h"
#include "sipstack/DsSipRequest.h"

namespace Quorvex
{

namespace
{
constexpr const char* kSdpType = "application/sdp";
constexpr const char* kNameResolutionKey = "quorvex.sip.getHostByNameTimeoutMs";
constexpr int kDefaultNameResolutionMs = 250;

int readNameResolutionTimeoutMs(const ROConfiguration& in_config)
{
    int iTimeoutMs = kDefaultNameResolutionMs;
    in_config.getInteger(kNameResolutionKey, iTimeoutMs);
    return iTimeoutMs < 0 ? kDefaultNameResolutionMs : iTimeoutMs;
}

bool isSuccess(unsigned int in_uiResponseCode)
{
    return in_uiResponseCode >= 200 && in_uiResponseCode <= 299;
}

bool hasSdp(const DsSipMessage& in_message)
{
    return in_message.getBodyLength() != 0 && in_message.getBodyType().equalsIgnoreCase(kSdpType);
}

/// A party of a transfer: its URI without what belongs to this message only, and its name.
void takeParty(const DsSipAddressHeader& in_header, std::string& out_strURI, std::string& out_strDisplayName)
{
    if (!in_header.getURL().isNil())
    {
        const DsHandle<DsSipURL> hURL(in_header.getURL()->clone());
        hURL->clearHeaders();
        hURL->clearParameters();
        out_strURI = hURL->getText();
    }
    if (!in_header.getDisplayName().isEmpty())
    {
        out_strDisplayName = in_header.getDisplayName();
    }
}
}  // namespace

SipLeg::SipLeg(DsVoipGatewayNetIf& in_voipGwNetIf) : SipLeg(in_voipGwNetIf, in_voipGwNetIf.getConfig())
{
}

SipLeg::SipLeg(VoipEndpointFactory& in_endpointFactory, const ROConfiguration& in_config)
    : ObjectWithLogger(CallLogger("quorvex.voip.SipLeg")),
      m_pMedia(new VoipMedia(in_endpointFactory)),
      m_config(in_config),
      m_iNameResolutionTimeoutMs(readNameResolutionTimeoutMs(in_config))
{
    m_pMedia->setNameResolutionTimeoutMs(m_iNameResolutionTimeoutMs);
}

SipLeg::~SipLeg()
{
    TRACE_SCOPE(getLogger(), "SipLeg dtor");
    delete m_pMedia;
}

void SipLeg::chooseListenPort(Sip::Transport in_transport, const std::string& in_strLocalAddress)
{
    const SipStack& stack = *SipStack::instance();
    const std::size_t uiNumListenPort = stack.getNumListenPorts();
    QUORVEX_ASSERT(getLogger(), uiNumListenPort > 0);
    for (std::size_t i = 0; i < uiNumListenPort; ++i)
    {
        const SipStack::ListenAddrPort& port = stack.getListenPort(i);
        if (port.getTransport() != in_transport)
        {
            continue;
        }
        m_listenPort = port;
        if (port.isAny())
        {
            m_listenPort.initialize(in_strLocalAddress, port.getPort(), in_transport);
            m_listenPort.m_hContact = m_listenPort.createContactHeader(stack.getContactUser());
            if (m_listenPort.m_hContact.isNil())
            {
                m_listenPort = port;
            }
        }
        if (m_listenPort.getHostAddress() == in_strLocalAddress)
        {
            return;
        }
    }
}

void SipLeg::setContact(DsSipMessage& io_message) const
{
    if (QUORVEX_ASSERT(getLogger(), m_listenPort.m_hContact.isNil() != true))
    {
        io_message.updateHeader(*m_listenPort.m_hContact);
    }
}

bool SipLeg::generateSdp(const DsSipInviteMessage& in_invite, std::string& out_strSdp)
{
    std::ostringstream sdp;
    if (hasSdp(in_invite))
    {
        if (!m_pMedia->generateSdpAnswer(sdp))
        {
            QLOG_ERROR(getLogger(), "Error getting SDP Answer");
            return false;
        }
    }
    else if (!m_pMedia->generateSdpOffer(m_config, sdp))
    {
        QLOG_ERROR(getLogger(), "Error getting SDP offer");
        return false;
    }
    out_strSdp = std::move(sdp).str();
    return true;
}

DsHandle<DsSipResponse> SipLeg::createReinviteResponse(const DsHandle<DsSipInviteMessage>& in_hInvite,
                                                       unsigned int in_uiResponseCode)
{
    std::string strSdp;
    if (isSuccess(in_uiResponseCode))
    {
        if (!generateSdp(*in_hInvite, strSdp))
        {
            return {};
        }
    }
    else
    {
        m_pMedia->rollbackSdpOffer();
    }
    DsHandle<DsSipResponse> hResponse =
        makeDs<DsSipResponse>(in_uiResponseCode, in_hInvite, std::string_view(), strSdp, kSdpType);
    if (isSuccess(in_uiResponseCode))
    {
        setContact(*hResponse);
    }
    return hResponse;
}

bool SipLeg::respondToReinvite(const DsHandle<DsSipCall>& in_hCall,
                               const DsHandle<DsSipDialog>& in_hDialog,
                               const DsHandle<DsSipInviteMessage>& in_hInvite,
                               unsigned int in_uiResponseCode)
{
    TRACE_SCOPE(getLogger(), "SipLeg::respondToReinvite");
    const DsHandle<DsSipIncomingCall> hInCall = in_hCall.dynamicCast<DsSipIncomingCall>();
    if (!QUORVEX_ASSERT(getLogger(), in_hInvite.isNil() == false) ||
        !QUORVEX_ASSERT(getLogger(), !(hInCall.isNil() && in_hDialog.isNil())))
    {
        return false;
    }
    try
    {
        const DsHandle<DsSipResponse> hResponse = createReinviteResponse(in_hInvite, in_uiResponseCode);
        if (hResponse.isNil())
        {
            return false;
        }
        hInCall.isNil() ? in_hDialog->respondToReinvite(hResponse) : hInCall->respondToReinvite(hResponse);
        return true;
    }
    catch (const DsException& exception)
    {
        const DsHandle<DsSipDialog> hDialog = hInCall.isNil() ? in_hDialog : hInCall->getDialog();
        if (hDialog.isNil() || !isOver(*hDialog, "answer to a re-INVITE"))
        {
            QLOG_ERROR(getLogger(), "Ds Exception occured: " << exception);
        }
        return false;
    }
}

bool SipLeg::respondToInviteReplaces(const DsHandle<DsSipCall>& in_hCall,
                                     const DsHandle<DsSipDialog>& in_hReplacedDialog,
                                     const DsHandle<DsSipDialog>& in_hNewDialog,
                                     const DsHandle<DsSipInviteMessage>& in_hInvite,
                                     unsigned int in_uiResponseCode)
{
    TRACE_SCOPE(getLogger(), "SipLeg::respondToInviteReplaces");
    if (!QUORVEX_ASSERT(getLogger(), !(in_hCall.isNil() || in_hInvite.isNil())) ||
        !QUORVEX_ASSERT(getLogger(), !(in_hReplacedDialog.isNil() || in_hNewDialog.isNil())))
    {
        return false;
    }
    try
    {
        std::string strSdp;
        const bool bAccept = isSuccess(in_uiResponseCode) && generateSdp(*in_hInvite, strSdp);
        // A 2xx without a description would connect nobody.
        constexpr unsigned int kNotAcceptableHere = 488;
        const bool bFailed = isSuccess(in_uiResponseCode) && !bAccept;
        const DsHandle<DsSipResponse> hResponse =
            makeDs<DsSipResponse>(bFailed ? kNotAcceptableHere : in_uiResponseCode,
                                  in_hInvite,
                                  std::string_view(),
                                  strSdp,
                                  kSdpType);
        if (bAccept)
        {
            const DsHandle<DsSipRequest> hBye = in_hReplacedDialog->createRequest("BYE");
            in_hCall->acceptReplaces(in_hReplacedDialog, in_hNewDialog);
            setContact(*hResponse);
            in_hNewDialog->sendResponse(hResponse);
            in_hReplacedDialog->hangup(hBye);
            return true;
        }
        m_pMedia->rollbackSdpOffer();
        in_hNewDialog->sendResponse(hResponse);
        in_hCall->rejectReplaces(in_hReplacedDialog, in_hNewDialog);
        return !bFailed;
    }
    catch (const DsException& exception)
    {
        QLOG_ERROR(getLogger(), "DsException occured: " << exception);
        return false;
    }
}

template <class Send>
bool SipLeg::sendByeResponse(bool in_bCall, const DsHandle<DsSipMessage>& in_hBye, Send in_send)
{
    const DsHandle<DsSipRequest> hBye = in_hBye.dynamicCast<DsSipRequest>();
    if (!QUORVEX_ASSERT_TEXT(
            getLogger(), in_bCall && !hBye.isNil(), "!(hCallType.isNil() || hMessage.isNil())"))
    {
        return false;
    }
    try
    {
        in_send(makeDs<DsSipResponse>(200U, hBye));
        return true;
    }
    catch (const DsException& exception)
    {
        QLOG_ERROR(getLogger(), "Exception occured: " << exception);
        return false;
    }
}

bool SipLeg::respondToBye(const DsHandle<DsSipOutgoingCall>& in_hCall,
                          const DsHandle<DsSipDialog>& in_hDialog,
                          const DsHandle<DsSipMessage>& in_hBye)
{
    TRACE_SCOPE(getLogger(), "SipLeg::respondToBye");
    return sendByeResponse(!in_hCall.isNil() && !in_hDialog.isNil(),
                           in_hBye,
                           [&in_hDialog](const DsHandle<DsSipResponse>& in_hResponse)
                           { in_hDialog->respondToBye(in_hResponse); });
}

bool SipLeg::respondToBye(const DsHandle<DsSipIncomingCall>& in_hCall,
                          const DsHandle<DsSipDialog>& /*in_hDialog*/,
                          const DsHandle<DsSipMessage>& in_hBye)
{
    TRACE_SCOPE(getLogger(), "SipLeg::respondToBye");
    return sendByeResponse(!in_hCall.isNil(),
                           in_hBye,
                           [&in_hCall](const DsHandle<DsSipResponse>& in_hResponse)
                           { in_hCall->respondToBye(in_hResponse); });
}

template <class Send>
bool SipLeg::sendReinviteAck(bool in_bCall, const DsHandle<DsSipResponse>& in_hResponse, Send in_send)
{
    if (!QUORVEX_ASSERT_TEXT(getLogger(), in_bCall, "in_hCallType.isNil() == false"))
    {
        return false;
    }
    if (in_hResponse.isNil() || in_hResponse->getStatusCode() < 200)
    {
        return true;
    }
    try
    {
        in_send(makeDs<DsSipAckMessage>(in_hResponse));
        return true;
    }
    catch (const DsException& exception)
    {
        QLOG_ERROR(getLogger(), "Ds Exception occured: " << exception);
        return false;
    }
}

bool SipLeg::ackReinviteResponse(const DsHandle<DsSipIncomingCall>& in_hCall,
                                 const DsHandle<DsSipDialog>& /*in_hDialog*/,
                                 const DsHandle<DsSipResponse>& in_hResponse)
{
    TRACE_SCOPE(getLogger(), "SipLeg::ackReinviteResponse");
    return sendReinviteAck(!in_hCall.isNil(),
                           in_hResponse,
                           [&in_hCall](const DsHandle<DsSipAckMessage>& in_hAck)
                           { in_hCall->ackReinvite(in_hAck); });
}

bool SipLeg::ackReinviteResponse(const DsHandle<DsSipOutgoingCall>& in_hCall,
                                 const DsHandle<DsSipDialog>& in_hDialog,
                                 const DsHandle<DsSipResponse>& in_hResponse)
{
    TRACE_SCOPE(getLogger(), "SipLeg::ackReinviteResponse");
    return sendReinviteAck(!in_hCall.isNil() && !in_hDialog.isNil(),
                           in_hResponse,
                           [&in_hDialog](const DsHandle<DsSipAckMessage>& in_hAck)
                           { in_hDialog->ackReinvite(in_hAck); });
}

bool SipLeg::validateReInvite(const DsHandle<DsSipInviteMessage>& in_hInvMsg)
{
    TRACE_SCOPE(getLogger(), "SipLeg::validateReInvite");
    if (!QUORVEX_ASSERT(getLogger(), in_hInvMsg.isNil() == false))
    {
        return false;
    }
    try
    {
        return !hasSdp(*in_hInvMsg) || m_pMedia->isSdpOfferValid(m_config);
    }
    catch (const DsException& exception)
    {
        QLOG_ERROR(getLogger(), "Exception occured: " << exception);
        return false;
    }
}

DsHandle<DsSipResponse> SipLeg::createReferResponse(unsigned int in_uiResponseCode,
                                                    const DsHandle<DsSipRequest>& in_hRefer) const
{
    DsHandle<DsSipResponse> hResponse = makeDs<DsSipResponse>(in_uiResponseCode, in_hRefer);
    setContact(*hResponse);
    if (in_uiResponseCode == 202)
    {
        hResponse->setReasonPhrase("Accepted");
    }
    return hResponse;
}

bool SipLeg::respondToReferRequest(unsigned int in_uiResponseCode,
                                   const DsHandle<DsSipServerTransaction>& in_hTransaction,
                                   const DsHandle<DsSipRequest>& in_hRefer)
{
    TRACE_SCOPE(getLogger(), "SipLeg::respondToReferRequest");
    if (!QUORVEX_ASSERT(getLogger(), !(in_hTransaction.isNil() || in_hRefer.isNil())))
    {
        return false;
    }
    try
    {
        in_hTransaction->sendResponse(createReferResponse(in_uiResponseCode, in_hRefer));
        return true;
    }
    catch (const DsException& exception)
    {
        QLOG_ERROR(getLogger(), "Ds Exception occured: " << exception);
        return false;
    }
}

unsigned int SipLeg::validateRefer(const DsHandle<DsSipRequest>& in_hRefer,
                                   std::string& out_strReferToURI,
                                   std::string& out_strReferredByURI,
                                   std::string& out_strReferredByDisplayName,
                                   std::string& out_strToURI,
                                   std::string& out_strFromURI,
                                   std::string& out_strToDisplayName,
                                   std::string& out_strFromDisplayName)
{
    TRACE_SCOPE(getLogger(), "SipLeg::validateRefer");
    if (in_hRefer.isNil())
    {
        QLOG_WARN(getLogger(), "REFER request does not exists");
        return 500;
    }
    try
    {
        const DsHandle<DsSipReferToHeader> hReferTo = in_hRefer->getReferToHeader();
        if (hReferTo.isNil())
        {
            QLOG_WARN(getLogger(), "REFER request does not exists");
            return 400;
        }
        if (hReferTo->getURL().isNil())
        {
            QLOG_ERROR(getLogger(), "REFER-TO URL Address Incomplete.  Possible cause: Missing 'sip:'");
            return 484;
        }
        const DsHandle<DsSipURL> hReferToURL = DsSipURL::parse(hReferTo->getURL()->getText());
        if (hReferToURL.isNil())
        {
            QLOG_WARN(getLogger(), "Can't extract the final destination from the Refer-To");
            return 400;
        }
        const std::string strHost = hReferToURL->getHost();
        if (!resolveIPAddress(strHost.c_str(), m_iNameResolutionTimeoutMs))
        {
            QLOG_WARN(getLogger(),
                      "Could not resolve Refer-To host \""
                          << strHost << "\" to an IP Address. The " << kNameResolutionKey
                          << " parameter value can be increased if the host name is valid and the "
                             "timeout is due to network delay.");
            return 400;
        }
        out_strReferToURI = hReferToURL->getText();
        if (const auto hReferredBy = in_hRefer->getReferredByHeader(); !hReferredBy.isNil())
        {
            takeParty(*hReferredBy, out_strReferredByURI, out_strReferredByDisplayName);
        }
        if (const auto hFrom = in_hRefer->getFromHeader(); !hFrom.isNil())
        {
            takeParty(*hFrom, out_strFromURI, out_strFromDisplayName);
        }
        if (const auto hTo = in_hRefer->getToHeader(); !hTo.isNil())
        {
            takeParty(*hTo, out_strToURI, out_strToDisplayName);
        }
    }
    catch (const DsException& exception)
    {
        QLOG_ERROR(getLogger(), "Ds Exception occured: " << exception);
        return 500;
    }
    QLOG_DEBUG(getLogger(), "Transfering call to " << out_strReferToURI << " from " << out_strFromURI);
    return 202;
}

bool SipLeg::resolveIPAddress(const char* in_szHost, int in_iTimeoutMs, DsInetAddress* out_pAddress)
{
    QLOG_TRACE(getLogger(), "in_szIP: " << in_szHost << " in_iTimeoutMs: " << in_iTimeoutMs);
    try
    {
        const DsInetAddress address(in_szHost, in_iTimeoutMs);
        if (out_pAddress != nullptr)
        {
            *out_pAddress = address;
        }
        return true;
    }
    catch (const DsException& exception)
    {
        QLOG_DEBUG(getLogger(), "Unknown IP address \"" << in_szHost << "\" reason: " << exception);
        return false;
    }
}

DsHandle<DsSipDateHeader> SipLeg::createDateHeader()
{
    static const StaticLogger s_logger("quorvex.voip.SipLeg");
    // Not strftime: its names follow the process's locale, those of the protocol do not.
    static constexpr std::array<const char*, 7> kDays = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static constexpr std::array<const char*, 12> kMonths = {
        "Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const std::time_t now = std::time(nullptr);
    // A busy gateway asks many times in a second.
    static thread_local std::time_t s_writtenAt = -1;
    static thread_local std::array<char, 64> s_szDate{};
    if (now != s_writtenAt)
    {
        std::tm utc{};
        ::gmtime_r(&now, &utc);
        std::snprintf(s_szDate.data(),
                      s_szDate.size(),
                      "%s, %02d %s %04d %02d:%02d:%02d GMT",
                      kDays.at(static_cast<std::size_t>(utc.tm_wday)),
                      utc.tm_mday,
                      kMonths.at(static_cast<std::size_t>(utc.tm_mon)),
                      utc.tm_year + 1900,
                      utc.tm_hour,
                      utc.tm_min,
                      utc.tm_sec);
        s_writtenAt = now;
    }
    try
    {
        return makeDs<DsSipDateHeader>(std::string_view(s_szDate.data()));
    }
    catch (const DsException& exception)
    {
        QLOG_WARN(s_logger, "Failed to create SIP Date header because " << exception);
        return {};
    }
}

bool SipLeg::fillInLegInfoFromKnownHeaders(const DsHandle<DsSipMessage>& in_hMessage,
                                           CallLegInfo& io_legInfo) const
{
    TRACE_SCOPE(getLogger(), "SipLeg::fillInLegInfoFromKnownHeaders");
    if (!QUORVEX_ASSERT(getLogger(), !in_hMessage.isNil()))
    {
        return false;
    }
    static constexpr std::array<int, 5> kHeaderIDs = {DsSipHeaderID::eCALL_ID,
                                                      DsSipHeaderID::eCONTACT,
                                                      DsSipHeaderID::eFROM,
                                                      DsSipHeaderID::eTO,
                                                      DsSipHeaderID::eUSER_AGENT};
    for (const int iID : kHeaderIDs)
    {
        const DsHandle<DsSipHeader> hHeader = in_hMessage->getHeaderByID(iID);
        if (hHeader.isNil())
        {
            continue;
        }
        // The value without the white space around it.
        std::string strValue = hHeader->getValueText();
        strValue.erase(strValue.find_last_not_of(" \t\r\n") + 1);
        strValue.erase(0, strValue.find_first_not_of(" \t"));
        io_legInfo.setParameter("sip.in.header." + std::string(DsSipHeader::getNameFromID(iID)), strValue);
    }
    return true;
}

bool SipLeg::fillInLegInfoFromUnknownHeaders(const DsHandle<DsSipMessage>& in_hMessage,
                                             CallLegInfo& io_legInfo) const
{
    TRACE_SCOPE(getLogger(), "SipLeg::fillInLegInfoFromUnknownHeaders");
    if (!QUORVEX_ASSERT(getLogger(), !in_hMessage.isNil()))
    {
        return false;
    }
    for (DsHandle<DsSipHeader> hHeader = in_hMessage->getHeaderByID(DsSipHeaderID::eUNKNOWN);
         !hHeader.isNil();
         hHeader = hHeader->getNext())
    {
        io_legInfo.setParameter("sip.in.header." + hHeader->getToken(), std::string(hHeader->getValueText()));
    }
    return true;
}

}  // namespace Quorvex
