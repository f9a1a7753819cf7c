#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "sipstack/DsHandle.h"

namespace Quorvex
{

class DsSipNewCallinterface;
class SipAgent;

/// How a SIP message travels.
enum class DsSipTransport
{
    eUDP = 0,
    eTCP = 1
};

/// One port to listen on. Port 0 takes a free one; getListenPorts() tells which.
struct DsSipListenPort
{
    DsSipTransport m_transport = DsSipTransport::eUDP;
    std::string m_strAddress;  ///< dotted IPv4, or IPv6 without brackets; "0.0.0.0" or "::" for all
    std::uint16_t m_uiPort = 5060;
};

/// Credentials for digest challenges (RFC 7616). The realm "" answers every realm without an entry of its
/// own.
struct DsSipCredential
{
    std::string m_strRealm;
    std::string m_strUser;
    std::string m_strPassword;
};

struct DsSipStackConfig
{
    std::vector<DsSipListenPort> m_vListenPorts;
    std::string m_strOutboundProxy;  ///< SIP URI; "" for none. Requests outside dialogs go there first.
    std::vector<DsSipCredential> m_vCredentials;
    std::string m_strProduct = "quorvex";  ///< Server header of what the layer answers by itself; "" for none
    std::string m_strContactUser;          ///< user part of the Contact in the layer's own messages
    unsigned int m_uiT1Ms = 500;           ///< RFC 3261 T1; T2 is 8 * T1, T4 10 * T1. 1 to 10,000
    unsigned int m_uiTimerCMs = 180000;    ///< how long an INVITE may stay unanswered. 100 to 3,600,000
    unsigned int m_uiNameTimeoutMs = 250;  ///< for a host name, or for the servers of a SIP domain
    std::size_t m_uiMaxMessageBytes = 65536;
    unsigned int m_uiTcpIdleMs = 600000;  ///< an idle TCP connection is closed after this
    unsigned int m_uiSessionExpiresS =
        0;                         ///< RFC 4028 interval that we ask for; 0: only what the far end asks for
    unsigned int m_uiMinSES = 90;  ///< the shortest session interval accepted
    /// A file in resolv.conf's form: the name servers that are asked for the servers of SIP domains (NAPTR,
    /// SRV and the addresses of what they name); "" for the system's.
    std::string m_strResolverSettings;
    /// Asked on the SIP stack thread for every new INVITE: true refuses it with 503 and Retry-After.
    std::function<bool()> m_overloaded;
    unsigned int m_uiRetryAfterS = 5;
};

/// What the stack counts; all since its start.
struct DsSipStackStatistics
{
    std::uint64_t m_ulInvitesReceived = 0;
    std::uint64_t m_ulInvitesSent = 0;
    std::uint64_t m_ulOverloadRefused = 0;
    std::uint64_t m_ulNoDialog481 = 0;
    std::uint64_t m_ulRefused = 0;    ///< other requests outside dialogs that the layer refused
    std::uint64_t m_ulMalformed = 0;  ///< answered 400 or dropped as unreadable; up to the last time asked
    std::uint64_t m_ulUnreadableHeaders = 0;   ///< responses with a header that was taken for absent
    std::uint64_t m_ulCalls = 0;               ///< now alive
    std::uint64_t m_ulDialogs = 0;             ///< now alive
    std::uint64_t m_ulServerTransactions = 0;  ///< now waiting for an answer of ours
    std::uint64_t m_ulClientTransactions = 0;  ///< now waiting for an answer to us
};

/// The SIP stack: one thread that runs the base library and everything that belongs to it. start() and stop()
/// are called by one owner; the rest on any thread.
class DsSipStack
{
public:
    DsSipStack();
    ~DsSipStack();
    DsSipStack(const DsSipStack&) = delete;
    DsSipStack& operator=(const DsSipStack&) = delete;

    /// The stack that was started first and has not been stopped, or null. Calls that name no stack use it.
    static DsSipStack* instance();

    /// Binds the ports and starts the thread. False, with one line in `out_strError` that says what could not
    /// be done, when a port cannot be bound or the configuration is out of range. A nil interface refuses
    /// every INVITE (503).
    bool start(const DsSipStackConfig& in_config,
               const DsHandle<DsSipNewCallinterface>& in_hNewCall,
               std::string& out_strError);

    /// Credentials for a realm that became known while running. Those that the configuration has for the
    /// realm go before them, later ones replace them.
    void addCredential(DsSipCredential in_credential);

    /// No new calls in either direction from here on: INVITE and OPTIONS outside dialogs get 503. Calls go
    /// on.
    void drain();

    /// Refuses with 503 every inbound INVITE that has neither a final response nor one on its way; each call
    /// gets its closing report.
    void refuseUnanswered();

    /// Drains, ends what is left (every call gets its closing report), waits until the last transactions are
    /// answered or `in_uiTimeoutMs` have passed, closes the ports and ends the thread. Repeatable.
    void stop(unsigned int in_uiTimeoutMs = 2000);

    bool isRunning() const;

    /// The ports in their configured order, with their real numbers.
    const std::vector<DsSipListenPort>& getListenPorts() const;
    const DsSipStackConfig& getConfig() const;

    DsSipStackStatistics getStatistics() const;

    /// Runs a job on the SIP stack thread, in the order of the calls; false when the stack is not running
    /// (the job is dropped).
    bool post(std::function<void()> in_job);

    /// A round trip through the loop: true when the thread has taken a job within the time. For watchdogs.
    bool ping(unsigned int in_uiTimeoutMs);

    /// For the layer's own classes.
    const std::shared_ptr<SipAgent>& getAgent() const { return m_pAgent; }

private:
    std::shared_ptr<SipAgent> m_pAgent;  // null until the first start
    std::atomic<bool> m_bRunning{false};
};

}  // namespace Quorvex
