// The bridges: what is called on a foreign thread reaches the machine as its event, in order, or nothing at
// all.

#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "EventCapture.h"
#include "InSipLegInterfaceProxy.h"
#include "InStateMachine.h"
#include "NetIfFixture.h"
#include "OutSipLegInterfaceProxy.h"
#include "OutStateMachine.h"
#include "RtpCallbackProxy.h"
#include "media/MediaEndpointCapacity.h"
#include "media/MediaNotificationEvent.h"
#include "sipstack/DsSipAckMessage.h"
#include "sipstack/DsSipByeMessage.h"
#include "sipstack/DsSipCancelMessage.h"
#include "sipstack/DsSipIncomingCall.h"
#include "sipstack/DsSipInviteMessage.h"
#include "sipstack/DsSipOutgoingCall.h"
#include "sipstack/DsSipPrackMessage.h"
#include "sipstack/DsSipResponse.h"

using namespace Quorvex;
using namespace Quorvex::Test;

namespace
{

DsHandle<DsSipRequest> request(const char* in_szMethod)
{
    return DsSipRequest::create(in_szMethod, "sip:someone@127.0.0.1");
}

DsHandle<DsSipResponse> response(unsigned int in_uiCode)
{
    return makeDs<DsSipResponse>(in_uiCode, "");
}

DsHandle<DsSipInviteMessage> invite()
{
    return makeDs<DsSipInviteMessage>("sip:someone@127.0.0.1");
}

DsHandle<DsSipAckMessage> ack(const char* in_szBody, const char* in_szType)
{
    auto hAck = makeDs<DsSipAckMessage>("sip:someone@127.0.0.1");
    if (*in_szBody != '\0')
    {
        hAck->setBody(in_szBody, in_szType);
    }
    return hAck;
}

using Texts = std::vector<std::string>;
using InProxy = InSipLegInterfaceProxy;
using OutProxy = OutSipLegInterfaceProxy;

template <class Proxy>
struct Case
{
    const char* m_szName;
    std::function<void(Proxy&)> m_call;
    Texts m_vEvents;
};

/// A network interface whose machines say what they process, and the proxies of one call.
class ProxyTest : public testing::Test
{
protected:
    DsHandle<InProxy> inProxy() { return m_running.probe().newInProxy("call"); }
    DsHandle<OutProxy> outProxy()
    {
        DsHandle<OutProxy> hProxy;
        m_running.engine().placeCall(m_running.netIf(), "call", nullptr);
        m_running.engine().run([] {});
        m_running.probe().run(
            [&]
            {
                hProxy.reset(dynamic_cast<OutProxy*>(m_running.netIf().newSipOutgoingCallinterface(
                    m_running.probe().activeOut().begin()->second->getUUID())));
            });
        return hProxy;
    }
    /// What was processed up to now, behind all that is queued.
    Texts takeProcessed()
    {
        m_running.probe().run([] {});
        return m_events.takeAll();
    }
    template <class Proxy>
    void play(Proxy& io_proxy, const std::vector<Case<Proxy>>& in_vCases)
    {
        takeProcessed();
        for (const Case<Proxy>& testCase : in_vCases)
        {
            testCase.m_call(io_proxy);
            EXPECT_EQ(takeProcessed(), testCase.m_vEvents) << testCase.m_szName;
        }
    }

    /// A stream of the active machine, of which the media engine says nothing by itself.
    template <class Machines>
    std::unique_ptr<MediaEndpoint> newEndpoint(const Machines& in_machines)
    {
        std::unique_ptr<MediaEndpoint> pEndpoint;
        m_running.media().setAnswer([](const ScriptedMediaEngine::Request&, MediaEndpointCallback&) {});
        m_running.probe().run(
            [&]
            {
                pEndpoint.reset(m_running.netIf().getEndpoint(
                    "call", 7, in_machines.begin()->second.get(), Media::SENDRECV_MODE, false));
            });
        return pEndpoint;
    }
    /// The media engine says all that it can; it has been said when this returns. Which machine hears of it.
    template <class Machine>
    std::uint32_t reportAll()
    {
        std::promise<std::uint32_t> reported;
        m_running.media().report(
            m_running.media().getRequests().front().m_uiEndpoint,
            [&](MediaEndpointCallback& io_callback)
            {
                constexpr auto eRX = MediaEndpoint::RX_DIRECTION;
                constexpr auto eTX = MediaEndpoint::TX_DIRECTION;
                EXPECT_TRUE(io_callback.setCapacity(eRX, new MediaEndpointCapacity));
                EXPECT_TRUE(io_callback.getCapacityFailure(eRX));
                EXPECT_TRUE(io_callback.configureStatus(eTX, MediaEndpointCallback::SUCCESS_STATUS));
                EXPECT_TRUE(io_callback.startStatus(eRX, MediaEndpointCallback::INVALID_STATE_STATUS));
                EXPECT_TRUE(io_callback.stopStatus(eTX, MediaEndpointCallback::SUCCESS_STATUS));
                EXPECT_TRUE(io_callback.notifyEvent(new DtmfNotificationEvent('5', 100)));
                reported.set_value(dynamic_cast<RtpCallbackProxy<Machine>&>(io_callback).getObjectID());
            });
        return reported.get_future().get();
    }
    void forgetMachines()
    {
        m_running.engine().deleteLegs();
        ASSERT_TRUE(m_running.probe().waitUntilEmpty());
        static_cast<void>(m_events.takeAll());
    }
    /// Nothing was said to a machine, and what was said is gone.
    void expectNothing()
    {
        EXPECT_EQ(takeProcessed(), Texts{});
        for (const char* szAccount : {"Called_MO",
                                      "Terminated_MO",
                                      "UnknownRequest_MO<>",
                                      "CallConfirmed_MO",
                                      "ProvisionalResponse_MO",
                                      "Succeeded_MO",
                                      "FailedToConnect_MO",
                                      "DialogTerminated_MO",
                                      "Media_MO<SMType>",
                                      "MediaEndpointCapacity",
                                      "VoipOpStatusMediaEvent"})
        {
            EXPECT_EQ(MemAccounts::get(szAccount).liveObjects(), 0U) << szAccount;
        }
    }

    RunningNetIf m_running;
    EventCapture m_events;
    const DsHandle<DsSipServerTransaction> m_hTransaction;
    const DsHandle<DsSipDialog> m_hDialog;
    const DsHandle<DsSipOutgoingCall> m_hOutCall;
};

}  // namespace

// A case's call, and its text as the name.
#define SAYS(...) #__VA_ARGS__, [&](auto& io_proxy) { io_proxy.__VA_ARGS__; }

TEST_F(ProxyTest, EveryInboundCallbackIsItsEvent)
{
    auto hProxy = inProxy();
    const auto hCall = m_running.probe().newInCall();
    // clang-format off
    play<InProxy>(*hProxy, {
        {SAYS(prack(hCall, makeDs<DsSipPrackMessage>("sip:a@b"))), {""}},
        {SAYS(callConfirmed(hCall, ack("", ""))), {"eACK"}},
        {SAYS(terminated(hCall, nullptr)), {"eTERMINATED_UPON_TIMEOUT"}},
        {SAYS(terminated(hCall, response(481))), {"e200_OK code=481"}},
        {SAYS(terminated(hCall, ack("", ""))), {"eACK"}},
        {SAYS(terminated(hCall, request("CANCEL"))), {"eCANCEL"}},
        {SAYS(terminated(hCall, request("BYE"))), {"eBYE method=BYE"}},
        {SAYS(terminated(hCall, request("OPTIONS"))), {}},
        {SAYS(notifyResponse(hCall, response(200))), {}},
        {SAYS(unknownRequest(hCall, m_hTransaction, request("INFO"))), {"eINFO method=INFO"}},
        {SAYS(unknownRequest(hCall, m_hTransaction, request("OPTIONS"))), {}},
        {SAYS(referRequest(hCall, m_hTransaction, request("REFER"))), {"eREFER method=REFER"}},
        {SAYS(reinviteRequest(hCall, invite())), {"eREINVITE_REQUEST method=INVITE"}},
        {SAYS(reinviteCancel(hCall, request("CANCEL"))), {"eREINVITE_CANCEL method=CANCEL"}},
        {SAYS(reinviteResponse(hCall, response(488))), {"eREINVITE_RESPONSE code=488"}},
        {SAYS(reinviteAck(hCall, ack("", ""))), {"eREINVITE_ACK"}},
        {SAYS(reinviteAck(hCall, ack("x", "text/plain"))), {"eREINVITE_ACK"}},
        {SAYS(reinviteAck(hCall, ack("v=0", "APPLICATION/SDP"))), {"eREINVITE_ACK_WITH_SDP"}},
        {SAYS(reinviteTimeOut(hCall, invite())), {"eREINVITE_TIMED_OUT"}},
        {SAYS(onSessionTimeOut(hCall)), {"eSESSION_TIMED_OUT"}},
        {SAYS(onSessionRefreshTime(hCall)), {"eSESSION_REFRESH_TIME"}},
        {SAYS(replacesDialog(hCall, m_hDialog, m_hDialog, invite())), {"eREPLACES"}},
    });
    // clang-format on
    hProxy = nullptr;
    m_running.engine().deleteLegs();
}

TEST_F(ProxyTest, EveryOutboundCallbackIsItsEvent)
{
    auto hProxy = outProxy();
    ASSERT_FALSE(hProxy.isNil());
    const auto& hCall = m_hOutCall;
    const auto& hDialog = m_hDialog;
    // clang-format off
    const struct
    {
        std::function<void(unsigned)> m_report;
        std::vector<std::pair<std::vector<unsigned>, std::string>> m_vEvents;
    } kOfCodes[] = {
        {[&](unsigned in_uiCode) { hProxy->provisionalResponse(hCall, hDialog, response(in_uiCode)); },
         {{{100}, "e100_TRYING"}, {{180}, "e180_RINGING"}, {{181, 183, 199}, "e183_SESSION_PROGRESS"}}},
        {[&](unsigned in_uiCode) { hProxy->failedToConnect(hCall, hDialog, response(in_uiCode)); },
         {{{300, 301, 302, 305}, "e3XX_REDIRECTION"}, {{408}, "eNO_ANSWER"},
          {{480, 486, 503, 600, 603}, "eREMOTE_BUSY"},
          {{380, 400, 403, 404, 406, 410, 484, 485, 487, 488, 499, 500, 604}, "eINVALID_NUMBER"}}},
        {[&](unsigned in_uiCode) { hProxy->dialogTerminated(hCall, hDialog, response(in_uiCode)); },
         {{{200}, "e200_OK"}, {{202, 500}, "eSIP_RESPONSE"}, {{481}, "e481_CALLEG_DOESNOTEXIST"},
          {{487}, "e487_REQUEST_CANCELLED"}}},
    };
    // clang-format on
    takeProcessed();
    for (const auto& kind : kOfCodes)
    {
        for (const auto& [vCodes, strEvent] : kind.m_vEvents)
        {
            for (const unsigned uiCode : vCodes)
            {
                kind.m_report(uiCode);
                EXPECT_EQ(takeProcessed(), Texts{strEvent + " code=" + std::to_string(uiCode)});
            }
        }
    }
    // clang-format off
    play<OutProxy>(*hProxy, {
        {SAYS(failedToConnect(hCall, hDialog, nullptr)), {"eTERMINATED_UPON_TIMEOUT"}},
        {SAYS(dialogTerminated(hCall, hDialog, nullptr)), {"eTERMINATED_UPON_TIMEOUT"}},
        {SAYS(dialogTerminated(hCall, hDialog, request("BYE"))), {"eBYE method=BYE"}},
        {SAYS(dialogTerminated(hCall, hDialog, request("INFO"))), {"eINVALID"}},
        {SAYS(redirect(hCall, hDialog, response(302))), {"e3XX_REDIRECTION code=302"}},
        {SAYS(redirect(hCall, hDialog, nullptr)), {}},
        {SAYS(succeeded(hCall, hDialog, response(200))), {"e200_OK code=200"}},
        {SAYS(terminated(hCall, nullptr)), {}},
        {SAYS(reliableProvisionalResponse(hCall, hDialog, response(183))), {}},
        {SAYS(referRequest(hCall, hDialog, m_hTransaction, request("REFER"))), {"eREFER method=REFER"}},
        {SAYS(referResponse(hCall, hDialog, response(202))), {}},
        {SAYS(notifyRequest(hCall, hDialog, m_hTransaction, request("NOTIFY"))), {}},
        {SAYS(notifyResponse(hCall, hDialog, response(200))), {}},
        {SAYS(unknownRequest(hCall, hDialog, m_hTransaction, request("NOTIFY"))), {"eNOTIFY method=NOTIFY"}},
        {SAYS(reinviteRequest(hCall, hDialog, invite())), {"eREINVITE_REQUEST method=INVITE"}},
        {SAYS(reinviteCancel(hCall, hDialog, request("CANCEL"))), {"eREINVITE_CANCEL method=CANCEL"}},
        {SAYS(reinviteResponse(hCall, hDialog, response(488))), {"eREINVITE_RESPONSE code=488"}},
        {SAYS(reinviteAck(hCall, hDialog, ack("", ""))), {"eREINVITE_ACK"}},
        {SAYS(reinviteAck(hCall, hDialog, ack("v=0", "application/sdp"))), {"eREINVITE_ACK_WITH_SDP"}},
        {SAYS(reinviteTimeOut(hCall, hDialog, invite())), {"eREINVITE_TIMED_OUT"}},
        {SAYS(onSessionTimeOut(hCall, hDialog)), {"eSESSION_TIMED_OUT"}},
        {SAYS(onSessionRefreshTime(hCall, hDialog)), {"eSESSION_REFRESH_TIME"}},
        {SAYS(multipleResponse(hCall, hDialog, response(200))), {}},
        {SAYS(replacesDialog(hCall, hDialog, hDialog, invite())), {"eREPLACES"}},
    });
    // clang-format on
    hProxy = nullptr;
    m_running.engine().deleteLegs();
}

TEST_F(ProxyTest, EveryCommandOfTheCallEngineIsItsEventInOrder)
{
    const auto hCall = m_running.probe().newInCall();
    ASSERT_TRUE(m_running.engine().waitForTold("newInCall"));
    takeProcessed();
    const ConnectionFailureType failure(eBUSY_FAILURE);
    const auto sayCommon = [&](CallLeg& io_leg)
    {
        EXPECT_TRUE(io_leg.mediaAvailable());
        EXPECT_TRUE(io_leg.transferAccepted(eRING_WITHOUT_EARLY_MEDIA));
        EXPECT_TRUE(io_leg.transferSuccess());
        EXPECT_TRUE(io_leg.transferFailure(failure));
        EXPECT_TRUE(io_leg.sendInfoMsg({}));
        EXPECT_TRUE(io_leg.hangup());
    };
    const Texts vCommon = {"eAPI_MEDIA_START_CMD",
                           "eAPI_TRANSFER_ACCEPTED",
                           "eAPI_TRANSFER_SUCCESS",
                           "eAPI_TRANSFER_FAILURE",
                           "eAPI_SEND_INFO_MSG",
                           "eAPI_HANGUP"};

    m_running.engine().setScript(
        [&](ScriptedCall& io_call, const std::string&)
        {
            CallLeg& leg = *io_call.getLeg();
            EXPECT_TRUE(leg.inviteAccepted(eRING_WITH_EARLY_MEDIA));
            EXPECT_TRUE(leg.inviteRejected(failure));
            EXPECT_TRUE(leg.remoteConnected(Call::eCONNECTION_NONE));
            EXPECT_TRUE(leg.remoteConnectionFailed(failure));
            sayCommon(leg);
            io_call.deleteLeg();
        });
    const auto hSecond = m_running.probe().newInCall();
    ASSERT_TRUE(m_running.engine().waitForTold("newInCall", 2));
    m_running.engine().run([] {});
    Texts vExpected = {
        "eAPI_INVITE_ACCEPTED", "eAPI_INVITE_REJECTED", "eAPI_REMOTE_CONNECTED", "eAPI_REMOTE_CONN_FAILED"};
    vExpected.insert(vExpected.end(), vCommon.begin(), vCommon.end());
    EXPECT_EQ(takeProcessed(), vExpected);

    m_running.engine().setScript(nullptr);
    m_running.engine().placeCall(m_running.netIf(),
                                 "out",
                                 [&](ScriptedCall& io_call)
                                 {
                                     sayCommon(*io_call.getLeg());
                                     EXPECT_TRUE(io_call.getOutLeg()->invite(CallInfo()));
                                 });
    m_running.engine().run([] {});
    vExpected = vCommon;
    vExpected.emplace_back("eAPI_INVITE");
    const Texts vProcessed = takeProcessed();
    // A machine that has come to its end says so by events of its own.
    ASSERT_GE(vProcessed.size(), vExpected.size());
    EXPECT_EQ(Texts(vProcessed.begin(), vProcessed.begin() + static_cast<long>(vExpected.size())), vExpected);
}

TEST_F(ProxyTest, ReportsOfTheMediaEngineAreEventsInOrder)
{
    auto hProxy = inProxy();
    auto pEndpoint = newEndpoint(m_running.probe().activeIn());
    ASSERT_NE(pEndpoint, nullptr);
    static_cast<void>(m_events.takeAll());
    reportAll<InStateMachine>();
    // The machine goes with its last proxy, which is the media callback: reports made before are still
    // delivered.
    m_running.engine().deleteLegs();
    hProxy = nullptr;
    m_running.probe().run([&] { pEndpoint.reset(); });
    ASSERT_TRUE(m_running.media().waitForRequests("delete", 1));
    ASSERT_TRUE(m_running.probe().waitUntilEmpty());
    Texts vProcessed = m_events.takeAll();
    vProcessed.resize(6);
    EXPECT_EQ(vProcessed,
              (Texts{"eMEDIA_SET_CAPACITY, stream-id= 7, dir= RX",
                     "eMEDIA_SET_CAPACITY, stream-id= 7, dir= RX",
                     "eMEDIA_OP_STATUS, stream-id= 7, dir= TX, type=eCONFIG SUCCESS",
                     "eMEDIA_OP_STATUS, stream-id= 7, dir= RX, type=eSTART INVALID_STATE",
                     "eMEDIA_OP_STATUS, stream-id= 7, dir= TX, type=eSTOP SUCCESS",
                     "eMEDIA_NOTIFICATION, stream-id= 7, dir= NONE"}));
    EXPECT_EQ(m_running.media().getNumCallbacks(), 0U);
}

TEST_F(ProxyTest, LateInboundCallbacksFindNoMachineAndDoNothing)
{
    auto hProxy = inProxy();
    auto pEndpoint = newEndpoint(m_running.probe().activeIn());
    const std::uint32_t uiMediaID = reportAll<InStateMachine>();
    m_running.probe().run(
        [&]
        {
            EXPECT_EQ(m_running.probe().releaseInMedia(uiMediaID), eMO_DONE);
            EXPECT_EQ(m_running.probe().releaseIn(hProxy->getObjectID()), eMO_DONE);
        });
    forgetMachines();

    const auto hCall = m_running.probe().newInCall();
    hProxy->called(hCall, invite());
    hProxy->terminated(hCall, nullptr);
    hProxy->unknownRequest(hCall, nullptr, request("INFO"));
    hProxy->reinviteTimeOut(hCall, invite());
    hProxy->callConfirmed(hCall, ack("", ""));
    reportAll<InStateMachine>();
    expectNothing();
    m_running.probe().run([&] { pEndpoint.reset(); });
}

TEST_F(ProxyTest, LateOutboundCallbacksFindNoMachineAndDoNothing)
{
    auto hProxy = outProxy();
    auto pEndpoint = newEndpoint(m_running.probe().activeOut());
    const std::uint32_t uiMediaID = reportAll<OutStateMachine>();
    m_running.probe().run(
        [&]
        {
            EXPECT_EQ(m_running.probe().releaseOutMedia(uiMediaID), eMO_DONE);
            EXPECT_EQ(m_running.probe().releaseOutSip(hProxy->getObjectID()), eMO_DONE);
        });
    forgetMachines();

    hProxy->provisionalResponse(m_hOutCall, m_hDialog, response(180));
    hProxy->succeeded(m_hOutCall, m_hDialog, response(200));
    hProxy->failedToConnect(m_hOutCall, m_hDialog, nullptr);
    hProxy->dialogTerminated(m_hOutCall, m_hDialog, request("BYE"));
    hProxy->reinviteResponse(m_hOutCall, m_hDialog, response(200));
    reportAll<OutStateMachine>();
    expectNothing();
    m_running.probe().run([&] { pEndpoint.reset(); });
}
