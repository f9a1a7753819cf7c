#include "OutboundParty.h"

#include <algorithm>
#include <utility>

#include "net/HostResolver.h"
#include "sip/Sip.h"
#include "sip/SipFailure.h"
#include "sipstack/DsSipURL.h"

namespace Quorvex
{

namespace
{

using Clock = std::chrono::steady_clock;

constexpr const char* kRequestUriKey = "sip.out.requestUri";
constexpr const char* kRedirectInKey = "sip.in.redirect.Contact";
constexpr const char* kRedirectOutKey = "sip.out.redirect.Contact";
constexpr const char* kHeaderKey = "sip.out.header.";
constexpr const char* kCpaKey = "sip.out.cpa.enabled";

// Redirecting parties must not keep a call going for ever.
constexpr unsigned int kMaxAttempts = 20;

/// The URI of a Contact header as text, header name included.
std::string uriOf(const std::string& in_strContact)
{
    const std::size_t uiBegin = in_strContact.find('<');
    const std::size_t uiEnd = in_strContact.find('>', uiBegin);
    return uiEnd == std::string::npos ? in_strContact
                                      : in_strContact.substr(uiBegin + 1, uiEnd - uiBegin - 1);
}

/// Where a leg goes: its URI, or that of the redirection target that it is.
std::string destinationOf(const CallLegInfo& in_leg)
{
    return in_leg.getParameterOr(kRequestUriKey, uriOf(in_leg.getParameterOr(kRedirectOutKey, "")));
}

/// The host that a leg's INVITE goes to; empty when the leg does not say.
std::string hostOf(const CallLegInfo& in_leg)
{
    const DsHandle<DsSipURL> hUrl = DsSipURL::parse(destinationOf(in_leg));
    return hUrl.isNil() ? std::string() : hUrl->getHost();
}

/// What call-progress analysis has heard when it fails a call for this; empty when it fails none for it.
const char* analysisOf(std::int32_t in_iFailure)
{
    switch (in_iFailure)
    {
        case eBUSY_FAILURE:
            return "busy";
        case eUNAVAILABLE_FAILURE:
            return "reorder";
        case eINVALID_NUMBER_FAILURE:
            return "sit";
        case eNO_ANSWER_FAILURE:
            return "ringback";
        default:
            return "";
    }
}

}  // namespace

/// One leg that is tried.
class OutboundParty::Attempt
{
public:
    QUORVEX_MEM_ACCOUNT("OutboundParty::Attempt");

    enum class State
    {
        eCALLING,
        eRINGING,
        eANSWERED,
        eENDING
    };

    /// The way from the network interface's side to the attempt; empty when the attempt is no more.
    struct Link
    {
        Attempt* m_pAttempt = nullptr;
    };

    Attempt(OutboundParty& in_party, unsigned int in_uiLeg, CallInfo in_callInfo)
        : m_party(in_party),
          m_uiLeg(in_uiLeg),
          m_callInfo(std::move(in_callInfo)),
          m_pLink(std::make_shared<Link>()),
          m_invited(Clock::now()),
          m_invitedAt(std::chrono::system_clock::now())
    {
        m_pLink->m_pAttempt = this;
    }
    Attempt(const Attempt&) = delete;
    Attempt& operator=(const Attempt&) = delete;
    ~Attempt() { m_pLink->m_pAttempt = nullptr; }

    void begin();
    void invite();
    void hangup(CallRecord::EndedBy in_endedBy);
    /// There is something to hear, now if not before.
    void alerted() { m_alerted = m_alerted.value_or(Clock::now()); }
    /// The leg is over: what its INVITE was really answered with (0: nothing), and who ended it.
    void answeredFinally(unsigned int in_uiStatus, CallOutInterface::Ending in_ending);
    /// Whether a 3xx has ended the leg without naming a target.
    bool isRedirectedNowhere() const { return m_uiFinalStatus / 100 == 3 && !m_bRedirected; }
    bool isAnalysed() const { return m_callInfo.getCurrentLeg().isTrue(kCpaKey); }
    /// What call-progress analysis has ended the leg for; empty when it has not.
    std::string failedAnalysis() const;
    CallRecord record() const;

    OutboundParty& m_party;
    const unsigned int m_uiLeg;
    const CallInfo m_callInfo;
    const std::shared_ptr<Link> m_pLink;
    std::unique_ptr<OutCallLeg> m_pLeg;
    State m_state = State::eCALLING;
    bool m_bVerdict = false;
    bool m_bRedirected = false;
    bool m_bMedia = false;
    const Clock::time_point m_invited;
    const CallRecord::TimeOfDay m_invitedAt;
    std::string m_strSipCallId;
    std::optional<Clock::time_point> m_sent;
    std::optional<Clock::time_point> m_alerted;
    std::optional<Clock::time_point> m_ringing;
    std::optional<Clock::time_point> m_answered;
    std::optional<CallRecord::EndedBy> m_endedBy;
    unsigned int m_uiFinalStatus = 0;
    unsigned int m_uiStatus = 0;
    std::string m_strReason;
    std::optional<std::int32_t> m_failure;
    std::string m_strCpa;
};

/// The engine's side of one leg, as the network interface holds it: every word is queued to the engine's
/// thread. Its deletion is the leg's end.
class OutboundParty::Outgoing final : public CallOutInterface
{
public:
    QUORVEX_MEM_ACCOUNT("OutboundParty::Outgoing");

    Outgoing(EngineLoop& in_loop, std::shared_ptr<Attempt::Link> in_pLink)
        : m_loop(in_loop), m_pLink(std::move(in_pLink))
    {
    }
    Outgoing(const Outgoing&) = delete;
    Outgoing& operator=(const Outgoing&) = delete;
    ~Outgoing() override
    {
        post([](Attempt& io_attempt) { io_attempt.m_party.gone(io_attempt); });
    }

    bool redirected(const CallInfo& in_targets) override
    {
        return post([targets = in_targets](Attempt& io_attempt)
                    { io_attempt.m_party.redirected(io_attempt, targets); });
    }
    void proceeding() override {}
    void ringing(RingType in_ringType) override
    {
        post(
            [in_ringType](Attempt& io_attempt)
            {
                io_attempt.m_state = Attempt::State::eRINGING;
                io_attempt.m_ringing = Clock::now();
                io_attempt.alerted();
                io_attempt.m_bMedia = io_attempt.m_bMedia || in_ringType == eRING_WITH_EARLY_MEDIA;
                io_attempt.m_party.ringing(in_ringType);
            });
    }
    void connectFailed(const ConnectionFailureType& in_failure) override
    {
        post([failure = in_failure](Attempt& io_attempt) { io_attempt.m_party.failed(io_attempt, failure); });
    }
    void callFailed(const ConnectionFailureType& in_failure) override { connectFailed(in_failure); }
    void connected(Call::ConnectionType in_connectionType) override
    {
        post([in_connectionType](Attempt& io_attempt)
             { io_attempt.m_party.connected(io_attempt, in_connectionType); });
    }
    bool transfer(const CallLegInfo& in_leg) override
    {
        return post([leg = in_leg](Attempt& io_attempt)
                    { io_attempt.m_party.transferRequested(io_attempt, leg); });
    }
    void disconnected() override
    {
        post([](Attempt& io_attempt) { io_attempt.m_party.disconnected(io_attempt); });
    }
    void earlyMedia() override
    {
        post(
            [](Attempt& io_attempt)
            {
                io_attempt.m_bMedia = true;
                io_attempt.alerted();
                io_attempt.m_party.m_listener.partyEarlyMedia();
            });
    }
    bool infoReceived(const std::vector<Parameter>& in_vParameters) override
    {
        return post([parameters = in_vParameters](Attempt& io_attempt)
                    { io_attempt.m_party.m_listener.partyInfo(parameters); });
    }
    void inviteSent(const std::string& in_strSipCallId) override
    {
        post(
            [strSipCallId = in_strSipCallId, now = Clock::now()](Attempt& io_attempt)
            {
                io_attempt.m_strSipCallId = strSipCallId;
                io_attempt.m_sent = now;
            });
    }
    void ended(unsigned int in_uiStatus, Ending in_ending) override
    {
        post([in_uiStatus, in_ending](Attempt& io_attempt)
             { io_attempt.m_party.ended(io_attempt, in_uiStatus, in_ending); });
    }

private:
    template <class Job>
    bool post(Job in_job)
    {
        return m_loop.post(
            [pLink = m_pLink, job = std::move(in_job)]
            {
                if (pLink->m_pAttempt != nullptr)
                {
                    job(*pLink->m_pAttempt);
                }
            });
    }

    EngineLoop& m_loop;
    const std::shared_ptr<Attempt::Link> m_pLink;
};

void OutboundParty::Attempt::begin()
{
    EngineLoop& loop = m_party.m_context.m_loop;
    m_pLeg.reset(
        m_party.m_context.m_netIf.getOutCallLeg(new Outgoing(loop, m_pLink), m_party.m_strCallId.c_str()));
    const std::string strHost = hostOf(m_callInfo.getCurrentLeg());
    if (m_pLeg == nullptr || strHost.empty() || Net::HostResolver::isAddress(strHost))
    {
        invite();
        return;
    }
    // The network interface then finds the answer, good or bad, without waiting.
    Net::HostResolver::instance().prefetch(strHost,
                                           std::chrono::milliseconds(m_party.m_context.m_uiResolveMs),
                                           [&loop, pLink = m_pLink](const std::string& /*in_strAddress*/)
                                           {
                                               loop.post(
                                                   [pLink]
                                                   {
                                                       if (pLink->m_pAttempt != nullptr)
                                                       {
                                                           pLink->m_pAttempt->invite();
                                                       }
                                                   });
                                           });
}

void OutboundParty::Attempt::invite()
{
    if (m_state == State::eCALLING && m_pLeg != nullptr)
    {
        m_pLeg->invite(m_callInfo);
    }
}

void OutboundParty::Attempt::hangup(CallRecord::EndedBy in_endedBy)
{
    if (m_state != State::eENDING)
    {
        m_state = State::eENDING;
        m_endedBy = m_endedBy.value_or(in_endedBy);
        if (m_pLeg != nullptr)
        {
            m_pLeg->hangup();
        }
    }
}

void OutboundParty::Attempt::answeredFinally(unsigned int in_uiStatus, CallOutInterface::Ending in_ending)
{
    m_uiFinalStatus = in_uiStatus;
    switch (in_ending)
    {
        case CallOutInterface::Ending::FAR_END:
            m_endedBy = CallRecord::EndedBy::REMOTE;
            break;
        case CallOutInterface::Ending::TIMEOUT:
            m_endedBy = CallRecord::EndedBy::TIMEOUT;
            break;
        case CallOutInterface::Ending::UNREACHABLE:
            m_endedBy = CallRecord::EndedBy::UNREACHABLE;
            m_strReason = "the called party cannot be reached";
            break;
        case CallOutInterface::Ending::NEAR_END:
            // A stop is none of the call's doing.
            if (m_endedBy.value_or(CallRecord::EndedBy::STOP) != CallRecord::EndedBy::STOP)
            {
                m_endedBy = CallRecord::EndedBy::LOCAL;
            }
            break;
    }
}

std::string OutboundParty::Attempt::failedAnalysis() const
{
    // It fails calls that the far end has answered.
    return isAnalysed() && m_failure.has_value() && Sip::isSuccessResponse(m_uiFinalStatus) &&
                   !m_answered.has_value()
               ? analysisOf(*m_failure)
               : "";
}

CallRecord OutboundParty::Attempt::record() const
{
    const CallLegInfo& leg = m_callInfo.getCurrentLeg();
    CallRecord record;
    record.m_strCall = m_party.m_strCallId;
    record.m_uiLeg = m_uiLeg;
    record.m_direction = CallRecord::Direction::OUT;
    record.m_strSipCallId = m_strSipCallId;
    record.m_sent = m_sent;
    record.m_alerted = m_alerted;
    record.m_strFrom = leg.getParameterOr("sip.out.from.uri", "");
    record.m_strTo = destinationOf(leg);
    record.m_strRoute = m_party.m_strRoute;
    record.m_invited = m_invited;
    record.m_invitedAt = m_invitedAt;
    record.m_ringing = m_ringing;
    record.m_answered = m_answered;
    record.m_ended = Clock::now();
    record.m_endedBy = m_endedBy.value_or(CallRecord::EndedBy::STOP);
    record.m_uiStatus = m_uiFinalStatus != 0 ? m_uiFinalStatus : m_uiStatus;
    record.m_strReason = m_strReason;
    record.m_strCpa = m_strCpa;
    if (const std::string strHeard = failedAnalysis(); !strHeard.empty())
    {
        record.m_strCpa = strHeard;
        record.m_strReason = "call-progress analysis heard: " + strHeard;
    }
    return record;
}

OutboundParty::OutboundParty(Context in_context,
                             Listener& in_listener,
                             std::string in_strCallId,
                             std::string in_strRoute)
    : m_context(in_context),
      m_listener(in_listener),
      m_strCallId(std::move(in_strCallId)),
      m_strRoute(std::move(in_strRoute)),
      m_logger("quorvex.gateway.Call")
{
    m_logger.callStart(m_strCallId);
}

OutboundParty::~OutboundParty() = default;

void OutboundParty::place(std::vector<CallLegInfo> in_vLegs, unsigned int in_uiFirstLeg)
{
    m_uiNextLeg = in_uiFirstLeg;
    m_pending.assign(in_vLegs.begin(), in_vLegs.end());
    next();
}

CallInfo OutboundParty::takeTarget()
{
    // The most preferred of those left stands last.
    CallLegInfo& leg = m_tried.addLeg(m_targets.getLeg(--m_targetsLeft));
    // The first INVITE's headers are in the new one already.
    m_redirectedLeg.getParameters().forEach(
        [&leg](const ParameterTrieNode& in_node)
        {
            const std::string& strKey = in_node.getFullName();
            if (strKey != kRequestUriKey && !strKey.starts_with(kHeaderKey))
            {
                leg.setParameter(strKey, in_node.getValue());
            }
        });
    leg.setParameter(kRedirectOutKey, leg.getParameterOr(kRedirectInKey, ""));
    m_tried.setCurrentLeg(m_tried.getNumLeg() - 1);
    return m_tried;
}

void OutboundParty::next()
{
    CallInfo callInfo;
    if (m_targetsLeft > 0)
    {
        callInfo = takeTarget();
    }
    else
    {
        callInfo.addLeg(m_pending.front());
        m_pending.pop_front();
    }
    ++m_uiTried;
    Attempt& attempt =
        *m_vAttempts.emplace_back(std::make_unique<Attempt>(*this, m_uiNextLeg++, std::move(callInfo)));
    m_listener.partyLegOpened(attempt.m_uiLeg);
    attempt.begin();
}

void OutboundParty::ringing(RingType in_ringType)
{
    if (!m_bEnding && !m_bVerdict)
    {
        m_listener.partyRinging(in_ringType);
    }
}

void OutboundParty::connected(Attempt& io_attempt, Call::ConnectionType in_type)
{
    io_attempt.m_bVerdict = true;
    io_attempt.m_bMedia = true;
    io_attempt.m_uiStatus = 200;
    if (in_type != Call::eCONNECTION_NONE || io_attempt.isAnalysed())
    {
        io_attempt.m_strCpa = Call::getConnectionTypeEntry(in_type).m_name;
    }
    if (m_bEnding)
    {
        return;  // hung up on its way here
    }
    io_attempt.m_state = Attempt::State::eANSWERED;
    io_attempt.alerted();
    io_attempt.m_answered = Clock::now();
    m_bVerdict = true;
    m_pConnected = &io_attempt;
    m_listener.partyConnected(in_type);
}

void OutboundParty::failed(Attempt& io_attempt, const ConnectionFailureType& in_failure)
{
    const bool bWasConnected = m_pConnected == &io_attempt;
    io_attempt.m_bVerdict = true;
    if (io_attempt.m_uiStatus == 0)
    {
        io_attempt.m_uiStatus = Sip::getResponseCode(in_failure);
    }
    io_attempt.m_strReason = Call::getFailureEntry(in_failure.getFailure()).m_meaning;
    io_attempt.m_failure = in_failure.getFailure();
    if (io_attempt.m_state != Attempt::State::eENDING)
    {
        io_attempt.m_endedBy = in_failure.getFailure() == eNO_ANSWER_FAILURE ? CallRecord::EndedBy::TIMEOUT
                                                                             : CallRecord::EndedBy::REMOTE;
        io_attempt.m_state = Attempt::State::eENDING;
    }
    if (bWasConnected)
    {
        m_pConnected = nullptr;
        m_listener.partyDisconnected(CallRecord::EndedBy::LOCAL);
        return;
    }
    if (m_bEnding || m_bVerdict)
    {
        return;
    }
    if ((m_targetsLeft > 0 || !m_pending.empty()) && m_uiTried < kMaxAttempts)
    {
        m_pFailed = &io_attempt;
        if (m_targetsLeft == 0)
        {
            tryNextAfter(io_attempt);
        }
        return;
    }
    m_bVerdict = true;
    m_listener.partyFailed(in_failure);
}

void OutboundParty::tryNextAfter(const Attempt& in_attempt)
{
    if (m_pFailed != &in_attempt)
    {
        return;
    }
    m_pFailed = nullptr;
    if (in_attempt.isRedirectedNowhere())
    {
        // The network interface has noted them as tried; it takes none of them twice.
        m_tried = CallInfo();
    }
    QLOG_INFO(m_logger,
              "leg " << in_attempt.m_uiLeg << " failed (" << in_attempt.record().m_uiStatus
                     << "), the next one is tried");
    next();
}

void OutboundParty::ended(Attempt& io_attempt, unsigned int in_uiStatus, CallOutInterface::Ending in_ending)
{
    io_attempt.answeredFinally(in_uiStatus, in_ending);
    tryNextAfter(io_attempt);
}

void OutboundParty::redirected(Attempt& io_attempt, const CallInfo& in_targets)
{
    io_attempt.m_bRedirected = true;
    if (io_attempt.m_callInfo.getCurrentLeg().getParameterOr(kRedirectOutKey, "").empty())
    {
        m_redirectedLeg = io_attempt.m_callInfo.getCurrentLeg();
    }
    m_targets = in_targets;
    m_targetsLeft = in_targets.getNumLeg();
    m_tried = CallInfo();
    io_attempt.m_uiStatus = 302;
    failed(io_attempt, ConnectionFailureType(eNO_ANSWER_FAILURE));
    io_attempt.m_endedBy = CallRecord::EndedBy::REMOTE;
    io_attempt.m_strReason = "redirected";
}

void OutboundParty::disconnected(Attempt& io_attempt)
{
    if (io_attempt.m_state != Attempt::State::eENDING)
    {
        io_attempt.m_state = Attempt::State::eENDING;
        io_attempt.m_endedBy = CallRecord::EndedBy::REMOTE;
    }
    if (m_pConnected == &io_attempt)
    {
        m_pConnected = nullptr;
        m_listener.partyDisconnected(CallRecord::EndedBy::LOCAL);
    }
}

void OutboundParty::gone(Attempt& io_attempt)
{
    if (m_pConnected == &io_attempt)
    {
        // Let go without a word.
        m_pConnected = nullptr;
        if (!m_bEnding)
        {
            m_listener.partyDisconnected(io_attempt.m_endedBy.has_value() ? CallRecord::EndedBy::LOCAL
                                                                          : CallRecord::EndedBy::STOP);
        }
    }
    else if (!io_attempt.m_bVerdict && m_bEnding)
    {
        io_attempt.m_uiStatus = 487;
        io_attempt.m_strReason = "hung up before it was answered";
    }
    else if (!io_attempt.m_bVerdict)
    {
        const std::optional<CallRecord::EndedBy> endedBy = io_attempt.m_endedBy;
        failed(io_attempt, ConnectionFailureType(eNO_ANSWER_FAILURE));
        if (io_attempt.isRedirectedNowhere())
        {
            io_attempt.m_endedBy = endedBy;
            io_attempt.m_strReason = "redirected to no other target";
        }
    }
    tryNextAfter(io_attempt);
    m_listener.partyLegEnded(io_attempt.record(), io_attempt.m_bMedia);
    const auto it =
        std::find_if(m_vAttempts.begin(),
                     m_vAttempts.end(),
                     [&io_attempt](const auto& in_pAttempt) { return in_pAttempt.get() == &io_attempt; });
    m_vAttempts.erase(it);
    if (m_vAttempts.empty())
    {
        m_listener.partyGone();
    }
}

void OutboundParty::hangup(CallRecord::EndedBy in_endedBy)
{
    m_bEnding = true;
    m_pConnected = nullptr;
    m_pFailed = nullptr;
    m_pending.clear();
    m_targetsLeft = 0;
    for (const auto& pAttempt : m_vAttempts)
    {
        pAttempt->hangup(in_endedBy);
    }
}

bool OutboundParty::sendInfo(const std::vector<Parameter>& in_vParameters)
{
    return m_pConnected != nullptr && m_pConnected->m_pLeg->sendInfoMsg(in_vParameters);
}

void OutboundParty::transferRequested(Attempt& io_attempt, const CallLegInfo& in_leg)
{
    if (m_pConnected == &io_attempt)
    {
        m_listener.partyTransfer(in_leg);
    }
}

void OutboundParty::transferAccepted(RingType in_ringType)
{
    if (m_pConnected != nullptr)
    {
        m_pConnected->m_pLeg->transferAccepted(in_ringType);
    }
}

void OutboundParty::transferFailed(const ConnectionFailureType& in_failure)
{
    if (m_pConnected != nullptr)
    {
        m_pConnected->m_pLeg->transferFailure(in_failure);
    }
}

void OutboundParty::transferSucceeded()
{
    if (m_pConnected != nullptr)
    {
        m_pConnected->m_pLeg->transferSuccess();
    }
}

void OutboundParty::resume()
{
    if (m_pConnected != nullptr)
    {
        m_pConnected->m_pLeg->mediaAvailable();
    }
}

std::string OutboundParty::getUri() const
{
    return m_pConnected != nullptr ? m_pConnected->record().m_strTo : "";
}

void OutboundParty::addViews(std::vector<LegView>& io_vLegs) const
{
    const auto now = Clock::now();
    for (const auto& pAttempt : m_vAttempts)
    {
        const CallRecord record = pAttempt->record();
        constexpr const char* kStates[] = {"calling", "ringing", "answered", "ending"};
        io_vLegs.push_back({std::to_string(pAttempt->m_uiLeg),
                            "out",
                            kStates[static_cast<std::size_t>(pAttempt->m_state)],
                            record.m_strFrom,
                            record.m_strTo,
                            std::chrono::duration_cast<std::chrono::milliseconds>(now - pAttempt->m_invited),
                            record.m_strCpa});
    }
}

}  // namespace Quorvex
