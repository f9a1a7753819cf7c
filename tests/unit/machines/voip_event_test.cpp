#include <gtest/gtest.h>

#include <sstream>

#include "SipEvents.h"
#include "VoipEvent.h"
#include "infra/Assertion.h"
#include "infra/MemAccount.h"
#include "quorvex/TimeoutStateMachine.h"

namespace Quorvex
{
namespace
{

using InCall = DsHandle<DsSipIncomingCall>;
using OutCall = DsHandle<DsSipOutgoingCall>;

std::string textOf(const VoipEvent& in_event)
{
    std::ostringstream text;
    text << in_event;
    return text.str();
}

DsHandle<DsSipResponse> response(unsigned int in_uiCode)
{
    return makeDs<DsSipResponse>(in_uiCode, "reason");
}

DsHandle<DsSipRequest> request(const char* in_szMethod)
{
    return DsSipRequest::create(in_szMethod, "sip:a@127.0.0.1");
}

TEST(VoipEvent, NamesFollowTheNumbers)
{
    // Numbers and names that tools read in logs; one of each neighbourhood, and all around the nameless one.
    const struct
    {
        unsigned int m_uiType;
        const char* m_szName;
    } kCases[] = {
        {0,  "eAPI_STOP"              },
        {6,  "eAPI_SEND_INFO_MSG"     },
        {7,  "e200_OK"                },
        {12, "eSESSION_TIMED_OUT"     },
        {22, "eREPLACES"              },
        {25, "eSIP_RESPONSE"          },
        {26, "eAPI_INVITE"            },
        {33, "e3XX_REDIRECTION"       },
        {37, "eAPI_REMOTE_CONN_FAILED"},
        {38, "eINVITE"                },
        {39, "eACK"                   },
        {40, ""                       },
        {41, "eCANCEL"                },
        {42, "eMEDIA_SET_CAPACITY"    },
        {43, "eMEDIA_OP_STATUS"       },
        {44, "eMEDIA_NOTIFICATION"    },
        {45, "eAPI_MEDIA_START_CMD"   },
        {46, "eTIMEOUT"               },
        {47, "eINVALID"               },
    };
    for (const auto& example : kCases)
    {
        const VoipEvent event(static_cast<EventType::eTYPE>(example.m_uiType));
        EXPECT_STREQ(event.getName(), example.m_szName) << example.m_uiType;
        EXPECT_EQ(textOf(event), example.m_szName);
    }
    EXPECT_EQ(VoipEvent().getType(), EventType::eINVALID);
}

TEST(VoipEvent, ANumberThatIsNoTypeIsReportedAndHasNoName)
{
    const auto ulBefore = Assertion::failureCount();
    EXPECT_STREQ(VoipEvent(static_cast<EventType::eTYPE>(48)).getName(), "");
    EXPECT_STREQ(VoipEvent(static_cast<EventType::eTYPE>(0xFFFFFFFFU)).getName(), "");
    EXPECT_EQ(Assertion::failureCount(), ulBefore + 2);
}

TEST(VoipEvent, PrintedForms)
{
    const auto rx = MediaEndpoint::RX_DIRECTION;
    const std::string strRx = MediaEndpoint::getDirectionString(rx);
    EXPECT_EQ(textOf(RequestEvent(EventType::eINFO, request("INFO"))), "eINFO method=INFO");
    EXPECT_EQ(textOf(RequestEvent(EventType::eINFO, nullptr)), "eINFO method=???");
    EXPECT_EQ(textOf(SipResponseEvent(response(486))), "eSIP_RESPONSE code=486");
    EXPECT_EQ(textOf(SucceededEvent(nullptr, nullptr, response(200))), "e200_OK code=200");
    EXPECT_EQ(textOf(VoipSetCapacityMediaEvent(3, rx, nullptr)),
              "eMEDIA_SET_CAPACITY, stream-id= 3, dir= " + strRx);
    for (const auto& [op, strName] : {
             std::pair{0U, "eCONFIG"},
             std::pair{1U, "eSTART" },
             std::pair{2U, "eSTOP"  },
             std::pair{3U, "???"    }
    })
    {
        const VoipOpStatusMediaEvent event(
            1, rx, static_cast<MediaOpType>(op), MediaEndpointCallback::RESOURCE_STATUS);
        EXPECT_EQ(textOf(event),
                  "eMEDIA_OP_STATUS, stream-id= 1, dir= " + strRx + ", type=" + strName + " " +
                      MediaEndpointCallback::getOpStatusString(MediaEndpointCallback::RESOURCE_STATUS));
    }
    EXPECT_EQ(VoipNotificationMediaEvent(0, nullptr).getDirection(), 3);
}

TEST(VoipEvent, AResponseEventWithoutAResponseIsReportedAndUsable)
{
    const auto ulBefore = Assertion::failureCount();
    const SipResponseEvent event(nullptr);
    const SipResponseEvent typed(EventType::e200_OK, nullptr);
    EXPECT_EQ(Assertion::failureCount(), ulBefore + 2);
    EXPECT_EQ(textOf(event), "eSIP_RESPONSE code=0");
    EXPECT_EQ(textOf(typed), "e200_OK code=0");
}

TEST(VoipEvent, OwnedPayloadsAreCopiedAndOutliveTheirSource)
{
    auto* pCapacity = new MediaEndpointCapacity;
    pCapacity->set(MediaEndpointCapacity::UDP_PORT, 4000U);
    std::unique_ptr<VoipEvent> pCapacityClone;
    std::unique_ptr<VoipEvent> pNotificationClone;
    std::unique_ptr<VoipEvent> pInfoClone;
    {
        const VoipSetCapacityMediaEvent capacity(0, MediaEndpoint::RX_DIRECTION, pCapacity);
        const VoipNotificationMediaEvent notification(0, new DtmfNotificationEvent('5', 80));
        const SendInfoMsgEvent info({Parameter("body", "text")});
        pCapacityClone.reset(capacity.clone());
        pNotificationClone.reset(notification.clone());
        pInfoClone.reset(info.clone());
        EXPECT_NE(dynamic_cast<VoipSetCapacityMediaEvent&>(*pCapacityClone).getCapacity(), pCapacity);
    }
    auto& capacity = dynamic_cast<VoipSetCapacityMediaEvent&>(*pCapacityClone);
    ASSERT_NE(capacity.getCapacity(), nullptr);
    EXPECT_NE(capacity.takeCapacity(), nullptr);
    EXPECT_EQ(capacity.getCapacity(), nullptr) << "handed over";
    auto& notification = dynamic_cast<VoipNotificationMediaEvent&>(*pNotificationClone);
    EXPECT_EQ(dynamic_cast<DtmfNotificationEvent&>(*notification.getNotification()).getDigit(), '5');
    EXPECT_EQ(dynamic_cast<SendInfoMsgEvent&>(*pInfoClone).getInfoMsg()->at(0), Parameter("body", "text"));

    const std::unique_ptr<VoipEvent> pEmpty(
        VoipSetCapacityMediaEvent(0, MediaEndpoint::RX_DIRECTION, nullptr).clone());
    EXPECT_EQ(dynamic_cast<VoipSetCapacityMediaEvent&>(*pEmpty).getCapacity(), nullptr);
}

TEST(VoipEvent, AnInviteKeepsTheCallAsItWas)
{
    CallInfo callInfo;
    callInfo.addLeg(CallLegInfo()).setParameter("sip.out.requestUri", "sip:1@a");
    const InviteEvent event(callInfo);
    callInfo.getCurrentLeg().setParameter("sip.out.requestUri", "sip:2@b");
    const std::unique_ptr<VoipEvent> pClone(event.clone());
    const auto& clone = dynamic_cast<const InviteEvent&>(*pClone);
    EXPECT_EQ(clone.getCallInfo().getCurrentLeg().getParameterOr("sip.out.requestUri", ""), "sip:1@a");
}

TEST(VoipEvent, ATimerExpiryIsFoundInItsEventAndInNoOther)
{
    const VoipTimeoutEvent timeout(ACE_Time_Value(1, 5), nullptr);
    EXPECT_EQ(asTimeoutEvent<VoipEvent>(timeout), static_cast<const TimeoutEvent*>(&timeout));
    EXPECT_EQ(asTimeoutEvent(VoipEvent(EventType::eTIMEOUT)), nullptr);
    EXPECT_EQ(asTimeoutEvent<VoipEvent>(SipResponseEvent(response(200))), nullptr);
    std::ostringstream text;
    static_cast<const TimeoutEvent&>(timeout).write(text);
    EXPECT_EQ(textOf(timeout), text.str());
}

// Clones an event on the heap and back: of the same class and type, in the class's account, and gone
// afterwards.
template <class E>
void expectAccounted(const E& in_event, const char* in_szAccount)
{
    SCOPED_TRACE(in_szAccount);
    const MemAccount& account = MemAccounts::get(in_szAccount);
    const auto ulBefore = account.liveObjects();
    {
        const std::unique_ptr<VoipEvent> pClone(in_event.clone());
        EXPECT_NE(dynamic_cast<E*>(pClone.get()), nullptr);
        EXPECT_EQ(pClone->getType(), in_event.getType());
        EXPECT_EQ(account.liveObjects(), ulBefore + 1);
    }
    EXPECT_EQ(account.liveObjects(), ulBefore);
    EXPECT_STREQ(E::getMemAccountName(), in_szAccount);
}

template <class CallType, class Machine>
void expectTemplatesAccounted()
{
    const CallType hCall;
    const DsHandle<DsSipDialog> hDialog;
    const auto hAck = makeDs<DsSipAckMessage>("sip:a@b");
    const auto hInvite = makeDs<DsSipInviteMessage>("sip:a@b");
    const DsHandle<DsSipServerTransaction> hTransaction;
    expectAccounted(CallConfirmedEvent<CallType>(EventType::eREINVITE_ACK, hCall, hAck),
                    "CallConfirmedEvent<CallType>");
    expectAccounted(ReinviteAckWithSDPEvent<CallType>(hCall, hAck), "ReinviteAckWithSDPEvent<CallType>");
    expectAccounted(PrackEvent<CallType>(hCall, makeDs<DsSipPrackMessage>("sip:a@b")),
                    "PrackEvent<CallType>");
    expectAccounted(SessionTimeOutEvent<CallType>(hCall), "SessionTimeOutEvent<CallType>");
    expectAccounted(SessionRefreshEvent<CallType>(hCall), "SessionRefreshEvent<CallType>");
    expectAccounted(ReplacesEvent<CallType>(hCall, hDialog, hDialog, hInvite), "ReplacesEvent<CallType>");
    expectAccounted(BYERequestEvent<CallType>(hCall, hDialog, request("BYE")), "BYERequestEvent<CallType>");
    expectAccounted(ReinviteCancelEvent<CallType>(hCall, hDialog, request("CANCEL")),
                    "ReinviteCancelEvent<CallType>");
    expectAccounted(ReinviteResponseEvent<CallType>(hCall, hDialog, response(200)),
                    "ReinviteResponseEvent<CallType>");
    expectAccounted(ReinviteReqEvent<CallType, Machine>(hCall, hDialog, hInvite),
                    "ReinviteReqEvent<CallType>");
    expectAccounted(ReferEvent<CallType>(hCall, hDialog, hTransaction, request("REFER")),
                    "ReferEvent<CallType>");
    expectAccounted(NotifyEvent<CallType>(hCall, hDialog, hTransaction, request("NOTIFY")),
                    "NotifyEvent<CallType>");
}

TEST(VoipEvent, EveryClassClonesItselfUnderItsOwnAccount)
{
    const OutCall hCall;
    const DsHandle<DsSipDialog> hDialog;
    const ConnectionFailureType failure(eBUSY_FAILURE);
    expectAccounted(VoipSetCapacityMediaEvent(0, MediaEndpoint::RX_DIRECTION, new MediaEndpointCapacity),
                    "VoipSetCapacityMediaEvent");
    expectAccounted(VoipNotificationMediaEvent(0, new DtmfNotificationEvent('1', 1)),
                    "VoipNotificationMediaEvent");
    expectAccounted(
        VoipOpStatusMediaEvent(
            0, MediaEndpoint::TX_DIRECTION, MediaOpType::eSTOP, MediaEndpointCallback::SUCCESS_STATUS),
        "VoipOpStatusMediaEvent");
    expectAccounted(UnknownRequestEvent(EventType::eINFO, nullptr, request("INFO")), "UnknownRequestEvent");
    expectAccounted(ProvisionalResponseEvent(EventType::e180_RINGING, hCall, hDialog, response(180)),
                    "ProvisionalResponseEvent");
    expectAccounted(FailedToConnectEvent(EventType::eREMOTE_BUSY, hCall, hDialog, response(486)),
                    "FailedToConnectEvent");
    expectAccounted(SucceededEvent(hCall, hDialog, response(200)), "SucceededEvent");
    expectAccounted(RedirectEvent(hCall, hDialog, response(302)), "RedirectEvent");
    expectAccounted(InviteAcceptedEvent(eRING_WITH_EARLY_MEDIA), "InviteAcceptedEvent");
    expectAccounted(TransferAcceptedEvent(eRING_WITHOUT_EARLY_MEDIA), "TransferAcceptedEvent");
    expectAccounted(RemoteConnEvent(Call::eCONNECTION_VOICE), "RemoteConnEvent");
    expectAccounted(InviteRejectedEvent(failure), "InviteRejectedEvent");
    expectAccounted(RemoteConnFailedEvent(failure), "RemoteConnFailedEvent");
    expectAccounted(TransferFailureEvent(failure), "TransferFailureEvent");
    expectAccounted(SendInfoMsgEvent({}), "SendInfoMsgEvent");
    expectAccounted(InviteEvent(CallInfo()), "InviteEvent");
    expectTemplatesAccounted<InCall, InStateMachine>();
    expectTemplatesAccounted<OutCall, OutStateMachine>();
}

TEST(VoipEvent, CopyingAnEventCopiesHandlesNotMessages)
{
    const auto hBye = request("BYE");
    const auto uiBefore = hBye->getRefCount();
    {
        const BYERequestEvent<InCall> event(nullptr, nullptr, hBye);
        const std::unique_ptr<VoipEvent> pClone(event.clone());
        EXPECT_EQ(hBye->getRefCount(), uiBefore + 2);
        EXPECT_EQ(dynamic_cast<const RequestEvent&>(*pClone).getRequest().get(), hBye.get());
    }
    EXPECT_EQ(hBye->getRefCount(), uiBefore);
}

}  // namespace
}  // namespace Quorvex
