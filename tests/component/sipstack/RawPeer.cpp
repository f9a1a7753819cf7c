#include "RawPeer.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <utility>

const char* const kSdp =
    "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=-\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\nm=audio 40000 RTP/AVP 0\r\n";

namespace
{

std::atomic<unsigned int> s_uiCalls{0};

}  // namespace

RawPeer::RawPeer(std::uint16_t in_uiAgentPort, const char* in_szAddress)
    : SipTestPeer(in_szAddress),
      m_strCallId("call-" + std::to_string(::getpid()) + "-" + std::to_string(++s_uiCalls)),
      m_uiAgentPort(in_uiAgentPort)
{
}

std::optional<std::string> RawPeer::receive(std::chrono::milliseconds in_timeout)
{
    std::string message = SipTestPeer::receive("", in_timeout);
    return message.empty() ? std::nullopt : std::optional<std::string>(std::move(message));
}

std::string RawPeer::expect(const std::string& in_strStart, std::chrono::milliseconds in_timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + in_timeout;
    std::string seen;
    for (;;)
    {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        const auto message = left.count() > 0 ? receive(left) : std::nullopt;
        if (!message)
        {
            ADD_FAILURE() << "no \"" << in_strStart << "\" came; seen: " << seen;
            return std::string();
        }
        if (message->rfind(in_strStart, 0) == 0)
        {
            m_had.insert(*message);
            return *message;
        }
        seen += message->substr(0, message->find('\r')) + " | ";
    }
}

std::string RawPeer::expectNew(const std::string& in_strStart)
{
    for (;;)
    {
        const std::size_t had = m_had.size();
        std::string message = expect(in_strStart);
        if (message.empty() || m_had.size() != had)
        {
            return message;
        }
    }
}

void RawPeer::expectNone(const std::string& in_strStart, std::chrono::milliseconds in_timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + in_timeout;
    for (;;)
    {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        const auto message = left.count() > 0 ? receive(left) : std::nullopt;
        if (!message)
        {
            return;
        }
        EXPECT_NE(message->rfind(in_strStart, 0), 0U) << *message;
    }
}

std::string RawPeer::request(const std::string& in_strMethod,
                             const std::string& in_strBody,
                             const std::string& in_strBodyType)
{
    std::string branch = "z9hG4bK-" + m_strCallId + "-" + std::to_string(++m_uiBranch);
    unsigned int cseq = 0;
    if (in_strMethod == "ACK" || in_strMethod == "CANCEL")
    {
        cseq = m_uiInviteCSeq == 0 ? 1 : m_uiInviteCSeq;
        const bool bOfInvite = in_strMethod == "CANCEL" || (in_strMethod == "ACK" && m_bAckInTransaction);
        branch = bOfInvite && !m_strInviteBranch.empty() ? m_strInviteBranch : branch;
    }
    else
    {
        cseq = m_uiCSeq++;
    }
    if (in_strMethod == "INVITE")
    {
        m_uiInviteCSeq = cseq;
        m_strInviteBranch = branch;
    }
    const std::string me = "127.0.0.1:" + std::to_string(port());
    const std::string tag = in_strMethod == "CANCEL" || m_strToTag.empty() ? "" : ";tag=" + m_strToTag;
    std::string text = in_strMethod + " sip:echo@127.0.0.1:" + std::to_string(m_uiAgentPort) +
                       " SIP/2.0\r\n" + "Via: SIP/2.0/UDP " + me + ";branch=" + branch + "\r\n" +
                       "Max-Forwards: 70\r\n"
                       "From: \"Peer\" <sip:peer@127.0.0.1>;tag=" +
                       m_strFromTag + "\r\nTo: <sip:echo@127.0.0.1>" + tag + "\r\nCall-ID: " + m_strCallId +
                       "\r\nCSeq: " + std::to_string(cseq) + " " + in_strMethod + "\r\n" +
                       (in_strMethod == "CANCEL" ? "" : "Contact: <sip:peer@" + me + ">\r\n") + m_strExtra;
    m_strExtra.clear();
    if (!in_strBody.empty())
    {
        text += "Content-Type: " + in_strBodyType + "\r\n";
    }
    return text + "Content-Length: " + std::to_string(in_strBody.size()) + "\r\n\r\n" + in_strBody;
}

std::string RawPeer::sendRequest(const std::string& in_strMethod, const std::string& in_strBody)
{
    std::string text = request(in_strMethod, in_strBody);
    send(text);
    return text;
}

void RawPeer::respond(const std::string& in_strRequest,
                      const std::string& in_strStatus,
                      const std::string& in_strHeaders,
                      const std::string& in_strBody)
{
    std::string text = "SIP/2.0 " + in_strStatus + "\r\n";
    for (const auto& via : headers(in_strRequest, "Via"))
    {
        text += "Via: " + via + "\r\n";
    }
    for (const auto& route : headers(in_strRequest, "Record-Route"))
    {
        text += "Record-Route: " + route + "\r\n";
    }
    std::string to = header(in_strRequest, "To");
    if (tagOf(to).empty() && in_strStatus.rfind("100", 0) != 0 && !m_strFromTag.empty())
    {
        to += ";tag=" + m_strFromTag;
    }
    text += "From: " + header(in_strRequest, "From") + "\r\nTo: " + to +
            "\r\nCall-ID: " + header(in_strRequest, "Call-ID") +
            "\r\nCSeq: " + header(in_strRequest, "CSeq") + "\r\n" + in_strHeaders;
    if (!in_strBody.empty())
    {
        text += "Content-Type: application/sdp\r\n";
    }
    send(text + "Content-Length: " + std::to_string(in_strBody.size()) + "\r\n\r\n" + in_strBody);
}

void RawPeer::learn(const std::string& in_strResponse)
{
    m_strToTag = tagOf(header(in_strResponse, "To"));
}

std::string RawPeer::body(const std::string& in_strMessage)
{
    const std::size_t end = in_strMessage.find("\r\n\r\n");
    return end == std::string::npos ? std::string() : in_strMessage.substr(end + 4);
}

std::string RawPeer::tagOf(const std::string& in_strHeader)
{
    const std::size_t at = in_strHeader.find(";tag=");
    return at == std::string::npos
               ? std::string()
               : in_strHeader.substr(at + 5, in_strHeader.find_first_of(";> ", at + 5) - at - 5);
}
