#include "CallbackHelper.h"

#include "SipEvents.h"
#include "SipLeg.h"
#include "VoipMedia.h"
#include "VoipStateMachine.h"
#include "infra/Assertion.h"
#include "infra/TraceScope.h"

namespace Quorvex
{

bool CallbackHelper::relayMediaOpEvent(const VoipEvent& in_event, SipLeg* in_pSipLeg)
{
    const Logger& logger = getVoipStateMachineLogger();
    TRACE_SCOPE(logger, "CallbackHelper::relayMediaOpEvent");
    const auto* pEvent = dynamic_cast<const VoipOpStatusMediaEvent*>(&in_event);
    if (!QUORVEX_ASSERT_TEXT(logger, pEvent != nullptr, "pEvent != 0"))
    {
        return false;
    }
    QLOG_DEBUG(logger, "CallbackHelper::relayMediaOpEvent : Relaying media event: " << in_event);
    if (pEvent->getOpStatus() != MediaEndpointCallback::SUCCESS_STATUS)
    {
        QLOG_ERROR(logger, "CallbackHelper::relayMediaOpEvent : Error received from media " << in_event);
        return false;
    }
    static_cast<void>(in_pSipLeg->getMedia().relayMediaOpEvent(pEvent));
    return true;
}

bool CallbackHelper::relayCapacityMediaEvent(const VoipEvent& in_event, SipLeg* in_pSipLeg)
{
    const Logger& logger = getVoipStateMachineLogger();
    TRACE_SCOPE(logger, "CallbackHelper::relayCapacityMediaEvent");
    const auto* pEvent = dynamic_cast<const VoipSetCapacityMediaEvent*>(&in_event);
    if (!QUORVEX_ASSERT_TEXT(logger, pEvent != nullptr, "pEvent != 0"))
    {
        return false;
    }
    std::unique_ptr<MediaEndpointCapacity> pCapacity = pEvent->takeCapacity();
    if (!pCapacity)
    {
        QLOG_WARN(logger, "Media endpoint capacity not set " << in_event);
        return false;
    }
    static_cast<void>(in_pSipLeg->getMedia().setCapacity(
        pEvent->getStreamId(), pEvent->getDirection(), pCapacity.release()));
    return true;
}

bool StartAllCallbackHelper::relayMediaOpEvent(const VoipEvent& in_event,
                                               SipLeg* in_pSipLeg,
                                               std::string& out_strStateName)
{
    if (!relayMediaOpEvent(in_event, in_pSipLeg))
    {
        QLOG_ERROR(getVoipStateMachineLogger(),
                   "StartAllCallbackHelper::relayMediaOpEvent : Error relaying media event.");
        return false;
    }
    if (in_pSipLeg->getMedia().isAllStarted())
    {
        finalExecution(out_strStateName, in_pSipLeg);
    }
    return true;
}

bool GetAllCapacitiesCallbackHelper::relayCapacityMediaEvent(const VoipEvent& in_event,
                                                             SipLeg* in_pSipLeg,
                                                             std::string& out_strStateName)
{
    if (!relayCapacityMediaEvent(in_event, in_pSipLeg))
    {
        QLOG_WARN(getVoipStateMachineLogger(), "Error relaying media event.");
        return false;
    }
    if (in_pSipLeg->getMedia().allCapacitiesReceived())
    {
        finalExecution(out_strStateName, in_pSipLeg);
    }
    return true;
}

template <class CallType>
bool ByeHelper<CallType>::respondToBye(const VoipEvent& in_event, SipLeg* in_pSipLeg)
{
    const Logger& logger = getVoipStateMachineLogger();
    TRACE_SCOPE(logger, "ByeHelper::respondToBye");
    const auto* pEvent = dynamic_cast<const BYERequestEvent<CallType>*>(&in_event);
    if (!QUORVEX_ASSERT_TEXT(logger, pEvent != nullptr, "pEvent != 0"))
    {
        return false;
    }
    return in_pSipLeg->respondToBye(pEvent->getCall(), pEvent->getDialog(), pEvent->getRequest());
}

template class ByeHelper<DsHandle<DsSipIncomingCall>>;
template class ByeHelper<DsHandle<DsSipOutgoingCall>>;

}  // namespace Quorvex
