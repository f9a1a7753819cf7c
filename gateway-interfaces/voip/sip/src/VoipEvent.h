#pragma once

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <vector>

#include "calleng/CallInfo.h"
#include "infra/CountedObjPtr.h"
#include "infra/MemAccount.h"
#include "infra/Object.h"
#include "infra/Parameter.h"
#include "media/MediaEndpoint.h"
#include "media/MediaEndpointCallback.h"
#include "media/MediaEndpointCapacity.h"
#include "media/MediaNotificationEvent.h"
#include "quorvex/CallTypes.h"
#include "quorvex/ConnectionFailureType.h"
#include "sipstack/DsHandle.h"
#include "sipstack/DsSipDialog.h"
#include "sipstack/DsSipOutgoingCall.h"
#include "sipstack/DsSipRequest.h"
#include "sipstack/DsSipResponse.h"
#include "sipstack/DsSipServerTransaction.h"
#include "thread/TimeoutEvent.h"

namespace Quorvex
{

/// What can happen to a call. The numbers index the table of printed names and are part of what tools read in
/// logs: new ones go before eINVALID only together with a new name.
namespace EventType
{
enum eTYPE : std::uint32_t
{
    // The call engine, and the plug-in's own commands.
    eAPI_STOP = 0,
    eAPI_KILL = 1,
    eAPI_HANGUP = 2,
    eAPI_TRANSFER_ACCEPTED = 3,
    eAPI_TRANSFER_SUCCESS = 4,
    eAPI_TRANSFER_FAILURE = 5,
    eAPI_SEND_INFO_MSG = 6,
    // SIP, both directions.
    e200_OK = 7,
    e481_CALLEG_DOESNOTEXIST = 8,
    e487_REQUEST_CANCELLED = 9,
    eTERMINATED_UPON_TIMEOUT = 10,
    eREINVITE_TIMED_OUT = 11,
    eSESSION_TIMED_OUT = 12,
    eSESSION_REFRESH_TIME = 13,
    eBYE = 14,
    eREFER = 15,
    eNOTIFY = 16,
    eREINVITE_REQUEST = 17,
    eREINVITE_RESPONSE = 18,
    eREINVITE_CANCEL = 19,
    eREINVITE_ACK = 20,
    eREINVITE_ACK_WITH_SDP = 21,
    eREPLACES = 22,
    eINFO = 23,
    eSIP_REQUEST = 24,
    eSIP_RESPONSE = 25,
    // Outbound calls.
    eAPI_INVITE = 26,
    e100_TRYING = 27,
    e180_RINGING = 28,
    e183_SESSION_PROGRESS = 29,
    eREMOTE_BUSY = 30,
    eINVALID_NUMBER = 31,
    eNO_ANSWER = 32,
    e3XX_REDIRECTION = 33,
    // Inbound calls.
    eAPI_INVITE_ACCEPTED = 34,
    eAPI_INVITE_REJECTED = 35,
    eAPI_REMOTE_CONNECTED = 36,
    eAPI_REMOTE_CONN_FAILED = 37,
    eINVITE = 38,
    eACK = 39,
    ePRACK = 40,
    eCANCEL = 41,
    // Media, timers.
    eMEDIA_SET_CAPACITY = 42,
    eMEDIA_OP_STATUS = 43,
    eMEDIA_NOTIFICATION = 44,
    eAPI_MEDIA_START_CMD = 45,
    eTIMEOUT = 46,
    eINVALID = 47
};
}  // namespace EventType

/// Something that happened, and can be shown.
class EventIf : public virtual OutputStreamable
{
};

/// An event that can outlive the call that raised it.
class CloneableEvent : public virtual EventIf, public virtual Cloneable
{
};

class SipResponseEvent;

/// The base of everything that happens to a call. Built on any thread, then used on the task thread only; SIP
/// objects in it are counted handles, so that a copy never copies a message.
class VoipEvent : public virtual CloneableEvent
{
public:
    VoipEvent() = default;
    explicit VoipEvent(EventType::eTYPE in_type) : m_Type(in_type) {}

    EventType::eTYPE getType() const { return m_Type; }

    /// The printed name of the type; empty for a PRACK, and (with an assertion) for a number that is no type.
    virtual const char* getName() const;

    std::ostream& write(std::ostream& out_stream) const override;
    VoipEvent* clone() const override { return new VoipEvent(*this); }

    /// The response in this event, or null: asked several times of each event of an outbound call.
    virtual const SipResponseEvent* asSipResponseEvent() const { return nullptr; }

    /// The timer expiry in this event, or null: spares every other event the cast.
    const TimeoutEvent* asTimeoutEvent() const
    {
        return m_Type == EventType::eTIMEOUT ? dynamic_cast<const TimeoutEvent*>(this) : nullptr;
    }

private:
    EventType::eTYPE m_Type = EventType::eINVALID;
};

/// The call and the dialog that an event of an established SIP call concerns. CallType is a DsHandle of
/// DsSipIncomingCall or DsSipOutgoingCall; either handle may be nil.
template <class CallType>
class CallData
{
public:
    CallData() = default;
    explicit CallData(const CallType& in_hCall,
                      const DsHandle<DsSipDialog>& in_hDialog = DsHandle<DsSipDialog>())
        : m_hCall(in_hCall), m_hDialog(in_hDialog)
    {
    }

    CallType getCall() const { return m_hCall; }
    DsHandle<DsSipDialog> getDialog() const { return m_hDialog; }

private:
    CallType m_hCall;
    DsHandle<DsSipDialog> m_hDialog;
};

// ---------------------------------------------------------------------------------------------------- media
// events

/// Something that the media engine reports about one direction of a stream.
class VoipMediaEvent : public VoipEvent
{
public:
    std::uint32_t getStreamId() const { return m_uiStreamId; }
    MediaEndpoint::Direction getDirection() const { return m_direction; }

    std::ostream& write(std::ostream& out_stream) const override;

protected:
    VoipMediaEvent(EventType::eTYPE in_type,
                   std::uint32_t in_uiStreamId,
                   MediaEndpoint::Direction in_direction)
        : VoipEvent(in_type), m_uiStreamId(in_uiStreamId), m_direction(in_direction)
    {
    }

private:
    std::uint32_t m_uiStreamId;
    MediaEndpoint::Direction m_direction;
};

/// The capacity that the engine reserved for a stream, or null when it could not.
class VoipSetCapacityMediaEvent : public VoipMediaEvent
{
public:
    QUORVEX_MEM_ACCOUNT("VoipSetCapacityMediaEvent");

    /// Takes ownership of the capacity.
    VoipSetCapacityMediaEvent(std::uint32_t in_uiStreamId,
                              MediaEndpoint::Direction in_direction,
                              MediaEndpointCapacity* in_pCapacity);
    VoipSetCapacityMediaEvent(const VoipSetCapacityMediaEvent& in_other);
    VoipSetCapacityMediaEvent& operator=(const VoipSetCapacityMediaEvent& in_other);
    ~VoipSetCapacityMediaEvent() override;

    /// Owned by the event.
    MediaEndpointCapacity* getCapacity() const { return m_pCapacity.get(); }
    /// Hands the capacity over; the event holds none afterwards.
    std::unique_ptr<MediaEndpointCapacity> takeCapacity() const { return std::move(m_pCapacity); }

    VoipEvent* clone() const override { return new VoipSetCapacityMediaEvent(*this); }

private:
    // Whoever handles the event takes it, though events are passed as constants.
    mutable std::unique_ptr<MediaEndpointCapacity> m_pCapacity;
};

/// Something that the engine heard or found out (a tone, the result of a call-progress analysis).
class VoipNotificationMediaEvent : public VoipMediaEvent
{
public:
    QUORVEX_MEM_ACCOUNT("VoipNotificationMediaEvent");

    /// Takes ownership of the notification.
    VoipNotificationMediaEvent(std::uint32_t in_uiStreamId, MediaNotificationEvent* in_pNotification);
    VoipNotificationMediaEvent(const VoipNotificationMediaEvent& in_other);
    VoipNotificationMediaEvent& operator=(const VoipNotificationMediaEvent& in_other);
    ~VoipNotificationMediaEvent() override;

    /// Owned by the event.
    MediaNotificationEvent* getNotification() const { return m_pNotification.get(); }

    VoipEvent* clone() const override { return new VoipNotificationMediaEvent(*this); }

private:
    std::unique_ptr<MediaNotificationEvent> m_pNotification;
};

/// What an endpoint was asked to do.
enum class MediaOpType : std::uint32_t
{
    eCONFIG = 0,
    eSTART = 1,
    eSTOP = 2
};

/// How an endpoint operation ended.
class VoipOpStatusMediaEvent : public VoipMediaEvent
{
public:
    QUORVEX_MEM_ACCOUNT("VoipOpStatusMediaEvent");

    VoipOpStatusMediaEvent(std::uint32_t in_uiStreamId,
                           MediaEndpoint::Direction in_direction,
                           MediaOpType in_opType,
                           MediaEndpointCallback::EptOpStatus in_opStatus)
        : VoipMediaEvent(EventType::eMEDIA_OP_STATUS, in_uiStreamId, in_direction),
          m_opType(in_opType),
          m_opStatus(in_opStatus)
    {
    }

    MediaOpType getOpType() const { return m_opType; }
    MediaEndpointCallback::EptOpStatus getOpStatus() const { return m_opStatus; }

    std::ostream& write(std::ostream& out_stream) const override;
    VoipEvent* clone() const override { return new VoipOpStatusMediaEvent(*this); }

private:
    MediaOpType m_opType;
    MediaEndpointCallback::EptOpStatus m_opStatus;
};

// ------------------------------------------------------------------------------------------------------ SIP
// events

/// A SIP request.
class RequestEvent : public VoipEvent
{
public:
    RequestEvent(EventType::eTYPE in_type, const DsHandle<DsSipRequest>& in_hRequest)
        : VoipEvent(in_type), m_hRequest(in_hRequest)
    {
    }

    /// May be nil.
    const DsHandle<DsSipRequest>& getRequest() const { return m_hRequest; }

    std::ostream& write(std::ostream& out_stream) const override;
    VoipEvent* clone() const override { return new RequestEvent(*this); }

private:
    DsHandle<DsSipRequest> m_hRequest;
};

/// A SIP request that the state answers itself, on its server transaction.
class UnknownRequestEvent : public RequestEvent
{
public:
    QUORVEX_MEM_ACCOUNT("UnknownRequestEvent");

    UnknownRequestEvent(EventType::eTYPE in_type,
                        const DsHandle<DsSipServerTransaction>& in_hTransaction,
                        const DsHandle<DsSipRequest>& in_hRequest)
        : RequestEvent(in_type, in_hRequest), m_hTransaction(in_hTransaction)
    {
    }

    const DsHandle<DsSipServerTransaction>& getTransaction() const { return m_hTransaction; }

    VoipEvent* clone() const override { return new UnknownRequestEvent(*this); }

private:
    DsHandle<DsSipServerTransaction> m_hTransaction;
};

/// A SIP response. A nil one is reported, and printed as code 0.
class SipResponseEvent : public VoipEvent
{
public:
    /// Of type eSIP_RESPONSE.
    explicit SipResponseEvent(const DsHandle<DsSipResponse>& in_hResponse);
    SipResponseEvent(EventType::eTYPE in_type, const DsHandle<DsSipResponse>& in_hResponse);

    const DsHandle<DsSipResponse>& getResponse() const { return m_hResponse; }
    const SipResponseEvent* asSipResponseEvent() const override { return this; }

    std::ostream& write(std::ostream& out_stream) const override;
    VoipEvent* clone() const override { return new SipResponseEvent(*this); }

private:
    DsHandle<DsSipResponse> m_hResponse;
};

/// A response to the INVITE of an outbound call: provisional.
class ProvisionalResponseEvent : public SipResponseEvent, public CallData<DsHandle<DsSipOutgoingCall>>
{
public:
    QUORVEX_MEM_ACCOUNT("ProvisionalResponseEvent");

    /// e100_TRYING, e180_RINGING or e183_SESSION_PROGRESS.
    ProvisionalResponseEvent(EventType::eTYPE in_type,
                             const DsHandle<DsSipOutgoingCall>& in_hCall,
                             const DsHandle<DsSipDialog>& in_hDialog,
                             const DsHandle<DsSipResponse>& in_hResponse)
        : SipResponseEvent(in_type, in_hResponse), CallData(in_hCall, in_hDialog)
    {
    }
    VoipEvent* clone() const override { return new ProvisionalResponseEvent(*this); }
};

/// A response to the INVITE of an outbound call: a failure.
class FailedToConnectEvent : public SipResponseEvent, public CallData<DsHandle<DsSipOutgoingCall>>
{
public:
    QUORVEX_MEM_ACCOUNT("FailedToConnectEvent");

    /// eREMOTE_BUSY, eINVALID_NUMBER, eNO_ANSWER or e3XX_REDIRECTION.
    FailedToConnectEvent(EventType::eTYPE in_type,
                         const DsHandle<DsSipOutgoingCall>& in_hCall,
                         const DsHandle<DsSipDialog>& in_hDialog,
                         const DsHandle<DsSipResponse>& in_hResponse)
        : SipResponseEvent(in_type, in_hResponse), CallData(in_hCall, in_hDialog)
    {
    }
    VoipEvent* clone() const override { return new FailedToConnectEvent(*this); }
};

/// A response to the INVITE of an outbound call: 2xx.
class SucceededEvent : public SipResponseEvent, public CallData<DsHandle<DsSipOutgoingCall>>
{
public:
    QUORVEX_MEM_ACCOUNT("SucceededEvent");

    SucceededEvent(const DsHandle<DsSipOutgoingCall>& in_hCall,
                   const DsHandle<DsSipDialog>& in_hDialog,
                   const DsHandle<DsSipResponse>& in_hResponse)
        : SipResponseEvent(EventType::e200_OK, in_hResponse), CallData(in_hCall, in_hDialog)
    {
    }
    VoipEvent* clone() const override { return new SucceededEvent(*this); }
};

/// A response to the INVITE of an outbound call: 3xx.
class RedirectEvent : public SipResponseEvent, public CallData<DsHandle<DsSipOutgoingCall>>
{
public:
    QUORVEX_MEM_ACCOUNT("RedirectEvent");

    RedirectEvent(const DsHandle<DsSipOutgoingCall>& in_hCall,
                  const DsHandle<DsSipDialog>& in_hDialog,
                  const DsHandle<DsSipResponse>& in_hResponse)
        : SipResponseEvent(EventType::e3XX_REDIRECTION, in_hResponse), CallData(in_hCall, in_hDialog)
    {
    }
    VoipEvent* clone() const override { return new RedirectEvent(*this); }
};

// ---------------------------------------------------------------------------------------------- call-engine
// events

/// The engine takes the call and says how the caller is to hear it ring.
class InviteAcceptedEvent : public VoipEvent
{
public:
    QUORVEX_MEM_ACCOUNT("InviteAcceptedEvent");
    explicit InviteAcceptedEvent(RingType in_ringType)
        : VoipEvent(EventType::eAPI_INVITE_ACCEPTED), m_ringType(in_ringType)
    {
    }
    RingType getRingType() const { return m_ringType; }
    VoipEvent* clone() const override { return new InviteAcceptedEvent(*this); }

private:
    RingType m_ringType;
};

class TransferAcceptedEvent : public VoipEvent
{
public:
    QUORVEX_MEM_ACCOUNT("TransferAcceptedEvent");
    explicit TransferAcceptedEvent(RingType in_ringType)
        : VoipEvent(EventType::eAPI_TRANSFER_ACCEPTED), m_ringType(in_ringType)
    {
    }
    RingType getRingType() const { return m_ringType; }
    VoipEvent* clone() const override { return new TransferAcceptedEvent(*this); }

private:
    RingType m_ringType;
};

class RemoteConnEvent : public VoipEvent
{
public:
    QUORVEX_MEM_ACCOUNT("RemoteConnEvent");
    explicit RemoteConnEvent(Call::ConnectionType in_connType)
        : VoipEvent(EventType::eAPI_REMOTE_CONNECTED), m_connType(in_connType)
    {
    }
    Call::ConnectionType getConnType() const { return m_connType; }
    VoipEvent* clone() const override { return new RemoteConnEvent(*this); }

private:
    Call::ConnectionType m_connType;
};

class InviteRejectedEvent : public VoipEvent
{
public:
    QUORVEX_MEM_ACCOUNT("InviteRejectedEvent");
    explicit InviteRejectedEvent(const ConnectionFailureType& in_failure)
        : VoipEvent(EventType::eAPI_INVITE_REJECTED), m_failure(in_failure)
    {
    }
    ConnectionFailureType getInvFailType() const { return m_failure; }
    VoipEvent* clone() const override { return new InviteRejectedEvent(*this); }

private:
    ConnectionFailureType m_failure;
};

class RemoteConnFailedEvent : public VoipEvent
{
public:
    QUORVEX_MEM_ACCOUNT("RemoteConnFailedEvent");
    explicit RemoteConnFailedEvent(const ConnectionFailureType& in_failure)
        : VoipEvent(EventType::eAPI_REMOTE_CONN_FAILED), m_failure(in_failure)
    {
    }
    const ConnectionFailureType& getConnFailType() const { return m_failure; }
    VoipEvent* clone() const override { return new RemoteConnFailedEvent(*this); }

private:
    ConnectionFailureType m_failure;
};

class TransferFailureEvent : public VoipEvent
{
public:
    QUORVEX_MEM_ACCOUNT("TransferFailureEvent");
    explicit TransferFailureEvent(const ConnectionFailureType& in_failure)
        : VoipEvent(EventType::eAPI_TRANSFER_FAILURE), m_failure(in_failure)
    {
    }
    const ConnectionFailureType& getTransferFailureType() const { return m_failure; }
    VoipEvent* clone() const override { return new TransferFailureEvent(*this); }

private:
    ConnectionFailureType m_failure;
};

class SendInfoMsgEvent : public VoipEvent
{
public:
    QUORVEX_MEM_ACCOUNT("SendInfoMsgEvent");
    explicit SendInfoMsgEvent(const std::vector<Parameter>& in_vInfoMsg);
    SendInfoMsgEvent(const SendInfoMsgEvent& in_other);
    SendInfoMsgEvent& operator=(const SendInfoMsgEvent& in_other);
    ~SendInfoMsgEvent() override;

    /// Owned by the event; never null.
    const std::vector<Parameter>* getInfoMsg() const { return m_pInfoMsg.get(); }
    VoipEvent* clone() const override { return new SendInfoMsgEvent(*this); }

private:
    std::unique_ptr<std::vector<Parameter>> m_pInfoMsg;
};

/// The engine places a call.
class InviteEvent : public VoipEvent
{
public:
    QUORVEX_MEM_ACCOUNT("InviteEvent");
    /// Clones the call information, on the calling thread.
    explicit InviteEvent(const CallInfo& in_callInfo);

    const CallInfo& getCallInfo() const { return *m_pCallInfo; }
    VoipEvent* clone() const override { return new InviteEvent(*this); }

private:
    // Shared by the event's clones: nobody changes it.
    CountedObjPtr<CallInfo> m_pCallInfo;
};

// ----------------------------------------------------------------------------------------------------------
// timers

/// The expiry of a state's timer.
class VoipTimeoutEvent : public VoipEvent, public TimeoutEvent
{
public:
    QUORVEX_MEM_ACCOUNT("VoipTimeoutEvent");
    VoipTimeoutEvent(const ACE_Time_Value& in_expiryTime, TimeoutData* in_pData)
        : VoipEvent(EventType::eTIMEOUT), TimeoutEvent(in_expiryTime, in_pData)
    {
    }
    std::ostream& write(std::ostream& out_stream) const override { return TimeoutEvent::write(out_stream); }
    VoipEvent* clone() const override { return new VoipTimeoutEvent(*this); }
};

}  // namespace Quorvex
