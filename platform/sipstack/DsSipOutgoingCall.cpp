#include "sipstack/DsSipOutgoingCall.h"

#include "sipstack/DsException.h"
#include "sipstack/DsSipDialog.h"
#include "sipstack/DsSipInviteMessage.h"
#include "sipstack/DsSipOutgoingCallinterface.h"
#include "sipstack/DsSipStack.h"
#include "sipstack/base/OutgoingCallCore.h"
#include "sipstack/base/SipAgent.h"

namespace Quorvex
{

DsSipOutgoingCall::DsSipOutgoingCall(const DsHandle<DsSipInviteMessage>& in_hInvite,
                                     const DsHandle<DsSipOutgoingCallinterface>& in_hInterface)
    : m_strCallId(in_hInvite->getCallID().empty() ? SipAgent::newTag() : in_hInvite->getCallID()),
      m_hInterface(in_hInterface),
      m_hInvite(in_hInvite)
{
}

DsSipOutgoingCall::~DsSipOutgoingCall() = default;

DsHandle<DsSipOutgoingCall> DsSipOutgoingCall::create(
    const DsHandle<DsSipInviteMessage>& in_hInvite,
    const DsHandle<DsSipOutgoingCallinterface>& in_hInterface,
    CallLogger* in_pLogger,
    DsSipStack* in_pStack)
{
    if (in_hInvite.isNil() || in_hInterface.isNil())
    {
        throw DsException("an outgoing call needs an INVITE and an interface");
    }
    if (!in_hInvite->hasHeader("From") || !in_hInvite->hasHeader("To"))
    {
        throw DsException("an INVITE needs a From and a To header");
    }
    DsSipStack* const stack = in_pStack != nullptr ? in_pStack : DsSipStack::instance();
    if (stack == nullptr || !stack->isRunning() || stack->getAgent()->isDraining())
    {
        throw DsException("the SIP stack is not running, or is stopping");
    }
    const auto agent = stack->getAgent();
    DsHandle<DsSipOutgoingCall> call(new DsSipOutgoingCall(in_hInvite, in_hInterface));
    call->m_pCore = std::make_shared<OutgoingCallCore>(*agent, in_pLogger);
    if (!agent->post([core = call->m_pCore, call] { core->begin(call); }))
    {
        call->m_pCore->giveLoggerBack();
        throw DsException("the SIP stack is not running");
    }
    return call;
}

DsHandle<DsSipInviteMessage> DsSipOutgoingCall::getInvite() const
{
    const std::lock_guard<std::recursive_mutex> lock(m_mutex);
    return m_hInvite;
}

void DsSipOutgoingCall::hangup()
{
    m_pCore->postHangup();
}

DsHandle<DsSipDialog> DsSipOutgoingCall::getDialog(unsigned int in_uiIndex) const
{
    const std::lock_guard<std::recursive_mutex> lock(m_mutex);
    return in_uiIndex < m_vDialogs.size() ? m_vDialogs[in_uiIndex] : DsHandle<DsSipDialog>();
}

unsigned int DsSipOutgoingCall::getNumDialogs() const
{
    const std::lock_guard<std::recursive_mutex> lock(m_mutex);
    return static_cast<unsigned int>(m_vDialogs.size());
}

void DsSipOutgoingCall::acceptReplaces(const DsHandle<DsSipDialog>&,
                                       const DsHandle<DsSipDialog>& in_hNewDialog)
{
    m_pCore->postAcceptReplaces(in_hNewDialog);
}

void DsSipOutgoingCall::rejectReplaces(const DsHandle<DsSipDialog>&,
                                       const DsHandle<DsSipDialog>& in_hNewDialog)
{
    m_pCore->postRejectReplaces(in_hNewDialog);
}

}  // namespace Quorvex
