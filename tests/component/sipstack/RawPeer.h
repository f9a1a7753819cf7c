#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <set>
#include <string>

#include "SipTestPeer.h"

/// A far end with just enough knowledge of SIP to write scripts for it; it talks to one agent.
class RawPeer : public Quorvex::Test::SipTestPeer
{
public:
    static constexpr std::chrono::milliseconds kPatience{5000};

    explicit RawPeer(std::uint16_t in_uiAgentPort, const char* in_szAddress = "127.0.0.1");

    std::uint16_t port() const { return getPort(); }
    /// Where messages go from now on.
    void aimAt(std::uint16_t in_uiAgentPort) { m_uiAgentPort = in_uiAgentPort; }

    void send(const std::string& in_strText) { SipTestPeer::send(m_uiAgentPort, in_strText); }
    /// The next datagram, or nothing after the time.
    std::optional<std::string> receive(std::chrono::milliseconds in_timeout = kPatience);
    /// The next message whose first line begins with the text; others are dropped. Empty, with a test
    /// failure, when it does not come.
    std::string expect(const std::string& in_strStart, std::chrono::milliseconds in_timeout = kPatience);
    /// As expect(), and not one that was had before: a busy machine sends requests again whose answer is
    /// late.
    std::string expectNew(const std::string& in_strStart);
    /// Fails the test when a message with such a first line comes within the time.
    void expectNone(const std::string& in_strStart, std::chrono::milliseconds in_timeout);

    // --- a call that this peer places ---
    std::string m_strCallId;
    std::string m_strFromTag = "peer";
    std::string m_strToTag;
    unsigned int m_uiCSeq = 1;
    bool m_bAckInTransaction = false;  // an ACK has the branch of its INVITE, as one to a refusal has
    std::string m_strExtra;            // header lines for the next request, each with its line end

    /// A request of the call; a To tag goes in once it is known. "ACK" and "CANCEL" keep the INVITE's CSeq.
    std::string request(const std::string& in_strMethod,
                        const std::string& in_strBody = std::string(),
                        const std::string& in_strBodyType = "application/sdp");
    std::string sendRequest(const std::string& in_strMethod, const std::string& in_strBody = std::string());
    /// Answers a request that was received; headers are lines with their ends.
    void respond(const std::string& in_strRequest,
                 const std::string& in_strStatus,
                 const std::string& in_strHeaders = std::string(),
                 const std::string& in_strBody = std::string());
    /// Takes the To tag of a response.
    void learn(const std::string& in_strResponse);

    static std::string body(const std::string& in_strMessage);
    static std::string tagOf(const std::string& in_strHeader);

    unsigned int m_uiInviteCSeq = 0;
    std::string m_strInviteBranch;

private:
    std::uint16_t m_uiAgentPort;
    unsigned int m_uiBranch = 0;
    std::set<std::string> m_had;
};

extern const char* const kSdp;
