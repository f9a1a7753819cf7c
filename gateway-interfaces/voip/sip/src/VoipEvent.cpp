#include "VoipEvent.h"

#include <array>
#include <ostream>

#include "infra/Assertion.h"

namespace Quorvex
{

namespace
{

const Logger& logger()
{
    static const Logger s_logger("quorvex.voip.VoipEvent");
    return s_logger;
}

// Indexed by EventType::eTYPE. A PRACK has no name.
constexpr std::array<const char*, EventType::eINVALID + 1> s_eventNameVector = {
    "eAPI_STOP",
    "eAPI_KILL",
    "eAPI_HANGUP",
    "eAPI_TRANSFER_ACCEPTED",
    "eAPI_TRANSFER_SUCCESS",
    "eAPI_TRANSFER_FAILURE",
    "eAPI_SEND_INFO_MSG",
    "e200_OK",
    "e481_CALLEG_DOESNOTEXIST",
    "e487_REQUEST_CANCELLED",
    "eTERMINATED_UPON_TIMEOUT",
    "eREINVITE_TIMED_OUT",
    "eSESSION_TIMED_OUT",
    "eSESSION_REFRESH_TIME",
    "eBYE",
    "eREFER",
    "eNOTIFY",
    "eREINVITE_REQUEST",
    "eREINVITE_RESPONSE",
    "eREINVITE_CANCEL",
    "eREINVITE_ACK",
    "eREINVITE_ACK_WITH_SDP",
    "eREPLACES",
    "eINFO",
    "eSIP_REQUEST",
    "eSIP_RESPONSE",
    "eAPI_INVITE",
    "e100_TRYING",
    "e180_RINGING",
    "e183_SESSION_PROGRESS",
    "eREMOTE_BUSY",
    "eINVALID_NUMBER",
    "eNO_ANSWER",
    "e3XX_REDIRECTION",
    "eAPI_INVITE_ACCEPTED",
    "eAPI_INVITE_REJECTED",
    "eAPI_REMOTE_CONNECTED",
    "eAPI_REMOTE_CONN_FAILED",
    "eINVITE",
    "eACK",
    "",
    "eCANCEL",
    "eMEDIA_SET_CAPACITY",
    "eMEDIA_OP_STATUS",
    "eMEDIA_NOTIFICATION",
    "eAPI_MEDIA_START_CMD",
    "eTIMEOUT",
    "eINVALID",
};
static_assert(s_eventNameVector.back() != nullptr, "every event type has its place in the table");

const char* getOpTypeName(MediaOpType in_opType)
{
    switch (in_opType)
    {
        case MediaOpType::eCONFIG:
            return "eCONFIG";
        case MediaOpType::eSTART:
            return "eSTART";
        case MediaOpType::eSTOP:
            return "eSTOP";
    }
    return "???";
}

// Of what is owned by pointer: a copy of its own class.
template <class T>
std::unique_ptr<T> copyOf(const std::unique_ptr<T>& in_p)
{
    return in_p ? std::unique_ptr<T>(in_p->clone()) : nullptr;
}

}  // namespace

const char* VoipEvent::getName() const
{
    if (!QUORVEX_ASSERT(logger(), static_cast<size_t>(m_Type) < s_eventNameVector.size()))
    {
        return "";
    }
    return s_eventNameVector[m_Type];
}

std::ostream& VoipEvent::write(std::ostream& out_stream) const
{
    return out_stream << getName();
}

std::ostream& VoipMediaEvent::write(std::ostream& out_stream) const
{
    return out_stream << getName() << ", stream-id= " << m_uiStreamId
                      << ", dir= " << MediaEndpoint::getDirectionString(m_direction);
}

VoipSetCapacityMediaEvent::VoipSetCapacityMediaEvent(std::uint32_t in_uiStreamId,
                                                     MediaEndpoint::Direction in_direction,
                                                     MediaEndpointCapacity* in_pCapacity)
    : VoipMediaEvent(EventType::eMEDIA_SET_CAPACITY, in_uiStreamId, in_direction), m_pCapacity(in_pCapacity)
{
}

VoipSetCapacityMediaEvent::VoipSetCapacityMediaEvent(const VoipSetCapacityMediaEvent& in_other)
    : Object(in_other), VoipMediaEvent(in_other), m_pCapacity(copyOf(in_other.m_pCapacity))
{
}

VoipSetCapacityMediaEvent& VoipSetCapacityMediaEvent::operator=(const VoipSetCapacityMediaEvent& in_other)
{
    if (this != &in_other)
    {
        VoipMediaEvent::operator=(in_other);
        m_pCapacity = copyOf(in_other.m_pCapacity);
    }
    return *this;
}

VoipSetCapacityMediaEvent::~VoipSetCapacityMediaEvent() = default;

VoipNotificationMediaEvent::VoipNotificationMediaEvent(std::uint32_t in_uiStreamId,
                                                       MediaNotificationEvent* in_pNotification)
    : VoipMediaEvent(EventType::eMEDIA_NOTIFICATION, in_uiStreamId, static_cast<MediaEndpoint::Direction>(3)),
      m_pNotification(in_pNotification)
{
}

VoipNotificationMediaEvent::VoipNotificationMediaEvent(const VoipNotificationMediaEvent& in_other)
    : Object(in_other), VoipMediaEvent(in_other), m_pNotification(copyOf(in_other.m_pNotification))
{
}

VoipNotificationMediaEvent& VoipNotificationMediaEvent::operator=(const VoipNotificationMediaEvent& in_other)
{
    if (this != &in_other)
    {
        VoipMediaEvent::operator=(in_other);
        m_pNotification = copyOf(in_other.m_pNotification);
    }
    return *this;
}

VoipNotificationMediaEvent::~VoipNotificationMediaEvent() = default;

std::ostream& VoipOpStatusMediaEvent::write(std::ostream& out_stream) const
{
    return VoipMediaEvent::write(out_stream) << ", type=" << getOpTypeName(m_opType) << ' '
                                             << MediaEndpointCallback::getOpStatusString(m_opStatus);
}

std::ostream& RequestEvent::write(std::ostream& out_stream) const
{
    out_stream << getName() << " method=";
    if (m_hRequest.isNil())
    {
        return out_stream << "???";
    }
    return out_stream << m_hRequest->getMethod();
}

SipResponseEvent::SipResponseEvent(const DsHandle<DsSipResponse>& in_hResponse)
    : VoipEvent(EventType::eSIP_RESPONSE), m_hResponse(in_hResponse)
{
    static_cast<void>(QUORVEX_ASSERT_TEXT(logger(), !m_hResponse.isNil(), "! m_hResponse.isNil()"));
}

SipResponseEvent::SipResponseEvent(EventType::eTYPE in_type, const DsHandle<DsSipResponse>& in_hResponse)
    : VoipEvent(in_type), m_hResponse(in_hResponse)
{
    static_cast<void>(QUORVEX_ASSERT_TEXT(logger(), !m_hResponse.isNil(), "! m_hResponse.isNil()"));
}

std::ostream& SipResponseEvent::write(std::ostream& out_stream) const
{
    return out_stream << getName() << " code=" << (m_hResponse.isNil() ? 0 : m_hResponse->getStatusCode());
}

SendInfoMsgEvent::SendInfoMsgEvent(const std::vector<Parameter>& in_vInfoMsg)
    : VoipEvent(EventType::eAPI_SEND_INFO_MSG),
      m_pInfoMsg(std::make_unique<std::vector<Parameter>>(in_vInfoMsg))
{
}

SendInfoMsgEvent::SendInfoMsgEvent(const SendInfoMsgEvent& in_other)
    : Object(in_other),
      VoipEvent(in_other),
      m_pInfoMsg(std::make_unique<std::vector<Parameter>>(*in_other.m_pInfoMsg))
{
}

SendInfoMsgEvent& SendInfoMsgEvent::operator=(const SendInfoMsgEvent& in_other)
{
    if (this != &in_other)
    {
        VoipEvent::operator=(in_other);
        *m_pInfoMsg = *in_other.m_pInfoMsg;
    }
    return *this;
}

SendInfoMsgEvent::~SendInfoMsgEvent() = default;

InviteEvent::InviteEvent(const CallInfo& in_callInfo)
    : VoipEvent(EventType::eAPI_INVITE), m_pCallInfo(in_callInfo.clone())
{
    static_cast<void>(QUORVEX_ASSERT_TEXT(logger(), !m_pCallInfo.isNull(), "! m_pCallInfo.isNull()"));
}

}  // namespace Quorvex
