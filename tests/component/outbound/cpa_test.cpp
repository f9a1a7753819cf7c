// Outbound calls whose party is analysed, and whose media fail.

#include "OutboundFixture.h"
#include "media/MediaNotificationEvent.h"

using namespace Quorvex;
using namespace Quorvex::Test;

namespace
{

class AnalysedCallTest : public OutboundTest
{
protected:
    /// Places a call with analysis, answers it and waits until the analysis has begun. Endpoints count
    /// from 1.
    void placeAnswered(const std::string& in_strCallId, Callee& io_callee)
    {
        const std::size_t uiStarted = m_running.media().count("start");
        place(in_strCallId,
              makeLeg(io_callee.getUri(),
                      {
                          {"sip.out.cpa.enabled", "TRUE"}
        }));
        ++m_uiEndpoint;
        ASSERT_FALSE(io_callee.awaitInvite().empty());
        io_callee.answer("200 OK", kAnswer);
        ASSERT_FALSE(io_callee.await("ACK").empty());
        ASSERT_TRUE(m_running.media().waitForRequests("start", uiStarted + 2));
    }

    void notify(MediaNotificationEvent* in_pEvent)
    {
        m_running.media().report(m_uiEndpoint,
                                 [in_pEvent](MediaEndpointCallback& io_callback)
                                 { io_callback.notifyEvent(in_pEvent); });
    }

    std::uint32_t m_uiEndpoint = 0;
};

TEST_F(AnalysedCallTest, ConnectedWhenTheAnalysisSaysSo)
{
    Callee callee(m_running.getPort());
    placeAnswered("machine", callee);
    EXPECT_EQ(engine().count("connected 0"), 0U);
    notify(new DtmfNotificationEvent('5', 100));
    notify(new CPASuccessNotificationEvent(Call::eCONNECTION_MACHINE, "machine"));
    EXPECT_TRUE(engine().waitForTold("connected 2"));
    callee.request("BYE");
    EXPECT_EQ(awaitEnd("machine"), (Told{"connected 2", "disconnected", "gone"}));
}

TEST_F(AnalysedCallTest, FailedWhenTheAnalysisSaysSo)
{
    Callee callee(m_running.getPort());
    placeAnswered("busy-tone", callee);
    notify(new CPAFailureNotificationEvent(eBUSY_FAILURE, "busy"));
    const std::string strBye = callee.await("BYE");
    ASSERT_FALSE(strBye.empty());
    callee.respond(strBye, "200 OK");
    EXPECT_EQ(awaitEnd("busy-tone"), (Told{"callFailed 1", "gone"}));
}

TEST_F(AnalysedCallTest, EndedDuringTheAnalysis)
{
    Callee callee(m_running.getPort());
    placeAnswered("callee-ends", callee);
    callee.request("BYE");
    EXPECT_FALSE(callee.await("200").empty());
    EXPECT_EQ(awaitEnd("callee-ends"), (Told{"connected 7", "disconnected", "gone"}));

    Callee patient(m_running.getPort());
    placeAnswered("engine-ends", patient);
    hangup();
    const std::string strBye = patient.await("BYE");
    ASSERT_FALSE(strBye.empty());
    patient.respond(strBye, "200 OK");
    EXPECT_EQ(awaitEnd("engine-ends"), (Told{"gone"}));
}

TEST_F(AnalysedCallTest, MediaThatFail)
{
    using Request = ScriptedMediaEngine::Request;
    struct Case
    {
        const char* m_szOperation;
        bool m_bEarly;
        const char* m_szRequest;  ///< what the callee sees; null when no INVITE was sent
        const char* m_szTold;
    };
    const Case kCases[] = {
        {"create",    false, nullptr,  "connectFailed 8" },
        {"configure", true,  "CANCEL", "connectFailed 21"},
        {"start",     false, "BYE",    "callFailed 21"   },
    };
    for (const Case& c : kCases)
    {
        SCOPED_TRACE(c.m_szOperation);
        m_running.media().setAnswer(
            [&c](const Request& in_request, MediaEndpointCallback& io_callback)
            {
                if (in_request.m_strOperation.find(c.m_szOperation) != 0)
                {
                    ScriptedMediaEngine::answerWithSuccess(in_request, io_callback);
                }
                else if (in_request.m_strOperation == "configure")
                {
                    io_callback.configureStatus(in_request.m_direction,
                                                MediaEndpointCallback::INVALID_CONFIG_STATUS);
                }
                else if (in_request.m_strOperation == "start")
                {
                    io_callback.startStatus(in_request.m_direction, MediaEndpointCallback::RESOURCE_STATUS);
                }
                else
                {
                    io_callback.getCapacityFailure(MediaEndpoint::RX_DIRECTION);
                }
            });
        const std::string strCallId = std::string("fails-") + c.m_szOperation;
        Callee callee(m_running.getPort());
        place(strCallId,
              makeLeg(callee.getUri(),
                      {
                          {"sip.out.cpa.enabled", "TRUE"}
        }));
        Told vExpected{c.m_szTold, "gone"};
        if (c.m_szRequest != nullptr)
        {
            ASSERT_FALSE(callee.awaitInvite().empty());
            callee.answer(c.m_bEarly ? "183 Session Progress" : "200 OK", kAnswer);
            const std::string strEnd = callee.await(c.m_szRequest);
            ASSERT_FALSE(strEnd.empty());
            callee.respond(strEnd, "200 OK");
            if (c.m_bEarly)
            {
                callee.answer("487 Request Terminated");
                vExpected.insert(vExpected.begin(), "earlyMedia");
            }
        }
        EXPECT_EQ(awaitEnd(strCallId), vExpected);
    }
}

}  // namespace
