#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Script.h"
#include "sipstack/DsHandle.h"
#include "sipstack/DsSipDialog.h"
#include "sipstack/DsSipInviteMessage.h"
#include "sipstack/DsSipResponse.h"
#include "sipstack/DsSipServerTransaction.h"

namespace Quorvex
{

class DsSipCall;
class UserAgent;

extern const char* const kSdp;

/// What calls of both directions share: the steps of the script, and the account of closing reports. SIP
/// stack thread.
class Actor
{
public:
    Actor(UserAgent& in_agent, std::vector<Step> in_vSteps);
    virtual ~Actor();
    Actor(const Actor&) = delete;
    Actor& operator=(const Actor&) = delete;

    void hangup();

protected:
    /// The layer has taken the call: from here on it owes a closing report.
    void begun() { m_bBegun = true; }
    /// Does the next steps, up to one that has to wait.
    void proceed();
    /// Goes on when the step that it waits at is of this kind.
    void happened(Step::Kind in_kind);

    void takeReinvite(const DsHandle<DsSipDialog>& in_hDialog,
                      const DsHandle<DsSipInviteMessage>& in_hInvite);
    void takeReinviteResponse(const DsHandle<DsSipDialog>& in_hDialog,
                              const DsHandle<DsSipResponse>& in_hResponse);
    void takeRequest(const DsHandle<DsSipServerTransaction>& in_hTransaction,
                     const DsHandle<DsSipRequest>& in_hRequest,
                     unsigned int in_uiStatus);
    void takeTimeOut();

    /// Notes a report that closes the call; any other calls noteReport().
    void noteClosing();
    void noteReport();
    /// A BYE for a dialog that was never confirmed: the closing report may or may not follow.
    void noteEarlyBye() { m_bEarlyBye = true; }
    bool isHungUp() const { return m_bHungUp; }
    bool follows() const { return m_bFollow; }
    const std::vector<Step>& steps() const { return m_vSteps; }

    virtual DsHandle<DsSipCall> call() const = 0;
    virtual void answer(unsigned int in_uiStatus, bool in_bWithSdp, bool in_bReliable) = 0;
    virtual void redirect() = 0;

    /// Runs an operation of the layer and counts what it throws.
    void attempt(const std::function<void()>& in_operation);

    UserAgent& m_agent;

private:
    bool doStep(const Step& in_step);
    void later(unsigned int in_uiMs, void (Actor::*in_pDo)());

    const std::vector<Step> m_vSteps;
    std::size_t m_iNext = 0;
    bool m_bBegun = false;
    bool m_bWaiting = false;
    bool m_bHungUp = false;
    bool m_bFollow = false;
    bool m_bEarlyBye = false;
    unsigned int m_uiSlowMs = 0;
    unsigned int m_uiClosings = 0;
    bool m_bReportedAfterwards = false;
    std::shared_ptr<Actor*> m_pAlive;  // what waits for a timer asks it whether the actor is still there
};

}  // namespace Quorvex
