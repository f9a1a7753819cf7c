#include "VoipStateMachine.h"

#include <ace/OS_NS_sys_time.h>

#include <array>
#include <ctime>
#include <ostream>

#include "DsVoipGatewayNetIf.h"
#include "SipLeg.h"
#include "infra/Assertion.h"
#include "infra/TraceScope.h"
#include "infra/UUID.h"
#include "quorvex/CallInterface.h"

namespace Quorvex
{

namespace
{

std::string localTimeText()
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    std::array<char, 256> szText{};
    return std::string(szText.data(), std::strftime(szText.data(), szText.size(), "%c", &local));
}

}  // namespace

const Logger& getVoipStateMachineLogger()
{
    static const StaticLogger s_logger("quorvex.voip.VoipStateMachine");
    return s_logger;
}

VoipStateMachineNoT::VoipStateMachineNoT() : m_strUUID(UUID().toString()), m_msgLogger("quorvex.sip.message")
{
}

VoipStateMachineNoT::~VoipStateMachineNoT() = default;

void VoipStateMachineNoT::done()
{
    m_pSipLeg.reset();
}

void VoipStateMachineNoT::configure(const Handle<ROConfiguration>& in_hConfig,
                                    LimitedObjPtr<DsVoipGatewayNetIf> in_pNetIf)
{
    if (m_hConfig.get() != in_hConfig.get())
    {
        m_hConfig = in_hConfig;
    }
    m_pVoipGatewayNetIf = in_pNetIf;
}

void VoipStateMachineNoT::setSipLeg(SipLeg* in_pSipLeg)
{
    if (m_pSipLeg.get() != in_pSipLeg)
    {
        m_pSipLeg.reset(in_pSipLeg);
    }
}

template <class CallIfPtr>
VoipStateMachine<CallIfPtr>::VoipStateMachine(const CallLogger& in_logger)
    : ObjectWithLogger<CallLogger>(in_logger), Base(in_logger)
{
}

template <class CallIfPtr>
VoipStateMachine<CallIfPtr>::~VoipStateMachine() = default;

template <class CallIfPtr>
bool VoipStateMachine<CallIfPtr>::stop()
{
    return processEvent(VoipEvent(EventType::eAPI_STOP));
}

template <class CallIfPtr>
bool VoipStateMachine<CallIfPtr>::kill()
{
    return processEvent(VoipEvent(EventType::eAPI_KILL));
}

template <class CallIfPtr>
void VoipStateMachine<CallIfPtr>::setCallId(const char* in_szCallId)
{
    TRACE_SCOPE(this->getLogger(), "VoipStateMachine::setCallId");
    m_strCallId = in_szCallId;
    CallLogger& logger = this->getLogger();
    logger.refreshLevel();
    logger.clearLoggingIds();
    logger.callStart(m_strCallId);
    m_msgLogger.callStart(m_strCallId);
    m_msgLogger.refreshLevel();
    m_initTime = std::chrono::steady_clock::now();
    m_bDone = false;
}

template <class CallIfPtr>
bool VoipStateMachine<CallIfPtr>::processEvent(const VoipEvent& in_event)
{
    QLOG_DEBUG(this->getLogger(), "VoipStateMachine processing event " << in_event);
    if (m_msgLogger.isEnabled(eDEBUG_LEVEL))
    {
        if (const auto* pResponse = in_event.asSipResponseEvent();
            pResponse != nullptr && !pResponse->getResponse().isNil())
        {
            QLOG_DEBUG(m_msgLogger, "Received SIP response:\n" << *pResponse->getResponse());
        }
        else if (const auto* pRequest = dynamic_cast<const RequestEvent*>(&in_event);
                 pRequest != nullptr && !pRequest->getRequest().isNil())
        {
            QLOG_DEBUG(m_msgLogger, "Received SIP request:\n" << *pRequest->getRequest());
        }
    }
    return Base::processEvent(in_event);
}

template <class CallIfPtr>
bool VoipStateMachine<CallIfPtr>::processTimeout(const ACE_Time_Value& in_expiryTime, TimeoutData* in_pData)
{
    return processEvent(VoipTimeoutEvent(in_expiryTime, in_pData));
}

template <class CallIfPtr>
void VoipStateMachine<CallIfPtr>::done()
{
    TRACE_SCOPE(this->getLogger(), "VoipStateMachine::done");
    if (m_bDone)
    {
        return;
    }
    // First, since letting go of the call engine and the leg may lead back here.
    m_bDone = true;
    CallLogger& logger = this->getLogger();
    QLOG_DEBUG(logger, "Clean up VoipStateMachine since we are done.");
    m_pCallIf = CallIfPtr();
    QLOG_INFO(logger, "sip call ended " << localTimeText());
    logger.callEnd();
    logger.clearLoggingIds();
    m_msgLogger.callEnd();
    if (m_pSipLeg)
    {
        m_pSipLeg->callEnd();
    }
    if (!m_pVoipGatewayNetIf.isNull())
    {
        m_pVoipGatewayNetIf->stateMachineOutOfService(*this);
    }
    VoipStateMachineNoT::done();
}

template <class CallIfPtr>
std::ostream& VoipStateMachine<CallIfPtr>::write(std::ostream& out_stream) const
{
    out_stream << "State machine for call " << this->getLogger().getCallId()
               << ", Current state: " << this->getCurrentStateName()
               << ", Unprocessed event queue size: " << this->getEventQueueSize();
    for (unsigned int i = 0; i < this->getEventQueueSize(); ++i)
    {
        const CountedObjPtr<VoipEvent>& pEvt = this->getQueuedEvent(i);
        if (QUORVEX_ASSERT(this->getLogger(), !pEvt.isNull()))
        {
            out_stream << ", Event " << i << " in queue = " << *pEvt;
        }
    }
    const auto age = std::chrono::steady_clock::now() - m_initTime;
    return out_stream << ", Initialized " << std::chrono::duration_cast<std::chrono::seconds>(age).count()
                      << " sec ago,"
                      << ", m_bDone=" << (m_bDone ? 1 : 0);
}

template class VoipStateMachine<CountedObjPtr<CallInInterface>>;
template class VoipStateMachine<CountedObjPtr<CallOutInterface>>;

}  // namespace Quorvex
