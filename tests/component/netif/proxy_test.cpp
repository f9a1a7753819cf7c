// The bridges: what is called on a foreign thread reaches the machine as its event, in order, or nothing at
// all.

#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <memory>
#include <string>
#include <type_traits>
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

}  // namespace

TEST(ProxyTest, EveryInboundCallbackIsItsEvent)
{
    RunningNetIf running;
    EventCapture events;
    auto hProxy = running.probe().newInProxy("call");
    const auto hCall = running.probe().newInCall();
    running.probe().run([] {});
    static_cast<void>(events.takeAll());

    struct Case
    {
        const char* m_szName;
        std::function<void(InSipLegInterfaceProxy&)> m_call;
        Texts m_vEvents;
    };
    using Proxy = InSipLegInterfaceProxy;
    const DsHandle<DsSipServerTransaction> hTransaction;
    const DsHandle<DsSipDialog> hDialog;
    const std::vector<Case> vCases = {
        {"prack",                   [&](Proxy& p) { p.prack(hCall, makeDs<DsSipPrackMessage>("sip:a@b")); }, {""}                        },
        {"callConfirmed",           [&](Proxy& p) { p.callConfirmed(hCall, ack("", "")); },                  {"eACK"}                    },
        {"terminated(nil)",         [&](Proxy& p) { p.terminated(hCall, nullptr); },                         {"eTERMINATED_UPON_TIMEOUT"}},
        {"terminated(response)",    [&](Proxy& p) { p.terminated(hCall, response(481)); },                   {"e200_OK code=481"}        },
        {"terminated(ACK)",         [&](Proxy& p) { p.terminated(hCall, ack("", "")); },                     {"eACK"}                    },
        {"terminated(CANCEL)",      [&](Proxy& p) { p.terminated(hCall, request("CANCEL")); },               {"eCANCEL"}                 },
        {"terminated(BYE)",         [&](Proxy& p) { p.terminated(hCall, request("BYE")); },                  {"eBYE method=BYE"}         },
        {"terminated(other)",       [&](Proxy& p) { p.terminated(hCall, request("OPTIONS")); },              {}                          },
        {"notifyResponse",          [&](Proxy& p) { p.notifyResponse(hCall, response(200)); },               {}                          },
        {"unknownRequest(INFO)",
         [&](Proxy& p) { p.unknownRequest(hCall, hTransaction, request("INFO")); },
         {"eINFO method=INFO"}                                                                                                           },
        {"unknownRequest(OPTIONS)",
         [&](Proxy& p) { p.unknownRequest(hCall, hTransaction, request("OPTIONS")); },
         {}                                                                                                                              },
        {"referRequest",
         [&](Proxy& p) { p.referRequest(hCall, hTransaction, request("REFER")); },
         {"eREFER method=REFER"}                                                                                                         },
        {"reinviteRequest",
         [&](Proxy& p) { p.reinviteRequest(hCall, invite()); },
         {"eREINVITE_REQUEST method=INVITE"}                                                                                             },
        {"reinviteCancel",
         [&](Proxy& p) { p.reinviteCancel(hCall, request("CANCEL")); },
         {"eREINVITE_CANCEL method=CANCEL"}                                                                                              },
        {"reinviteResponse",
         [&](Proxy& p) { p.reinviteResponse(hCall, response(488)); },
         {"eREINVITE_RESPONSE code=488"}                                                                                                 },
        {"reinviteAck",             [&](Proxy& p) { p.reinviteAck(hCall, ack("", "")); },                    {"eREINVITE_ACK"}           },
        {"reinviteAck with text",
         [&](Proxy& p) { p.reinviteAck(hCall, ack("x", "text/plain")); },
         {"eREINVITE_ACK"}                                                                                                               },
        {"reinviteAck with SDP",
         [&](Proxy& p) { p.reinviteAck(hCall, ack("v=0", "APPLICATION/SDP")); },
         {"eREINVITE_ACK_WITH_SDP"}                                                                                                      },
        {"reinviteTimeOut",         [&](Proxy& p) { p.reinviteTimeOut(hCall, invite()); },                   {"eREINVITE_TIMED_OUT"}     },
        {"onSessionTimeOut",        [&](Proxy& p) { p.onSessionTimeOut(hCall); },                            {"eSESSION_TIMED_OUT"}      },
        {"onSessionRefreshTime",    [&](Proxy& p) { p.onSessionRefreshTime(hCall); },                        {"eSESSION_REFRESH_TIME"}   },
        {"replacesDialog",
         [&](Proxy& p) { p.replacesDialog(hCall, hDialog, hDialog, invite()); },
         {"eREPLACES"}                                                                                                                   },
    };
    for (const Case& testCase : vCases)
    {
        SCOPED_TRACE(testCase.m_szName);
        testCase.m_call(*hProxy);
        running.probe().run([] {});
        EXPECT_EQ(events.takeAll(), testCase.m_vEvents);
    }
    hProxy = nullptr;
    running.engine().deleteLegs();
}

TEST(ProxyTest, EveryOutboundCallbackIsItsEvent)
{
    RunningNetIf running;
    EventCapture events;
    running.engine().placeCall(running.netIf(), "call", nullptr);
    running.engine().run([] {});
    DsHandle<OutSipLegInterfaceProxy> hProxy;
    running.probe().run(
        [&]
        {
            auto* pInterface = running.netIf().newSipOutgoingCallinterface(
                running.probe().activeOut().begin()->second->getUUID());
            hProxy.reset(dynamic_cast<OutSipLegInterfaceProxy*>(pInterface));
        });
    ASSERT_FALSE(hProxy.isNil());
    static_cast<void>(events.takeAll());

    const DsHandle<DsSipOutgoingCall> hCall;
    const DsHandle<DsSipDialog> hDialog;
    const DsHandle<DsSipServerTransaction> hTransaction;
    const auto expect = [&](const std::string& in_strName, const Texts& in_vEvents)
    {
        running.probe().run([] {});
        EXPECT_EQ(events.takeAll(), in_vEvents) << in_strName;
    };

    struct Code
    {
        unsigned int m_uiCode;
        const char* m_szEvent;
    };
    for (const Code& code : std::vector<Code>{
             {100, "e100_TRYING"          },
             {180, "e180_RINGING"         },
             {181, "e183_SESSION_PROGRESS"},
             {183, "e183_SESSION_PROGRESS"},
             {199, "e183_SESSION_PROGRESS"}
    })
    {
        hProxy->provisionalResponse(hCall, hDialog, response(code.m_uiCode));
        expect("provisional", {std::string(code.m_szEvent) + " code=" + std::to_string(code.m_uiCode)});
    }
    for (const Code& code : std::vector<Code>{
             {300, "e3XX_REDIRECTION"},
             {301, "e3XX_REDIRECTION"},
             {302, "e3XX_REDIRECTION"},
             {305, "e3XX_REDIRECTION"},
             {380, "eINVALID_NUMBER" },
             {400, "eINVALID_NUMBER" },
             {403, "eINVALID_NUMBER" },
             {404, "eINVALID_NUMBER" },
             {406, "eINVALID_NUMBER" },
             {408, "eNO_ANSWER"      },
             {410, "eINVALID_NUMBER" },
             {480, "eREMOTE_BUSY"    },
             {484, "eINVALID_NUMBER" },
             {485, "eINVALID_NUMBER" },
             {486, "eREMOTE_BUSY"    },
             {487, "eINVALID_NUMBER" },
             {488, "eINVALID_NUMBER" },
             {499, "eINVALID_NUMBER" },
             {500, "eINVALID_NUMBER" },
             {503, "eREMOTE_BUSY"    },
             {600, "eREMOTE_BUSY"    },
             {603, "eREMOTE_BUSY"    },
             {604, "eINVALID_NUMBER" }
    })
    {
        hProxy->failedToConnect(hCall, hDialog, response(code.m_uiCode));
        expect("failed", {std::string(code.m_szEvent) + " code=" + std::to_string(code.m_uiCode)});
    }
    for (const Code& code : std::vector<Code>{
             {200, "e200_OK"                 },
             {202, "eSIP_RESPONSE"           },
             {481, "e481_CALLEG_DOESNOTEXIST"},
             {487, "e487_REQUEST_CANCELLED"  },
             {500, "eSIP_RESPONSE"           }
    })
    {
        hProxy->dialogTerminated(hCall, hDialog, response(code.m_uiCode));
        expect("dialog", {std::string(code.m_szEvent) + " code=" + std::to_string(code.m_uiCode)});
    }

    struct Case
    {
        const char* m_szName;
        std::function<void(OutSipLegInterfaceProxy&)> m_call;
        Texts m_vEvents;
    };
    using Proxy = OutSipLegInterfaceProxy;
    const std::vector<Case> vCases = {
        {"failedToConnect(nil)",
         [&](Proxy& p) { p.failedToConnect(hCall, hDialog, nullptr); },
         {"eTERMINATED_UPON_TIMEOUT"}                                                                                               },
        {"dialogTerminated(nil)",
         [&](Proxy& p) { p.dialogTerminated(hCall, hDialog, nullptr); },
         {"eTERMINATED_UPON_TIMEOUT"}                                                                                               },
        {"dialogTerminated(BYE)",
         [&](Proxy& p) { p.dialogTerminated(hCall, hDialog, request("BYE")); },
         {"eBYE method=BYE"}                                                                                                        },
        {"dialogTerminated(other)",
         [&](Proxy& p) { p.dialogTerminated(hCall, hDialog, request("INFO")); },
         {"eINVALID"}                                                                                                               },
        {"redirect",
         [&](Proxy& p) { p.redirect(hCall, hDialog, response(302)); },
         {"e3XX_REDIRECTION code=302"}                                                                                              },
        {"redirect(nil)",               [&](Proxy& p) { p.redirect(hCall, hDialog, nullptr); },               {}                    },
        {"succeeded",                   [&](Proxy& p) { p.succeeded(hCall, hDialog, response(200)); },        {"e200_OK code=200"}  },
        {"terminated",                  [&](Proxy& p) { p.terminated(hCall, nullptr); },                      {}                    },
        {"reliableProvisionalResponse",
         [&](Proxy& p) { p.reliableProvisionalResponse(hCall, hDialog, response(183)); },
         {}                                                                                                                         },
        {"referRequest",
         [&](Proxy& p) { p.referRequest(hCall, hDialog, hTransaction, request("REFER")); },
         {"eREFER method=REFER"}                                                                                                    },
        {"referResponse",               [&](Proxy& p) { p.referResponse(hCall, hDialog, response(202)); },    {}                    },
        {"notifyRequest",
         [&](Proxy& p) { p.notifyRequest(hCall, hDialog, hTransaction, request("NOTIFY")); },
         {}                                                                                                                         },
        {"notifyResponse",              [&](Proxy& p) { p.notifyResponse(hCall, hDialog, response(200)); },   {}                    },
        {"unknownRequest(NOTIFY)",
         [&](Proxy& p) { p.unknownRequest(hCall, hDialog, hTransaction, request("NOTIFY")); },
         {"eNOTIFY method=NOTIFY"}                                                                                                  },
        {"reinviteRequest",
         [&](Proxy& p) { p.reinviteRequest(hCall, hDialog, invite()); },
         {"eREINVITE_REQUEST method=INVITE"}                                                                                        },
        {"reinviteCancel",
         [&](Proxy& p) { p.reinviteCancel(hCall, hDialog, request("CANCEL")); },
         {"eREINVITE_CANCEL method=CANCEL"}                                                                                         },
        {"reinviteResponse",
         [&](Proxy& p) { p.reinviteResponse(hCall, hDialog, response(488)); },
         {"eREINVITE_RESPONSE code=488"}                                                                                            },
        {"reinviteAck",                 [&](Proxy& p) { p.reinviteAck(hCall, hDialog, ack("", "")); },        {"eREINVITE_ACK"}     },
        {"reinviteAck with SDP",
         [&](Proxy& p) { p.reinviteAck(hCall, hDialog, ack("v=0", "application/sdp")); },
         {"eREINVITE_ACK_WITH_SDP"}                                                                                                 },
        {"reinviteTimeOut",
         [&](Proxy& p) { p.reinviteTimeOut(hCall, hDialog, invite()); },
         {"eREINVITE_TIMED_OUT"}                                                                                                    },
        {"onSessionTimeOut",            [&](Proxy& p) { p.onSessionTimeOut(hCall, hDialog); },                {"eSESSION_TIMED_OUT"}},
        {"onSessionRefreshTime",
         [&](Proxy& p) { p.onSessionRefreshTime(hCall, hDialog); },
         {"eSESSION_REFRESH_TIME"}                                                                                                  },
        {"multipleResponse",            [&](Proxy& p) { p.multipleResponse(hCall, hDialog, response(200)); }, {}                    },
        {"replacesDialog",
         [&](Proxy& p) { p.replacesDialog(hCall, hDialog, hDialog, invite()); },
         {"eREPLACES"}                                                                                                              },
    };
    for (const Case& testCase : vCases)
    {
        testCase.m_call(*hProxy);
        expect(testCase.m_szName, testCase.m_vEvents);
    }
    hProxy = nullptr;
    running.engine().deleteLegs();
}

TEST(ProxyTest, EveryCommandOfTheCallEngineIsItsEventInOrder)
{
    RunningNetIf running;
    EventCapture events;
    const auto hCall = running.probe().newInCall();
    ASSERT_TRUE(running.engine().waitForTold("newInCall"));
    running.probe().run([] {});
    static_cast<void>(events.takeAll());
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

    running.engine().setScript(
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
    const auto hSecond = running.probe().newInCall();
    ASSERT_TRUE(running.engine().waitForTold("newInCall", 2));
    running.engine().run([] {});
    running.probe().run([] {});
    Texts vExpected = {"eINVALID",
                       "eAPI_INVITE_ACCEPTED",
                       "eAPI_INVITE_REJECTED",
                       "eAPI_REMOTE_CONNECTED",
                       "eAPI_REMOTE_CONN_FAILED"};
    vExpected.erase(vExpected.begin());  // the initial state is entered without a processed event
    vExpected.insert(vExpected.end(), vCommon.begin(), vCommon.end());
    EXPECT_EQ(events.takeAll(), vExpected);

    running.engine().setScript(nullptr);
    running.engine().placeCall(running.netIf(),
                               "out",
                               [&](ScriptedCall& io_call)
                               {
                                   sayCommon(*io_call.getLeg());
                                   EXPECT_TRUE(io_call.getOutLeg()->invite(CallInfo()));
                               });
    running.engine().run([] {});
    running.probe().run([] {});
    vExpected = vCommon;
    vExpected.emplace_back("eAPI_INVITE");
    const Texts vProcessed = events.takeAll();
    // A machine that has come to its end says so by events of its own.
    ASSERT_GE(vProcessed.size(), vExpected.size());
    EXPECT_EQ(Texts(vProcessed.begin(), vProcessed.begin() + static_cast<long>(vExpected.size())), vExpected);
}

TEST(ProxyTest, ReportsOfTheMediaEngineAreEventsInOrder)
{
    RunningNetIf running;
    EventCapture events;
    running.media().setAnswer([](const ScriptedMediaEngine::Request&, MediaEndpointCallback&) {});
    std::unique_ptr<MediaEndpoint> pEndpoint;
    auto hProxy = running.probe().newInProxy("call");
    running.probe().run(
        [&]
        {
            pEndpoint.reset(running.netIf().getEndpoint(
                "call", 7, running.probe().activeIn().begin()->second.get(), Media::SENDRECV_MODE, false));
        });
    ASSERT_NE(pEndpoint, nullptr);
    static_cast<void>(events.takeAll());
    const std::uint32_t uiEndpoint = running.media().getRequests().back().m_uiEndpoint;
    running.media().report(
        uiEndpoint,
        [](MediaEndpointCallback& io_callback)
        {
            constexpr auto eRX = MediaEndpoint::RX_DIRECTION;
            constexpr auto eTX = MediaEndpoint::TX_DIRECTION;
            EXPECT_TRUE(io_callback.setCapacity(eRX, new MediaEndpointCapacity));
            EXPECT_TRUE(io_callback.getCapacityFailure(eRX));
            EXPECT_TRUE(io_callback.configureStatus(eTX, MediaEndpointCallback::SUCCESS_STATUS));
            EXPECT_TRUE(io_callback.startStatus(eRX, MediaEndpointCallback::INVALID_STATE_STATUS));
            EXPECT_TRUE(io_callback.stopStatus(eTX, MediaEndpointCallback::SUCCESS_STATUS));
            EXPECT_TRUE(io_callback.notifyEvent(new DtmfNotificationEvent('5', 100)));
        });
    // The machine goes with its last proxy, which is the media callback: reports made before are still
    // delivered.
    running.engine().deleteLegs();
    hProxy = nullptr;
    running.probe().run([&] { pEndpoint.reset(); });
    ASSERT_TRUE(running.media().waitForRequests("delete", 1));
    ASSERT_TRUE(running.probe().waitUntilEmpty());
    Texts vProcessed = events.takeAll();
    vProcessed.resize(6);
    EXPECT_EQ(vProcessed,
              (Texts{"eMEDIA_SET_CAPACITY, stream-id= 7, dir= RX",
                     "eMEDIA_SET_CAPACITY, stream-id= 7, dir= RX",
                     "eMEDIA_OP_STATUS, stream-id= 7, dir= TX, type=eCONFIG SUCCESS",
                     "eMEDIA_OP_STATUS, stream-id= 7, dir= RX, type=eSTART INVALID_STATE",
                     "eMEDIA_OP_STATUS, stream-id= 7, dir= TX, type=eSTOP SUCCESS",
                     "eMEDIA_NOTIFICATION, stream-id= 7, dir= NONE"}));
    EXPECT_EQ(running.media().getNumCallbacks(), 0U);
}

namespace
{

/// An endpoint of a machine, whose media callback has lost the machine.
template <class Machine>
class LateEndpoint
{
public:
    LateEndpoint(RunningNetIf& io_running, const char* in_szCallId) : m_running(io_running)
    {
        m_running.media().setAnswer([](const ScriptedMediaEngine::Request&, MediaEndpointCallback&) {});
        m_running.probe().run(
            [&]
            {
                m_pEndpoint.reset(m_running.netIf().getEndpoint(
                    in_szCallId, 7, activeMachine(), Media::SENDRECV_MODE, false));
            });
        std::promise<std::uint32_t> id;
        report([&](MediaEndpointCallback& io_callback)
               { id.set_value(dynamic_cast<RtpCallbackProxy<Machine>&>(io_callback).getObjectID()); });
        const std::uint32_t uiID = id.get_future().get();
        m_running.probe().run(
            [&]
            {
                EXPECT_EQ(
                    kIn ? m_running.probe().releaseInMedia(uiID) : m_running.probe().releaseOutMedia(uiID),
                    eMO_DONE);
            });
    }
    LateEndpoint(const LateEndpoint&) = delete;
    LateEndpoint& operator=(const LateEndpoint&) = delete;
    ~LateEndpoint()
    {
        m_running.probe().run([this] { m_pEndpoint.reset(); });
    }

    /// The media engine says all that it can; it has been said when this returns.
    void reportAll()
    {
        constexpr auto eRX = MediaEndpoint::RX_DIRECTION;
        constexpr auto eTX = MediaEndpoint::TX_DIRECTION;
        constexpr auto eSUCCESS = MediaEndpointCallback::SUCCESS_STATUS;
        std::promise<void> reported;
        report(
            [&](MediaEndpointCallback& io_callback)
            {
                EXPECT_TRUE(io_callback.setCapacity(eRX, new MediaEndpointCapacity));
                EXPECT_TRUE(io_callback.getCapacityFailure(eTX));
                EXPECT_TRUE(io_callback.configureStatus(eRX, eSUCCESS));
                EXPECT_TRUE(io_callback.startStatus(eRX, eSUCCESS));
                EXPECT_TRUE(io_callback.stopStatus(eTX, eSUCCESS));
                EXPECT_TRUE(io_callback.notifyEvent(new DtmfNotificationEvent('5', 100)));
                reported.set_value();
            });
        reported.get_future().wait();
    }

private:
    static constexpr bool kIn = std::is_same_v<Machine, InStateMachine>;

    const Machine* activeMachine()
    {
        if constexpr (kIn)
        {
            return m_running.probe().activeIn().begin()->second.get();
        }
        else
        {
            return m_running.probe().activeOut().begin()->second.get();
        }
    }
    template <class Job>
    void report(Job in_job)
    {
        m_running.media().report(m_running.media().getRequests().front().m_uiEndpoint, in_job);
    }

    RunningNetIf& m_running;
    std::unique_ptr<MediaEndpoint> m_pEndpoint;
};

// Nothing was said to a machine, and what was said is gone.
void expectNothing(RunningNetIf& io_running, EventCapture& io_events)
{
    io_running.probe().run([] {});
    EXPECT_EQ(io_events.takeAll(), Texts{});
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

}  // namespace

TEST(ProxyTest, LateInboundCallbacksFindNoMachineAndDoNothing)
{
    RunningNetIf running;
    EventCapture events;
    auto hProxy = running.probe().newInProxy("call");
    running.probe().run([] {});
    LateEndpoint<InStateMachine> endpoint(running, "call");
    const std::uint32_t uiID = hProxy->getObjectID();
    running.probe().run([&] { EXPECT_EQ(running.probe().releaseIn(uiID), eMO_DONE); });
    running.engine().deleteLegs();
    ASSERT_TRUE(running.probe().waitUntilEmpty());
    static_cast<void>(events.takeAll());

    const auto hCall = running.probe().newInCall();
    hProxy->called(hCall, invite());
    hProxy->terminated(hCall, nullptr);
    hProxy->unknownRequest(hCall, nullptr, request("INFO"));
    hProxy->reinviteTimeOut(hCall, invite());
    hProxy->callConfirmed(hCall, ack("", ""));
    endpoint.reportAll();
    expectNothing(running, events);
}

TEST(ProxyTest, LateOutboundCallbacksFindNoMachineAndDoNothing)
{
    RunningNetIf running;
    EventCapture events;
    running.engine().placeCall(running.netIf(), "call", nullptr);
    running.engine().run([] {});
    DsHandle<OutSipLegInterfaceProxy> hProxy;
    running.probe().run(
        [&]
        {
            hProxy.reset(dynamic_cast<OutSipLegInterfaceProxy*>(running.netIf().newSipOutgoingCallinterface(
                running.probe().activeOut().begin()->second->getUUID())));
        });
    LateEndpoint<OutStateMachine> endpoint(running, "call");
    running.probe().run([&] { EXPECT_EQ(running.probe().releaseOutSip(hProxy->getObjectID()), eMO_DONE); });
    running.engine().deleteLegs();
    ASSERT_TRUE(running.probe().waitUntilEmpty());
    static_cast<void>(events.takeAll());

    const DsHandle<DsSipOutgoingCall> hCall;
    const DsHandle<DsSipDialog> hDialog;
    hProxy->provisionalResponse(hCall, hDialog, response(180));
    hProxy->succeeded(hCall, hDialog, response(200));
    hProxy->failedToConnect(hCall, hDialog, nullptr);
    hProxy->dialogTerminated(hCall, hDialog, request("BYE"));
    hProxy->reinviteResponse(hCall, hDialog, response(200));
    endpoint.reportAll();
    expectNothing(running, events);
}
