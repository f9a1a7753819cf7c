#pragma once

#include <string>
#include <vector>

#include "CallControl.h"

/// The JSON that the HTTP interface takes and gives.
namespace Quorvex::HttpJson
{

/// What is refused comes back false with one sentence for whoever sent it. Text must be free of control
/// characters, since it gets into messages on the wire (the body of an INFO excepted).

/// {"leg": {"sip.out.requestUri": "sip:..."}, "service": "echo", "hangupAfterMs": 1000}
bool parseCall(const std::string& in_strBody,
               CallLegInfo& out_leg,
               ParameterTrie& out_options,
               std::string& out_strError);
/// {"leg": {"sip.out.requestUri": "sip:..."}}
bool parseTransfer(const std::string& in_strBody, CallLegInfo& out_leg, std::string& out_strError);
/// {"Content-Type": "text/plain", "body": "...", "X-Header": "..."}
bool parseInfo(const std::string& in_strBody,
               std::vector<Parameter>& out_vParameters,
               std::string& out_strError);

/// The list of calls, each with its legs.
std::string calls(const std::vector<CallView>& in_vCalls);
/// {"id": "..."}
std::string id(const std::string& in_strId);
/// {"error": "..."}
std::string error(const std::string& in_strSentence);

}  // namespace Quorvex::HttpJson
