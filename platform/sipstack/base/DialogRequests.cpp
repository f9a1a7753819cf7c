// The requests of a dialog other than INVITE, in both directions.

#include "infra/Logger.h"
#include "sipstack/DsException.h"
#include "sipstack/DsSipInviteMessage.h"
#include "sipstack/DsSipRequest.h"
#include "sipstack/DsSipResponse.h"
#include "sipstack/DsSipServerTransaction.h"
#include "sipstack/base/DialogCore.h"
#include "sipstack/base/MessageBridge.h"
#include "sipstack/base/MessageClass.h"
#include "sipstack/base/ServerTransactionCore.h"
#include "sipstack/base/SipAgent.h"

namespace Quorvex
{

namespace
{

StaticLogger s_logger("quorvex.sip.Dialog");

}  // namespace

int DialogCore::onLegRequest(nta_leg_t*, nta_incoming_t* in_pIrq, const sip_t* in_pSip)
{
    const auto self = shared_from_this();
    const sip_method_t method = in_pSip->sip_request->rq_method;
    if (method == sip_method_ack)
    {
        return 481;  // nothing is sent for an ACK
    }
    if (method == sip_method_cancel)
    {
        return 481;
    }
    if (isLateCancel(in_pSip))
    {
        return 200;
    }
    if (m_state == State::eEnded || m_pOwner == nullptr || m_pByeIrq != nullptr)
    {
        return 481;
    }
    if (!m_agent.checkRequire(in_pIrq, in_pSip))
    {
        return 420;
    }
    if (method == sip_method_bye)
    {
        return onBye(in_pIrq);
    }
    if (m_pBye)
    {
        return 481;
    }
    if (method == sip_method_invite)
    {
        return onReinvite(in_pIrq, in_pSip);
    }
    return onOtherRequest(in_pIrq, in_pSip);
}

int DialogCore::onBye(nta_incoming_t* in_pIrq)
{
    if (m_pBye)
    {
        return 200;  // both hung up; the answer to ours ends the dialog
    }
    m_pByeIrq = in_pIrq;
    m_bByePending = true;
    m_state = State::eEnding;
    m_retryTimer.stop();
    m_session.stop();
    if (m_pReinviteIrq != nullptr)
    {
        if (!m_bReinviteAnswered)
        {
            nta_incoming_treply(m_pReinviteIrq, SIP_487_REQUEST_CANCELLED, TAG_END());
        }
        finishReinvite();
    }
    answerByeWithin(m_agent.timeoutMs());
    m_pOwner->onDialogBye(*this, m_agent.bridge().fromRequest(in_pIrq));
    return 0;
}

void DialogCore::answerByeWithin(unsigned int in_uiMs)
{
    m_byeTimer.start(m_agent.thread(), in_uiMs, [this] { answerBye(DsHandle<DsSipResponse>()); });
}

void DialogCore::answerBye(const DsHandle<DsSipResponse>& in_hResponse)
{
    if (m_pByeIrq == nullptr)
    {
        return;
    }
    const auto self = shared_from_this();
    if (in_hResponse.isNil())
    {
        m_bByeAnsweredByStack = true;
        nta_incoming_treply(m_pByeIrq, SIP_200_OK, TAG_END());
    }
    else
    {
        MessageBridge::reply(m_pByeIrq, in_hResponse);
        if (in_hResponse->getStatusCode() < 200)
        {
            return;
        }
    }
    nta_incoming_destroy(m_pByeIrq);
    m_pByeIrq = nullptr;
    m_bByePending = false;
    DialogOwner* const owner = m_pOwner;
    if (owner != nullptr)
    {
        owner->onDialogEnded(*this);
    }
    end();
}

int DialogCore::onOtherRequest(nta_incoming_t* in_pIrq, const sip_t* in_pSip)
{
    const auto request = m_agent.bridge().fromRequest(in_pIrq).dynamicCast<DsSipRequest>();
    const auto transaction = ServerTransactionCore::create(m_agent, in_pIrq, request);
    switch (in_pSip->sip_request->rq_method)
    {
        case sip_method_refer:
        {
            const auto hosts = SipAgent::unknownHosts(
                {in_pSip->sip_refer_to != nullptr ? in_pSip->sip_refer_to->r_url : nullptr,
                 in_pSip->sip_from->a_url,
                 in_pSip->sip_to->a_url});
            if (hosts.empty())
            {
                m_pOwner->onDialogRefer(*this, transaction, request);
                break;
            }
            m_agent.prefetchHosts(hosts,
                                  [self = shared_from_this(), transaction, request]
                                  {
                                      if (self->m_pOwner != nullptr)
                                      {
                                          self->m_pOwner->onDialogRefer(*self, transaction, request);
                                      }
                                  });
            break;
        }
        case sip_method_notify:
            if (in_pSip->sip_event != nullptr && in_pSip->sip_event->o_type != nullptr &&
                su_casematch(in_pSip->sip_event->o_type, "refer") != 0)
            {
                m_pOwner->onDialogNotify(*this, transaction, request);
                break;
            }
            [[fallthrough]];
        default:
            m_pOwner->onDialogRequest(*this, transaction, request);
            break;
    }
    return 0;
}

void DialogCore::onRequestOutcome(sip_method_t in_method, const sip_t* in_pSip)
{
    const auto self = shared_from_this();
    const bool internal = ClientRequest::isInternal(in_pSip);
    const int status = internal ? 408 : in_pSip->sip_status->st_status;
    if (!internal && status < 200)
    {
        return;
    }
    nta_outgoing_t* orq = nullptr;
    auto before = m_vRequests.before_begin();
    for (auto i = m_vRequests.begin(); i != m_vRequests.end(); before = i++)
    {
        nta_outgoing_t* const candidate = (*i)->get();
        if (candidate != nullptr && (nta_outgoing_status(candidate) >= 200))
        {
            orq = candidate;
            DsHandle<DsSipResponse> response;
            if (!internal)
            {
                response = m_agent.bridge().fromResponse(orq).dynamicCast<DsSipResponse>();
            }
            const auto request = std::move(*i);  // lives until the end of this function
            m_vRequests.erase_after(before);
            if (m_pOwner != nullptr && !response.isNil())
            {
                if (in_method == sip_method_notify)
                {
                    m_pOwner->onDialogNotifyResponse(*this, response);
                }
                else if (in_method == sip_method_refer)
                {
                    m_pOwner->onDialogReferResponse(*this, response);
                }
            }
            break;
        }
    }
    // RFC 3261 12.2.1.2: the far end does not know the dialog, or has gone. A 481 to a NOTIFY speaks of the
    // subscription only, which some end before we do; the call goes on (RFC 5057 5.1).
    const bool bSubscription = in_method == sip_method_notify && status == 481;
    if ((status == 481 || status == 408) && !bSubscription && m_state == State::eConfirmed)
    {
        lose("the far end does not know it any more, or has gone");
    }
}

void DialogCore::postRequest(const DsHandle<DsSipRequest>& in_hRequest)
{
    checkNotEnded();
    if (in_hRequest.isNil())
    {
        throw DsException("no request to send");
    }
    const auto agent = SipAgent::lock(m_pAgent);
    agent->post(
        [self = shared_from_this(), in_hRequest]
        {
            if (self->m_state != State::eConfirmed)
            {
                return;
            }
            const std::string name = in_hRequest->getMethod();
            const sip_method_t method = sip_method_code(name.c_str());
            auto request = std::make_unique<ClientRequest>([core = self.get(), method](const sip_t* in_pSip)
                                                           { core->onRequestOutcome(method, in_pSip); });
            ClientRequest& reference = *request;
            self->m_vRequests.push_front(std::move(request));
            if (!self->send(reference, method, name.c_str(), in_hRequest))
            {
                QLOG_ERROR(s_logger, "cannot send " << name << " in dialog " << self->m_strCallId);
                self->m_vRequests.pop_front();
            }
        });
}

void DialogCore::postByeResponse(const DsHandle<DsSipResponse>& in_hResponse)
{
    if (!in_hResponse.isNil() && m_bByeAnsweredByStack.load())
    {
        return;
    }
    if (in_hResponse.isNil() || !m_bByePending.load())
    {
        throw DsException("no BYE waits for an answer");
    }
    SipAgent::lock(m_pAgent)->post([self = shared_from_this(), in_hResponse]
                                   { self->answerBye(in_hResponse); });
}

}  // namespace Quorvex
