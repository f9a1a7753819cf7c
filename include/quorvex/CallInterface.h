#pragma once

#include <string>
#include <vector>

#include "infra/LimitedObjPtr.h"
#include "infra/Object.h"
#include "infra/Parameter.h"
#include "quorvex/CallTypes.h"
#include "quorvex/ConnectionFailureType.h"

/// The conversation between a network interface and a call engine.
///
/// A call that arrives: the network interface gives its leg to the engine (CallEngine::newInCall) and gets
/// the engine's side of it (CallInInterface); it then offers the call (invite). The engine answers on the
/// leg, in this order:
///
///     inviteAccepted (the caller hears ringing)  -> remoteConnected (the call is answered)
///     inviteRejected or remoteConnectionFailed   -> the caller gets a final failure
///     hangup                                     -> ends the call at any later moment
///
/// mediaAvailable may come before either, for early media. When the far end ends the call, the engine hears
/// `disconnected`; it then deletes the leg.
///
/// A call to be placed: the engine asks for a leg (OutLegEngine::getOutCallLeg) with its own side of it
/// (CallOutInterface), then invites; it hears proceeding, ringing or earlyMedia, and then connected,
/// connectFailed or redirected; callFailed and disconnected end what was connected.
///
/// Threads: the operations of legs may be called on any one thread of the engine; they only queue, and return
/// whether the command was queued. The operations of CallInInterface, CallOutInterface and
/// CallEngine::newInCall are called on the network interface's task thread and must return at once: queue
/// what takes time.
///
/// Ownership: the engine deletes a leg when it has done with it, which must be after the call's end. The
/// network interface deletes CallInInterface and CallOutInterface objects when the call is over; an object
/// deleted without a verdict tells the engine that its leg is gone.
namespace Quorvex
{

class CallInfo;
class CallLegInfo;

/// Where the outcome of a transfer is reported. Results: whether the report was taken.
class TransferNotifiable
{
public:
    TransferNotifiable() = default;
    TransferNotifiable(const TransferNotifiable&) = delete;
    TransferNotifiable& operator=(const TransferNotifiable&) = delete;
    virtual ~TransferNotifiable() = default;

    /// The party to transfer to is being alerted.
    virtual bool transferAccepted(RingType in_ringType);
    virtual bool transferFailure(ConnectionFailureType in_failure);
    virtual bool transferSuccess();
};

/// The party that asked for a transfer.
class TransferInitiator : public virtual TransferNotifiable
{
public:
    virtual bool hangup();
};

/// One leg of a call, as the call engine sees it. Every operation returns whether the command was queued; its
/// effect comes later.
class CallLeg : public TransferInitiator
{
public:
    /// The call is taken: the caller hears ringing, with or without early media.
    virtual bool inviteAccepted(RingType in_ringType);
    virtual bool inviteRejected(ConnectionFailureType in_failure);
    /// The far party is there: the caller's call is answered, or refused if the connection type says so.
    virtual bool remoteConnected(Call::ConnectionType in_connectionType);
    virtual bool remoteConnectionFailed(ConnectionFailureType in_failure);
    /// Media may flow before the call is answered (early media). After transferSuccess: the party that asked
    /// for the transfer stays in the call, and its media flow again.
    virtual bool mediaAvailable();
    /// Sends the parameters in an INFO request: "body" is its body, "Content-Type" the body's type, any other
    /// a header.
    virtual bool sendInfoMsg(const std::vector<Parameter>& in_vParameters);
    /// Which network interface the leg belongs to: "SIP IN", "SIP OUT".
    virtual const char* getEngineName() const;
};

/// The leg of a call that arrived.
class InCallLeg : public CallLeg
{
};

/// The leg of a call that is placed. The operations that only make sense towards a caller report an assertion
/// and return false.
class OutCallLeg : public CallLeg
{
public:
    bool inviteAccepted(RingType in_ringType) override;
    bool inviteRejected(ConnectionFailureType in_failure) override;
    bool remoteConnected(Call::ConnectionType in_connectionType) override;
    bool remoteConnectionFailed(ConnectionFailureType in_failure) override;
    /// Places the call that the current leg of `in_callInfo` describes.
    virtual bool invite(const CallInfo& in_callInfo);
};

/// The call engine's side of a call that arrived.
class CallInInterface : public virtual Object
{
public:
    /// Who has ended a call.
    enum class Ending
    {
        FAR_END,     ///< the caller, by BYE or CANCEL
        NEAR_END,    ///< this side: the call engine, a stop, or something that the network interface refused
        TIMEOUT,     ///< nobody: something that was waited for never came
        UNREACHABLE  ///< nobody: of a leg that is placed, the network knows no way to the far end
    };

    /// A call is offered. False refuses it at once.
    virtual bool invite(const CallLegInfo& in_leg) = 0;
    /// The far end asks to be transferred to "sip.in.referTo". False when that cannot even be tried.
    virtual bool transfer(const CallLegInfo& in_leg) = 0;
    /// The far end, or a failure, has ended the call. Comes at most once.
    virtual void disconnected() = 0;
    /// An INFO request came: its unknown headers, "Content-Type" and "body". False when it is not wanted.
    virtual bool infoReceived(const std::vector<Parameter>& in_vParameters) = 0;
    /// The engine's last word on an unanswered call (remoteConnected, inviteRejected, remoteConnectionFailed)
    /// came while the caller's PRACK for an early offer of ours was waited for, and was not heard; it is now,
    /// if it is said again. Does nothing by default.
    virtual void sayAgain();
    /// A call that is over before it could be offered: who called whom, as invite() would have said it,
    /// without canonical forms. ended() follows. Does nothing by default.
    virtual void notOffered(const CallLegInfo& in_leg);
    /// The call is over: the SIP status that its INVITE was answered with finally (0: none), and who ended
    /// it. The last word, but for a call that was never taken. Does nothing by default.
    virtual void ended(unsigned int in_uiStatus, Ending in_ending);
};

/// The call engine's side of a call that is placed.
class CallOutInterface : public virtual Object
{
public:
    using Ending = CallInInterface::Ending;

    /// The INVITE is on its way, in a call with this Call-ID. Not for one that cannot be sent. Does nothing
    /// by default.
    virtual void inviteSent(const std::string& in_strSipCallId);
    /// The far end named other targets: one leg each, the least preferred first. This attempt is over; a
    /// target is tried by placing a call on its leg, with "sip.in.redirect.Contact" carried over to
    /// "sip.out.redirect.Contact", behind the legs of the targets tried since. Those are counted when such a
    /// leg ends with a 3xx, even one that leads nowhere (connectFailed, then ended): they may not stand
    /// before the next target again. False: none is tried.
    virtual bool redirected(const CallInfo& in_targets) = 0;
    /// The far end has answered provisionally.
    virtual void proceeding() = 0;
    virtual void ringing(RingType in_ringType) = 0;
    /// The call could not be connected.
    virtual void connectFailed(const ConnectionFailureType& in_failure) = 0;
    virtual void connected(Call::ConnectionType in_connectionType) = 0;
    /// A call that was connected failed.
    virtual void callFailed(const ConnectionFailureType& in_failure) = 0;
    virtual bool transfer(const CallLegInfo& in_leg) = 0;
    virtual void disconnected() = 0;
    /// The far end sends media before it answers.
    virtual void earlyMedia() = 0;
    virtual bool infoReceived(const std::vector<Parameter>& in_vParameters) = 0;
    /// The leg is over: the first final SIP status that its INVITE got (0: none), and who ended it. The last
    /// word, but for a leg that was never taken. Does nothing by default.
    virtual void ended(unsigned int in_uiStatus, Ending in_ending);
};

/// The call engine, as the network interfaces see it.
class CallEngine : public virtual Object
{
public:
    /// A call has arrived. The engine takes ownership of the leg, and returns its own side of the call, owned
    /// by the network interface; null refuses the call. `in_szCallId` identifies the call in all logs.
    virtual CallInInterface* newInCall(InCallLeg* in_pLeg, const char* in_szCallId) = 0;
};

}  // namespace Quorvex
