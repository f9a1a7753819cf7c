#pragma once

#include <string>
#include <string_view>

#include "quorvex/CallTypes.h"
#include "quorvex/ConnectionFailureType.h"
#include "quorvex/Fallible.h"

namespace Quorvex::Call
{

/// The text that stands for an outcome in a "CPD-Result" header.
const char* getCPDResultString(ConnectionType in_type);
const char* getCPDResultString(ConnectionFailureEnum in_failure);
const char* getCPDResultString(const ConnectionFailureType& in_failure);

/// The connection type of a "CPD-Result" text (case is ignored); not valid when it is none.
Fallible<ConnectionType> parseCPDResult(std::string_view in_text);

}  // namespace Quorvex::Call
