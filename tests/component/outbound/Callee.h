#pragma once

#include <chrono>
#include <string>

#include "SipTestPeer.h"

namespace Quorvex::Test
{

inline const char* const kAnswer =
    "v=0\r\no=callee 1 1 IN IP4 127.0.0.1\r\ns=-\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\nm=audio 5996 RTP/AVP "
    "0\r\n"
    "a=rtpmap:0 PCMU/8000\r\na=ptime:20\r\na=sendrecv\r\n";

/// The called party of one call, as bare text over UDP on the loopback.
class Callee
{
public:
    explicit Callee(std::uint16_t in_uiGatewayPort) : m_uiGatewayPort(in_uiGatewayPort) {}

    std::string getUri(const std::string& in_strUser = "callee") const
    {
        return "sip:" + in_strUser + "@127.0.0.1:" + std::to_string(m_peer.getPort());
    }

    /// Waits for the INVITE, which the responses then answer. Empty when none comes.
    std::string awaitInvite()
    {
        m_strInvite = m_peer.receive("INVITE");
        return m_strInvite;
    }
    /// Waits for a request or a response by its first line; empty when none comes.
    std::string await(const std::string& in_strFirstLine, std::chrono::milliseconds in_time = kDeadline)
    {
        return m_peer.receive(in_strFirstLine, in_time);
    }

    /// Answers the INVITE. `in_strHeaders`: whole lines.
    void answer(const std::string& in_strStatus,
                const std::string& in_strBody = "",
                const std::string& in_strType = "application/sdp",
                const std::string& in_strHeaders = "")
    {
        respond(m_strInvite, in_strStatus, in_strBody, in_strType, in_strHeaders);
    }

    /// Answers another request.
    void respond(const std::string& in_strRequest,
                 const std::string& in_strStatus,
                 const std::string& in_strBody = "",
                 const std::string& in_strType = "application/sdp",
                 const std::string& in_strHeaders = "")
    {
        std::string strText = "SIP/2.0 " + in_strStatus + "\r\n";
        for (const char* szName : {"Via", "From", "Call-ID", "CSeq"})
        {
            strText += std::string(szName) + ": " + SipTestPeer::header(in_strRequest, szName) + "\r\n";
        }
        const std::string strTo = SipTestPeer::header(in_strRequest, "To");
        strText += "To: " + strTo + (strTo.find(";tag=") == std::string::npos ? ";tag=callee" : "") + "\r\n";
        const bool bRedirection = in_strStatus.compare(0, 1, "3") == 0;
        strText += bRedirection ? "" : "Contact: <" + getUri() + ">\r\n";
        m_peer.send(m_uiGatewayPort, strText + in_strHeaders + withBody(in_strBody, in_strType));
    }

    /// Sends a request in the dialog that the INVITE made; an ACK or CANCEL is that of the request before.
    void request(const std::string& in_strMethod,
                 const std::string& in_strBody = "",
                 const std::string& in_strType = "text/plain",
                 const std::string& in_strHeaders = "")
    {
        m_uiCSeq += in_strMethod == "ACK" || in_strMethod == "CANCEL" ? 0 : 1;
        const std::string strBranch =
            (in_strMethod == "CANCEL" ? "INVITE" : in_strMethod) + std::to_string(m_uiCSeq);
        const std::string strContact = SipTestPeer::header(m_strInvite, "Contact");
        const std::string strTarget =
            strContact.substr(strContact.find('<') + 1, strContact.find('>') - strContact.find('<') - 1);
        m_peer.send(m_uiGatewayPort,
                    in_strMethod + " " + strTarget +
                        " SIP/2.0\r\nVia: SIP/2.0/UDP 127.0.0.1:" + std::to_string(m_peer.getPort()) +
                        ";branch=z9hG4bK-callee-" + strBranch + SipTestPeer::header(m_strInvite, "Call-ID") +
                        "\r\nMax-Forwards: 70\r\nFrom: " + SipTestPeer::header(m_strInvite, "To") +
                        ";tag=callee\r\nTo: " + SipTestPeer::header(m_strInvite, "From") +
                        "\r\nCall-ID: " + SipTestPeer::header(m_strInvite, "Call-ID") +
                        "\r\nCSeq: " + std::to_string(m_uiCSeq) + " " + in_strMethod + "\r\nContact: <" +
                        getUri() + ">\r\n" + in_strHeaders + withBody(in_strBody, in_strType));
    }

    /// What it hears and says with.
    SipTestPeer& peer() { return m_peer; }

private:
    static std::string withBody(const std::string& in_strBody, const std::string& in_strType)
    {
        return (in_strBody.empty() ? "" : "Content-Type: " + in_strType + "\r\n") +
               "Content-Length: " + std::to_string(in_strBody.size()) + "\r\n\r\n" + in_strBody;
    }

    const std::uint16_t m_uiGatewayPort;
    SipTestPeer m_peer;
    std::string m_strInvite;
    unsigned m_uiCSeq = 100;
};

}  // namespace Quorvex::Test
