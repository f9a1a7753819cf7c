#pragma once

#include "PluginExport.h"
#include "infra/Handle.h"
#include "infra/ROConfiguration.h"
#include "quorvex/GatewayNetIf.h"

namespace Quorvex
{

class DsVoipGatewayNetIf;

/// The SIP network interface for a gateway that links this library instead of loading it by LoadMethod: owns
/// one DsVoipGatewayNetIf and forwards every operation to it.
class QUORVEX_PLUGIN_EXPORT DsSipGatewayNetIf : public virtual OAMGatewayNetIf, public virtual ManageableTask
{
public:
    DsSipGatewayNetIf();
    DsSipGatewayNetIf(const DsSipGatewayNetIf&) = delete;
    DsSipGatewayNetIf& operator=(const DsSipGatewayNetIf&) = delete;
    ~DsSipGatewayNetIf() override;

    /// As LoadMethod configures: false, with the reason logged at ERROR, when it fails.
    virtual bool configure(const TSHandle<ROConfiguration>& in_hConfig);

    bool start() override;
    bool stop() override;
    bool kill() override;
    bool waitUntilDone() override;
    const char* getTaskName() const override;
    Task::State getTaskState() override;
    bool addTaskStateObserver(LimitedObjPtr<TaskStateObserver> in_pObserver, Task::State& out_state) override;
    bool removeTaskStateObserver(LimitedObjPtr<TaskStateObserver> in_pObserver) override;
    OutCallLeg* getOutCallLeg(CallOutInterface* in_pCallOutInterface, const char* in_szCallId) override;
    void setCallEngine(LimitedObjPtr<CallEngine> in_pCallEngine) override;
    bool setMediaEngine(const DynLibObjPtr<MediaEngine>& in_pMediaEngine) override;
    bool getOM(const char* in_szName, OMObserver* in_pObserver) override;
    bool executeCommand(const OAMCommand& in_command, OAMCmdExecObserver* in_pObserver) override;

private:
    DsVoipGatewayNetIf* m_pNetIf;
};

}  // namespace Quorvex
