#include "OutboundParty.h"

#include <algorithm>
#include <utility>

#include "OutboundAttempt.h"
#include "sip/Sip.h"
#include "sip/SipFailure.h"

namespace Quorvex
{

namespace
{

constexpr const char* kRedirectInKey = "sip.in.redirect.Contact";
constexpr const char* kHeaderKey = "sip.out.header.";

// Redirecting parties must not keep a call going for ever.
constexpr unsigned int kMaxAttempts = 20;

}  // namespace

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
    m_pending.assign(in_vLegs.rbegin(), in_vLegs.rend());
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
        callInfo.addLeg(m_pending.back());
        m_pending.pop_back();
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
    io_attempt.m_answered = Attempt::Clock::now();
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
    const auto now = Attempt::Clock::now();
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
