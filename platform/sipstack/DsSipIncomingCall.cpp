#include "sipstack/DsSipIncomingCall.h"

#include "sipstack/DsException.h"
#include "sipstack/DsSipAckMessage.h"
#include "sipstack/DsSipDialog.h"
#include "sipstack/DsSipIncomingCallinterface.h"
#include "sipstack/DsSipInviteMessage.h"
#include "sipstack/DsSipResponse.h"
#include "sipstack/base/CopyMutex.h"
#include "sipstack/base/IncomingCallCore.h"

namespace Quorvex
{

DsSipIncomingCall::DsSipIncomingCall(const DsHandle<DsSipInviteMessage>& in_hInvite,
                                     const DsHandle<DsSipIncomingCallinterface>& in_hInterface)
    : m_hInvite(in_hInvite), m_hInterface(in_hInterface)
{
    if (in_hInvite.isNil() || in_hInterface.isNil())
    {
        throw DsException("an incoming call needs its INVITE and an interface");
    }
}

DsSipIncomingCall::~DsSipIncomingCall() = default;

DsHandle<DsSipInviteMessage> DsSipIncomingCall::getInvite() const
{
    const std::lock_guard<std::mutex> lock(copyMutex(*this));
    return m_hInvite;
}

void DsSipIncomingCall::forgetInvite()
{
    DsHandle<DsSipInviteMessage> hForgotten;
    const std::lock_guard<std::mutex> lock(copyMutex(*this));
    hForgotten.swap(m_hInvite);
}

IncomingCallCore& DsSipIncomingCall::core() const
{
    if (!m_pCore)
    {
        throw DsException("the call has not been handed to the stack");
    }
    return *m_pCore;
}

void DsSipIncomingCall::answer(const DsHandle<DsSipResponse>& in_hResponse)
{
    core().postAnswer(in_hResponse, false);
}

void DsSipIncomingCall::sendReliableProvisionalResponse(const DsHandle<DsSipResponse>& in_hResponse)
{
    core().postAnswer(in_hResponse, true);
}

void DsSipIncomingCall::hangup()
{
    core().postHangup();
}

DsHandle<DsSipDialog> DsSipIncomingCall::getDialog() const
{
    return m_pCore ? m_pCore->getDialog() : DsHandle<DsSipDialog>();
}

unsigned int DsSipIncomingCall::getFinalStatus() const
{
    return m_pCore ? m_pCore->getFinalStatus() : 0;
}

DsHandle<DsSipDialog> DsSipIncomingCall::dialog() const
{
    auto dialog = core().getDialog();
    if (dialog.isNil())
    {
        throw DsException("the call is over");
    }
    return dialog;
}

void DsSipIncomingCall::respondToReinvite(const DsHandle<DsSipResponse>& in_hResponse)
{
    dialog()->respondToReinvite(in_hResponse);
}

void DsSipIncomingCall::respondToBye(const DsHandle<DsSipResponse>& in_hResponse)
{
    if (!core().isByeAnsweredByStack())
    {
        dialog()->respondToBye(in_hResponse);
    }
}

void DsSipIncomingCall::ackReinvite(const DsHandle<DsSipAckMessage>& in_hAck)
{
    dialog()->ackReinvite(in_hAck);
}

void DsSipIncomingCall::acceptReplaces(const DsHandle<DsSipDialog>&,
                                       const DsHandle<DsSipDialog>& in_hNewDialog)
{
    core().postAcceptReplaces(in_hNewDialog);
}

void DsSipIncomingCall::rejectReplaces(const DsHandle<DsSipDialog>&,
                                       const DsHandle<DsSipDialog>& in_hNewDialog)
{
    core().postRejectReplaces(in_hNewDialog);
}

}  // namespace Quorvex
