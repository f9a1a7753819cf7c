#pragma once

#include "sipstack/DsSipNewCallinterface.h"

namespace Quorvex
{

class DsVoipGatewayNetIf;

/// Takes new inbound calls from the SIP stack: each gets an identifier and a proxy, which asks for a machine
/// before it hands on what the stack reports. SIP stack thread; the network interface outlives the stack's
/// run.
class NewSipCallInterface final : public DsSipNewCallinterface
{
public:
    explicit NewSipCallInterface(DsVoipGatewayNetIf& in_netIf) : m_netIf(in_netIf) {}

    DsHandle<DsSipIncomingCall> newCall(const DsHandle<DsSipInviteMessage>& in_hInvite) override;

protected:
    ~NewSipCallInterface() override = default;

private:
    DsVoipGatewayNetIf& m_netIf;
};

}  // namespace Quorvex
