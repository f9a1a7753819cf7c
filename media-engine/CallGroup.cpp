#include "CallGroup.h"

#include <algorithm>
#include <utility>

#include "RtpEndpoint.h"

namespace Quorvex
{

namespace
{

bool isParty(const RtpEndpoint& in_endpoint)
{
    return in_endpoint.getIdentity().m_type == MediaEndpointSpec::SND_RECV_TYPE;
}

bool serves(const RtpEndpoint& in_endpoint, MediaEndpointSpec::Type in_type, const RtpEndpoint& in_party)
{
    const RtpEndpoint::Identity& identity = in_endpoint.getIdentity();
    return identity.m_type == in_type && !in_party.getIdentity().m_strEptId.empty() &&
           identity.m_strTargetId == in_party.getIdentity().m_strEptId;
}

}  // namespace

void CallGroup::add(RtpEndpoint& in_endpoint)
{
    m_vEndpoints.push_back(&in_endpoint);
}

void CallGroup::remove(RtpEndpoint& in_endpoint)
{
    m_vEndpoints.erase(std::remove(m_vEndpoints.begin(), m_vEndpoints.end(), &in_endpoint),
                       m_vEndpoints.end());
    replan();
}

void CallGroup::attachEcho()
{
    detach();
    m_bEcho = true;
}

void CallGroup::attach(AudioRecipePtr in_pRecipe)
{
    detach();
    m_pRecipe = std::move(in_pRecipe);
}

void CallGroup::detach()
{
    m_bEcho = false;
    m_bPlayEnded = false;
    m_pRecipe.reset();
}

bool CallGroup::playEnded()
{
    return !std::exchange(m_bPlayEnded, true);
}

RtpEndpoint* CallGroup::voiceOf(RtpEndpoint& in_party) const
{
    for (RtpEndpoint* pEndpoint : m_vEndpoints)
    {
        if (pEndpoint->isReceiving() && serves(*pEndpoint, MediaEndpointSpec::REDIRECT_RX_TYPE, in_party))
        {
            return pEndpoint;
        }
    }
    return in_party.isReceiving() ? &in_party : nullptr;
}

void CallGroup::replan()
{
    for (RtpEndpoint* pEndpoint : m_vEndpoints)
    {
        pEndpoint->getPlan() = RtpEndpoint::Plan();
    }
    for (RtpEndpoint* pEndpoint : m_vEndpoints)
    {
        if (isParty(*pEndpoint) && pEndpoint->isSending())
        {
            planParty(*pEndpoint);
        }
    }
    for (RtpEndpoint* pEndpoint : m_vEndpoints)
    {
        pEndpoint->applyPlan(m_pRecipe);
    }
}

void CallGroup::planParty(RtpEndpoint& io_party)
{
    RtpEndpoint::Plan& plan = io_party.getPlan();
    for (RtpEndpoint* pOther : m_vEndpoints)
    {
        if (pOther->isSending() && serves(*pOther, MediaEndpointSpec::FORK_TX_TYPE, io_party))
        {
            plan.m_vForks.push_back(pOther);
        }
        RtpEndpoint* pVoice = pOther != &io_party && isParty(*pOther) ? voiceOf(*pOther) : nullptr;
        if (pVoice != nullptr)
        {
            plan.m_vMix.push_back(pVoice);
        }
    }
    if (plan.m_vMix.empty() && m_bEcho)
    {
        if (RtpEndpoint* pVoice = voiceOf(io_party))
        {
            // Whatever size its packets have, they go back as they come.
            pVoice->getPlan().m_vRelayTo.push_back(&io_party);
            return;
        }
    }
    if (plan.m_vMix.size() == 1 && plan.m_vMix.front()->getRxPacketSizeMs() == io_party.getTxPacketSizeMs())
    {
        plan.m_vMix.front()->getPlan().m_vRelayTo.push_back(&io_party);
        plan.m_vMix.clear();
        return;
    }
    plan.m_bClocked = true;
    for (RtpEndpoint* pVoice : plan.m_vMix)
    {
        pVoice->getPlan().m_bMixed = true;
    }
}

}  // namespace Quorvex
