#pragma once

#include "sipstack/base/Sofia.h"

namespace Quorvex
{

/// The base library's class of SIP messages, with a first line that may have line ends before it (RFC
/// 3261 7.5). Together with MSG_DO_EXTRACT_COPY the base library's own reading of such a line keeps the line
/// ends and loses as many characters of the line, so that the message is unreadable, and with it all that
/// follows on a connection. Lives as long as the process.
const msg_mclass_t* tolerantMessageClass();

}  // namespace Quorvex
