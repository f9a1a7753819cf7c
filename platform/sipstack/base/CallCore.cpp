#include "sipstack/base/CallCore.h"

#include <algorithm>

#include "infra/Logger.h"
#include "sipstack/DsException.h"
#include "sipstack/DsSipAckMessage.h"
#include "sipstack/DsSipDialog.h"
#include "sipstack/DsSipInviteMessage.h"
#include "sipstack/DsSipRequest.h"
#include "sipstack/DsSipResponse.h"
#include "sipstack/base/DialogCore.h"
#include "sipstack/base/SipAgent.h"

namespace Quorvex
{

namespace
{

StaticLogger s_logger("quorvex.sip.Replaces");

}  // namespace

/// One INVITE with Replaces, from its arrival to its ACK.
class CallCore::ReplacesOffer final : public IncomingHandler
{
public:
    ReplacesOffer(CallCore& in_call, nta_incoming_t* in_pIrq, std::shared_ptr<DialogCore> in_pNew)
        : m_call(in_call), m_pIrq(in_pIrq), m_pNew(std::move(in_pNew))
    {
        m_pNew->setInviteAnswer([this](const DsHandle<DsSipResponse>& in_hResponse)
                                { answer(in_hResponse); });
        nta_incoming_bind(in_pIrq, &IncomingHandler::callback, this);
        m_timer.start(m_call.m_agent.thread(),
                      m_call.m_agent.timerCMs(),
                      [this] { give(SIP_480_TEMPORARILY_UNAVAILABLE); });
    }
    ReplacesOffer(const ReplacesOffer&) = delete;
    ReplacesOffer& operator=(const ReplacesOffer&) = delete;
    ~ReplacesOffer()
    {
        m_timer.stop();
        m_pNew->setInviteAnswer(nullptr);
        if (m_pIrq != nullptr)
        {
            if (!m_bAnswered)
            {
                nta_incoming_treply(m_pIrq, SIP_603_DECLINE, TAG_END());
            }
            nta_incoming_destroy(m_pIrq);
        }
        if (!m_bAccepted)
        {
            // Without the user's word the dialog is nobody's. If it stands, its BYE goes its way alone.
            m_pNew->hangup(DsHandle<DsSipRequest>());
            m_pNew->end();
        }
    }

    const std::shared_ptr<DialogCore>& newDialog() const { return m_pNew; }

    void accept()
    {
        m_bAccepted = true;
        m_call.takeDialog(m_pNew);
    }

    void reject()
    {
        if (m_bAccepted)
        {
            return;
        }
        if (m_bAnswered)
        {
            m_call.removeOffer(*this);
        }
        else
        {
            give(SIP_603_DECLINE);
        }
    }

private:
    void answer(const DsHandle<DsSipResponse>& in_hResponse)
    {
        if (m_bAnswered)
        {
            return;
        }
        const auto status = in_hResponse->getStatusCode();
        m_pNew->rememberSdp(in_hResponse);
        MessageBridge::reply(m_pIrq,
                             in_hResponse,
                             status < 300 ? m_pNew->getContact() : std::string(),
                             status >= 200 && status < 300 ? m_pNew->acceptSession(m_pIrq) : std::string());
        if (status >= 300)
        {
            m_bAnswered = true;
            m_call.removeOffer(*this);
        }
        else if (status >= 200)
        {
            m_bAnswered = true;
            m_timer.stop();
            m_pNew->confirm();
        }
    }

    void give(int in_iStatus, const char* in_szPhrase)
    {
        nta_incoming_treply(m_pIrq, in_iStatus, in_szPhrase, TAG_END());
        m_bAnswered = true;
        m_call.removeOffer(*this);
    }

    void onIncoming(nta_incoming_t* in_pIrq, const sip_t* in_pSip) override
    {
        const auto call = m_call.shared_from_this();
        if (in_pSip == nullptr)
        {
            QLOG_INFO(s_logger, "dialog " << m_pNew->getCallId() << " is ended: no ACK for its 200");
            const auto dialog = m_pNew;
            call->removeOffer(*this);
            dialog->hangup(DsHandle<DsSipRequest>());
        }
        else if (in_pSip->sip_request->rq_method == sip_method_cancel && !m_bAnswered)
        {
            give(SIP_487_REQUEST_CANCELLED);
        }
        else if (in_pSip->sip_request->rq_method == sip_method_ack && m_bAnswered)
        {
            const auto ack = call->m_agent.bridge().fromAckOrCancel(in_pIrq).dynamicCast<DsSipAckMessage>();
            const auto dialog = m_pNew;
            const bool accepted = m_bAccepted;
            call->removeOffer(*this);
            if (accepted)
            {
                call->onReplacesAck(*dialog, ack);
            }
        }
    }

    CallCore& m_call;
    nta_incoming_t* m_pIrq;
    const std::shared_ptr<DialogCore> m_pNew;
    StackTimer m_timer;
    bool m_bAnswered = false;
    bool m_bAccepted = false;
};

CallCore::CallCore(SipAgent& in_agent) : m_agent(in_agent), m_pAgent(in_agent.weak_from_this())
{
}
CallCore::~CallCore() = default;

int CallCore::offerReplaces(DialogCore& in_replaced, nta_incoming_t* in_pIrq, const sip_t* in_pSip)
{
    const auto invite = m_agent.bridge().fromRequest(in_pIrq).dynamicCast<DsSipInviteMessage>();
    auto dialog = DialogCore::fromInvite(m_agent, *this, in_pIrq, in_pSip, invite->getLocalAddress());
    if (!dialog)
    {
        return 500;
    }
    m_vOffers.push_back(std::make_unique<ReplacesOffer>(*this, in_pIrq, dialog));
    onDialogReplaces(in_replaced, *dialog, invite);
    return 0;
}

CallCore::ReplacesOffer* CallCore::findOffer(const DsHandle<DsSipDialog>& in_hNewDialog)
{
    for (const auto& offer : m_vOffers)
    {
        if (offer->newDialog()->getHandle() == in_hNewDialog)
        {
            return offer.get();
        }
    }
    return nullptr;
}

void CallCore::removeOffer(const ReplacesOffer& in_offer)
{
    const auto i = std::find_if(m_vOffers.begin(),
                                m_vOffers.end(),
                                [&](const auto& in_pOffer) { return in_pOffer.get() == &in_offer; });
    if (i != m_vOffers.end())
    {
        const auto offer = std::move(*i);
        m_vOffers.erase(i);
    }
}

void CallCore::dropOffers()
{
    const auto offers = std::move(m_vOffers);
    m_vOffers.clear();
}

bool CallCore::isOfferUnfinished(const DialogCore& in_dialog) const
{
    return std::any_of(m_vOffers.begin(),
                       m_vOffers.end(),
                       [&](const auto& in_pOffer) { return in_pOffer->newDialog().get() == &in_dialog; });
}

void CallCore::postAcceptReplaces(const DsHandle<DsSipDialog>& in_hNewDialog)
{
    if (in_hNewDialog.isNil() || !in_hNewDialog->isActive())
    {
        throw DsException("no dialog has been offered in the place of another");
    }
    SipAgent::lock(m_pAgent)->post(
        [self = shared_from_this(), in_hNewDialog]
        {
            if (ReplacesOffer* const offer = self->findOffer(in_hNewDialog))
            {
                offer->accept();
            }
        });
}

void CallCore::postRejectReplaces(const DsHandle<DsSipDialog>& in_hNewDialog)
{
    if (in_hNewDialog.isNil())
    {
        throw DsException("no dialog has been offered in the place of another");
    }
    SipAgent::lock(m_pAgent)->post(
        [self = shared_from_this(), in_hNewDialog]
        {
            if (ReplacesOffer* const offer = self->findOffer(in_hNewDialog))
            {
                offer->reject();
            }
        });
}

}  // namespace Quorvex
