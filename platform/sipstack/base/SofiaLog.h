#pragma once

#include <string>

namespace Quorvex
{

/// Sends what the base library says about itself to the logger "quorvex.sip.base", at DEBUG; once per
/// process. It says most about what peers do wrong, so it must not reach the log of a system in use line by
/// line.
void redirectSofiaLog();

/// The next message of this thread that the base library drops as no SIP message is none that anybody is
/// warned of.
void muteNextGarbage();

/// Warns of a response that has a header that cannot be read; once a minute for a source address. SIP stack
/// thread.
void warnOfUnreadableHeader(const std::string& in_strSource);

/// Takes the base library's STUN server off the SIP ports, for which it writes a line to standard error for
/// every such datagram; STUN requests get its short "not implemented" instead. Before the first agent is
/// made.
void unplugStunServer();

}  // namespace Quorvex
