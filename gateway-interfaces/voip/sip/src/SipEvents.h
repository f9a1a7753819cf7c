#pragma once

#include <cstdint>

#include "VoipEvent.h"
#include "quorvex/TaskObjectPool.h"
#include "sipstack/DsSipAckMessage.h"
#include "sipstack/DsSipIncomingCall.h"
#include "sipstack/DsSipInviteMessage.h"
#include "sipstack/DsSipPrackMessage.h"

// The events of both call directions. CallType is DsHandle<DsSipIncomingCall> or DsHandle<DsSipOutgoingCall>.

namespace Quorvex
{

class InStateMachine;
class OutStateMachine;

/// The ACK of the initial INVITE (eACK), or of a re-INVITE, without SDP (eREINVITE_ACK).
template <class CallType>
class CallConfirmedEvent : public VoipEvent, public CallData<CallType>
{
public:
    QUORVEX_MEM_ACCOUNT("CallConfirmedEvent<CallType>");
    CallConfirmedEvent(EventType::eTYPE in_type,
                       const CallType& in_hCall,
                       const DsHandle<DsSipAckMessage>& in_hAck)
        : VoipEvent(in_type), CallData<CallType>(in_hCall), m_hAck(in_hAck)
    {
    }
    const DsHandle<DsSipAckMessage>& getAck() const { return m_hAck; }
    VoipEvent* clone() const override { return new CallConfirmedEvent(*this); }

private:
    DsHandle<DsSipAckMessage> m_hAck;
};

/// The ACK of a re-INVITE, with the answer to our offer.
template <class CallType>
class ReinviteAckWithSDPEvent : public VoipEvent
{
public:
    QUORVEX_MEM_ACCOUNT("ReinviteAckWithSDPEvent<CallType>");
    ReinviteAckWithSDPEvent(const CallType& in_hCall, const DsHandle<DsSipAckMessage>& in_hAck)
        : VoipEvent(EventType::eREINVITE_ACK_WITH_SDP), m_hCall(in_hCall), m_hAck(in_hAck)
    {
    }
    CallType getCall() const { return m_hCall; }
    const DsHandle<DsSipAckMessage>& getAck() const { return m_hAck; }
    VoipEvent* clone() const override { return new ReinviteAckWithSDPEvent(*this); }

private:
    CallType m_hCall;
    DsHandle<DsSipAckMessage> m_hAck;
};

template <class CallType>
class PrackEvent : public VoipEvent, public CallData<CallType>
{
public:
    QUORVEX_MEM_ACCOUNT("PrackEvent<CallType>");
    PrackEvent(const CallType& in_hCall, const DsHandle<DsSipPrackMessage>& in_hPrack)
        : VoipEvent(EventType::ePRACK), CallData<CallType>(in_hCall), m_hPrack(in_hPrack)
    {
    }
    const DsHandle<DsSipPrackMessage>& getPrack() const { return m_hPrack; }
    VoipEvent* clone() const override { return new PrackEvent(*this); }

private:
    DsHandle<DsSipPrackMessage> m_hPrack;
};

/// The session timer ran out.
template <class CallType>
class SessionTimeOutEvent : public VoipEvent, public CallData<CallType>
{
public:
    QUORVEX_MEM_ACCOUNT("SessionTimeOutEvent<CallType>");
    explicit SessionTimeOutEvent(const CallType& in_hCall,
                                 const DsHandle<DsSipDialog>& in_hDialog = DsHandle<DsSipDialog>())
        : VoipEvent(EventType::eSESSION_TIMED_OUT), CallData<CallType>(in_hCall, in_hDialog)
    {
    }
    VoipEvent* clone() const override { return new SessionTimeOutEvent(*this); }
};

/// The session is to be refreshed.
template <class CallType>
class SessionRefreshEvent : public VoipEvent, public CallData<CallType>
{
public:
    QUORVEX_MEM_ACCOUNT("SessionRefreshEvent<CallType>");
    explicit SessionRefreshEvent(const CallType& in_hCall,
                                 const DsHandle<DsSipDialog>& in_hDialog = DsHandle<DsSipDialog>())
        : VoipEvent(EventType::eSESSION_REFRESH_TIME), CallData<CallType>(in_hCall, in_hDialog)
    {
    }
    VoipEvent* clone() const override { return new SessionRefreshEvent(*this); }
};

/// An INVITE that is to take the place of a dialog of the call.
template <class CallType>
class ReplacesEvent : public VoipEvent
{
public:
    QUORVEX_MEM_ACCOUNT("ReplacesEvent<CallType>");
    ReplacesEvent(const CallType& in_hCall,
                  const DsHandle<DsSipDialog>& in_hReplacedDialog,
                  const DsHandle<DsSipDialog>& in_hNewDialog,
                  const DsHandle<DsSipInviteMessage>& in_hInvite)
        : VoipEvent(EventType::eREPLACES),
          m_hCall(in_hCall),
          m_hReplacedDialog(in_hReplacedDialog),
          m_hNewDialog(in_hNewDialog),
          m_hInvite(in_hInvite)
    {
    }
    CallType getCall() const { return m_hCall; }
    const DsHandle<DsSipDialog>& getReplacedDialog() const { return m_hReplacedDialog; }
    const DsHandle<DsSipDialog>& getNewDialog() const { return m_hNewDialog; }
    const DsHandle<DsSipInviteMessage>& getInvite() const { return m_hInvite; }
    VoipEvent* clone() const override { return new ReplacesEvent(*this); }

private:
    CallType m_hCall;
    DsHandle<DsSipDialog> m_hReplacedDialog;
    DsHandle<DsSipDialog> m_hNewDialog;
    DsHandle<DsSipInviteMessage> m_hInvite;
};

template <class CallType>
class BYERequestEvent : public RequestEvent, public CallData<CallType>
{
public:
    QUORVEX_MEM_ACCOUNT("BYERequestEvent<CallType>");
    BYERequestEvent(const CallType& in_hCall,
                    const DsHandle<DsSipDialog>& in_hDialog,
                    const DsHandle<DsSipRequest>& in_hBye)
        : RequestEvent(EventType::eBYE, in_hBye), CallData<CallType>(in_hCall, in_hDialog)
    {
    }
    VoipEvent* clone() const override { return new BYERequestEvent(*this); }
};

/// The CANCEL of a re-INVITE.
template <class CallType>
class ReinviteCancelEvent : public RequestEvent, public CallData<CallType>
{
public:
    QUORVEX_MEM_ACCOUNT("ReinviteCancelEvent<CallType>");
    ReinviteCancelEvent(const CallType& in_hCall,
                        const DsHandle<DsSipDialog>& in_hDialog,
                        const DsHandle<DsSipRequest>& in_hCancel)
        : RequestEvent(EventType::eREINVITE_CANCEL, in_hCancel), CallData<CallType>(in_hCall, in_hDialog)
    {
    }
    VoipEvent* clone() const override { return new ReinviteCancelEvent(*this); }
};

/// The response to a re-INVITE of ours.
template <class CallType>
class ReinviteResponseEvent : public SipResponseEvent, public CallData<CallType>
{
public:
    QUORVEX_MEM_ACCOUNT("ReinviteResponseEvent<CallType>");
    ReinviteResponseEvent(const CallType& in_hCall,
                          const DsHandle<DsSipDialog>& in_hDialog,
                          const DsHandle<DsSipResponse>& in_hResponse)
        : SipResponseEvent(EventType::eREINVITE_RESPONSE, in_hResponse),
          CallData<CallType>(in_hCall, in_hDialog)
    {
    }
    VoipEvent* clone() const override { return new ReinviteResponseEvent(*this); }
};

/// A re-INVITE, for a machine of that direction.
template <class CallType, class Machine>
class ReinviteReqEvent : public RequestEvent, public CallData<CallType>
{
public:
    QUORVEX_MEM_ACCOUNT("ReinviteReqEvent<CallType>");
    ReinviteReqEvent(const CallType& in_hCall,
                     const DsHandle<DsSipDialog>& in_hDialog,
                     const DsHandle<DsSipInviteMessage>& in_hInvite)
        : RequestEvent(EventType::eREINVITE_REQUEST, in_hInvite),
          CallData<CallType>(in_hCall, in_hDialog),
          m_hInvite(in_hInvite)
    {
    }
    /// The request, under its own class.
    const DsHandle<DsSipInviteMessage>& getInvite() const { return m_hInvite; }
    VoipEvent* clone() const override { return new ReinviteReqEvent(*this); }

private:
    DsHandle<DsSipInviteMessage> m_hInvite;
};

template <class CallType>
class ReferEvent : public UnknownRequestEvent, public CallData<CallType>
{
public:
    QUORVEX_MEM_ACCOUNT("ReferEvent<CallType>");
    ReferEvent(const CallType& in_hCall,
               const DsHandle<DsSipDialog>& in_hDialog,
               const DsHandle<DsSipServerTransaction>& in_hTransaction,
               const DsHandle<DsSipRequest>& in_hRefer)
        : UnknownRequestEvent(EventType::eREFER, in_hTransaction, in_hRefer),
          CallData<CallType>(in_hCall, in_hDialog)
    {
    }
    VoipEvent* clone() const override { return new ReferEvent(*this); }
};

template <class CallType>
class NotifyEvent : public UnknownRequestEvent, public CallData<CallType>
{
public:
    QUORVEX_MEM_ACCOUNT("NotifyEvent<CallType>");
    NotifyEvent(const CallType& in_hCall,
                const DsHandle<DsSipDialog>& in_hDialog,
                const DsHandle<DsSipServerTransaction>& in_hTransaction,
                const DsHandle<DsSipRequest>& in_hNotify)
        : UnknownRequestEvent(EventType::eNOTIFY, in_hTransaction, in_hNotify),
          CallData<CallType>(in_hCall, in_hDialog)
    {
    }
    VoipEvent* clone() const override { return new NotifyEvent(*this); }
};

/// A new INVITE, for the machine that stands in the container under the proxy's identifier.
template <class ContainerType, class SMPtr>
class CalledEvent : public RequestEvent, public CallData<DsHandle<DsSipIncomingCall>>
{
public:
    QUORVEX_MEM_ACCOUNT("CalledEvent<ContainerType>");
    CalledEvent(const DsHandle<DsSipIncomingCall>& in_hCall,
                const DsHandle<DsSipInviteMessage>& in_hInvite,
                ContainerType& in_container,
                std::uint32_t in_uiObjectID)
        : RequestEvent(EventType::eINVITE, in_hInvite),
          CallData(in_hCall, in_hCall.isNil() ? DsHandle<DsSipDialog>() : in_hCall->getDialog()),
          m_hInvite(in_hInvite),
          m_pContainer(&in_container),
          m_uiObjectID(in_uiObjectID)
    {
    }
    /// The request, under its own class.
    const DsHandle<DsSipInviteMessage>& getInvite() const { return m_hInvite; }
    /// Task thread; null when the machine is gone.
    SMPtr getMachine() const { return m_pContainer->getObject(m_uiObjectID); }
    VoipEvent* clone() const override { return new CalledEvent(*this); }

private:
    DsHandle<DsSipInviteMessage> m_hInvite;
    ContainerType* m_pContainer;
    std::uint32_t m_uiObjectID;
};

/// The one that the inbound proxy raises and the inbound machine reads.
using InCalledEvent = CalledEvent<TaskObjectContainer<InStateMachine>, CountedObjPtr<InStateMachine>>;

}  // namespace Quorvex
