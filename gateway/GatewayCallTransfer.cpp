#include <utility>

#include "GatewayCallParty.h"
#include "ReferTo.h"
#include "sip/SipFailure.h"

// A call's transfers: one at a time, until a party, or a service, has taken the place of who leaves.

namespace Quorvex
{

namespace
{

constexpr const char* kHeaderKey = "sip.out.header.";

ConnectionFailureType failure(ConnectionFailureEnum in_failure, unsigned int in_uiStatus)
{
    return {in_failure, new Sip::SipConnectionFailureType(in_uiStatus)};
}

/// The leg to a call of this same gateway, which the INVITE names in its Replaces.
CallLegInfo makeLegToSelf(const CallLegInfo& in_offer,
                          const std::string& in_strUri,
                          const std::string& in_strTransport)
{
    CallLegInfo leg;
    leg.setParameter("sip.out.requestUri", in_strUri);
    leg.setParameter("sip.out.transport", in_strTransport);
    leg.setParameter("sip.out.from.uri", in_offer.getParameterOr("sip.in.from.uri", ""));
    leg.addRtpSendReceiveParameters(0);
    return leg;
}

/// What a leg says wins over what the transferring party asks for.
void setHeader(CallLegInfo& io_leg, const std::string& in_strName, const std::string& in_strValue)
{
    const std::string strKey = kHeaderKey + in_strName;
    if (!in_strValue.empty() && io_leg.getNode(strKey) == nullptr)
    {
        io_leg.setParameter(strKey, in_strValue);
    }
}

/// What the transfer is routed by: as if the party who stays had called the target.
CallLegInfo makeOffer(const CallLegInfo& in_leg,
                      const std::string& in_strTarget,
                      const std::string& in_strFrom)
{
    CallLegInfo offer = in_leg;
    offer.setParameter("sip.in.requestUri", in_strTarget);
    offer.setParameter("sip.in.from.uri", in_strFrom);
    offer.setParameter("sip.in.from.displayName", "");
    offer.setParameter("sip.in.to.displayName", "");
    return offer;
}

/// The legs to try in turn; none for a service. `in_strTransport` is empty unless the target is a call of
/// this gateway's own: the party has consulted another through it, and only here is the call known that it
/// names.
std::vector<CallLegInfo> makeLegs(const CallLegInfo& in_offer,
                                  const ReferTo& in_referTo,
                                  const std::string& in_strTransport,
                                  const Route* in_pRoute)
{
    std::vector<CallLegInfo> vLegs;
    if (!in_strTransport.empty())
    {
        vLegs.push_back(makeLegToSelf(in_offer, in_referTo.m_strUri, in_strTransport));
    }
    if (in_pRoute != nullptr && in_pRoute->hasLegs())
    {
        const std::vector<CallLegInfo> vRouted = in_pRoute->makeLegs(in_offer);
        vLegs.insert(vLegs.end(), vRouted.begin(), vRouted.end());
    }
    const std::string strReferredBy = in_offer.getParameterOr("sip.in.referredBy.uri", "");
    for (CallLegInfo& leg : vLegs)
    {
        for (const auto& [strName, strValue] : in_referTo.m_vHeaders)
        {
            setHeader(leg, strName, strValue);
        }
        setHeader(leg, "Referred-By", strReferredBy.empty() ? "" : '<' + strReferredBy + '>');
    }
    return vLegs;
}

}  // namespace

void GatewayCall::transferRequested(const CallLegInfo& in_leg)
{
    transferRequested(*m_pCaller, in_leg);
}

void GatewayCall::transferRequested(CallEnd& io_asking, const CallLegInfo& in_leg)
{
    const ReferTo referTo = ReferTo::parse(in_leg.getParameterOr("sip.in.referTo", ""));
    const auto refuse = [&](const char* in_szWhy, const ConnectionFailureType& in_failure)
    {
        QLOG_INFO(m_logger,
                  "transfer to " << referTo.m_strUri << " refused (" << Sip::getResponseCode(in_failure)
                                 << "): " << in_szWhy);
        io_asking.transferFailed(in_failure);
        m_owner.transferEnded(true, false);
    };
    if (m_state != CallState::ANSWERED || (&io_asking != m_pFirst && &io_asking != m_pSecond))
    {
        refuse("the party does not talk", eUNAVAILABLE_FAILURE);
        return;
    }
    if (m_transfer.has_value())
    {
        refuse("another transfer of the call is under way", failure(eBUSY_FAILURE, 491));
        return;
    }
    if (!m_owner.takesCalls())
    {
        refuse("no calls are taken", eUNAVAILABLE_FAILURE);
        return;
    }
    CallEnd* pOther = otherEnd(io_asking);
    const CallLegInfo offer =
        makeOffer(in_leg, referTo.m_strUri, (pOther != nullptr ? *pOther : io_asking).getUri());
    const std::shared_ptr<const Route> pRoute = m_owner.findRoute(offer);
    const std::string strTransport =
        referTo.hasReplaces() ? m_owner.getTransportToSelf(referTo.m_strUri) : std::string();
    std::vector<CallLegInfo> vLegs = makeLegs(offer, referTo, strTransport, pRoute.get());
    if (pRoute == nullptr && vLegs.empty())
    {
        refuse("no route", eINVALID_NUMBER_FAILURE);
        return;
    }
    const std::string strRoute = pRoute != nullptr ? pRoute->getName() : "";
    QLOG_INFO(m_logger, "transfer to " << referTo.m_strUri << ": route " << strRoute);
    m_transfer = Transfer{pOther != nullptr ? &io_asking : nullptr, &io_asking, true, false, nullptr, pRoute};
    if (vLegs.empty())
    {
        transferToService();
        return;
    }
    m_transfer->m_pParty = callParty(std::move(vLegs), strRoute);
    if (m_transfer->m_pParty == nullptr)
    {
        transferFailed(eUNAVAILABLE_FAILURE);
    }
}

std::string GatewayCall::transfer(CallLegInfo in_leg)
{
    if (m_transfer.has_value())
    {
        return "Another transfer of the call is under way.";
    }
    if (in_leg.getParameterOr("sip.out.from.uri", "").empty())
    {
        in_leg.setParameter("sip.out.from.uri", m_pFirst->getUri());
    }
    QLOG_INFO(m_logger,
              "transfer to " << in_leg.getParameterOr("sip.out.requestUri", "") << " for an operator");
    m_transfer = Transfer{m_pSecond, nullptr, false, false, nullptr, nullptr};
    m_transfer->m_pParty = callParty({std::move(in_leg)}, "api");
    if (m_transfer->m_pParty == nullptr)
    {
        m_transfer.reset();
        return "There is no network interface that places calls.";
    }
    return "";
}

void GatewayCall::transferAlerting(RingType in_ringType)
{
    if (!std::exchange(m_transfer->m_bAlerted, true) && m_transfer->m_pAsking != nullptr)
    {
        m_transfer->m_pAsking->transferAccepted(in_ringType);
    }
}

void GatewayCall::transferToService()
{
    const Route& route = *m_transfer->m_pRoute;
    const auto after = [this](unsigned int in_uiMs, const EngineLoop::Job& in_job)
    {
        if (in_uiMs == 0)
        {
            in_job();
            return;
        }
        m_transferTimer = m_loop.schedule(in_uiMs,
                                          [this, in_job]
                                          {
                                              m_transferTimer = EngineLoop::kNoTimer;
                                              in_job();
                                          });
    };
    if (route.getService() == Route::Service::REJECT)
    {
        after(route.getAnswerAfterMs(),
              [this, &route] { transferFailed(failure(route.getRejectFailure(), route.getRejectStatus())); });
        return;
    }
    if (route.getRinging() != Route::Ringing::NONE)
    {
        transferAlerting(eRING_WITHOUT_EARLY_MEDIA);
    }
    if (route.getService() != Route::Service::RING)
    {
        after(route.getAnswerAfterMs(), [this] { transferDone(); });
    }
    else if (route.getHangupAfterMs() > 0)
    {
        after(route.getHangupAfterMs(), [this] { transferFailed(eNO_ANSWER_FAILURE); });
    }
}

void GatewayCall::transferDone()
{
    const std::shared_ptr<const Route> pRoute = m_transfer->m_pRoute;
    if (m_transfer->m_pParty == nullptr && !startService(*pRoute))
    {
        transferFailed(eMEDIA_FAILURE);
        return;
    }
    const Transfer transfer = *std::exchange(m_transfer, std::nullopt);
    if (transfer.m_pParty != nullptr)
    {
        detachService();
        m_bServed = false;
    }
    if (transfer.m_pLeaving == m_pFirst && m_pSecond != nullptr)
    {
        m_pFirst = m_pSecond;
    }
    m_pSecond = transfer.m_pParty;
    m_loop.cancel(m_timer);
    if (pRoute != nullptr)
    {
        hangupAfter(*pRoute);
    }
    QLOG_INFO(m_logger, "transferred");
    m_owner.transferEnded(transfer.m_bByParty, true);
    if (transfer.m_pAsking != nullptr)
    {
        transfer.m_pAsking->transferSucceeded();
    }
    if (transfer.m_pLeaving == nullptr)
    {
        if (transfer.m_pAsking != nullptr)
        {
            // It has nobody to leave to: it is the one who talks to the new party.
            transfer.m_pAsking->resume();
        }
        return;
    }
    if (transfer.m_pAsking == nullptr)
    {
        transfer.m_pLeaving->hangup(CallRecord::EndedBy::LOCAL);
        return;
    }
    if (m_pLeaving != nullptr)
    {
        m_loop.cancel(m_leaveTimer);
        m_pLeaving->hangup(CallRecord::EndedBy::LOCAL);
    }
    m_pLeaving = transfer.m_pLeaving;
    m_leaveTimer = m_loop.schedule(kLeaveMs,
                                   [this]
                                   {
                                       m_leaveTimer = EngineLoop::kNoTimer;
                                       std::exchange(m_pLeaving, nullptr)->hangup(CallRecord::EndedBy::LOCAL);
                                   });
}

void GatewayCall::transferFailed(const ConnectionFailureType& in_failure)
{
    m_loop.cancel(m_transferTimer);
    const Transfer transfer = *std::exchange(m_transfer, std::nullopt);
    QLOG_INFO(m_logger, "transfer failed (" << Sip::getResponseCode(in_failure) << ')');
    m_owner.transferEnded(transfer.m_bByParty, false);
    if (transfer.m_pAsking != nullptr)
    {
        transfer.m_pAsking->transferFailed(in_failure);
    }
    if (m_pSecond == nullptr && !m_bServed)
    {
        // Who asked has left meanwhile, and nobody is there to talk to.
        end(CallRecord::EndedBy::LOCAL);
    }
}

}  // namespace Quorvex
