// What the dialogs of an outbound call report, passed on to its user.

#include <algorithm>

#include "sipstack/DsSipAckMessage.h"
#include "sipstack/DsSipInviteMessage.h"
#include "sipstack/DsSipOutgoingCall.h"
#include "sipstack/DsSipOutgoingCallinterface.h"
#include "sipstack/DsSipRequest.h"
#include "sipstack/DsSipResponse.h"
#include "sipstack/DsSipServerTransaction.h"
#include "sipstack/base/DialogCore.h"
#include "sipstack/base/OutgoingCallCore.h"
#include "sipstack/base/SipAgent.h"

namespace Quorvex
{

void OutgoingCallCore::takeDialog(const std::shared_ptr<DialogCore>& in_pDialog)
{
    const std::lock_guard<std::recursive_mutex> lock(m_hCall->m_mutex);
    m_vDialogs.push_back(in_pDialog);
    m_pDialog = in_pDialog;
    m_hCall->m_vDialogs.insert(m_hCall->m_vDialogs.begin(), in_pDialog->getHandle());
}

void OutgoingCallCore::onReplacesAck(DialogCore& in_dialog, const DsHandle<DsSipAckMessage>& in_hAck)
{
    reports().reinviteAck(m_hCall, in_dialog.getHandle(), in_hAck);
}

void OutgoingCallCore::onDialogBye(DialogCore& in_dialog, const DsHandle<DsSipMessage>& in_hBye)
{
    if (&in_dialog != m_pDialog.get())
    {
        m_agent.post([dialog = in_dialog.shared_from_this()] { dialog->hangup(DsHandle<DsSipRequest>()); });
        return;
    }
    m_state = State::eEnding;
    m_cancelTimer.stop();
    report(in_hBye);
}

void OutgoingCallCore::onDialogByeAnswered(DialogCore& in_dialog, const DsHandle<DsSipMessage>& in_hResponse)
{
    if (&in_dialog == m_pDialog.get())
    {
        report(in_hResponse);
        close();
        return;
    }
    onDialogEnded(in_dialog);
}

void OutgoingCallCore::onDialogEnded(DialogCore& in_dialog)
{
    if (&in_dialog == m_pDialog.get())
    {
        close();
        return;
    }
    {
        const std::lock_guard<std::recursive_mutex> lock(m_hCall->m_mutex);
        std::erase(m_hCall->m_vDialogs, in_dialog.getHandle());
    }
    std::erase_if(m_vDialogs, [&](const auto& in_pDialog) { return in_pDialog.get() == &in_dialog; });
}

void OutgoingCallCore::onDialogLost(DialogCore& in_dialog)
{
    if (&in_dialog == m_pDialog.get())
    {
        m_state = State::eEnding;
        report(DsHandle<DsSipMessage>());
    }
}

void OutgoingCallCore::onDialogRequest(DialogCore& in_dialog,
                                       const DsHandle<DsSipServerTransaction>& in_hTransaction,
                                       const DsHandle<DsSipRequest>& in_hRequest)
{
    reports().unknownRequest(m_hCall, in_dialog.getHandle(), in_hTransaction, in_hRequest);
}

void OutgoingCallCore::onDialogRefer(DialogCore& in_dialog,
                                     const DsHandle<DsSipServerTransaction>& in_hTransaction,
                                     const DsHandle<DsSipRequest>& in_hRequest)
{
    reports().referRequest(m_hCall, in_dialog.getHandle(), in_hTransaction, in_hRequest);
}

void OutgoingCallCore::onDialogNotify(DialogCore& in_dialog,
                                      const DsHandle<DsSipServerTransaction>& in_hTransaction,
                                      const DsHandle<DsSipRequest>& in_hRequest)
{
    reports().notifyRequest(m_hCall, in_dialog.getHandle(), in_hTransaction, in_hRequest);
}

void OutgoingCallCore::onDialogReferResponse(DialogCore& in_dialog,
                                             const DsHandle<DsSipResponse>& in_hResponse)
{
    reports().referResponse(m_hCall, in_dialog.getHandle(), in_hResponse);
}

void OutgoingCallCore::onDialogNotifyResponse(DialogCore& in_dialog,
                                              const DsHandle<DsSipResponse>& in_hResponse)
{
    reports().notifyResponse(m_hCall, in_dialog.getHandle(), in_hResponse);
}

void OutgoingCallCore::onDialogReinvite(DialogCore& in_dialog, const DsHandle<DsSipInviteMessage>& in_hInvite)
{
    reports().reinviteRequest(m_hCall, in_dialog.getHandle(), in_hInvite);
}

void OutgoingCallCore::onDialogReinviteCancel(DialogCore& in_dialog, const DsHandle<DsSipRequest>& in_hCancel)
{
    reports().reinviteCancel(m_hCall, in_dialog.getHandle(), in_hCancel);
}

void OutgoingCallCore::onDialogReinviteResponse(DialogCore& in_dialog,
                                                const DsHandle<DsSipResponse>& in_hResponse)
{
    reports().reinviteResponse(m_hCall, in_dialog.getHandle(), in_hResponse);
}

void OutgoingCallCore::onDialogReinviteAck(DialogCore& in_dialog, const DsHandle<DsSipAckMessage>& in_hAck)
{
    reports().reinviteAck(m_hCall, in_dialog.getHandle(), in_hAck);
}

void OutgoingCallCore::onDialogReinviteTimeOut(DialogCore& in_dialog,
                                               const DsHandle<DsSipInviteMessage>& in_hInvite)
{
    reports().reinviteTimeOut(m_hCall, in_dialog.getHandle(), in_hInvite);
}

void OutgoingCallCore::onDialogSessionTimeOut(DialogCore& in_dialog)
{
    reports().onSessionTimeOut(m_hCall, in_dialog.getHandle());
}

void OutgoingCallCore::onDialogSessionRefresh(DialogCore& in_dialog)
{
    reports().onSessionRefreshTime(m_hCall, in_dialog.getHandle());
}

void OutgoingCallCore::onDialogReplaces(DialogCore& in_replaced,
                                        DialogCore& in_new,
                                        const DsHandle<DsSipInviteMessage>& in_hInvite)
{
    reports().replacesDialog(m_hCall, in_replaced.getHandle(), in_new.getHandle(), in_hInvite);
}

bool OutgoingCallCore::isInviteUnfinished(const DialogCore& in_dialog) const
{
    return m_state == State::eCalling || isOfferUnfinished(in_dialog);
}

}  // namespace Quorvex
