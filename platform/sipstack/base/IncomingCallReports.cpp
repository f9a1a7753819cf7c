// What the dialogs of an inbound call report, passed on to its user.

#include <algorithm>

#include "sipstack/DsSipAckMessage.h"
#include "sipstack/DsSipIncomingCall.h"
#include "sipstack/DsSipIncomingCallinterface.h"
#include "sipstack/DsSipInviteMessage.h"
#include "sipstack/DsSipRequest.h"
#include "sipstack/DsSipResponse.h"
#include "sipstack/DsSipServerTransaction.h"
#include "sipstack/base/DialogCore.h"
#include "sipstack/base/IncomingCallCore.h"
#include "sipstack/base/SipAgent.h"

namespace Quorvex
{

void IncomingCallCore::onDialogBye(DialogCore& in_dialog, const DsHandle<DsSipMessage>& in_hBye)
{
    if (&in_dialog != m_pDialog.get())
    {
        // A dialog that was replaced, and that both sides end: its BYE concerns nobody any more.
        m_agent.post([dialog = in_dialog.shared_from_this()] { dialog->hangup(DsHandle<DsSipRequest>()); });
        return;
    }
    if (m_state == State::eProceeding)
    {
        // A caller may end an early dialog with BYE; the INVITE is over with it (RFC 3261 15.1.2).
        m_uiFinalAsked = 487;
        replyFinally(SIP_487_REQUEST_CANCELLED);
        m_timer.stop();
        m_state = State::eEnding;
        // The user may have no use for it before the answer.
        in_dialog.answerByeWithin(m_agent.config().m_uiT1Ms);
        reports().terminated(m_hCall, in_hBye);
        return;
    }
    m_state = State::eEnding;
    report(in_hBye);
}

void IncomingCallCore::onDialogByeAnswered(DialogCore& in_dialog, const DsHandle<DsSipMessage>& in_hResponse)
{
    if (&in_dialog == m_pDialog.get())
    {
        report(in_hResponse);
        close();
    }
    else
    {
        std::erase_if(m_vReplaced,
                      [&](const auto& in_pReplaced) { return in_pReplaced.get() == &in_dialog; });
    }
}

void IncomingCallCore::onDialogEnded(DialogCore& in_dialog)
{
    if (&in_dialog == m_pDialog.get())
    {
        close();
    }
    else
    {
        std::erase_if(m_vReplaced,
                      [&](const auto& in_pReplaced) { return in_pReplaced.get() == &in_dialog; });
    }
}

void IncomingCallCore::onDialogLost(DialogCore& in_dialog)
{
    if (&in_dialog == m_pDialog.get())
    {
        m_state = State::eEnding;
        report(DsHandle<DsSipMessage>());
    }
}

void IncomingCallCore::onDialogRequest(DialogCore&,
                                       const DsHandle<DsSipServerTransaction>& in_hTransaction,
                                       const DsHandle<DsSipRequest>& in_hRequest)
{
    reports().unknownRequest(m_hCall, in_hTransaction, in_hRequest);
}

void IncomingCallCore::onDialogRefer(DialogCore&,
                                     const DsHandle<DsSipServerTransaction>& in_hTransaction,
                                     const DsHandle<DsSipRequest>& in_hRequest)
{
    reports().referRequest(m_hCall, in_hTransaction, in_hRequest);
}

void IncomingCallCore::onDialogNotify(DialogCore&,
                                      const DsHandle<DsSipServerTransaction>& in_hTransaction,
                                      const DsHandle<DsSipRequest>& in_hRequest)
{
    reports().notifyRequest(m_hCall, in_hTransaction, in_hRequest);
}

void IncomingCallCore::onDialogReferResponse(DialogCore&, const DsHandle<DsSipResponse>& in_hResponse)
{
    reports().referResponse(m_hCall, in_hResponse);
}

void IncomingCallCore::onDialogNotifyResponse(DialogCore&, const DsHandle<DsSipResponse>& in_hResponse)
{
    reports().notifyResponse(m_hCall, in_hResponse);
}

void IncomingCallCore::onDialogReinvite(DialogCore&, const DsHandle<DsSipInviteMessage>& in_hInvite)
{
    reports().reinviteRequest(m_hCall, in_hInvite);
}

void IncomingCallCore::onDialogReinviteCancel(DialogCore&, const DsHandle<DsSipRequest>& in_hCancel)
{
    reports().reinviteCancel(m_hCall, in_hCancel);
}

void IncomingCallCore::onDialogReinviteResponse(DialogCore&, const DsHandle<DsSipResponse>& in_hResponse)
{
    reports().reinviteResponse(m_hCall, in_hResponse);
}

void IncomingCallCore::onDialogReinviteAck(DialogCore&, const DsHandle<DsSipAckMessage>& in_hAck)
{
    reports().reinviteAck(m_hCall, in_hAck);
}

void IncomingCallCore::onDialogReinviteTimeOut(DialogCore&, const DsHandle<DsSipInviteMessage>& in_hInvite)
{
    reports().reinviteTimeOut(m_hCall, in_hInvite);
}

void IncomingCallCore::onDialogSessionTimeOut(DialogCore&)
{
    reports().onSessionTimeOut(m_hCall);
}

void IncomingCallCore::onDialogSessionRefresh(DialogCore&)
{
    reports().onSessionRefreshTime(m_hCall);
}

void IncomingCallCore::onDialogReplaces(DialogCore& in_replaced,
                                        DialogCore& in_new,
                                        const DsHandle<DsSipInviteMessage>& in_hInvite)
{
    reports().replacesDialog(m_hCall, in_replaced.getHandle(), in_new.getHandle(), in_hInvite);
}

bool IncomingCallCore::isInviteUnfinished(const DialogCore& in_dialog) const
{
    return m_state == State::eProceeding || m_state == State::eAccepted || isOfferUnfinished(in_dialog);
}

void IncomingCallCore::takeDialog(const std::shared_ptr<DialogCore>& in_pDialog)
{
    m_vReplaced.push_back(m_pDialog);
    const std::lock_guard<std::mutex> lock(copyMutex(*this));
    m_pDialog = in_pDialog;
}

void IncomingCallCore::onReplacesAck(DialogCore&, const DsHandle<DsSipAckMessage>& in_hAck)
{
    reports().callConfirmed(m_hCall, in_hAck);
}

}  // namespace Quorvex
