#include "sipstack/base/MessageBridge.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>

#include "sipstack/DsInetAddress.h"
#include "sipstack/DsSipMessage.h"
#include "sipstack/DsSipRequest.h"
#include "sipstack/DsSipResponse.h"
#include "sipstack/base/SipAgent.h"
#include "sipstack/base/SofiaLog.h"

namespace Quorvex
{

namespace
{

DsInetAddress addressOf(const sockaddr* in_pAddress)
{
    std::array<char, INET6_ADDRSTRLEN> text{};
    std::uint16_t port = 0;
    if (in_pAddress->sa_family == AF_INET)
    {
        const auto* const in4 = reinterpret_cast<const sockaddr_in*>(in_pAddress);
        // By hand: the C library's way is through printf, and this is done for each message.
        const auto* pByte = reinterpret_cast<const unsigned char*>(&in4->sin_addr);
        char* pEnd = text.data();
        for (int i = 0; i < 4; ++i)
        {
            pEnd = std::to_chars(pEnd, text.data() + text.size(), pByte[i]).ptr;
            *pEnd++ = i < 3 ? '.' : '\0';
        }
        port = ntohs(in4->sin_port);
    }
    else if (in_pAddress->sa_family == AF_INET6)
    {
        const auto* const in6 = reinterpret_cast<const sockaddr_in6*>(in_pAddress);
        ::inet_ntop(AF_INET6, &in6->sin6_addr, text.data(), text.size());
        port = ntohs(in6->sin6_port);
    }
    DsInetAddress address;
    DsInetAddress::parseLiteral(text.data(), port, address);
    return address;
}

// The local address from which the system reaches a peer: where a message of that peer came in on a port that
// is bound to every address.
DsInetAddress localAddressFor(const su_sockaddr_t* in_pPeer, std::uint16_t in_uiPort)
{
    DsInetAddress address;
    const int fd = ::socket(in_pPeer->su_sa.sa_family, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
    {
        return address;
    }
    const socklen_t length =
        in_pPeer->su_sa.sa_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
    sockaddr_storage local{};
    socklen_t localLength = sizeof local;
    if (::connect(fd, &in_pPeer->su_sa, length) == 0 &&
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&local), &localLength) == 0)
    {
        address = addressOf(reinterpret_cast<const sockaddr*>(&local));
        address.setPort(in_uiPort);
    }
    ::close(fd);
    return address;
}

// Written by the base library, or of one hop only.
bool isOwnedByStack(int in_iID)
{
    switch (in_iID)
    {
        case DsSipHeaderID::eVIA:
        case DsSipHeaderID::eFROM:
        case DsSipHeaderID::eTO:
        case DsSipHeaderID::eCALL_ID:
        case DsSipHeaderID::eCSEQ:
        case DsSipHeaderID::eRECORD_ROUTE:
        case DsSipHeaderID::eMAX_FORWARDS:
        case DsSipHeaderID::eCONTENT_LENGTH:
        case DsSipHeaderID::eRSEQ:
        case DsSipHeaderID::eTIMESTAMP:
            return true;
        default:
            return false;
    }
}

/// A header line as the base library prints it.
std::string printed(const sip_header_t* in_pHeader)
{
    std::string line(512, '\0');
    const auto* const header = reinterpret_cast<const msg_header_t*>(in_pHeader);
    issize_t length = msg_header_e(line.data(), static_cast<isize_t>(line.size()), header, 0);
    if (length >= static_cast<issize_t>(line.size()))
    {
        line.resize(static_cast<std::size_t>(length) + 1);
        length = msg_header_e(line.data(), static_cast<isize_t>(line.size()), header, 0);
    }
    line.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
    return line;
}

const sip_header_t* next(const sip_header_t* in_pHeader)
{
    return reinterpret_cast<const sip_header_t*>(in_pHeader->sh_succ);
}

// The Request-URI as received, from the first line.
std::string_view requestUri(const sip_header_t* in_pFirst)
{
    if (in_pFirst == nullptr || in_pFirst->sh_data == nullptr)
    {
        return {};
    }
    std::string_view line(static_cast<const char*>(in_pFirst->sh_data), in_pFirst->sh_len);
    line.remove_prefix(std::min(line.find_first_not_of("\r\n \t"), line.size()));
    line = line.substr(0, std::min(line.find('\r'), line.find('\n')));
    const std::size_t begin = line.find(' ');
    const std::size_t end = line.rfind(' ');
    if (begin == std::string_view::npos || end <= begin)
    {
        return {};
    }
    const std::string_view uri = line.substr(begin + 1, end - begin - 1);
    const std::size_t text = uri.find_first_not_of(' ');
    return text == std::string_view::npos ? uri : uri.substr(text, uri.find_last_not_of(' ') - text + 1);
}

}  // namespace

OutgoingParts::OutgoingParts(su_home_t* in_pHome,
                             const DsHandle<DsSipMessage>& in_hMessage,
                             const std::string& in_strContact,
                             Routes in_routes,
                             const std::string& in_strExtra)
    : m_strHeaders(in_strExtra)
{
    bool contact = in_strContact.empty();
    m_strHeaders.reserve(512);
    if (!in_hMessage.isNil())
    {
        in_hMessage->appendHeaders(m_strHeaders,
                                   [&](int in_iID)
                                   {
                                       contact = contact || in_iID == DsSipHeaderID::eCONTACT;
                                       return !isOwnedByStack(in_iID) &&
                                              (in_iID != DsSipHeaderID::eROUTE || in_routes != Routes::eSkip);
                                   });
        const std::string& body = in_hMessage->getBody();
        if (!body.empty())
        {
            m_pBody = sip_payload_create(in_pHome, body.data(), static_cast<isize_t>(body.size()));
        }
    }
    if (!contact)
    {
        m_strHeaders.append("Contact: ").append(in_strContact).append("\r\n");
    }
}

DsHandle<DsSipMessage> MessageBridge::build(msg_t* in_pMsg, tport_t* in_pTransport) const
{
    if (in_pMsg == nullptr)
    {
        return nullptr;
    }
    const sip_t* const sip = sip_object(in_pMsg);
    const auto* const head = reinterpret_cast<const sip_header_t*>(*msg_chain_head(in_pMsg));
    // Fragments of the message as it came lie in one piece, so their lengths add up to what is to be kept.
    std::size_t bytes = 0;
    std::size_t headers = 0;
    for (const sip_header_t* h = head; h != nullptr; h = next(h))
    {
        bytes += h->sh_len;
        ++headers;
    }
    DsSipMessageBuilder builder =
        sip->sip_request != nullptr
            ? DsSipMessageBuilder(sip->sip_request->rq_method_name, requestUri(head), bytes)
            : DsSipMessageBuilder(static_cast<unsigned int>(sip->sip_status->st_status),
                                  sip->sip_status->st_phrase != nullptr ? sip->sip_status->st_phrase : "",
                                  bytes);
    builder.expectHeaders(headers);
    const auto* const payload = reinterpret_cast<const sip_header_t*>(sip->sip_payload);
    const auto* const separator = reinterpret_cast<const sip_header_t*>(sip->sip_separator);
    for (const sip_header_t* h = head == nullptr ? nullptr : next(head); h != nullptr; h = next(h))
    {
        if (h == payload || h == separator)
        {
            continue;
        }
        if (h->sh_len != 0)
        {
            builder.addLine(std::string_view(static_cast<const char*>(h->sh_data), h->sh_len));
        }
        else if (h->sh_data == nullptr)
        {
            // Changed by the base library, which drops the text then: the topmost Via gets its received and
            // rport parameters so. (The second and later values of a list have no text either, but say where
            // it would be.)
            builder.addLine(printed(h));
        }
    }
    if (sip->sip_payload != nullptr && sip->sip_payload->pl_data != nullptr)
    {
        builder.setBody(std::string_view(sip->sip_payload->pl_data, sip->sip_payload->pl_len));
    }
    const su_sockaddr_t* const peer = msg_addr(in_pMsg);
    builder.setAddresses(localAddress(in_pTransport, peer), addressOf(&peer->su_sa));
    return builder.build();
}

DsInetAddress MessageBridge::localAddress(tport_t* in_pTransport, const su_sockaddr_t* in_pPeer) const
{
    DsInetAddress local;
    if (in_pTransport != nullptr)
    {
        const tport_t* const port = tport_parent(in_pTransport);
        const tp_name_t* const name = tport_name(port != nullptr ? port : in_pTransport);
        m_agent.boundAddress(name->tpn_ident, local);
        if (local.isAny())
        {
            local = localAddressFor(in_pPeer, local.getPort());
        }
    }
    return local;
}

DsHandle<DsSipMessage> MessageBridge::fromRequest(nta_incoming_t* in_pIrq) const
{
    msg_t* const msg = nta_incoming_getrequest(in_pIrq);
    tport_t* transport = tport_delivered_by(nta_agent_tports(m_agent.nta()), msg);
    tport_t* const later =
        transport == nullptr ? nta_incoming_transport(m_agent.nta(), in_pIrq, msg) : nullptr;
    transport = transport == nullptr ? later : transport;
    auto message = build(msg, transport);
    if (later != nullptr)
    {
        tport_unref(later);
    }
    msg_destroy(msg);
    return message;
}

DsHandle<DsSipMessage> MessageBridge::fromAckOrCancel(nta_incoming_t* in_pIrq) const
{
    msg_t* const msg = nta_incoming_getrequest_ackcancel(in_pIrq);
    auto message =
        build(msg, msg == nullptr ? nullptr : tport_delivered_by(nta_agent_tports(m_agent.nta()), msg));
    msg_destroy(msg);
    return message;
}

DsHandle<DsSipMessage> MessageBridge::fromResponse(nta_outgoing_t* in_pOrq) const
{
    msg_t* const msg = nta_outgoing_getresponse(in_pOrq);
    const sip_t* const sip = msg == nullptr ? nullptr : sip_object(msg);
    if (sip != nullptr && sip->sip_error != nullptr)
    {
        m_ulUnreadableHeaders.fetch_add(1, std::memory_order_relaxed);
        warnOfUnreadableHeader(addressOf(&msg_addr(msg)->su_sa).getHostAddress());
    }
    auto message =
        build(msg, msg == nullptr ? nullptr : tport_delivered_by(nta_agent_tports(m_agent.nta()), msg));
    msg_destroy(msg);
    return message;
}

void MessageBridge::reply(nta_incoming_t* in_pIrq,
                          const DsHandle<DsSipResponse>& in_hResponse,
                          const std::string& in_strContact,
                          const std::string& in_strExtra)
{
    su_home_t home[1] = {SU_HOME_INIT(home)};
    const OutgoingParts parts(home, in_hResponse, in_strContact, OutgoingParts::Routes::eSkip, in_strExtra);
    // The phrase is not copied by the base library; it has to live as long as the response is kept.
    const char* const phrase =
        SipAgent::keptPhrase(in_hResponse->getStatusCode(), in_hResponse->getReasonPhrase());
    nta_incoming_treply(in_pIrq,
                        static_cast<int>(in_hResponse->getStatusCode()),
                        phrase,
                        TAG_IF(parts.hasHeaders(), SIPTAG_HEADER_STR(parts.headers())),
                        TAG_IF(parts.hasBody(), SIPTAG_PAYLOAD(parts.body())),
                        TAG_END());
    su_home_deinit(home);
}

nta_reliable_t* MessageBridge::replyReliably(nta_incoming_t* in_pIrq,
                                             ReliableHandler& in_handler,
                                             const DsHandle<DsSipResponse>& in_hResponse,
                                             const std::string& in_strContact)
{
    su_home_t home[1] = {SU_HOME_INIT(home)};
    const OutgoingParts parts(home, in_hResponse, in_strContact);
    const char* const phrase =
        SipAgent::keptPhrase(in_hResponse->getStatusCode(), in_hResponse->getReasonPhrase());
    nta_reliable_t* const reliable =
        nta_reliable_treply(in_pIrq,
                            &ReliableHandler::callback,
                            &in_handler,
                            static_cast<int>(in_hResponse->getStatusCode()),
                            phrase,
                            TAG_IF(parts.hasHeaders(), SIPTAG_HEADER_STR(parts.headers())),
                            TAG_IF(parts.hasBody(), SIPTAG_PAYLOAD(parts.body())),
                            TAG_END());
    su_home_deinit(home);
    return reliable;
}

DsHandle<DsSipRequest> MessageBridge::makeRequest(const std::string& in_strMethod,
                                                  const std::string& in_strURI,
                                                  const std::string& in_strFrom,
                                                  const std::string& in_strTo,
                                                  const std::string& in_strCallId)
{
    auto request = DsSipRequest::create(in_strMethod, in_strURI);
    request->addHeader("From", in_strFrom);
    request->addHeader("To", in_strTo);
    request->addHeader("Call-ID", in_strCallId);
    return request;
}

std::string MessageBridge::headerValue(const sip_header_t* in_pHeader)
{
    std::string text;
    su_home_t home[1] = {SU_HOME_INIT(home)};
    if (char* const value = sip_header_as_string(home, in_pHeader))
    {
        text = value;
    }
    su_home_deinit(home);
    return text;
}

std::string MessageBridge::urlText(const url_t* in_pUrl)
{
    std::string text;
    su_home_t home[1] = {SU_HOME_INIT(home)};
    if (char* const value = url_as_string(home, in_pUrl))
    {
        text = value;
    }
    su_home_deinit(home);
    return text;
}

}  // namespace Quorvex
