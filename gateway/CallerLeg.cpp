#include "CallerLeg.h"

#include <utility>

#include "sip/Sip.h"
#include "sip/SipFailure.h"
#include "sipstack/DsSipResponse.h"

namespace Quorvex
{

const char* toText(CallState in_state)
{
    switch (in_state)
    {
        case CallState::ARRIVED:
            return "arrived";
        case CallState::RINGING:
            return "ringing";
        case CallState::ANSWERED:
            return "answered";
        case CallState::ENDING:
            return "ending";
    }
    return "?";
}

CallerLeg::CallerLeg(std::unique_ptr<InCallLeg> in_pLeg)
    : m_pLeg(std::move(in_pLeg)), m_arrived(Clock::now()), m_arrivedAt(std::chrono::system_clock::now())
{
}

void CallerLeg::ring(RingType in_ringType)
{
    m_state = CallState::RINGING;
    m_ringing = Clock::now();
    m_bEarlyMedia = m_bEarlyMedia || in_ringType == eRING_WITH_EARLY_MEDIA;
    m_pLeg->inviteAccepted(in_ringType);
}

void CallerLeg::startEarlyMedia()
{
    if (!m_bEarlyMedia && (m_state == CallState::ARRIVED || m_state == CallState::RINGING))
    {
        m_bEarlyMedia = true;
        m_pLeg->mediaAvailable();
    }
}

template <class Verdict>
void CallerLeg::say(Verdict in_verdict)
{
    in_verdict(*m_pLeg);
    if (m_bEarlyMedia)
    {
        m_verdict = std::move(in_verdict);
    }
}

void CallerLeg::sayAgain()
{
    if (m_verdict && m_pLeg != nullptr)
    {
        m_answered = m_state == CallState::ANSWERED ? std::optional(Clock::now()) : m_answered;
        m_verdict(*m_pLeg);
    }
}

bool CallerLeg::answer(Call::ConnectionType in_type)
{
    m_uiStatus = Sip::getResponseCode(in_type);
    say([in_type](InCallLeg& io_leg) { io_leg.remoteConnected(in_type); });
    if (!Sip::isSuccessResponse(m_uiStatus))
    {
        m_state = CallState::ENDING;
        m_endedBy = CallRecord::EndedBy::LOCAL;
        m_strReason = Call::getConnectionTypeEntry(in_type).m_meaning;
        return false;
    }
    m_state = CallState::ANSWERED;
    m_answered = Clock::now();
    return true;
}

void CallerLeg::refuse(const ConnectionFailureType& in_failure,
                       std::string in_strReason,
                       unsigned int in_uiStatus)
{
    const bool bAccepted = m_state == CallState::RINGING;
    m_state = CallState::ENDING;
    m_endedBy = m_endedBy.value_or(CallRecord::EndedBy::LOCAL);
    m_uiStatus =
        in_uiStatus != 0 ? in_uiStatus : Call::getFailureEntry(in_failure.getFailure()).m_uiSipStatus;
    m_strReason = std::move(in_strReason);
    // A leg that has been accepted is refused as one whose far side failed.
    say(
        [bAccepted, in_failure](InCallLeg& io_leg)
        {
            if (bAccepted)
            {
                io_leg.remoteConnectionFailed(in_failure);
            }
            else
            {
                io_leg.inviteRejected(in_failure);
            }
        });
}

void CallerLeg::disconnected()
{
    if (m_state == CallState::ENDING)
    {
        return;
    }
    if (m_state != CallState::ANSWERED)
    {
        m_uiStatus = 487;
    }
    m_state = CallState::ENDING;
    m_endedBy = CallRecord::EndedBy::REMOTE;
}

void CallerLeg::answeredFinally(unsigned int in_uiStatus, CallInInterface::Ending in_ending)
{
    if (in_uiStatus != 0 && in_uiStatus != m_uiStatus)
    {
        // The network interface has decided otherwise, or a verdict came too late.
        m_uiStatus = in_uiStatus;
        m_strReason = DsSipResponse::getDefaultReason(in_uiStatus);
    }
    if (!Sip::isSuccessResponse(in_uiStatus))
    {
        m_answered.reset();
    }
    // "Disconnected" alone does not say whether the caller or a failure has ended the leg.
    if (m_endedBy == CallRecord::EndedBy::REMOTE && in_ending != CallInInterface::Ending::FAR_END)
    {
        m_endedBy = in_ending == CallInInterface::Ending::TIMEOUT ? CallRecord::EndedBy::TIMEOUT
                                                                  : CallRecord::EndedBy::LOCAL;
    }
}

void CallerLeg::release()
{
    m_state = CallState::ENDING;
    m_pLeg.reset();
}

void CallerLeg::hangup(CallRecord::EndedBy in_endedBy)
{
    if (m_state == CallState::ENDING)
    {
        return;
    }
    m_endedBy = in_endedBy;
    // An unanswered caller gets a final response at once; only an answered one a BYE.
    if (m_state == CallState::ANSWERED)
    {
        m_state = CallState::ENDING;
        m_pLeg->hangup();
    }
    else
    {
        refuse(eNO_ANSWER_FAILURE, "hung up before it was answered");
    }
}

bool CallerLeg::sendInfo(const std::vector<Parameter>& in_vParameters)
{
    return m_state == CallState::ANSWERED && m_pLeg->sendInfoMsg(in_vParameters);
}

void CallerLeg::transferAccepted(RingType in_ringType)
{
    if (m_state == CallState::ANSWERED)
    {
        m_pLeg->transferAccepted(in_ringType);
    }
}

void CallerLeg::transferFailed(const ConnectionFailureType& in_failure)
{
    if (m_state == CallState::ANSWERED)
    {
        m_pLeg->transferFailure(in_failure);
    }
}

void CallerLeg::transferSucceeded()
{
    if (m_state == CallState::ANSWERED)
    {
        m_pLeg->transferSuccess();
    }
}

void CallerLeg::resume()
{
    if (m_state == CallState::ANSWERED)
    {
        m_pLeg->mediaAvailable();
    }
}

std::string CallerLeg::getUri() const
{
    return m_offer.getParameterOr("sip.in.from.uri", "");
}

std::string CallerLeg::getTo() const
{
    return m_offer.getParameterOr("sip.in.requestUri", "");
}

std::chrono::milliseconds CallerLeg::getAge() const
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - m_arrived);
}

CallRecord CallerLeg::record(CallRecord::EndedBy in_silently) const
{
    CallRecord record;
    record.m_strSipCallId = m_offer.getParameterOr("sip.in.header.Call-ID", "");
    record.m_strFrom = getUri();
    record.m_strTo = getTo();
    record.m_invited = m_arrived;
    record.m_invitedAt = m_arrivedAt;
    record.m_ringing = m_ringing;
    record.m_answered = m_answered;
    record.m_ended = Clock::now();
    record.m_endedBy = m_endedBy.value_or(in_silently);
    record.m_uiStatus = m_uiStatus;
    record.m_strReason = m_strReason;
    if (!m_endedBy.has_value() && m_strReason.empty() && in_silently == CallRecord::EndedBy::LOCAL)
    {
        record.m_strReason = "ended by the network interface";
    }
    return record;
}

}  // namespace Quorvex
