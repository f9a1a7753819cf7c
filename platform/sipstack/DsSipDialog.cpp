#include "sipstack/DsSipDialog.h"

#include "infra/Logger.h"
#include "sipstack/DsException.h"
#include "sipstack/DsSipAckMessage.h"
#include "sipstack/DsSipInviteMessage.h"
#include "sipstack/DsSipRequest.h"
#include "sipstack/DsSipResponse.h"
#include "sipstack/base/DialogCore.h"

namespace Quorvex
{

DsSipDialog::DsSipDialog(std::shared_ptr<DialogCore> in_pCore) : m_pCore(std::move(in_pCore))
{
}

DsSipDialog::~DsSipDialog() = default;

DsString DsSipDialog::getCallID() const
{
    return m_pCore->getCallId();
}

DsString DsSipDialog::getLocalTag() const
{
    return m_pCore->getLocalTag();
}

DsString DsSipDialog::getRemoteTag() const
{
    return m_pCore->getRemoteTag();
}

bool DsSipDialog::isActive() const
{
    const auto state = m_pCore->getState();
    return state == DialogCore::State::eEarly || state == DialogCore::State::eConfirmed;
}

DsHandle<DsSipRequest> DsSipDialog::createRequest(const DsString& in_strMethod) const
{
    return m_pCore->createRequest(in_strMethod);
}

void DsSipDialog::info(const DsHandle<DsSipRequest>& in_hInfo)
{
    m_pCore->postRequest(in_hInfo);
}

void DsSipDialog::notify(const DsHandle<DsSipRequest>& in_hNotify)
{
    m_pCore->postRequest(in_hNotify);
}

void DsSipDialog::refer(const DsHandle<DsSipRequest>& in_hRefer)
{
    m_pCore->postRequest(in_hRefer);
}

void DsSipDialog::reinvite(const DsHandle<DsSipInviteMessage>& in_hInvite)
{
    m_pCore->postReinvite(in_hInvite);
}

void DsSipDialog::ack(const DsHandle<DsSipAckMessage>& in_hAck)
{
    m_pCore->postAck(in_hAck);
}

void DsSipDialog::ackReinvite(const DsHandle<DsSipAckMessage>& in_hAck)
{
    m_pCore->postAck(in_hAck);
}

void DsSipDialog::respondToReinvite(const DsHandle<DsSipResponse>& in_hResponse)
{
    m_pCore->postReinviteResponse(in_hResponse);
}

void DsSipDialog::respondToBye(const DsHandle<DsSipResponse>& in_hResponse)
{
    m_pCore->postByeResponse(in_hResponse);
}

void DsSipDialog::sendResponse(const DsHandle<DsSipResponse>& in_hResponse)
{
    m_pCore->postInviteResponse(in_hResponse);
}

void DsSipDialog::hangup(const DsHandle<DsSipRequest>& in_hBye)
{
    m_pCore->postHangup(in_hBye);
}

void DsSipDialog::setLogger(CallLogger* in_pLogger)
{
    m_bLoggerIsSet.store(true, std::memory_order_release);
    m_pCore->setLogger(in_pLogger);
}

}  // namespace Quorvex
