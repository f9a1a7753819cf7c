#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "Waiting.h"

namespace Quorvex::Test
{

/// The far end of calls, as bare text over UDP on the loopback: sends what the test writes, shows what comes
/// back. One thread.
class SipTestPeer
{
public:
    /// Binds a free port.
    SipTestPeer();
    SipTestPeer(const SipTestPeer&) = delete;
    SipTestPeer& operator=(const SipTestPeer&) = delete;
    ~SipTestPeer();

    std::uint16_t getPort() const { return m_uiPort; }

    void send(std::uint16_t in_uiPort, const std::string& in_strMessage);
    /// The next message whose first line contains the text (a status, a method), dropping others; empty when
    /// none comes in time.
    std::string receive(const std::string& in_strFirstLine, std::chrono::milliseconds in_time = kDeadline);

    /// A free UDP port at this moment.
    static std::uint16_t findFreePort();

    /// The value of a header, by its name as it is written; empty when there is none.
    static std::string header(const std::string& in_strMessage, const std::string& in_strName);

private:
    std::uint16_t m_uiPort = 0;
    const int m_iSocket;  // binding it finds the port
};

/// One call from a SipTestPeer to the gateway: writes the requests of one dialog.
class SipTestCall
{
public:
    SipTestCall(SipTestPeer& io_peer, std::uint16_t in_uiGatewayPort, const std::string& in_strCallId);

    void invite(const std::string& in_strUser = "echo", bool in_bWithSDP = true);
    void cancel();
    /// After a response that carries the To tag.
    void ack(const std::string& in_strResponse);
    /// A request in the dialog; outside one when there is none yet.
    void request(const std::string& in_strMethod,
                 const std::string& in_strBody = "",
                 const std::string& in_strType = "");
    /// Answers a request of the gateway.
    void respond(const std::string& in_strRequest, const std::string& in_strStatus);

    SipTestPeer& peer() { return m_peer; }
    const std::string& getCallId() const { return m_strCallId; }
    std::string sdp() const;

private:
    std::string makeRequest(const std::string& in_strMethod,
                            unsigned in_uiCSeq,
                            const std::string& in_strBranch,
                            const std::string& in_strTo,
                            const std::string& in_strBody,
                            const std::string& in_strType) const;

    SipTestPeer& m_peer;
    const std::uint16_t m_uiGatewayPort;
    const std::string m_strCallId;
    std::string m_strUser = "echo";
    std::string m_strTo;
    std::string m_strInviteBranch;
    unsigned m_uiCSeq = 0;
    unsigned m_uiInviteCSeq = 0;
};

}  // namespace Quorvex::Test
