#include "quorvex/CallInterface.h"

#include "infra/Assertion.h"

namespace Quorvex
{

namespace
{

const Logger& logger()
{
    static const Logger s_logger("quorvex.calleng.CallInterface");
    return s_logger;
}

}  // namespace

bool TransferNotifiable::transferAccepted(RingType /*in_ringType*/)
{
    return false;
}
// NOLINTNEXTLINE(performance-unnecessary-value-param): the interface hands failures over by value
bool TransferNotifiable::transferFailure(ConnectionFailureType /*in_failure*/)
{
    return false;
}
bool TransferNotifiable::transferSuccess()
{
    return false;
}

bool TransferInitiator::hangup()
{
    return false;
}

bool CallLeg::inviteAccepted(RingType /*in_ringType*/)
{
    return false;
}
// NOLINTNEXTLINE(performance-unnecessary-value-param): the interface hands failures over by value
bool CallLeg::inviteRejected(ConnectionFailureType /*in_failure*/)
{
    return false;
}
bool CallLeg::remoteConnected(Call::ConnectionType /*in_connectionType*/)
{
    return false;
}
// NOLINTNEXTLINE(performance-unnecessary-value-param): the interface hands failures over by value
bool CallLeg::remoteConnectionFailed(ConnectionFailureType /*in_failure*/)
{
    return false;
}
bool CallLeg::mediaAvailable()
{
    return false;
}
bool CallLeg::sendInfoMsg(const std::vector<Parameter>& /*in_vParameters*/)
{
    return false;
}
const char* CallLeg::getEngineName() const
{
    return "??? EngineName ???";
}

bool OutCallLeg::inviteAccepted(RingType /*in_ringType*/)
{
    return QUORVEX_ASSERT_TEXT(logger(), false, "Not implemented : OutCallLeg::inviteAccepted");
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the interface hands failures over by value
bool OutCallLeg::inviteRejected(ConnectionFailureType /*in_failure*/)
{
    return QUORVEX_ASSERT_TEXT(logger(), false, "Not implemented : OutCallLeg::inviteRejected");
}

bool OutCallLeg::remoteConnected(Call::ConnectionType /*in_connectionType*/)
{
    return QUORVEX_ASSERT_TEXT(logger(), false, "Not implemented : OutCallLeg::remoteConnected");
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the interface hands failures over by value
bool OutCallLeg::remoteConnectionFailed(ConnectionFailureType /*in_failure*/)
{
    return QUORVEX_ASSERT_TEXT(logger(), false, "Not implemented : OutCallLeg::remoteConnectionFailed");
}

void CallInInterface::sayAgain()
{
}

void CallInInterface::notOffered(const CallLegInfo& /*in_leg*/)
{
}

void CallInInterface::ended(unsigned int /*in_uiStatus*/, Ending /*in_ending*/)
{
}

void CallOutInterface::inviteSent(const std::string& /*in_strSipCallId*/)
{
}

void CallOutInterface::ended(unsigned int /*in_uiStatus*/, Ending /*in_ending*/)
{
}

bool OutCallLeg::invite(const CallInfo& /*in_callInfo*/)
{
    return false;
}

}  // namespace Quorvex
