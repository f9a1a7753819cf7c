#pragma once

#include <string>
#include <unordered_map>

#include "sipstack/base/Sofia.h"

namespace Quorvex
{

class OverloadRefusal;
class OutgoingCallCore;

/// INVITEs of ours that have their 2xx, by the branch of their Via.
struct AnsweredInvite
{
    std::string m_strTag;  ///< of the far end that answered first
    OutgoingCallCore* m_pCall = nullptr;
};
using AnsweredInvites = std::unordered_map<std::string, AnsweredInvite>;

/// The base library's class of SIP messages with what it lacks, as early as a message can be looked at. Lives
/// as long as the process.
///
/// A first line may have line ends before it (RFC 3261 7.5). Together with MSG_DO_EXTRACT_COPY the base
/// library's own reading of such a line keeps the line ends and loses as many characters of the line, so that
/// the message is unreadable, and with it all that follows on a connection.
///
/// A CANCEL whose INVITE has its 2xx is taken for a request of its own, so that it reaches a leg: the base
/// library answers it 481 before any leg sees it. isLateCancel() knows it there.
///
/// An ACK to no dialog of ours is made to belong to no INVITE either: the base library would take an answered
/// one for acknowledged whatever the To tag says.
///
/// What an overloaded agent turns away ends here; the base library then counts it as no SIP message.
///
/// A 2xx of a further fork is taken for one to no request, so that it reaches the default transaction: the
/// base library ends such a dialog with one BYE that it does not repeat, and tells nobody.
const msg_mclass_t* messageClass();

/// Whose transactions the messages that this thread receives belong to, who may refuse them before they have
/// one, and the INVITEs whose further 2xx are looked for; null for none. SIP stack thread.
void setReceiver(nta_agent_t* in_pAgent, OverloadRefusal* in_pOverload, const AnsweredInvites* in_pAnswered);

/// A CANCEL that came after the 2xx to its INVITE: RFC 3261 9.2 gives it 200, and the call goes on.
bool isLateCancel(const sip_t* in_pSip);

/// The INVITE that was received with the branch of this CANCEL or ACK, or null.
nta_incoming_t* inviteOfBranch(const nta_agent_t* in_pAgent, const sip_t* in_pRequest);

}  // namespace Quorvex
