#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "VoipEndpointFactory.h"
#include "infra/Handle.h"
#include "infra/LimitedObjPtr.h"
#include "infra/Logger.h"
#include "infra/MemAccount.h"
#include "infra/ROConfiguration.h"
#include "oam/OAMCmdExecuterTaskImpl.h"
#include "oam/OMReporterTaskImpl.h"
#include "quorvex/CountedClass.h"
#include "quorvex/GatewayNetIf.h"
#include "quorvex/TaskObjectPool.h"
#include "thread/TaskObjectProxy.h"
#include "thread/UserDefHandlerOrderTaskManager.h"

namespace Quorvex
{

class ClientRegistrationFactory;
class ClientRegistrator;
class DsSipOutgoingCallinterface;
class InStateMachine;
class MediaEndpointCallback;
class OutStateMachine;
class VoipStateMachineNoT;

/// The SIP network interface: a task of the gateway, the engine that places outbound calls, the owner of the
/// call machines, and the factory of their media endpoints.
///
/// Its life: constructor, configure(), setCallEngine(), start(); while it runs getOutCallLeg(), getOM(),
/// write(); stop() or kill(), waitUntilDone(), destructor. It may be configured and started again once it has
/// stopped. One instance per process: a second one is reported, and its configure() fails.
///
/// Threads: the gateway's thread does the above; everything else runs on the task's own thread, to which the
/// proxies of the SIP stack, the call engine and the media engine bring their calls as method objects. So
/// machines, pools and registries take no lock.
class DsVoipGatewayNetIf : public virtual OAMGatewayNetIf,
                           public virtual ManageableTask,
                           public VoipEndpointFactory,
                           public OutputStreamable,
                           protected OMReporterTaskImpl,
                           protected UserDefHandlerOrderTaskManager,
                           protected OAMCmdExecuterTaskImpl,
                           public ObjectWithLogger<LoggingIdLogger>,
                           private MaxCountClass<DsVoipGatewayNetIf, 1>
{
public:
    DsVoipGatewayNetIf();
    ~DsVoipGatewayNetIf() override;

    /// Loads the media engine named by "quorvex.sip.mediaLibName" (unless there is one already), makes it and
    /// the client registration the sub-tasks. False, with the reason logged at ERROR, when that fails. Only
    /// while the task is stopped; may be repeated.
    bool configure(const TSHandle<ROConfiguration>& in_hConfig) override;

    /// The call engine must outlive this object's run. Before start().
    void setCallEngine(LimitedObjPtr<CallEngine> in_pCallEngine) override;
    /// False while the task is not stopped. The next configure() takes this engine as its sub-task.
    bool setMediaEngine(const DynLibObjPtr<MediaEngine>& in_pMediaEngine) override;

    using UserDefHandlerOrderTaskManager::addTaskStateObserver;
    using UserDefHandlerOrderTaskManager::getTaskName;
    using UserDefHandlerOrderTaskManager::getTaskState;
    using UserDefHandlerOrderTaskManager::kill;
    using UserDefHandlerOrderTaskManager::removeTaskStateObserver;
    using UserDefHandlerOrderTaskManager::start;
    using UserDefHandlerOrderTaskManager::stop;
    using UserDefHandlerOrderTaskManager::waitUntilDone;

    /// Returns at once; the observer gets what write() writes, under any name, from the task's thread.
    bool getOM(const char* in_szName, OMObserver* in_pObserver) override;
    using OAMCmdExecuterTaskImpl::executeCommand;

    /// Any one thread (the call engine's). The leg, owned by the caller, acquires its machine on the task's
    /// thread before it carries out any command. The call-out interface is the leg's from now on; a leg that
    /// cannot be had (the task is not running) tells it connectFailed() with code 8 and deletes it.
    OutCallLeg* getOutCallLeg(CallOutInterface* in_pCallOutInterface, const char* in_szCallId) override;

    /// Task thread. The first send-and-receive endpoint of a call bears the call's endpoint identifier.
    MediaEndpoint* getEndpoint(const char* in_szCallId,
                               std::uint32_t in_uiStreamId,
                               const VoipStateMachineNoT* in_pStateMachine,
                               Media::StreamMode in_mode,
                               bool in_bRedirectReceive) override;

    /// The callback object for the outgoing call of the machine with that UUID, already bound to the machine
    /// and to be given to the SIP stack; null when there is no such machine. Task thread.
    DsSipOutgoingCallinterface* newSipOutgoingCallinterface(const char* in_szUUID);

    /// A machine has come to its end: called by it, once per call. During a stop the last one ends the run.
    void stateMachineOutOfService(const VoipStateMachineNoT& in_stateMachine);

    /// Asks every active machine to end its call.
    void stopAllStateMachines();

    /// How many machines are active and how many of them are done: all machines in full. Task thread (for
    /// others: getOM).
    std::ostream& write(std::ostream& out_stream) const override;

    using UserDefHandlerOrderTaskManager::getConfig;
    using UserDefHandlerOrderTaskManager::getConfigHandle;
    /// Any thread; the load of an atomic.
    using UserDefHandlerOrderTaskManager::getQueueLength;
    /// Where the machines' states schedule their timers. Task thread.
    using UserDefHandlerOrderTaskManager::getTimerScheduler;
    using UserDefHandlerOrderTaskManager::isTaskThread;

    /// What the registry holds. Task thread, or any while the task is stopped.
    struct Population
    {
        std::size_t m_activeIn;
        std::size_t m_activeOut;
        std::size_t m_outOfService;
        std::size_t m_calls;  ///< call identifiers in use
        std::size_t m_freeIn;
        std::size_t m_freeOut;
    };
    Population getPopulation() const;

protected:
    void onSvcEntry() override;
    void onSvcExit() override;
    void onStopCompleted() override;
    void handleMOCallStop() override;
    void handleMOCallKill() override;
    bool makeReport(const std::string& in_strName, std::string& out_strReport) const override;
    OAMCmdExecHandler findCmdExecHandler_i(const std::string& in_strName) override;
    std::vector<std::string> getSupportedCmdNames_i() const override;

private:
    // The proxies and their method objects.
    friend class NewSipCallInterface;
    friend class NetIfProbe;  // of the component tests
    friend class AcquireInStateMachine_MO;
    friend class AcquireOutStateMachine_MO;
    friend class InDestructor_MO;
    friend class OutDestructor_MO;
    template <class Machine>
    friend class ReleaseSameThread_MO;
    template <class Machine>
    friend class RtpCallbackProxy;

    using InContainer = TaskObjectContainer<InStateMachine>;
    using OutContainer = TaskObjectContainer<OutStateMachine>;
    using InPool = TaskObjectPool<InStateMachine, InStateMachine>;
    using OutPool = TaskObjectPool<OutStateMachine, OutStateMachine>;
    using InSMHash = std::unordered_map<std::string, InContainer::ObjectPtr>;
    using OutSMHash = std::unordered_map<std::string, OutContainer::ObjectPtr>;

    /// What the machines of one call identifier share.
    struct CallData
    {
        QUORVEX_MEM_ACCOUNT("CallData");

        std::uint32_t m_uiNumSM = 0;
        bool m_bEptIdGenerated = false;
        std::string m_strEptId;
        bool m_bSndRecvEndpointCreated = false;
    };
    using CallDataHash = std::unordered_map<std::string, CountedObjPtr<CallData>>;

    // The pools' containers, by the kind of proxy.
    enum ProxyKind : std::size_t
    {
        eLEG_PROXY = 0,
        eMEDIA_PROXY = 1,
        eNUM_IN_KINDS = 2,
        eSIP_PROXY = 2,
        eNUM_OUT_KINDS = 3
    };

    // For the proxies. Enqueue: 0, or -1 when the queue refused the method object, which is then deleted.
    int Enqueue(ACE_Method_Request* in_pMethodObject);
    using UserDefHandlerOrderTaskManager::getQueue;
    IDGenerator& getDsThreadSafeIDGenerator() { return m_idGenerator; }
    InContainer& getDsObjectContainer() { return m_dsObjectContainer; }
    MOCallStatus acquireInStateMachine(InContainer& io_container,
                                       std::uint32_t in_uiID,
                                       const char* in_szCallId);
    MOCallStatus acquireOutStateMachine(OutContainer& io_container,
                                        std::uint32_t in_uiID,
                                        CallOutInterface* in_pCallOutInterface,
                                        const char* in_szCallId);
    MOCallStatus releaseStateMachine(InContainer& io_container, std::uint32_t in_uiID);
    MOCallStatus releaseStateMachine(OutContainer& io_container, std::uint32_t in_uiID);
    MediaEndpointCallback* getMediaProxy(std::uint32_t in_uiStreamId,
                                         const VoipStateMachineNoT* in_pStateMachine);

    bool loadMediaEngine(const TSHandle<ROConfiguration>& in_hConfig);
    bool addSubTasks(const TSHandle<ROConfiguration>& in_hConfig);
    void publishTonePlayerFactory();
    void withdrawTonePlayerFactory();
    bool initializeSipStack();

    std::size_t getNumActive() const { return m_activeInSMHash.size() + m_activeOutSMHash.size(); }
    bool isRunning() { return getTaskState() == Task::RUNNING_STATE; }
    void completeStopWhenOutOfService();
    void refuseOutCall(CallOutInterface* in_pCallOutInterface);
    void killAllStateMachines();
    void dropAllStateMachines();

    template <class Hash>
    bool insertActive(Hash& io_hash, const typename Hash::mapped_type& in_pMachine);
    template <class Hash>
    typename Hash::iterator findActive(Hash& io_hash, const char* in_szUUID);
    template <class Pool, class Hash>
    void takeBack(Pool& io_pool,
                  Hash& io_hash,
                  typename Hash::iterator in_found,
                  const char* in_szArticleAndClass);
    template <class Machine, class Pool, class Hash>
    MediaEndpointCallback* newMediaProxy(Pool& io_pool,
                                         Hash& io_hash,
                                         const Machine& in_machine,
                                         std::uint32_t in_uiStreamId,
                                         const char* in_szDirection);
    void addCallDataReference(VoipStateMachineNoT& io_machine);
    bool removeCallDataReference(VoipStateMachineNoT& io_machine);
    CallDataHash::iterator findCallData(const char* in_szCallId);

    DynLibObjPtr<MediaEngine> m_pMediaEngine;
    OutPool m_outSMPool;
    OutSMHash m_activeOutSMHash;
    InPool m_inSMPool;
    InSMHash m_activeInSMHash;
    TaskObjectVector<InStateMachine> m_dsObjectContainer;
    TSStackIDGenerator m_idGenerator;
    LimitedObjPtr<CallEngine> m_pCallEngine;
    std::uint32_t m_uiNumSMOutOfService = 0;
    bool m_bStopForwarded = false;
    CountedObjPtr<ClientRegistrationFactory, TSReferenceCount> m_hClientRegFactory;
    std::unique_ptr<ClientRegistrator> m_pClientRegistrator;
    bool m_bTonePlayerFactoryRegistered = false;
    CallDataHash m_callDataHash;
    // What the machines are given: their copies cost no atomic operation.
    Handle<ROConfiguration> m_hMachineConfig;
    std::string m_strScratch;
    bool m_bScratchInUse = false;
};

}  // namespace Quorvex
