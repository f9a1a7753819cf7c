#include "GatewayCall.h"

#include <algorithm>
#include <utility>

#include "GatewayCallParty.h"
#include "infra/RegistrationSingleton.h"
#include "media/CTBusTonePlayerFactory.h"
#include "sip/Sip.h"
#include "sip/SipFailure.h"
#include "sipstack/DsSipResponse.h"

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
      m_begun(Clock::now()),
      m_moved(m_begun)
{
    m_logger.callStart(m_strCallId);
    if (in_pLeg != nullptr)
    {
        m_pCaller = std::make_unique<CallerLeg>(std::move(in_pLeg));
        m_pFirst = m_pCaller.get();
        m_uiNextLeg = 1;
    }
}

GatewayCall::~GatewayCall()
{
    m_loop.cancel(m_timer);
    m_loop.cancel(m_transferTimer);
    m_loop.cancel(m_leaveTimer);
    detachService();
}

void GatewayCall::setState(CallState in_state)
{
    m_state = in_state;
    m_moved = Clock::now();
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

std::string GatewayCall::getFrom() const
{
    return m_pCaller != nullptr ? m_pCaller->getUri() : m_placed.getParameterOr("sip.out.from.uri", "");
}

std::string GatewayCall::getTo() const
{
    return m_pCaller != nullptr ? m_pCaller->getTo() : m_placed.getParameterOr("sip.out.requestUri", "");
}

// ------------------------------------------------------------------------------------------ the call's begin

void GatewayCall::invited(const CallLegInfo& in_leg, std::shared_ptr<const Route> in_pRoute)
{
    m_pCaller->setOffer(in_leg);
    if (m_state != CallState::ARRIVED)
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
        m_pSecond = callParty(m_pRoute->makeLegs(in_leg), getRouteName());
        if (m_pSecond == nullptr)
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
    if (!startService(*m_pRoute))
    {
        refuse(eMEDIA_FAILURE, "the service cannot be started");
        return;
    }
    if (m_pRoute->hasProgress())
    {
        m_pCaller->startEarlyMedia();
    }
    if (m_pRoute->getRinging() != Route::Ringing::NONE)
    {
        ring();
    }
    if (m_pRoute->getService() == Route::Service::REJECT)
    {
        schedule(m_pRoute->getAnswerAfterMs(), [this] { reject(); });
    }
    else if (m_pRoute->getService() == Route::Service::RING)
    {
        hangupAfter(*m_pRoute);
    }
    else if (m_pRoute->getAnswerAfterMs() > 0)
    {
        schedule(m_pRoute->getAnswerAfterMs(), [this] { answer(); });
    }
    else
    {
        answer();
    }
}

void GatewayCall::schedule(unsigned int in_uiMs, EngineLoop::Job in_job)
{
    m_loop.cancel(m_timer);
    m_timer = m_loop.schedule(in_uiMs,
                              [this, job = std::move(in_job)]
                              {
                                  m_timer = EngineLoop::kNoTimer;
                                  job();
                              });
}

void GatewayCall::hangupAfter(const Route& in_route)
{
    m_loop.cancel(m_timer);
    if (in_route.getHangupAfterMs() > 0)
    {
        schedule(in_route.getHangupAfterMs(), [this] { hangup(); });
    }
}

bool GatewayCall::startService(const Route& in_route)
{
    m_bServed = true;
    const auto hPlayers = tonePlayers();
    if (hPlayers.isNull())
    {
        return true;  // an engine without services: the party hears silence
    }
    std::string error;
    ToneDescription tone;
    bool bAttached = false;
    switch (in_route.getService())
    {
        case Route::Service::ECHO:
            bAttached = hPlayers->attachEcho(m_strCallId);
            break;
        case Route::Service::PLAY:
            bAttached = hPlayers->attachFile(m_strCallId, in_route.getFile(), true, error);
            break;
        case Route::Service::TONE:
            bAttached =
                ToneDescription::find(in_route.getTone(), tone) && hPlayers->attachTone(m_strCallId, tone);
            break;
        case Route::Service::RING:
        case Route::Service::REJECT:
            return true;
    }
    m_bServiceAttached = m_bServiceAttached || bAttached;
    if (!bAttached)
    {
        QLOG_ERROR(m_logger,
                   "the service of route " << in_route.getName() << " cannot be started"
                                           << (error.empty() ? "" : ": ") << error);
    }
    return bAttached;
}

void GatewayCall::reject()
{
    refuse(ConnectionFailureType(m_pRoute->getRejectFailure(),
                                 new Sip::SipConnectionFailureType(m_pRoute->getRejectStatus())),
           "route " + m_pRoute->getName(),
           m_pRoute->getRejectStatus());
}

void GatewayCall::refused(const CallLegInfo& in_leg)
{
    m_pCaller->setOffer(in_leg);
    if (m_state == CallState::ARRIVED)
    {
        QLOG_INFO(m_logger,
                  "call from " << getFrom() << " to " << getTo() << ": no calls are taken, rejected (503)");
        refuse(eUNAVAILABLE_FAILURE, "no calls are taken");
    }
}

void GatewayCall::sayAgain()
{
    m_pCaller->sayAgain();
}

void GatewayCall::notOffered(const CallLegInfo& in_leg)
{
    m_pCaller->setOffer(in_leg);
    QLOG_INFO(m_logger, "call from " << getFrom() << " to " << getTo() << ": over before it was offered");
}

void GatewayCall::refuse(const ConnectionFailureType& in_failure,
                         std::string in_strReason,
                         unsigned int in_uiStatus)
{
    m_pCaller->refuse(in_failure, std::move(in_strReason), in_uiStatus);
    end(CallRecord::EndedBy::LOCAL);
}

void GatewayCall::ring()
{
    setState(CallState::RINGING);
    m_pCaller->ring(m_pRoute->getRinging() == Route::Ringing::EARLY_MEDIA ? eRING_WITH_EARLY_MEDIA
                                                                          : eRING_WITHOUT_EARLY_MEDIA);
}

void GatewayCall::answer()
{
    setState(CallState::ANSWERED);
    static_cast<void>(m_pCaller->answer(Call::eCONNECTION_NONE));
    hangupAfter(*m_pRoute);
}

bool GatewayCall::place(const CallLegInfo& in_leg, std::shared_ptr<const Route> in_pRoute)
{
    m_placed = in_leg;
    m_pRoute = std::move(in_pRoute);
    QLOG_INFO(m_logger, "call to " << getTo() << " placed");
    m_pFirst = callParty({in_leg}, getRouteName());
    return m_pFirst != nullptr;
}

GatewayCall::Party* GatewayCall::callParty(std::vector<CallLegInfo> in_vLegs, const std::string& in_strRoute)
{
    const std::optional<OutboundParty::Context> context = m_owner.getOutbound();
    if (!context.has_value())
    {
        return nullptr;
    }
    Party& party = *m_vParties.emplace_back(std::make_unique<Party>(*this, *context, in_strRoute));
    party.get().place(std::move(in_vLegs), m_uiNextLeg);
    return &party;
}

// -------------------------------------------------------------------------------------------- the call's end

bool GatewayCall::hangup(CallRecord::EndedBy in_endedBy)
{
    if (m_state == CallState::ENDING)
    {
        return false;
    }
    end(in_endedBy);
    return true;
}

void GatewayCall::end(CallRecord::EndedBy in_endedBy)
{
    setState(CallState::ENDING);
    m_loop.cancel(m_timer);
    m_loop.cancel(m_transferTimer);
    m_loop.cancel(m_leaveTimer);
    if (m_transfer.has_value())
    {
        const Transfer transfer = *std::exchange(m_transfer, std::nullopt);
        m_owner.transferEnded(transfer.m_bByParty, false);
        if (transfer.m_pAsking != nullptr)
        {
            constexpr unsigned int kTerminated = 487;
            transfer.m_pAsking->transferFailed(
                ConnectionFailureType(eNO_ANSWER_FAILURE, new Sip::SipConnectionFailureType(kTerminated)));
        }
    }
    if (m_pCaller != nullptr)
    {
        m_pCaller->hangup(in_endedBy);
    }
    for (const auto& pParty : m_vParties)
    {
        pParty->hangup(in_endedBy);
    }
}

CallEnd* GatewayCall::otherEnd(const CallEnd& in_end) const
{
    if (m_state != CallState::ANSWERED)
    {
        return nullptr;
    }
    if (&in_end == m_pFirst)
    {
        return m_pSecond;
    }
    return &in_end == m_pSecond ? m_pFirst : nullptr;
}

void GatewayCall::disconnected()
{
    m_pCaller->disconnected();
    ended(*m_pCaller, CallRecord::EndedBy::LOCAL);
}

void GatewayCall::ended(CallEnd& in_end, CallRecord::EndedBy in_others)
{
    if (m_pLeaving == &in_end)
    {
        m_pLeaving = nullptr;
        m_loop.cancel(m_leaveTimer);
    }
    if (m_state == CallState::ENDING || (&in_end != m_pFirst && &in_end != m_pSecond))
    {
        return;
    }
    if (m_transfer.has_value() && m_transfer->m_pLeaving == &in_end)
    {
        // Gone before its time: the transfer goes on without it.
        m_pFirst = otherEnd(in_end);
        m_pSecond = nullptr;
        m_transfer->m_pLeaving = nullptr;
        m_transfer->m_pAsking = nullptr;
        return;
    }
    end(in_others);
}

CallRecord GatewayCall::released()
{
    const bool bWordless = m_pCaller->getState() != CallState::ENDING;
    // Let go without a word: by a stop, or for something that the network interface could not accept.
    CallRecord record =
        m_pCaller->record(m_owner.takesCalls() ? CallRecord::EndedBy::LOCAL : CallRecord::EndedBy::STOP);
    m_pCaller->release();
    if (bWordless)
    {
        ended(*m_pCaller,
              record.m_endedBy == CallRecord::EndedBy::STOP ? record.m_endedBy : CallRecord::EndedBy::LOCAL);
    }
    record.m_strCall = m_strCallId;
    record.m_strRoute = getRouteName();
    QLOG_INFO(m_logger, "caller's leg ended, status " << record.m_uiStatus);
    return record;
}

void GatewayCall::dropGone()
{
    const auto forget = [this](const CallEnd* in_pEnd)
    {
        for (CallEnd** ppEnd : {&m_pFirst, &m_pSecond, &m_pLeaving})
        {
            *ppEnd = *ppEnd == in_pEnd ? nullptr : *ppEnd;
        }
    };
    m_vParties.erase(std::remove_if(m_vParties.begin(),
                                    m_vParties.end(),
                                    [&](const std::unique_ptr<Party>& in_pParty)
                                    {
                                        const bool bGone = in_pParty->get().isGone();
                                        if (bGone)
                                        {
                                            forget(in_pParty.get());
                                        }
                                        return bGone;
                                    }),
                     m_vParties.end());
}

bool GatewayCall::isOver() const
{
    return isReleased() && std::all_of(m_vParties.begin(),
                                       m_vParties.end(),
                                       [](const auto& in_pParty) { return in_pParty->get().isGone(); });
}

// --------------------------------------------------------------------------------------- the call's parties

void GatewayCall::ringing(Party& io_party, RingType in_ringType)
{
    if (isTransferTo(io_party))
    {
        transferAlerting(in_ringType);
        return;
    }
    if (in_ringType == eRING_WITH_EARLY_MEDIA && m_state == CallState::RINGING)
    {
        earlyMedia(io_party);
        return;
    }
    if (m_state != CallState::ARRIVED)
    {
        return;
    }
    setState(CallState::RINGING);
    if (m_pCaller != nullptr)
    {
        m_pCaller->ring(in_ringType);
    }
}

void GatewayCall::earlyMedia(Party& io_party)
{
    if (isTransferTo(io_party))
    {
        transferAlerting(eRING_WITH_EARLY_MEDIA);
    }
    else if (m_pCaller != nullptr && m_pSecond == &io_party)
    {
        m_pCaller->startEarlyMedia();
    }
}

void GatewayCall::connected(Party& io_party, Call::ConnectionType in_type)
{
    if (m_state == CallState::ENDING)
    {
        io_party.hangup(CallRecord::EndedBy::LOCAL);
        return;
    }
    if (isTransferTo(io_party))
    {
        const unsigned int uiStatus = Sip::getResponseCode(in_type);
        if (Sip::isSuccessResponse(uiStatus))
        {
            transferDone();
            return;
        }
        io_party.hangup(CallRecord::EndedBy::LOCAL);
        transferFailed(
            ConnectionFailureType(eNO_ANSWER_FAILURE, new Sip::SipConnectionFailureType(uiStatus)));
        return;
    }
    if (m_pCaller != nullptr && !m_pCaller->answer(in_type))
    {
        end(CallRecord::EndedBy::LOCAL);
        return;
    }
    setState(CallState::ANSWERED);
    if (m_pCaller == nullptr && !startService(*m_pRoute))
    {
        end(CallRecord::EndedBy::LOCAL);
        return;
    }
    hangupAfter(*m_pRoute);
}

void GatewayCall::failed(Party& io_party, const ConnectionFailureType& in_failure)
{
    if (m_state == CallState::ENDING)
    {
        return;
    }
    if (isTransferTo(io_party))
    {
        transferFailed(in_failure);
    }
    else if (m_pCaller == nullptr)
    {
        end(CallRecord::EndedBy::REMOTE);
    }
    else
    {
        refuse(in_failure,
               std::string(Call::getFailureEntry(in_failure.getFailure()).m_meaning),
               Sip::getResponseCode(in_failure));
    }
}

// ------------------------------------------------------------------------------------------------------ INFO

bool GatewayCall::sendInfo(const std::vector<Parameter>& in_vParameters)
{
    return m_pFirst != nullptr && m_pFirst->sendInfo(in_vParameters);
}

void GatewayCall::infoReceived(const std::vector<Parameter>& in_vParameters)
{
    QLOG_INFO(m_logger, "INFO received with " << in_vParameters.size() << " parameters");
    if (CallEnd* pOther = otherEnd(*m_pCaller))
    {
        static_cast<void>(pOther->sendInfo(in_vParameters));
    }
}

void GatewayCall::answeredFinally(unsigned int in_uiStatus, CallInInterface::Ending in_ending)
{
    if (m_pCaller != nullptr)
    {
        m_pCaller->answeredFinally(in_uiStatus, in_ending);
    }
}

CallView GatewayCall::getView() const
{
    const auto age = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - m_begun);
    CallView view{
        m_strCallId, m_pCaller != nullptr ? "in" : "out", toText(m_state), getFrom(), getTo(), age, {}};
    if (!isReleased())
    {
        view.m_vLegs.push_back({"0",
                                "in",
                                toText(m_pCaller->getState()),
                                m_pCaller->getUri(),
                                m_pCaller->getTo(),
                                m_pCaller->getAge()});
    }
    for (const auto& pParty : m_vParties)
    {
        pParty->get().addViews(view.m_vLegs);
    }
    return view;
}

}  // namespace Quorvex
