#pragma once

#include <string>
#include <vector>

#include "Script.h"
#include "sipstack/DsHandle.h"
#include "sipstack/DsSipNewCallinterface.h"
#include "sipstack/DsSipOutgoingCallinterface.h"

namespace Quorvex
{

class UserAgent;

/// What makes an actor for every INVITE that arrives.
DsHandle<DsSipNewCallinterface> makeDoorkeeper(UserAgent& in_agent);

/// Places one call. Throws a DsException when the layer refuses it.
void placeCall(UserAgent& in_agent, const std::string& in_strUri, const std::vector<Step>& in_vSteps);

}  // namespace Quorvex
