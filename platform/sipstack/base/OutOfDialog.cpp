// The requests that belong to no dialog: calls that begin, and what the layer answers by itself.

#include <algorithm>
#include <string>

#include "sipstack/DsSipAckMessage.h"
#include "sipstack/DsSipInviteMessage.h"
#include "sipstack/DsSipNewCallinterface.h"
#include "sipstack/DsSipResponse.h"
#include "sipstack/base/CallCore.h"
#include "sipstack/base/ClientTransactionCore.h"
#include "sipstack/base/DialogCore.h"
#include "sipstack/base/IncomingCallCore.h"
#include "sipstack/base/MessageClass.h"
#include "sipstack/base/PendingInvite.h"
#include "sipstack/base/ServerTransactionCore.h"
#include "sipstack/base/SipAgent.h"

namespace Quorvex
{

namespace
{

constexpr const char* kAllow = "INVITE, ACK, BYE, CANCEL, NOTIFY, INFO, OPTIONS, REFER";

// One that the base library could not read and put aside, or that lacks a tag (RFC 3891 6.1).
bool hasBadReplaces(const sip_t* in_pSip)
{
    for (const msg_error_t* bad = in_pSip->sip_error; bad != nullptr; bad = bad->er_next)
    {
        const auto* const header = reinterpret_cast<const sip_header_t*>(bad);
        const char* const name =
            header->sh_class == sip_error_class ? bad->er_name : header->sh_class->hc_name;
        if (name != nullptr && su_casematch(name, "Replaces") != 0)
        {
            return true;
        }
    }
    const sip_replaces_t* const replaces = in_pSip->sip_replaces;
    return replaces != nullptr && (replaces->rp_to_tag == nullptr || replaces->rp_from_tag == nullptr);
}

// RFC 2543 knew no branches with a cookie, and let the From header stand for the Contact.
bool isOfRfc2543(const sip_t* in_pSip)
{
    const char* const branch = in_pSip->sip_via->v_branch;
    return branch == nullptr || su_casenmatch(branch, "z9hG4bK", 7) == 0;
}

}  // namespace

int SipAgent::refuse(nta_incoming_t* in_pIrq, int in_iStatus, const char* in_szPhrase, bool in_bRetryAfter)
{
    const std::string retryAfter = std::to_string(m_config.m_uiRetryAfterS);
    ++m_ulRefused;
    nta_incoming_treply(
        in_pIrq,
        in_iStatus,
        in_szPhrase,
        TAG_IF(in_bRetryAfter, SIPTAG_RETRY_AFTER_STR(retryAfter.c_str())),
        TAG_IF(in_iStatus == 405, SIPTAG_ALLOW_STR(kAllow)),
        TAG_IF(!m_config.m_strProduct.empty(), SIPTAG_SERVER_STR(m_config.m_strProduct.c_str())),
        TAG_END());
    return in_iStatus;
}

int SipAgent::onLegRequest(nta_leg_t*, nta_incoming_t* in_pIrq, const sip_t* in_pSip)
{
    const sip_method_t method = in_pSip->sip_request->rq_method;
    if (method == sip_method_ack)
    {
        return 481;  // nothing is sent for an ACK
    }
    if (isLateCancel(in_pSip))
    {
        // RFC 3261 9.2: with the To tag of the answer to the INVITE.
        if (nta_incoming_t* const invite = inviteOfBranch(m_pNta, in_pSip))
        {
            nta_incoming_tag(in_pIrq, nta_incoming_tag(invite, nullptr));
        }
        return 200;
    }
    if (method == sip_method_cancel || in_pSip->sip_to->a_tag != nullptr)
    {
        ++m_ulNoDialog;
        return 481;
    }
    switch (method)
    {
        case sip_method_bye:
        case sip_method_info:
        case sip_method_notify:
        case sip_method_prack:
        case sip_method_update:
            ++m_ulNoDialog;
            return 481;
        case sip_method_invite:
        case sip_method_options:
            break;
        default:
            return refuse(in_pIrq, SIP_405_METHOD_NOT_ALLOWED);
    }
    const url_type_e scheme = static_cast<url_type_e>(in_pSip->sip_request->rq_url->url_type);
    if (scheme != url_sip && scheme != url_sips && scheme != url_tel)
    {
        return refuse(in_pIrq, SIP_416_UNSUPPORTED_URI);
    }
    if (!checkRequire(in_pIrq, in_pSip))
    {
        ++m_ulRefused;
        return 420;
    }
    return method == sip_method_options ? onOptions(in_pIrq) : onInvite(in_pIrq, in_pSip);
}

int SipAgent::onOptions(nta_incoming_t* in_pIrq)
{
    if (isDraining())
    {
        return refuse(in_pIrq, SIP_503_SERVICE_UNAVAILABLE, true);
    }
    nta_incoming_treply(
        in_pIrq,
        SIP_200_OK,
        SIPTAG_ALLOW_STR(kAllow),
        SIPTAG_SUPPORTED_STR("replaces, 100rel, timer"),
        SIPTAG_ACCEPT_LANGUAGE_STR("en"),
        SIPTAG_ACCEPT_ENCODING_STR("identity"),
        SIPTAG_ACCEPT_STR("application/sdp"),
        TAG_IF(!m_config.m_strProduct.empty(), SIPTAG_SERVER_STR(m_config.m_strProduct.c_str())),
        TAG_END());
    return 200;
}

int SipAgent::onInvite(nta_incoming_t* in_pIrq, const sip_t* in_pSip)
{
    ++m_ulInvitesReceived;
    if (isDraining() || m_hNewCall.isNil())
    {
        return refuse(in_pIrq, SIP_503_SERVICE_UNAVAILABLE, true);
    }
    if (m_overload.isOverloaded())
    {
        ++m_ulOverloadRefused;
        return refuse(in_pIrq, SIP_503_SERVICE_UNAVAILABLE, true);
    }
    const bool missing = in_pSip->sip_contact == nullptr;
    if (missing ? !isOfRfc2543(in_pSip) : in_pSip->sip_contact->m_url->url_type == url_any)
    {
        return refuse(in_pIrq, 400, "Missing Contact Header");
    }
    if (hasBadReplaces(in_pSip))
    {
        return refuse(in_pIrq, 400, "Bad Replaces Header");
    }
    if (const int status = nta_check_session_expires(in_pIrq, in_pSip, m_config.m_uiMinSES, TAG_END());
        status != 0)
    {
        ++m_ulRefused;
        return status;
    }
    return takeInvite(in_pIrq, in_pSip);
}

void SipAgent::removePending(const PendingInvite& in_pending)
{
    m_vPending.remove_if([&](const auto& in_pPending) { return in_pPending.get() == &in_pending; });
}

int SipAgent::takeInvite(nta_incoming_t* in_pIrq, const sip_t* in_pSip)
{
    const auto hosts =
        unknownHosts({in_pSip->sip_request->rq_url, in_pSip->sip_from->a_url, in_pSip->sip_to->a_url});
    if (hosts.empty())
    {
        return beginCall(in_pIrq, in_pSip);
    }
    m_vPending.push_back(std::make_unique<PendingInvite>(*this, in_pIrq));
    const PendingInvite* const pending = m_vPending.back().get();
    prefetchHosts(hosts,
                  [this, pending]
                  {
                      const auto i =
                          std::find_if(m_vPending.begin(),
                                       m_vPending.end(),
                                       [&](const auto& in_pPending) { return in_pPending.get() == pending; });
                      if (i != m_vPending.end())
                      {
                          const auto taken = std::move(*i);
                          m_vPending.erase(i);
                          taken->proceed();
                      }
                  });
    return 0;
}

int SipAgent::beginCall(nta_incoming_t* in_pIrq, const sip_t* in_pSip)
{
    return in_pSip->sip_replaces != nullptr ? onReplaces(in_pIrq, in_pSip)
                                            : IncomingCallCore::begin(*this, in_pIrq, in_pSip);
}

// RFC 3891 section 3.
int SipAgent::onReplaces(nta_incoming_t* in_pIrq, const sip_t* in_pSip)
{
    if (reinterpret_cast<const sip_header_t*>(in_pSip->sip_replaces)->sh_next != nullptr)
    {
        return refuse(in_pIrq, 400, "More Than One Replaces Header");
    }
    nta_leg_t* const leg = nta_leg_by_replaces(m_pNta, in_pSip->sip_replaces);
    auto* const dialog =
        leg == nullptr ? nullptr : dynamic_cast<DialogCore*>(nta_leg_magic(leg, &LegHandler::callback));
    if (dialog == nullptr || dialog->getOwner() == nullptr)
    {
        ++m_ulNoDialog;
        return 481;
    }
    switch (dialog->getState())
    {
        case DialogCore::State::eEarly:
            if (dialog->getOwner()->isInbound())
            {
                ++m_ulNoDialog;
                return 481;
            }
            break;
        case DialogCore::State::eConfirmed:
            if (in_pSip->sip_replaces->rp_early_only != 0)
            {
                return refuse(in_pIrq, SIP_486_BUSY_HERE);
            }
            break;
        case DialogCore::State::eEnding:
        case DialogCore::State::eEnded:
            return refuse(in_pIrq, SIP_603_DECLINE);
    }
    return dialog->getOwner()->offerReplaces(*dialog, in_pIrq, in_pSip);
}

}  // namespace Quorvex
