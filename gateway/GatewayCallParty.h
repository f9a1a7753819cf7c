#pragma once

#include <memory>
#include <string>
#include <vector>

#include "GatewayCall.h"

namespace Quorvex
{

/// A party of a call that a leg is placed to, with the way back from it to the call.
class GatewayCall::Party final : public CallEnd, private OutboundParty::Listener
{
public:
    QUORVEX_MEM_ACCOUNT("GatewayCall::Party");

    Party(GatewayCall& in_call, const OutboundParty::Context& in_context, const std::string& in_strRoute)
        : m_call(in_call),
          m_party(in_context, static_cast<OutboundParty::Listener&>(*this), in_call.m_strCallId, in_strRoute)
    {
    }

    OutboundParty& get() { return m_party; }
    const OutboundParty& get() const { return m_party; }

    void hangup(CallRecord::EndedBy in_endedBy) override
    {
        // Whoever else has ended the call: of this party, it is the gateway that ends the leg.
        m_party.hangup(in_endedBy == CallRecord::EndedBy::STOP ? in_endedBy : CallRecord::EndedBy::LOCAL);
    }
    bool sendInfo(const std::vector<Parameter>& in_vParameters) override
    {
        return m_party.sendInfo(in_vParameters);
    }
    void transferAccepted(RingType in_ringType) override { m_party.transferAccepted(in_ringType); }
    void transferFailed(const ConnectionFailureType& in_failure) override
    {
        m_party.transferFailed(in_failure);
    }
    void transferSucceeded() override { m_party.transferSucceeded(); }
    void resume() override { m_party.resume(); }
    std::string getUri() const override { return m_party.getUri(); }

private:
    void partyRinging(RingType in_ringType) override { m_call.ringing(*this, in_ringType); }
    void partyEarlyMedia() override { m_call.earlyMedia(*this); }
    void partyConnected(Call::ConnectionType in_type) override { m_call.connected(*this, in_type); }
    void partyFailed(const ConnectionFailureType& in_failure) override { m_call.failed(*this, in_failure); }
    void partyDisconnected(CallRecord::EndedBy in_others) override { m_call.ended(*this, in_others); }
    void partyTransfer(const CallLegInfo& in_leg) override { m_call.transferRequested(*this, in_leg); }
    void partyInfo(const std::vector<Parameter>& in_vParameters) override
    {
        if (CallEnd* pOther = m_call.otherEnd(*this))
        {
            static_cast<void>(pOther->sendInfo(in_vParameters));
        }
    }
    void partyLegOpened(unsigned int in_uiLeg) override
    {
        m_call.m_uiNextLeg = in_uiLeg + 1;
        m_call.m_moved = Clock::now();
        m_call.m_owner.legOpened(m_call.m_strCallId, in_uiLeg);
    }
    void partyLegEnded(CallRecord in_record, bool in_bHadMedia) override
    {
        if (m_call.m_pCaller != nullptr && in_record.m_uiLeg == 1)
        {
            in_record.m_callArrived = m_call.m_pCaller->getArrived();
        }
        m_call.m_owner.legEnded(std::move(in_record), in_bHadMedia);
    }
    void partyGone() override { m_call.m_owner.partyGone(m_call.m_ulNumber); }

    GatewayCall& m_call;
    OutboundParty m_party;
};

}  // namespace Quorvex
