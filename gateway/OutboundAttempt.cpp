#include "OutboundAttempt.h"

#include "EngineLoop.h"
#include "net/HostResolver.h"
#include "sip/Sip.h"
#include "sipstack/DsSipURL.h"

namespace Quorvex
{

namespace
{

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
                io_attempt.m_ringing = Attempt::Clock::now();
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
            [strSipCallId = in_strSipCallId, now = Attempt::Clock::now()](Attempt& io_attempt)
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

bool OutboundParty::Attempt::isAnalysed() const
{
    return m_callInfo.getCurrentLeg().isTrue("sip.out.cpa.enabled");
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

}  // namespace Quorvex
