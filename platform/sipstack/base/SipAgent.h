#pragma once

#include <atomic>
#include <list>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "sipstack/DsHandle.h"
#include "sipstack/DsSipStack.h"
#include "sipstack/base/LocalEnd.h"
#include "sipstack/base/MessageBridge.h"
#include "sipstack/base/MessageClass.h"
#include "sipstack/base/OverloadRefusal.h"
#include "sipstack/base/Sofia.h"
#include "sipstack/base/StackThread.h"

namespace Quorvex
{

class CallCore;
class ClientTransactionCore;
class DsInetAddress;
class DsSipIncomingCall;
class DsSipInviteMessage;
class DsSipRequest;
class PendingInvite;
class ServerTransactionCore;
class ServerLocator;

/// The base library's agent with its ports, the requests that belong to no dialog, and the tables of what is
/// alive. SIP stack thread, except where noted.
class SipAgent final : public LegHandler,
                       public OutgoingHandler,
                       public std::enable_shared_from_this<SipAgent>
{
public:
    SipAgent(DsSipStackConfig in_config, DsHandle<DsSipNewCallinterface> in_hNewCall);
    ~SipAgent();
    SipAgent(const SipAgent&) = delete;
    SipAgent& operator=(const SipAgent&) = delete;

    // Any thread: the owner's.
    bool start(std::string& out_strError);
    void drain() { m_bDraining = true; }
    void refuseUnanswered();
    void stop(unsigned int in_uiTimeoutMs);
    bool post(std::function<void()> in_job) { return m_thread.post(std::move(in_job)); }
    const DsSipStackConfig& config() const { return m_config; }
    /// The configured ones, then those that were added.
    const std::vector<DsSipCredential>& credentials() const { return m_vCredentials; }
    void addCredential(const DsSipCredential& in_credential);
    DsSipStackStatistics statistics();
    bool isDraining() const { return m_bDraining.load(std::memory_order_relaxed); }

    /// Any thread: the agent of an object that may outlive it. Throws when the stack is gone.
    static std::shared_ptr<SipAgent> lock(const std::weak_ptr<SipAgent>& in_pAgent);

    nta_leg_t* defaultLeg() const { return m_pDefaultLeg; }
    nta_agent_t* nta() const { return m_pNta; }
    StackThread& thread() { return m_thread; }
    const MessageBridge& bridge() const { return m_bridge; }
    unsigned int timerCMs() const { return m_config.m_uiTimerCMs; }
    /// 64 * T1: how long a transaction waits for its other side.
    unsigned int timeoutMs() const { return 64 * m_config.m_uiT1Ms; }

    /// The name of the listen port that a request came in on, by which the base library is told to use it
    /// again.
    std::string portOf(nta_incoming_t* in_pIrq) const;
    /// The name of the port that a request of ours leaves from: of those that reach the route the one of its
    /// Contact, else the first; "" when none reaches it.
    std::string portFor(const DsHandle<DsSipRequest>& in_hRequest, const std::string& in_strRoute) const;
    /// SIP URIs whose hosts are addresses, in the order in which they are to be tried; none when there is
    /// none in time.
    using RoutesCallback = std::function<void(const std::vector<std::string>& in_vRoutes)>;
    /// Where a request of ours is sent (RFC 3263): calls back once. From inside the call when nothing has to
    /// be looked up, else later, possibly on another thread.
    void resolveDestination(const DsHandle<DsSipRequest>& in_hRequest, RoutesCallback in_callback);
    /// True when the answer to a request that went to the first of the routes, or null for none, says that
    /// the next is to be tried (RFC 3263 section 4.3), which is the first then.
    bool nextRoute(std::vector<std::string>& io_vRoutes, const sip_t* in_pSip);
    static std::string newTag();
    void countInviteSent() { ++m_ulInvitesSent; }
    /// The address that a port is bound to; left alone when the name is none of ours.
    void boundAddress(const char* in_szPort, DsInetAddress& out_address) const;
    /// A reason phrase that lives as long as the program: the one asked for, or the usual one when too many
    /// different ones have been asked for.
    static const char* keptPhrase(unsigned int in_uiStatusCode, const std::string& in_strPhrase);
    /// The Contact of the layer's own for a port; the local address takes the place of a port's any-address.
    std::string contactFor(const std::string& in_strPort, const DsInetAddress& in_local) const;
    /// The same for a request of ours that goes to a route.
    std::string contactFor(const std::string& in_strPort, const std::string& in_strRoute) const;

    /// A port and a Contact, shared with all dialogs that have the same.
    std::shared_ptr<const LocalEnd> localEnd(const std::string& in_strPort, const std::string& in_strContact);

    /// The hosts of SIP URIs that are names.
    static std::vector<std::string> unknownHosts(const std::vector<const url_t*>& in_vUrls);
    /// Looks hosts up, so that who asks for them next finds the answer, good or bad; then runs the function,
    /// later and on the SIP stack thread.
    void prefetchHosts(const std::vector<std::string>& in_vHosts, std::function<void()> in_function);

    /// False when the request requires what the layer does not have; it has been answered then.
    bool checkRequire(nta_incoming_t* in_pIrq, const sip_t* in_pSip) const;

    DsHandle<DsSipIncomingCall> newCall(const DsHandle<DsSipInviteMessage>& in_hInvite);

    void addCall(const std::shared_ptr<CallCore>& in_pCall);
    void removeCall(const CallCore& in_call);
    void addServerTransaction(const std::shared_ptr<ServerTransactionCore>& in_pTransaction);
    void removeServerTransaction(const ServerTransactionCore& in_transaction);
    void addClientTransaction(const std::shared_ptr<ClientTransactionCore>& in_pTransaction);
    void removeClientTransaction(const ClientTransactionCore& in_transaction);
    /// Until removeAnsweredInvite() the call hears of the 2xx of further forks.
    void addAnsweredInvite(const std::string& in_strBranch, AnsweredInvite in_invite);
    void removeAnsweredInvite(const std::string& in_strBranch) { m_answeredInvites.erase(in_strBranch); }
    void dialogCreated() { ++m_ulDialogs; }
    void dialogEnded() { --m_ulDialogs; }

    /// An INVITE whose host names are known by now; the result is as LegHandler's.
    int beginCall(nta_incoming_t* in_pIrq, const sip_t* in_pSip);
    void removePending(const PendingInvite& in_pending);

    int onLegRequest(nta_leg_t* in_pLeg, nta_incoming_t* in_pIrq, const sip_t* in_pSip) override;
    void onOutgoing(nta_outgoing_t* in_pOrq, const sip_t* in_pSip) override;

private:
    bool open(su_root_s* in_pRoot, std::string& out_strError);
    bool addPort(su_root_s* in_pRoot, std::size_t in_iPort, std::string& out_strError);
    std::unique_ptr<ServerLocator> makeServerLocator(su_root_s* in_pRoot);
    void close();
    void checkEmpty();

    int onInvite(nta_incoming_t* in_pIrq, const sip_t* in_pSip);
    int takeInvite(nta_incoming_t* in_pIrq, const sip_t* in_pSip);
    int onReplaces(nta_incoming_t* in_pIrq, const sip_t* in_pSip);
    int onOptions(nta_incoming_t* in_pIrq);
    int refuse(nta_incoming_t* in_pIrq, int in_iStatus, const char* in_szPhrase, bool in_bRetryAfter = false);

    DsSipStackConfig m_config;
    DsHandle<DsSipNewCallinterface> m_hNewCall;
    StackThread m_thread;
    MessageBridge m_bridge;
    nta_agent_t* m_pNta = nullptr;
    nta_leg_t* m_pDefaultLeg = nullptr;
    nta_outgoing_t* m_pDefaultOutgoing = nullptr;
    AnsweredInvites m_answeredInvites;
    std::vector<std::shared_ptr<const LocalEnd>> m_vLocalEnds;
    std::unique_ptr<ServerLocator> m_pServerLocator;
    std::vector<DsSipCredential> m_vCredentials;
    OverloadRefusal m_overload;
    std::atomic<bool> m_bDraining{false};
    std::function<void()> m_onEmpty;  // asked for while stopping

    std::unordered_map<const CallCore*, std::shared_ptr<CallCore>> m_calls;
    std::unordered_map<const ServerTransactionCore*, std::shared_ptr<ServerTransactionCore>>
        m_serverTransactions;
    std::unordered_map<const ClientTransactionCore*, std::shared_ptr<ClientTransactionCore>>
        m_clientTransactions;

    std::list<std::unique_ptr<PendingInvite>> m_vPending;

    std::atomic<std::uint64_t> m_ulInvitesReceived{0};
    std::atomic<std::uint64_t> m_ulInvitesSent{0};
    std::atomic<std::uint64_t> m_ulOverloadRefused{0};
    std::atomic<std::uint64_t> m_ulNoDialog{0};
    std::atomic<std::uint64_t> m_ulRefused{0};
    std::atomic<std::uint64_t> m_ulMalformed{0};  // the base library's count, taken whenever it is asked for
    std::atomic<std::uint64_t> m_ulCalls{0};
    std::atomic<std::uint64_t> m_ulDialogs{0};
    std::atomic<std::uint64_t> m_ulServerTransactions{0};
    std::atomic<std::uint64_t> m_ulClientTransactions{0};
};

}  // namespace Quorvex
