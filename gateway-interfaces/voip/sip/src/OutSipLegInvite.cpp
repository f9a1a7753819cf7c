#include <sstream>
#include <string_view>

#include "OutSipLeg.h"
#include "SipRedirection.h"
#include "VoipMedia.h"
#include "calleng/CallInfo.h"
#include "infra/Assertion.h"
#include "infra/TraceScope.h"
#include "net/Net.h"
#include "sip-common/MySipUtils.h"
#include "sipstack/DsException.h"
#include "sipstack/DsSipText.h"

// The INVITE of an outbound call.

namespace Quorvex
{

namespace
{

constexpr const char* kRequestUriKey = "sip.out.requestUri";
constexpr const char* kRedirectContactKey = "sip.out.redirect.Contact";
constexpr const char* kTransportKey = "sip.out.transport";
constexpr const char* kToUriKey = "sip.out.to.uri";
constexpr const char* kFromUriKey = "sip.out.from.uri";
constexpr const char* kHeaderKey = "sip.out.header";
constexpr const char* kNameResolutionKey = "quorvex.sip.getHostByNameTimeoutMs";

constexpr const char* kAllow = "INVITE, ACK, BYE, CANCEL, NOTIFY, INFO, OPTIONS, REFER";
constexpr const char* kSupported = "replaces";

constexpr std::string_view kTransportParam[] = {"udp", "tcp"};

/// The Expires of our INVITEs: a little less than we wait for an answer ourselves.
unsigned int getExpiresS()
{
    const unsigned int uiTimerCS = SipStack::instance()->getTimerCMs() / 1000;
    return uiTimerCS > 1 ? uiTimerCS - 1 : 1;
}

/// Headers of a redirection's URL that cannot be the redirecting party's to say.
bool isOwnHeader(const std::string& in_strName)
{
    static constexpr std::string_view kOwn[] = {"From", "Call-ID", "CSeq", "Via", "Record-Route", "To"};
    for (const std::string_view name : kOwn)
    {
        if (SipText::equalsIgnoreCase(name, in_strName))
        {
            return true;
        }
    }
    return false;
}

}  // namespace

bool OutSipLeg::createInvite(const CallInfo& in_callInfo, const char* in_szCallId)
{
    if (!QUORVEX_ASSERT(getLogger(), in_callInfo.getNumLeg() > 0))
    {
        return false;
    }
    const CallLegInfo& legInfo = in_callInfo.getCurrentLeg();
    QLOG_DEBUG(getLogger(), "OutSipLeg::invite : legInfo = " << legInfo);
    setInitialInviteMsg(DsHandle<DsSipInviteMessage>());
    std::string strValue;
    bool bCreated = false;
    if (legInfo.getParameter(kRequestUriKey, strValue))
    {
        bCreated = createInviteMsgFromRequestUri(strValue, legInfo, in_szCallId);
    }
    else if (legInfo.getParameter(kRedirectContactKey, strValue))
    {
        bCreated = createInviteMsgFromRedirection(legInfo, in_szCallId);
    }
    else
    {
        QLOG_ERROR(getLogger(),
                   "Either " << kRequestUriKey << " or " << kRedirectContactKey
                             << "must be set by rules that route to the sip interface");
    }
    if (!bCreated ||
        !QUORVEX_ASSERT_TEXT(getLogger(), !getInitialInviteMsg().isNil(), "! getInitialInviteMsg().isNil()"))
    {
        return false;
    }
    DsSipInviteMessage& invite = *getInitialInviteMsg();
    const auto hFrom = invite.getFromHeader();
    if (hFrom.isNil() || hFrom->getURL().isNil())
    {
        QLOG_ERROR(getLogger(), "invalid INVITE message, no From header");
        return false;
    }
    const auto hTo = invite.getToHeader();
    if (hTo.isNil() || hTo->getURL().isNil())
    {
        QLOG_ERROR(getLogger(), "invalid INVITE message, no To header");
        return false;
    }
    addCustomHeaders(legInfo.getParameters(), invite);
    if (const auto hDate = createDateHeader(); !hDate.isNil())
    {
        invite.updateHeader(*hDate);
    }
    return true;
}

Sip::Transport OutSipLeg::readTransport(const CallLegInfo& in_legInfo) const
{
    std::string strTransport;
    if (!in_legInfo.getParameter(kTransportKey, strTransport))
    {
        return Sip::eUDP;
    }
    const Fallible<Sip::Transport> parsed = Sip::parseTransportString(strTransport);
    if (!parsed.valid())
    {
        QLOG_WARN(getLogger(),
                  strTransport << " : invalid sip transport. Valid values are udp or tcp. Using the "
                                  "default (udp)");
    }
    return parsed.valueOr(Sip::eUDP);
}

DsHandle<DsSipToHeader> OutSipLeg::createToHeader(const CallLegInfo& in_legInfo,
                                                  const std::string& in_strRequestUri) const
{
    const std::string strTo = in_legInfo.getParameterOr(kToUriKey, in_strRequestUri);
    if (!MySipUtils::sIsValidToHeader(strTo))
    {
        QLOG_ERROR(
            getLogger(),
            "The value for " << kToUriKey << " --> " << strTo << " <-- is not valid for a sip To header.");
        return {};
    }
    return makeDs<DsSipToHeader>(DsSipNameAddress(
        makeDs<DsSipURL>(strTo), in_legInfo.getParameterOr("sip.out.to.displayName", std::string())));
}

DsHandle<DsSipFromHeader> OutSipLeg::createFromHeader(const CallLegInfo& in_legInfo,
                                                      const char* in_szCallId) const
{
    const std::string strFrom = in_legInfo.getParameterOr(kFromUriKey, "sip:undefined");
    if (!MySipUtils::sIsValidFromHeader(strFrom))
    {
        QLOG_ERROR(getLogger(),
                   "The value for " << kFromUriKey << " --> " << strFrom
                                    << " <-- is not valid for a sip From header.");
        return {};
    }
    auto hFrom = makeDs<DsSipFromHeader>(DsSipNameAddress(
        makeDs<DsSipURL>(strFrom), in_legInfo.getParameterOr("sip.out.from.displayName", std::string())));
    hFrom->setTag("qrvx-callid-" + std::string(in_szCallId) + "ds");
    return hFrom;
}

bool OutSipLeg::createInviteMsgFromRequestUri(const std::string& in_strRequestUri,
                                              const CallLegInfo& in_legInfo,
                                              const char* in_szCallId)
{
    TRACE_SCOPE(getLogger(), "OutSipLeg::createInviteMsgFromRequestUri");
    if (!MySipUtils::sIsValidRequestURI(in_strRequestUri))
    {
        QLOG_ERROR(getLogger(),
                   "The value for " << kRequestUriKey << " --> " << in_strRequestUri
                                    << " <-- is invalid. You MUST provide a valid sip URI"
                                    << " (including the sip: prefix).");
        return false;
    }
    DsSipURL url(in_strRequestUri);

    url.setTransportParam(kTransportParam[readTransport(in_legInfo) == Sip::eUDP ? 0 : 1]);
    if (!selectListenAddressPortFromRequestURL(url))
    {
        return false;
    }

    const auto hTo = createToHeader(in_legInfo, in_strRequestUri);
    const auto hFrom = createFromHeader(in_legInfo, in_szCallId);
    if (hTo.isNil() || hFrom.isNil())
    {
        return false;
    }

    m_cdrLogger.callStart(in_szCallId);
    m_cdrLogger.refreshLevel();
    QLOG_INFO(m_cdrLogger, "OUT From Header= " << hFrom->getText());
    QLOG_INFO(m_cdrLogger, "OUT To Header= " << hTo->getText());

    setInitialInviteMsg(createInviteMsg(url, hTo, hFrom, m_listenPort.m_hContact));
    if (getInitialInviteMsg().isNil())
    {
        QLOG_ERROR(getLogger(), "Could not create the invite message.");
        return false;
    }
    return true;
}

DsHandle<DsSipInviteMessage> OutSipLeg::createInviteMsg(const DsSipURL& in_requestUrl,
                                                        const DsHandle<DsSipToHeader>& in_hTo,
                                                        const DsHandle<DsSipFromHeader>& in_hFrom,
                                                        const DsHandle<DsSipContactHeader>& in_hContact)
{
    TRACE_SCOPE(getLogger(), "OutSipLeg::createInviteMsg");
    QLOG_DEBUG(getLogger(), "m_hInviteMsg = new DsSipInviteMessage()");
    const auto hInvite = makeDs<DsSipInviteMessage>(in_requestUrl, in_hFrom, in_hTo, in_hContact);
    QLOG_DEBUG(getLogger(), "hExpires =");
    const std::string strExpires = std::to_string(getExpiresS());
    QLOG_DEBUG(getLogger(), "m_hInviteMsg->addHeader(hExpires);");
    hInvite->addHeader("Expires", strExpires);
    QLOG_DEBUG(getLogger(), "HDsSipAllowHeader hAllow =");
    QLOG_DEBUG(getLogger(), "m_hInviteMsg->addHeader(hAllow);");
    hInvite->addHeader("Allow", kAllow);
    QLOG_DEBUG(getLogger(), "ACE_OS_String::strcmp(cSUPPORTED_HEADER, \"\")");
    QLOG_DEBUG(getLogger(), "HDsSipSupportedHeader hSupported =");
    QLOG_DEBUG(getLogger(), "m_hInviteMsg->addHeader(hSupported);");
    hInvite->addHeader("Supported", kSupported);
    QLOG_DEBUG(getLogger(), "HDsSipUserAgentHeader hUserAgent = ");
    const SipStack& stack = *SipStack::instance();
    const auto hUserAgent = makeDs<DsSipUserAgentHeader>(stack.getProductName(), stack.getProductVersion());
    QLOG_DEBUG(getLogger(), "m_hInviteMsg->addHeader(hUserAgent);");
    hInvite->addHeader(*hUserAgent);
    return setMessageSdpOffer(*hInvite) ? hInvite : DsHandle<DsSipInviteMessage>();
}

bool OutSipLeg::setMessageSdpOffer(DsSipMessage& io_message)
{
    if (!QUORVEX_ASSERT_TEXT(
            getLogger(), !m_listenPort.m_hContact.isNil(), "! m_listenPort.m_hContact.isNil()"))
    {
        return false;
    }
    m_pMedia->setUserAgentIPAddress(m_listenPort.getHostAddress());
    std::ostringstream sdp;
    if (!m_pMedia->generateSdpOffer(getConfig(), sdp))
    {
        QLOG_ERROR(getLogger(), "Error getting the SDP offer");
        return false;
    }
    io_message.setBody(sdp.str(), "application/sdp");
    return true;
}

bool OutSipLeg::resolveDestination(const DsSipURL& in_url, const char* in_szWhat, DsInetAddress& out_address)
{
    if (resolveIPAddress(in_url.getHost().c_str(), getNameResolutionTimeoutMs(), &out_address))
    {
        return true;
    }
    QLOG_WARN(getLogger(),
              "Could not resolve " << in_szWhat << " host \"" << in_url.getHost()
                                   << "\" to an IP Address. The " << kNameResolutionKey
                                   << " parameter value can be increased if the host name is valid and the "
                                      "timeout is due to network delay.");
    return false;
}

bool OutSipLeg::selectListenAddressPortFromRequestURL(const DsSipURL& in_requestUrl)
{
    TRACE_SCOPE(getLogger(), "OutSipLeg::selectListenAddressPortFromRequestURL");
    const SipStack& stack = *SipStack::instance();
    DsInetAddress destination;
    if (stack.hasOutboundProxy()
            ? !resolveDestination(DsSipURL(stack.getOutboundProxy()), "outbound proxy ", destination)
            : !resolveDestination(in_requestUrl, "request URI", destination))
    {
        return false;
    }
    const Fallible<Sip::Transport> transport =
        DsSocketImpl::convertTransport(in_requestUrl.getTransportParam());
    if (!QUORVEX_ASSERT(getLogger(), transport.valid()))
    {
        return false;
    }
    Net::Interface netInterface;
    if (!Net::Interface::getForDestination(destination.getHostAddress(), netInterface))
    {
        QLOG_ERROR(getLogger(), "Can not find an interface to reach " << destination);
        return false;
    }
    const std::string& strLocalAddress = netInterface.getIPAdress();
    const char* const szTransport = Sip::getTransportString(transport.value());
    QLOG_DEBUG(
        getLogger(),
        "OutSipLeg::selectListenAddressPortFromRequestURL : Looking for SIP listen port to use to reach "
            << strLocalAddress << " via " << szTransport);
    m_listenPort = SipStack::ListenAddrPort();
    chooseListenPort(transport.value(), strLocalAddress);
    if (m_listenPort.m_hContact.isNil())
    {
        QLOG_ERROR(getLogger(),
                   "failed to find a listen port with transport "
                       << szTransport
                       << " to send an INVITE. The sip.out.transport routing rule parameter can be used to "
                          "configure the transport to use (udp/tcp");
        return false;
    }
    return true;
}

bool OutSipLeg::createInviteMsgFromRedirection(const CallLegInfo& in_legInfo, const char* /*in_szCallId*/)
{
    TRACE_SCOPE(getLogger(), "OutSipLeg::createInviteMsgFromRedirection");
    const auto* pLegInfo = dynamic_cast<const SipRedirectionLegInfo*>(&in_legInfo);
    if (!QUORVEX_ASSERT_TEXT(getLogger(),
                             pLegInfo != nullptr,
                             "QUORVEX_DYNCAST_ASSERT(const SipRedirectionLegInfo, &in_legInfo)"))
    {
        return false;
    }
    const SipRedirectionTargetData::Ptr pTargetData = pLegInfo->getTargetData();
    if (!QUORVEX_ASSERT_TEXT(getLogger(), !pTargetData.isNull(), "! pTargetData.isNull()"))
    {
        return false;
    }
    const DsHandle<DsSipInviteMessage> hOrigInvite = pTargetData->getInviteMsg();
    const DsHandle<DsSipContactHeader> hContactHdr = pLegInfo->getContactHeader();
    if (!QUORVEX_ASSERT_TEXT(getLogger(), !hOrigInvite.isNil(), "! hOrigInvite.isNil()") ||
        !QUORVEX_ASSERT_TEXT(getLogger(), !hContactHdr.isNil(), "! hContactHdr.isNil()"))
    {
        return false;
    }
    const DsHandle<DsSipURL> hContactUrl = hContactHdr->getURL();
    if (!QUORVEX_ASSERT_TEXT(getLogger(), !hContactUrl.isNil(), "! hContactUrl.isNil()"))
    {
        return false;
    }
    const DsHandle<DsSipInviteMessage> hInvite(hOrigInvite->clone());
    // The local end may be another one for this target.
    hInvite->removeHeaderByID(DsSipHeaderID::eCONTACT);
    if (!formRequestFromURI(*hContactUrl, *hInvite))
    {
        return false;
    }
    // Routed afresh. The stack makes the Via; one that came with the first INVITE must not be taken for it.
    hInvite->setConnectionAddress(DsInetAddress());
    if (const auto hViaHeader = hInvite->getViaHeader(); !hViaHeader.isNil())
    {
        hViaHeader->setBranchRFC3261();
    }
    if (!selectListenAddressPortFromRequestURL(*hInvite->getRequestURL()) || !setMessageSdpOffer(*hInvite))
    {
        return false;
    }
    if (!hInvite->hasHeader("Contact"))
    {
        hInvite->addHeader(*m_listenPort.m_hContact);
    }
    QLOG_DEBUG(getLogger(), "Original SIP INVITE msg :\n" << *hOrigInvite);
    QLOG_DEBUG(getLogger(), "Redirected SIP INVITE msg :\n" << *hInvite);
    setInitialInviteMsg(hInvite);
    return true;
}

bool OutSipLeg::replaceAddressHeader(const std::string& in_strName,
                                     const std::string& in_strValue,
                                     DsSipRequest& io_request)
{
    try
    {
        const DsHandle<DsSipHeader> hHeader = DsSipHeader::create(in_strName, in_strValue);
        const auto hAddress = hHeader.dynamicCast<DsSipAddressHeader>();
        if (!hAddress.isNil() && !hAddress->getURL().isNil())
        {
            io_request.updateHeader(*hAddress);
            return true;
        }
    }
    catch (const DsException& exception)
    {
        QLOG_DEBUG(getLogger(), in_strName << " header of a redirection: " << exception);
    }
    QLOG_ERROR(getLogger(), "failed to create " << in_strName << " header from " << in_strValue);
    return false;
}

bool OutSipLeg::formRequestFromURI(const DsSipURL& in_contactUrl, DsSipRequest& io_request)
{
    DsSipURL requestUrl(in_contactUrl);
    requestUrl.clearHeaders();
    if (!requestUrl.isSipURL())
    {
        QLOG_WARN(getLogger(),
                  "Received a redirection request with a Contact header that is no SIP URI : "
                      << requestUrl.getText());
        return false;
    }
    if (requestUrl.hasParameter("method"))
    {
        const DsString strMethod = requestUrl.getParameter("method");
        if (strMethod != DsSipInviteMessage::kMethod)
        {
            QLOG_WARN(getLogger(),
                      "Received a redirection request with a Contact header that has an unsupported method : "
                          << strMethod << ". Only INVITE is supported");
            return false;
        }
        requestUrl.removeParameter("method");
    }
    if (requestUrl.getTransportParam().empty())
    {
        requestUrl.setTransportParam(kTransportParam[0]);
    }
    if (in_contactUrl.hasHeader("To") &&
        !replaceAddressHeader("To", in_contactUrl.getHeader("To"), io_request))
    {
        return false;
    }
    io_request.setRequestURL(requestUrl);
    for (const auto& [strName, strValue] : in_contactUrl.getHeaders())
    {
        if (isOwnHeader(strName))
        {
            continue;
        }
        if (SipText::equalsIgnoreCase(strName, "Contact"))
        {
            if (!replaceAddressHeader("Contact", strValue, io_request))
            {
                return false;
            }
        }
        else if (SipText::isToken(strName))
        {
            io_request.addHeader(strName, strValue);
        }
    }
    return true;
}

void OutSipLeg::addCustomHeaders(const ParameterTrie& in_parameters, DsSipMessage& io_invite)
{
    static const StaticLogger s_logger("quorvex.voip.OutSipLeg");
    QLOG_DEBUG(s_logger, "OutSipLeg::addCustomHeaders : input trie : " << in_parameters);
    const ParameterTrieNode* const pHeaders = in_parameters.find(kHeaderKey);
    if (pHeaders == nullptr)
    {
        return;
    }
    // A dot in a header's name makes nodes below nodes.
    const std::size_t uiPrefix = pHeaders->getFullName().size() + 1;
    auto add = [&](const ParameterTrieNode& in_node)
    {
        const std::string strName = in_node.getFullName().substr(uiPrefix);
        const std::string strValue = in_node.getValue().toText();
        QLOG_DEBUG(s_logger, "Custom Header: " << strName << " Value: " << strValue);
        if (!SipText::isToken(strName))
        {
            QLOG_WARN(s_logger, "\"" << strName << "\" is no name of a header");
            return;
        }
        io_invite.addHeader(DsSipUnknownHeader(strName, strValue));
    };
    for (const auto& pChild : pHeaders->getChildren())
    {
        ParameterTrie::visit(*pChild, add);
    }
}

}  // namespace Quorvex
