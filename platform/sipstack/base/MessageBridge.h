#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "sipstack/DsHandle.h"
#include "sipstack/DsInetAddress.h"
#include "sipstack/base/Sofia.h"

namespace Quorvex
{

class DsSipMessage;
class DsSipRequest;
class DsSipResponse;
class SipAgent;

/// What a message of the layer's user adds to one that the base library sends: its headers, without those
/// that the base library writes itself, and its body. Lives in the home of one call to the base library.
class OutgoingParts
{
public:
    enum class Routes
    {
        eSkip,
        eKeep
    };

    /// @param in_strContact the Contact for a message that has none; "" for none
    /// @param in_strExtra header lines of the layer's own
    OutgoingParts(su_home_t* in_pHome,
                  const DsHandle<DsSipMessage>& in_hMessage,
                  const std::string& in_strContact = std::string(),
                  Routes in_routes = Routes::eSkip,
                  const std::string& in_strExtra = std::string());

    bool hasHeaders() const { return !m_strHeaders.empty(); }
    const char* headers() const { return m_strHeaders.c_str(); }
    bool hasBody() const { return m_pBody != nullptr; }
    const sip_payload_t* body() const { return m_pBody; }

private:
    std::string m_strHeaders;
    sip_payload_t* m_pBody = nullptr;
};

/// Between the base library's messages and the layer's own. SIP stack thread, except where noted.
class MessageBridge
{
public:
    explicit MessageBridge(const SipAgent& in_agent) : m_agent(in_agent) {}

    /// The layer's copy of what was received; nil only when memory is short.
    DsHandle<DsSipMessage> fromRequest(nta_incoming_t* in_pIrq) const;
    DsHandle<DsSipMessage> fromAckOrCancel(nta_incoming_t* in_pIrq) const;
    DsHandle<DsSipMessage> fromResponse(nta_outgoing_t* in_pOrq) const;

    /// How many responses had a header that could not be read. Any thread.
    std::uint64_t getUnreadableHeaders() const { return m_ulUnreadableHeaders; }

    /// Answers a request.
    static void reply(nta_incoming_t* in_pIrq,
                      const DsHandle<DsSipResponse>& in_hResponse,
                      const std::string& in_strContact = std::string(),
                      const std::string& in_strExtra = std::string());
    /// Answers an INVITE provisionally and reliably; null when that cannot be done.
    static nta_reliable_t* replyReliably(nta_incoming_t* in_pIrq,
                                         ReliableHandler& in_handler,
                                         const DsHandle<DsSipResponse>& in_hResponse,
                                         const std::string& in_strContact);

    /// A request of a dialog, any thread.
    static DsHandle<DsSipRequest> makeRequest(const std::string& in_strMethod,
                                              const std::string& in_strURI,
                                              const std::string& in_strFrom,
                                              const std::string& in_strTo,
                                              const std::string& in_strCallId);

    /// The value of a header, and a URL, as text.
    static std::string headerValue(const sip_header_t* in_pHeader);
    static std::string urlText(const url_t* in_pUrl);

private:
    DsInetAddress localAddress(tport_t* in_pTransport, const su_sockaddr_t* in_pPeer) const;
    DsHandle<DsSipMessage> build(msg_t* in_pMsg, tport_t* in_pTransport) const;

    const SipAgent& m_agent;
    mutable std::atomic<std::uint64_t> m_ulUnreadableHeaders{0};
};

}  // namespace Quorvex
