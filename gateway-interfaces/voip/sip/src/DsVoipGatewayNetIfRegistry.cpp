// The registry of the network interface: machines between acquire and release, and what is made for them.

#include "DsVoipGatewayNetIf.h"
#include "InStateMachine.h"
#include "OutSipLegInterfaceProxy.h"
#include "OutStateMachine.h"
#include "RtpCallbackProxy.h"
#include "VoipInCallLegProxy.h"
#include "VoipOutCallLegProxy.h"
#include "infra/Assertion.h"
#include "infra/ScratchMember.h"
#include "infra/TraceScope.h"
#include "media/MediaEngine.h"
#include "quorvex/CallInterface.h"

namespace Quorvex
{

// ------------------------------------------------------------------------------------------------- acquire,
// release

template <class Hash>
bool DsVoipGatewayNetIf::insertActive(Hash& io_hash, const typename Hash::mapped_type& in_pMachine)
{
    const ScratchMemberGuard scratchGuard(m_bScratchInUse);
    m_strScratch = in_pMachine->getUUID();
    io_hash.reserve(io_hash.size() + 1);
    return io_hash.try_emplace(m_strScratch, in_pMachine).second;
}

template <class Hash>
typename Hash::iterator DsVoipGatewayNetIf::findActive(Hash& io_hash, const char* in_szUUID)
{
    const ScratchMemberGuard scratchGuard(m_bScratchInUse);
    m_strScratch = in_szUUID;
    return io_hash.find(m_strScratch);
}

MOCallStatus DsVoipGatewayNetIf::acquireInStateMachine(InContainer& io_container,
                                                       std::uint32_t in_uiID,
                                                       const char* in_szCallId)
{
    TRACE_SCOPE(getLogger(), "DsVoipGatewayNetIf::acquireInStateMachine");
    const InContainer::ObjectPtr pInSM = m_inSMPool.acquire();
    pInSM->setCallId(in_szCallId);
    static_cast<void>(QUORVEX_ASSERT_TEXT(
        getLogger(),
        insertActive(m_activeInSMHash, pInSM),
        "m_activeInSMHash. insert(InSMHash::value_type(m_strScratch, pInSM)). second == true"));

    auto& proxyData = m_inSMPool.getProxyData(eLEG_PROXY);
    auto pInCallLeg = std::make_unique<VoipInCallLegProxy>(proxyData, getQueue(), proxyData, *this, pInSM);
    CountedObjPtr<CallInInterface> pCallIn;
    // Without a call engine the leg goes, and the machine turns the call away.
    if (QUORVEX_ASSERT_TEXT(getLogger(), !m_pCallEngine.isNull(), "m_pCallEngine.isNull() == false"))
    {
        pCallIn.reset(m_pCallEngine->newInCall(pInCallLeg.release(), pInSM->getCallId()));
    }

    pInSM->configure(m_hMachineConfig, this);
    if (!pInSM->initialize(pInSM, *this, pCallIn))
    {
        QLOG_ERROR(getLogger(), "Failed to initialize InStateMachine");
        return eMO_FAILED;
    }
    io_container.addObject(in_uiID, pInSM);
    addCallDataReference(*pInSM);
    QLOG_DEBUG(getLogger(),
               "acquireInStateMachine : " << m_activeInSMHash.size() << " active in state machine(s)."
                                          << " call-id=" << in_szCallId << " uuid=" << pInSM->getUUID());
    if (!isRunning())
    {
        QLOG_WARN(getLogger(), "in sip call rejected because not in the RUNNING state");
        static_cast<void>(pInSM->stop());
    }
    return eMO_DONE;
}

MOCallStatus DsVoipGatewayNetIf::acquireOutStateMachine(OutContainer& io_container,
                                                        std::uint32_t in_uiID,
                                                        CallOutInterface* in_pCallOutInterface,
                                                        const char* in_szCallId)
{
    TRACE_SCOPE(getLogger(), "DsVoipGatewayNetIf::acquireOutStateMachine");
    if (in_pCallOutInterface == nullptr)
    {
        return eMO_DONE;
    }
    if (!isRunning())
    {
        refuseOutCall(in_pCallOutInterface);
        return eMO_DONE;
    }
    const OutContainer::ObjectPtr pOutSM = m_outSMPool.acquire();
    pOutSM->setCallId(in_szCallId);
    static_cast<void>(QUORVEX_ASSERT_TEXT(
        getLogger(),
        insertActive(m_activeOutSMHash, pOutSM),
        "m_activeOutSMHash. insert(OutSMHash::value_type(m_strScratch, pOutSM)). second == true"));
    pOutSM->configure(m_hMachineConfig, this);
    if (!pOutSM->initialize(in_pCallOutInterface, *this))
    {
        QLOG_ERROR(getLogger(), "Failed to initialize OutStateMachine");
        if (const auto found = findActive(m_activeOutSMHash, pOutSM->getUUID());
            found != m_activeOutSMHash.end())
        {
            m_activeOutSMHash.erase(found);
        }
        return eMO_DONE;
    }
    io_container.addObject(in_uiID, pOutSM);
    addCallDataReference(*pOutSM);
    QLOG_DEBUG(getLogger(),
               "acquireOutStateMachine : " << m_activeOutSMHash.size() << " active out state machine(s)."
                                           << " call-id=" << in_szCallId << " uuid=" << pOutSM->getUUID());
    return eMO_DONE;
}

void DsVoipGatewayNetIf::refuseOutCall(CallOutInterface* in_pCallOutInterface)
{
    QLOG_WARN(getLogger(), "Out sip call rejected because the SIP provider is not in the RUNNING state");
    in_pCallOutInterface->connectFailed(ConnectionFailureType(eUNAVAILABLE_FAILURE));
    delete in_pCallOutInterface;
}

MOCallStatus DsVoipGatewayNetIf::releaseStateMachine(InContainer& io_container, std::uint32_t in_uiID)
{
    TRACE_SCOPE(getLogger(), "DsVoipGatewayNetIf::releaseStateMachine(inSM)");
    InContainer::ObjectPtr pInSM = io_container.getObject(in_uiID);
    io_container.releaseObject(in_uiID);
    if (pInSM.isNull())
    {
        return eMO_DONE;
    }
    QLOG_DEBUG(getLogger(),
               "DsVoipGatewayNetIf::releaseStateMachine(inSM)"
                   << " : call-id=" << pInSM->getCallId() << " uuid=" << pInSM->getUUID());
    const auto found = findActive(m_activeInSMHash, pInSM->getUUID());
    pInSM.reset();
    if (found == m_activeInSMHash.end())
    {
        QLOG_WARN(getLogger(), "unable to find in state machine in active hash");
    }
    else
    {
        takeBack(m_inSMPool, m_activeInSMHash, found, "InStateMachine");
    }
    QLOG_DEBUG(getLogger(), m_activeInSMHash.size() << " active in state machine(s)");
    return eMO_DONE;
}

MOCallStatus DsVoipGatewayNetIf::releaseStateMachine(OutContainer& io_container, std::uint32_t in_uiID)
{
    TRACE_SCOPE(getLogger(), "DsVoipGatewayNetIf::releaseStateMachine(outSM)");
    OutContainer::ObjectPtr pOutSM = io_container.getObject(in_uiID);
    io_container.releaseObject(in_uiID);
    if (pOutSM.isNull())
    {
        return eMO_DONE;
    }
    QLOG_DEBUG(getLogger(),
               "DsVoipGatewayNetIf::releaseStateMachine(outSM)"
                   << " : call-id=" << pOutSM->getCallId() << " uuid=" << pOutSM->getUUID());
    const auto found = findActive(m_activeOutSMHash, pOutSM->getUUID());
    pOutSM.reset();
    if (!QUORVEX_ASSERT(getLogger(), found != m_activeOutSMHash.end()))
    {
        return eMO_FAILED;
    }
    takeBack(m_outSMPool, m_activeOutSMHash, found, "OutStateMachine");
    QLOG_DEBUG(getLogger(), m_activeOutSMHash.size() << " active out state machine(s)");
    return eMO_DONE;
}

template <class Pool, class Hash>
void DsVoipGatewayNetIf::takeBack(Pool& io_pool,
                                  Hash& io_hash,
                                  typename Hash::iterator in_found,
                                  const char* in_szClass)
{
    auto& pMachine = in_found->second;
    if (!pMachine.unique())
    {
        QLOG_DEBUG(getLogger(),
                   "Pool did NOT take back " << in_szClass << " (" << pMachine->getCallId() << ")");
        return;
    }
    QLOG_DEBUG(getLogger(), "Pool took back an " << in_szClass << " (" << pMachine->getCallId() << ")");
    if (!pMachine->isInFinalState())
    {
        QLOG_WARN(getLogger(),
                  "Trying to release an outStateMachine that is not in a final state ("
                      << pMachine->getCallId() << ")");
        static_cast<void>(pMachine->kill());
    }
    // One that failed to initialize has no part in the call's record.
    if (pMachine->sharesCallData())
    {
        static_cast<void>(removeCallDataReference(*pMachine));
    }
    static_cast<void>(io_pool.giveBack(pMachine));
    io_hash.erase(in_found);
    if (QUORVEX_ASSERT_TEXT(getLogger(), m_uiNumSMOutOfService > 0, "m_uiNumSMOutOfService>0"))
    {
        --m_uiNumSMOutOfService;
    }
    QLOG_DEBUG(getLogger(), "Reducing the number of OOS state machine to:" << m_uiNumSMOutOfService);
    // A machine that never came to its end must not hold a stop up once it is gone.
    completeStopWhenOutOfService();
}

// ---------------------------------------------------------------------------------------------- what calls
// share

DsVoipGatewayNetIf::CallDataHash::iterator DsVoipGatewayNetIf::findCallData(const char* in_szCallId)
{
    const ScratchMemberGuard scratchGuard(m_bScratchInUse);
    m_strScratch = in_szCallId;
    return m_callDataHash.find(m_strScratch);
}

void DsVoipGatewayNetIf::addCallDataReference(VoipStateMachineNoT& io_machine)
{
    const ScratchMemberGuard scratchGuard(m_bScratchInUse);
    m_strScratch = io_machine.getCallId();
    m_callDataHash.reserve(m_callDataHash.size() + 1);
    auto& pCallData = m_callDataHash[m_strScratch];
    if (pCallData.isNull())
    {
        pCallData.reset(new CallData);
    }
    ++pCallData->m_uiNumSM;
    io_machine.setSharesCallData(true);
}

bool DsVoipGatewayNetIf::removeCallDataReference(VoipStateMachineNoT& io_machine)
{
    io_machine.setSharesCallData(false);
    const auto foundCall = findCallData(io_machine.getCallId());
    if (!QUORVEX_ASSERT_TEXT(getLogger(), foundCall != m_callDataHash.end(), "foundCall != end()") ||
        !QUORVEX_ASSERT(getLogger(), foundCall->second->m_uiNumSM > 0))
    {
        return false;
    }
    if (--foundCall->second->m_uiNumSM == 0)
    {
        m_callDataHash.erase(foundCall);
    }
    return true;
}

// ------------------------------------------------------------------------------------------- proxies and
// endpoints

OutCallLeg* DsVoipGatewayNetIf::getOutCallLeg(CallOutInterface* in_pCallOutInterface, const char* in_szCallId)
{
    TRACE_SCOPE(getLogger(), "DsVoipGatewayNetIf::getOutCallLeg");
    if (in_pCallOutInterface != nullptr && getTaskState() == STOPPED_STATE)
    {
        // Nothing would run the leg's method objects.
        refuseOutCall(in_pCallOutInterface);
        in_pCallOutInterface = nullptr;
    }
    auto& proxyData = m_outSMPool.getProxyData(eLEG_PROXY);
    return new VoipOutCallLegProxy(
        proxyData, getQueue(), proxyData, *this, in_pCallOutInterface, in_szCallId);
}

DsSipOutgoingCallinterface* DsVoipGatewayNetIf::newSipOutgoingCallinterface(const char* in_szUUID)
{
    TRACE_SCOPE(getLogger(), "DsVoipGatewayNetIf::newSipOutgoingCallinterface");
    const auto found = findActive(m_activeOutSMHash, in_szUUID);
    if (!QUORVEX_ASSERT(getLogger(), found != m_activeOutSMHash.end()))
    {
        return nullptr;
    }
    auto& proxyData = m_outSMPool.getProxyData(eSIP_PROXY);
    auto* pProxy = new OutSipLegInterfaceProxy(*this, proxyData, getQueue(), proxyData);
    proxyData.addObject(pProxy->getObjectID(), found->second);
    return pProxy;
}

template <class Machine, class Pool, class Hash>
MediaEndpointCallback* DsVoipGatewayNetIf::newMediaProxy(Pool& io_pool,
                                                         Hash& io_hash,
                                                         const Machine& in_machine,
                                                         std::uint32_t in_uiStreamId,
                                                         const char* in_szDirection)
{
    const auto found = findActive(io_hash, in_machine.getUUID());
    if (found == io_hash.end())
    {
        return nullptr;
    }
    QLOG_DEBUG(getLogger(), "Create the media proxy for " << in_szDirection << " call leg");
    auto& proxyData = io_pool.getProxyData(eMEDIA_PROXY);
    auto* pProxy = new RtpCallbackProxy<Machine>(*this, proxyData, getQueue(), proxyData, in_uiStreamId);
    proxyData.addObject(pProxy->getObjectID(), found->second);
    return pProxy;
}

MediaEndpointCallback* DsVoipGatewayNetIf::getMediaProxy(std::uint32_t in_uiStreamId,
                                                         const VoipStateMachineNoT* in_pStateMachine)
{
    TRACE_SCOPE(getLogger(), "DsVoipGatewayNetIf::getMediaProxy");
    QLOG_DEBUG(getLogger(), "Get the associated state machine pointer");
    MediaEndpointCallback* pProxy = nullptr;
    if (const auto* pOutSM = dynamic_cast<const OutStateMachine*>(in_pStateMachine))
    {
        QLOG_DEBUG(getLogger(), "Outgoing state machine");
        pProxy = newMediaProxy(m_outSMPool, m_activeOutSMHash, *pOutSM, in_uiStreamId, "out");
        static_cast<void>(
            QUORVEX_ASSERT_TEXT(getLogger(), pProxy != nullptr, "found != m_activeOutSMHash.end()"));
    }
    else if (const auto* pInSM = dynamic_cast<const InStateMachine*>(in_pStateMachine))
    {
        QLOG_DEBUG(getLogger(), "Ingoing state machine");
        pProxy = newMediaProxy(m_inSMPool, m_activeInSMHash, *pInSM, in_uiStreamId, "in");
        static_cast<void>(
            QUORVEX_ASSERT_TEXT(getLogger(), pProxy != nullptr, "found != m_activeInSMHash.end()"));
    }
    else
    {
        QLOG_ERROR(getLogger(), "Wrong state machine received.");
    }
    return pProxy;
}

MediaEndpoint* DsVoipGatewayNetIf::getEndpoint(const char* in_szCallId,
                                               std::uint32_t in_uiStreamId,
                                               const VoipStateMachineNoT* in_pStateMachine,
                                               Media::StreamMode in_mode,
                                               bool in_bRedirectReceive)
{
    TRACE_SCOPE(getLogger(), "DsVoipGatewayNetIf::getEndpoint");
    const auto foundCall = findCallData(in_szCallId);
    if (!QUORVEX_ASSERT(getLogger(), foundCall != m_callDataHash.end()))
    {
        return nullptr;
    }
    CallData& callData = *foundCall->second;
    if (!callData.m_bEptIdGenerated)
    {
        callData.m_bEptIdGenerated = true;
        callData.m_strEptId = m_pMediaEngine->generateEptId();
    }
    MediaEndpointCallback* pMediaProxy = getMediaProxy(in_uiStreamId, in_pStateMachine);
    if (!QUORVEX_ASSERT_TEXT(getLogger(), pMediaProxy != nullptr, "! pMediaProxy.isNull()"))
    {
        return nullptr;
    }
    if (in_bRedirectReceive)
    {
        return m_pMediaEngine->createEndpoint(
            pMediaProxy, in_szCallId, new RedirectRxEndpointSpec(callData.m_strEptId));
    }
    if (in_mode == Media::SENDONLY_MODE)
    {
        return m_pMediaEngine->createEndpoint(
            pMediaProxy, in_szCallId, new ForkTxEndpointSpec(callData.m_strEptId));
    }
    if (!callData.m_bSndRecvEndpointCreated)
    {
        callData.m_bSndRecvEndpointCreated = true;
        return m_pMediaEngine->createIdentifiedEndpoint(
            pMediaProxy, in_szCallId, callData.m_strEptId, new SndRecvEndpointSpec);
    }
    return m_pMediaEngine->createEndpoint(pMediaProxy, in_szCallId, new SndRecvEndpointSpec);
}

// ------------------------------------------------------------------------------------------------ ends and
// status

void DsVoipGatewayNetIf::stateMachineOutOfService(const VoipStateMachineNoT& in_stateMachine)
{
    TRACE_SCOPE(getLogger(), "DsVoipGatewayNetIf::stateMachineOutOfService");
    ++m_uiNumSMOutOfService;
    const std::size_t totalActiveSM = getNumActive();
    QLOG_DEBUG(getLogger(),
               "State machine " << in_stateMachine.getUUID() << " is out-of-service. There are "
                                << m_uiNumSMOutOfService << " OOS state machines on a total of "
                                << totalActiveSM << " active state machines");
    static_cast<void>(QUORVEX_ASSERT(getLogger(), m_uiNumSMOutOfService <= totalActiveSM));
    completeStopWhenOutOfService();
}

void DsVoipGatewayNetIf::completeStopWhenOutOfService()
{
    if (m_uiNumSMOutOfService == getNumActive() && getTaskState() == STOPPING_STATE && !m_bStopForwarded)
    {
        QLOG_DEBUG(getLogger(), "All Voip State Machine are out-of-service, stop is completed");
        m_bStopForwarded = true;
        UserDefHandlerOrderTaskManager::handleMOCallStop();
    }
}

void DsVoipGatewayNetIf::stopAllStateMachines()
{
    TRACE_SCOPE(getLogger(), "DsVoipGatewayNetIf::stopAllStateMachines");
    QLOG_DEBUG(getLogger(), m_activeInSMHash.size() << " active in state machine(s)");
    for (const auto& inSM : m_activeInSMHash)
    {
        if (QUORVEX_ASSERT_TEXT(getLogger(), !inSM.second.isNull(), "!inSMIter->second.isNull()"))
        {
            static_cast<void>(inSM.second->stop());
        }
    }
    QLOG_DEBUG(getLogger(), m_activeOutSMHash.size() << " active out state machine(s)");
    for (const auto& outSM : m_activeOutSMHash)
    {
        if (QUORVEX_ASSERT_TEXT(getLogger(), !outSM.second.isNull(), "!outSMIter->second.isNull()"))
        {
            static_cast<void>(outSM.second->stop());
        }
    }
}

void DsVoipGatewayNetIf::killAllStateMachines()
{
    const auto kill = [](const auto& in_hash)
    {
        for (const auto& machine : in_hash)
        {
            if (!machine.second->isInFinalState())
            {
                static_cast<void>(machine.second->kill());
            }
        }
    };
    kill(m_activeInSMHash);
    kill(m_activeOutSMHash);
}

void DsVoipGatewayNetIf::dropAllStateMachines()
{
    // Machines whose proxies others still hold. Releases that come later find nothing.
    if (getNumActive() != 0)
    {
        QLOG_INFO(getLogger(),
                  getNumActive() << " state machine(s) still held by others at the end of the run");
    }
    m_activeInSMHash.clear();
    m_activeOutSMHash.clear();
    m_inSMPool.clear();
    m_outSMPool.clear();
    m_callDataHash.clear();
    m_uiNumSMOutOfService = 0;
}

DsVoipGatewayNetIf::Population DsVoipGatewayNetIf::getPopulation() const
{
    return {m_activeInSMHash.size(),
            m_activeOutSMHash.size(),
            m_uiNumSMOutOfService,
            m_callDataHash.size(),
            m_inSMPool.getNumUnused(),
            m_outSMPool.getNumUnused()};
}

std::ostream& DsVoipGatewayNetIf::write(std::ostream& out_stream) const
{
    TRACE_SCOPE(getLogger(), "DsVoipGatewayNetIf::write");
    out_stream << "There are a total of " << m_activeInSMHash.size() << " active VOIP IN state machines, and "
               << m_activeOutSMHash.size() << " active VOIP OUT state machines. Of these, "
               << m_uiNumSMOutOfService << " are out-of-service.";
    out_stream << "In voip state machines:";
    for (const auto& inSM : m_activeInSMHash)
    {
        if (QUORVEX_ASSERT_TEXT(getLogger(), !inSM.second.isNull(), "!inSMIter->second.isNull()"))
        {
            inSM.second->write(out_stream);
        }
    }
    out_stream << "Out voip state machines:";
    for (const auto& outSM : m_activeOutSMHash)
    {
        if (QUORVEX_ASSERT_TEXT(getLogger(), !outSM.second.isNull(), "!outSMIter->second.isNull()"))
        {
            outSM.second->write(out_stream);
        }
    }
    return out_stream;
}

}  // namespace Quorvex
