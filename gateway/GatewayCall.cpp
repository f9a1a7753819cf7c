#include "GatewayCall.h"

#include <utility>

#include "infra/RegistrationSingleton.h"
#include "media/CTBusTonePlayerFactory.h"
#include "sip/Sip.h"
#include "sip/SipFailure.h"

namespace Quorvex
{

namespace
{

/// The media engine's services, as the network interface publishes them; null while there are none.
TSHandle<CTBusTonePlayerFactory> tonePlayers()
{
    const TSHandle<Object> hObject = RegistrationSingleton::instance().lookup("TONE_PLAYER_FACTORY");
    return hObject.dynamicCast<CTBusTonePlayerFactory>();
}

}  // namespace

GatewayCall::GatewayCall(EngineLoop& in_loop,
                         Owner& in_owner,
                         std::uint64_t in_ulNumber,
                         std::string in_strCallId,
                         std::unique_ptr<InCallLeg> in_pLeg)
    : m_loop(in_loop),
      m_owner(in_owner),
      m_ulNumber(in_ulNumber),
      m_strCallId(std::move(in_strCallId)),
      m_logger("quorvex.gateway.Call"),
      m_pLeg(std::move(in_pLeg)),
      m_invited(Clock::now())
{
    m_logger.callStart(m_strCallId);
}

GatewayCall::~GatewayCall()
{
    m_loop.cancel(m_timer);
    detachService();
}

void GatewayCall::detachService()
{
    if (std::exchange(m_bServiceAttached, false))
    {
        const auto hPlayers = tonePlayers();
        if (!hPlayers.isNull())
        {
            hPlayers->detach(m_strCallId);
        }
    }
}

const char* GatewayCall::getStateName(State in_state)
{
    switch (in_state)
    {
        case State::ARRIVED:
            return "arrived";
        case State::RINGING:
            return "ringing";
        case State::ANSWERED:
            return "answered";
        case State::ENDING:
            return "ending";
    }
    return "?";
}

void GatewayCall::invited(const CallLegInfo& in_leg, std::shared_ptr<const Route> in_pRoute)
{
    m_leg = in_leg;
    if (m_state != State::ARRIVED)
    {
        return;  // hung up by an operator before it was offered
    }
    m_pRoute = std::move(in_pRoute);
    if (m_pRoute == nullptr)
    {
        QLOG_INFO(m_logger, "call from " << getFrom() << " to " << getTo() << ": no route, rejected (404)");
        refuse(eINVALID_NUMBER_FAILURE, "no route");
        return;
    }
    QLOG_INFO(m_logger, "call from " << getFrom() << " to " << getTo() << ": route " << m_pRoute->getName());
    if (m_pRoute->hasLegs())
    {
        if (!callParty(m_pRoute->makeLegs(m_leg), 1))
        {
            refuse(eUNAVAILABLE_FAILURE, "no network interface places calls");
        }
        return;
    }
    if (m_pRoute->getService() == Route::Service::REJECT && m_pRoute->getAnswerAfterMs() == 0)
    {
        reject();
        return;
    }
    startService();
    if (m_state == State::ENDING)
    {
        return;
    }
    if (m_pRoute->hasProgress())
    {
        m_bEarlyMedia = true;
        m_pLeg->mediaAvailable();
    }
    const bool bNeverAnswers =
        m_pRoute->getService() == Route::Service::RING || m_pRoute->getService() == Route::Service::REJECT;
    if (m_pRoute->getRinging() != Route::Ringing::NONE)
    {
        ring();
    }
    if (m_pRoute->getService() == Route::Service::REJECT)
    {
        m_timer = m_loop.schedule(m_pRoute->getAnswerAfterMs(), [this] { reject(); });
    }
    else if (bNeverAnswers)
    {
        if (m_pRoute->getHangupAfterMs() > 0)
        {
            m_timer = m_loop.schedule(m_pRoute->getHangupAfterMs(), [this] { hangup(); });
        }
    }
    else if (m_pRoute->getAnswerAfterMs() > 0)
    {
        m_timer = m_loop.schedule(m_pRoute->getAnswerAfterMs(), [this] { answer(); });
    }
    else
    {
        answer();
    }
}

void GatewayCall::startService()
{
    const auto hPlayers = tonePlayers();
    if (hPlayers.isNull())
    {
        return;  // an engine without services: the caller hears silence
    }
    std::string error;
    ToneDescription tone;
    switch (m_pRoute->getService())
    {
        case Route::Service::ECHO:
            m_bServiceAttached = hPlayers->attachEcho(m_strCallId);
            break;
        case Route::Service::PLAY:
            m_bServiceAttached = hPlayers->attachFile(m_strCallId, m_pRoute->getFile(), true, error);
            break;
        case Route::Service::TONE:
            m_bServiceAttached =
                ToneDescription::find(m_pRoute->getTone(), tone) && hPlayers->attachTone(m_strCallId, tone);
            break;
        case Route::Service::RING:
        case Route::Service::REJECT:
            return;
    }
    if (!m_bServiceAttached)
    {
        QLOG_ERROR(m_logger,
                   "the service of route " << m_pRoute->getName() << " cannot be started"
                                           << (error.empty() ? "" : ": ") << error);
        refuse(eMEDIA_FAILURE, "the service cannot be started");
    }
}

void GatewayCall::reject()
{
    m_timer = EngineLoop::kNoTimer;
    m_endedBy = CallRecord::EndedBy::LOCAL;
    refuse(ConnectionFailureType(m_pRoute->getRejectFailure(),
                                 new Sip::SipConnectionFailureType(m_pRoute->getRejectStatus())),
           "route " + m_pRoute->getName(),
           m_pRoute->getRejectStatus());
}

void GatewayCall::refused(const CallLegInfo& in_leg)
{
    m_leg = in_leg;
    if (m_state == State::ARRIVED)
    {
        QLOG_INFO(m_logger,
                  "call from " << getFrom() << " to " << getTo() << ": no calls are taken, rejected (503)");
        refuse(eUNAVAILABLE_FAILURE, "no calls are taken");
    }
}

void GatewayCall::refuse(const ConnectionFailureType& in_failure,
                         std::string in_strReason,
                         unsigned int in_uiStatus)
{
    const bool bAccepted = m_state == State::RINGING;
    m_state = State::ENDING;
    m_endedBy = m_endedBy.value_or(CallRecord::EndedBy::LOCAL);
    m_uiStatus =
        in_uiStatus != 0 ? in_uiStatus : Call::getFailureEntry(in_failure.getFailure()).m_uiSipStatus;
    m_strReason = std::move(in_strReason);
    // A leg that has been accepted is refused as one whose far side failed.
    if (m_pLeg == nullptr)
    {
        endParty();
    }
    else if (bAccepted)
    {
        m_pLeg->remoteConnectionFailed(in_failure);
    }
    else
    {
        m_pLeg->inviteRejected(in_failure);
    }
}

void GatewayCall::ring()
{
    m_state = State::RINGING;
    m_ringing = Clock::now();
    m_bEarlyMedia = m_bEarlyMedia || m_pRoute->getRinging() == Route::Ringing::EARLY_MEDIA;
    m_pLeg->inviteAccepted(m_pRoute->getRinging() == Route::Ringing::EARLY_MEDIA ? eRING_WITH_EARLY_MEDIA
                                                                                 : eRING_WITHOUT_EARLY_MEDIA);
}

void GatewayCall::answer()
{
    m_timer = EngineLoop::kNoTimer;
    m_state = State::ANSWERED;
    m_answered = Clock::now();
    m_uiStatus = 200;
    m_pLeg->remoteConnected(Call::eCONNECTION_NONE);
    if (m_pRoute->getHangupAfterMs() > 0)
    {
        m_timer = m_loop.schedule(m_pRoute->getHangupAfterMs(), [this] { hangup(); });
    }
}

bool GatewayCall::hangup(CallRecord::EndedBy in_endedBy)
{
    if (m_state == State::ENDING)
    {
        return false;
    }
    m_loop.cancel(m_timer);
    m_endedBy = in_endedBy;
    // An unanswered caller gets a final response at once; only an answered one a BYE.
    if (m_state == State::ANSWERED)
    {
        m_state = State::ENDING;
        if (m_pLeg != nullptr)
        {
            m_pLeg->hangup();
        }
    }
    else
    {
        refuse(eNO_ANSWER_FAILURE, "hung up before it was answered");
    }
    endParty();
    return true;
}

bool GatewayCall::sendInfo(const std::vector<Parameter>& in_vParameters)
{
    return m_pLeg != nullptr ? m_pLeg->sendInfoMsg(in_vParameters)
                             : m_pParty != nullptr && m_pParty->sendInfo(in_vParameters);
}

// ------------------------------------------------------------------------------------- the party of the call

bool GatewayCall::place(const CallLegInfo& in_leg, std::shared_ptr<const Route> in_pRoute)
{
    m_leg = in_leg;
    m_pRoute = std::move(in_pRoute);
    m_bReleased = true;
    QLOG_INFO(m_logger, "call to " << getTo() << " placed");
    return callParty({in_leg}, 0);
}

bool GatewayCall::callParty(std::vector<CallLegInfo> in_vLegs, unsigned int in_uiFirstLeg)
{
    const std::optional<OutboundParty::Context> context = m_owner.getOutbound();
    if (!context.has_value())
    {
        return false;
    }
    m_pParty = std::make_unique<OutboundParty>(
        *context, static_cast<OutboundParty::Listener&>(*this), m_strCallId, getRouteName());
    m_pParty->place(std::move(in_vLegs), in_uiFirstLeg);
    return true;
}

void GatewayCall::endParty()
{
    if (m_pParty != nullptr)
    {
        m_pParty->hangup();
    }
}

void GatewayCall::partyRinging(RingType in_ringType)
{
    if (in_ringType == eRING_WITH_EARLY_MEDIA && m_state == State::RINGING)
    {
        partyEarlyMedia();
        return;
    }
    if (m_state != State::ARRIVED)
    {
        return;
    }
    m_state = State::RINGING;
    m_ringing = Clock::now();
    if (m_pLeg != nullptr)
    {
        m_bEarlyMedia = m_bEarlyMedia || in_ringType == eRING_WITH_EARLY_MEDIA;
        m_pLeg->inviteAccepted(in_ringType);
    }
}

void GatewayCall::partyEarlyMedia()
{
    if (m_pLeg != nullptr && !m_bEarlyMedia && (m_state == State::ARRIVED || m_state == State::RINGING))
    {
        m_bEarlyMedia = true;
        m_pLeg->mediaAvailable();
    }
}

void GatewayCall::partyConnected(Call::ConnectionType in_type)
{
    if (m_state == State::ENDING)
    {
        endParty();
        return;
    }
    m_uiStatus = Sip::getResponseCode(in_type);
    if (m_pLeg != nullptr)
    {
        m_pLeg->remoteConnected(in_type);
        if (!Sip::isSuccessResponse(m_uiStatus))
        {
            // The caller has been refused for what the analysis heard.
            m_state = State::ENDING;
            m_endedBy = CallRecord::EndedBy::LOCAL;
            m_strReason = Call::getConnectionTypeEntry(in_type).m_meaning;
            endParty();
            return;
        }
    }
    m_state = State::ANSWERED;
    m_answered = Clock::now();
    if (m_pLeg == nullptr)
    {
        startService();
    }
    if (m_state == State::ANSWERED && m_pRoute->getHangupAfterMs() > 0)
    {
        m_timer = m_loop.schedule(m_pRoute->getHangupAfterMs(), [this] { hangup(); });
    }
}

void GatewayCall::partyFailed(const ConnectionFailureType& in_failure)
{
    if (m_state == State::ENDING)
    {
        return;
    }
    if (m_pLeg == nullptr)
    {
        m_state = State::ENDING;
        return;
    }
    refuse(in_failure,
           std::string(Call::getFailureEntry(in_failure.getFailure()).m_meaning),
           Sip::getResponseCode(in_failure));
}

void GatewayCall::partyDisconnected()
{
    if (m_state == State::ENDING)
    {
        return;
    }
    m_loop.cancel(m_timer);
    m_state = State::ENDING;
    m_endedBy = CallRecord::EndedBy::LOCAL;
    if (m_pLeg != nullptr)
    {
        m_pLeg->hangup();
    }
}

void GatewayCall::partyInfo(const std::vector<Parameter>& in_vParameters)
{
    if (m_pLeg != nullptr && m_state == State::ANSWERED)
    {
        m_pLeg->sendInfoMsg(in_vParameters);
    }
}

void GatewayCall::partyLegOpened(unsigned int in_uiLeg)
{
    m_owner.legOpened(m_strCallId, in_uiLeg);
}

void GatewayCall::partyLegEnded(CallRecord in_record, bool in_bHadMedia)
{
    m_owner.legEnded(std::move(in_record), in_bHadMedia);
}

void GatewayCall::partyGone()
{
    m_owner.partyGone(m_ulNumber);
}

void GatewayCall::transferRequested(const CallLegInfo& in_leg)
{
    QLOG_INFO(m_logger,
              "transfer to " << in_leg.getParameterOr("sip.in.referTo", "?")
                             << " refused: this version transfers no calls");
    m_pLeg->transferFailure(eUNAVAILABLE_FAILURE);
}

void GatewayCall::infoReceived(const std::vector<Parameter>& in_vParameters)
{
    QLOG_INFO(m_logger, "INFO received with " << in_vParameters.size() << " parameters");
    if (m_pParty != nullptr)
    {
        static_cast<void>(m_pParty->sendInfo(in_vParameters));
    }
}

void GatewayCall::disconnected()
{
    if (m_state == State::ENDING)
    {
        return;
    }
    m_loop.cancel(m_timer);
    if (m_state != State::ANSWERED)
    {
        m_uiStatus = 487;
    }
    m_state = State::ENDING;
    m_endedBy = CallRecord::EndedBy::REMOTE;
    endParty();
}

CallView GatewayCall::getView() const
{
    const auto age = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - m_invited);
    CallView view{
        m_strCallId, m_pLeg != nullptr ? "in" : "out", getStateName(m_state), getFrom(), getTo(), age, {}};
    if (m_pLeg != nullptr)
    {
        view.m_vLegs.push_back({"0", "in", view.m_strState, view.m_strFrom, view.m_strTo, age});
    }
    if (m_pParty != nullptr)
    {
        m_pParty->addViews(view.m_vLegs);
    }
    return view;
}

CallRecord GatewayCall::released()
{
    m_bReleased = true;
    endParty();
    detachService();
    CallRecord record;
    record.m_strCall = m_strCallId;
    record.m_strSipCallId = m_leg.getParameterOr("sip.in.header.Call-ID", "");
    record.m_strFrom = getFrom();
    record.m_strTo = getTo();
    record.m_strRoute = getRouteName();
    record.m_invited = m_invited;
    record.m_ringing = m_ringing;
    record.m_answered = m_answered;
    record.m_ended = Clock::now();
    // Let go without a word: the network interface is stopping.
    record.m_endedBy = m_endedBy.value_or(CallRecord::EndedBy::STOP);
    record.m_uiStatus = m_uiStatus;
    record.m_strReason = m_strReason;
    QLOG_INFO(m_logger, "call ended, status " << m_uiStatus);
    return record;
}

}  // namespace Quorvex
