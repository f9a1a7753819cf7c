#include "sipstack/base/OverloadRefusal.h"

#include <strings.h>
#include <sys/socket.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string_view>

namespace Quorvex
{

namespace
{

// Begins the To tag of a refusal, by which its ACK is known.
constexpr std::string_view kTag = "overload-";

// The text of one message as it grows; a message that does not fit is not sent.
class Text  // NOLINT(cppcoreguidelines-pro-type-member-init): the text is written before it is read
{
public:
    void add(std::string_view in_text)
    {
        if (in_text.size() <= m_text.size() - m_size)
        {
            std::memcpy(m_text.data() + m_size, in_text.data(), in_text.size());
            m_size += in_text.size();
            return;
        }
        m_bFits = false;
    }

    template <typename Header>
    void addHeader(const Header* in_pHeader)
    {
        const auto* const header = reinterpret_cast<const msg_header_t*>(in_pHeader);
        const issize_t length =
            msg_header_e(m_text.data() + m_size, static_cast<isize_t>(m_text.size() - m_size), header, 0);
        if (length > 0 && static_cast<std::size_t>(length) < m_text.size() - m_size)
        {
            m_size += static_cast<std::size_t>(length);
            return;
        }
        m_bFits = false;
    }

    bool fits() const { return m_bFits; }
    std::string_view get() const { return {m_text.data(), m_size}; }

private:
    std::array<char, 8192> m_text;
    std::size_t m_size = 0;
    bool m_bFits = true;
};

// RFC 3261 18.2.1 and RFC 3581: the topmost Via says where the request came from.
sip_via_t* withSource(su_home_t* in_pHome, const sip_via_t* in_pVia, msg_t* in_pMsg)
{
    const su_sockaddr_t* const source = msg_addr(in_pMsg);
    std::array<char, SU_ADDRSIZE> host{};
    sip_via_t* const via = sip_via_copy(in_pHome, in_pVia);
    if (via == nullptr ||
        su_inet_ntop(source->su_family, SU_ADDR(source), host.data(), host.size()) == nullptr)
    {
        return nullptr;
    }
    via->v_next = nullptr;
    msg_header_replace_param(in_pHome, via->v_common, su_sprintf(in_pHome, "received=%s", host.data()));
    if (via->v_rport != nullptr)
    {
        msg_header_replace_param(
            in_pHome, via->v_common, su_sprintf(in_pHome, "rport=%u", ntohs(source->su_port)));
    }
    return via;
}

}  // namespace

void OverloadRefusal::open(const DsSipStackConfig& in_config, nta_agent_t* in_pAgent)
{
    m_backlog.watch(in_config.m_vListenPorts);
    m_overloaded = in_config.m_overloaded;
    m_pAgent = in_pAgent;
    m_strEnd = "Retry-After: " + std::to_string(in_config.m_uiRetryAfterS) + "\r\n";
    if (!in_config.m_strProduct.empty())
    {
        m_strEnd += "Server: " + in_config.m_strProduct + "\r\n";
    }
    m_strEnd += "Content-Length: 0\r\n\r\n";
}

bool OverloadRefusal::refuses(msg_t* in_pMsg, const sip_t* in_pSip)
{
    // The message is as it came: anything may be missing.
    if (m_pAgent == nullptr || in_pSip->sip_to == nullptr || in_pSip->sip_from == nullptr ||
        in_pSip->sip_call_id == nullptr || in_pSip->sip_cseq == nullptr || in_pSip->sip_via == nullptr)
    {
        return false;
    }
    const char* const tag = in_pSip->sip_to->a_tag;
    if (in_pSip->sip_request->rq_method == sip_method_ack)
    {
        const bool ours = tag != nullptr && std::string_view(tag).substr(0, kTag.size()) == kTag;
        m_ulForgotten += ours ? 1 : 0;
        return ours;
    }
    if (in_pSip->sip_request->rq_method != sip_method_invite || tag != nullptr)
    {
        return false;
    }
    m_bOverloaded = m_backlog.isHigh() || (m_overloaded && m_overloaded());
    if (!m_bOverloaded || nta_incoming_find(m_pAgent, in_pSip, in_pSip->sip_via) != nullptr ||
        !sendRefusal(in_pMsg, in_pSip))
    {
        return false;
    }
    ++m_ulForgotten;
    ++m_ulRefused;
    return true;
}

bool OverloadRefusal::sendRefusal(msg_t* in_pMsg, const sip_t* in_pSip) const
{
    const sip_via_t* const received = in_pSip->sip_via;
    su_sockaddr_t* const source = msg_addr(in_pMsg);
    const int iSocket = m_backlog.getOnlySocket(source->su_family);
    if (iSocket < 0 || received->v_branch == nullptr || received->v_protocol == nullptr ||
        ::strcasecmp(received->v_protocol, sip_transport_udp) != 0)
    {
        return false;
    }
    const sip_via_t* const via = withSource(msg_home(in_pMsg), received, in_pMsg);
    if (via == nullptr)
    {
        return false;
    }
    // The same for a request that is sent again (RFC 3261 8.2.7).
    std::array<char, 40> tag{};
    std::snprintf(
        tag.data(), tag.size(), "%s%zx", kTag.data(), std::hash<std::string_view>()(received->v_branch));
    sip_to_t* const to = sip_to_copy(msg_home(in_pMsg), in_pSip->sip_to);
    if (to == nullptr || sip_to_tag(msg_home(in_pMsg), to, tag.data()) != 0)
    {
        return false;
    }
    Text text;
    text.add("SIP/2.0 503 Service Unavailable\r\n");
    text.addHeader(via);
    for (const sip_via_t* next = received->v_next; next != nullptr; next = next->v_next)
    {
        text.addHeader(next);
    }
    text.addHeader(in_pSip->sip_from);
    text.addHeader(in_pSip->sip_call_id);
    text.addHeader(in_pSip->sip_cseq);
    text.addHeader(to);
    text.add(m_strEnd);
    return text.fits() && ::sendto(iSocket,
                                   text.get().data(),
                                   text.get().size(),
                                   MSG_DONTWAIT,
                                   &source->su_sa,
                                   SU_SOCKADDR_SIZE(source)) > 0;
}

}  // namespace Quorvex
