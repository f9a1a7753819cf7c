#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

#include "gateway/CallControl.h"
#include "gateway/HttpServer.h"
#include "gateway/Metrics.h"

namespace Quorvex
{
namespace
{

using Json = nlohmann::json;

/// A gateway with one call, "c1". Writes down what it was asked.
class FakeControl : public CallControl
{
public:
    bool takesCalls() const override { return m_bTakesCalls; }
    std::string getTrouble() const override { return ""; }
    std::string describe() override { return "all quiet\n"; }
    std::vector<CallView> getCalls() override
    {
        LegView leg{"c1.0", "in", "connected", "sip:a@x", "sip:\xff@y", std::chrono::milliseconds(1500)};
        return {
            {"c1", "in", "connected", "sip:a@x", "sip:b@y", std::chrono::milliseconds(1500), {leg}}
        };
    }
    CommandResult placeCall(const CallLegInfo& in_leg, const ParameterTrie& in_options) override
    {
        std::ostringstream text;
        text << "place" << in_leg << " /";
        in_options.forEach([&text](const ParameterTrieNode& in_node)
                           { text << ' ' << in_node.getFullName() << '=' << in_node.getValue(); });
        note(text.str());
        return m_bTakesCalls ? CommandResult{CommandResult::DONE, "c2"}
                             : CommandResult{CommandResult::UNAVAILABLE, "The gateway is stopping."};
    }
    CommandResult hangUp(const std::string& in_strId) override
    {
        note("hang up " + in_strId);
        if (in_strId == "bug")
        {
            throw std::runtime_error("a bug");
        }
        return of(in_strId);
    }
    CommandResult sendInfo(const std::string& in_strId, const std::vector<Parameter>& in_vParameters) override
    {
        std::string strText = "info " + in_strId;
        for (const Parameter& parameter : in_vParameters)
        {
            strText += " " + parameter.getName() + "=" + parameter.getValue().toText();
        }
        note(strText);
        return of(in_strId);
    }
    CommandResult transfer(const std::string& in_strId, const CallLegInfo& in_leg) override
    {
        note("transfer " + in_strId + " " + in_leg.getParameterOr("sip.out.requestUri", ""));
        return of(in_strId);
    }
    CommandResult drain() override
    {
        m_bTakesCalls = false;
        return {};
    }

    /// What was asked since the last call.
    std::string takeNotes()
    {
        const std::lock_guard lock(m_mutex);
        return std::exchange(m_strNotes, {});
    }

    std::atomic<bool> m_bTakesCalls{true};

private:
    static CommandResult of(const std::string& in_strId)
    {
        return in_strId == "c1"
                   ? CommandResult{}
                   : CommandResult{CommandResult::NO_SUCH_CALL, "There is no call " + in_strId + "."};
    }
    void note(const std::string& in_strNote)
    {
        const std::lock_guard lock(m_mutex);
        m_strNotes += in_strNote;
    }

    std::mutex m_mutex;
    std::string m_strNotes;
};

class HttpServerTest : public testing::Test
{
protected:
    void SetUp() override
    {
        std::string strError;
        ASSERT_TRUE(m_server.start("127.0.0.1:0", strError)) << strError;
        ASSERT_GT(m_server.getPort(), 0);
    }

    httplib::Result send(const std::string& in_strMethod,
                         const std::string& in_strPath,
                         const std::string& in_strBody = "",
                         const httplib::Headers& in_headers = {}) const
    {
        httplib::Client client("127.0.0.1", m_server.getPort());
        httplib::Request request;
        request.method = in_strMethod;
        request.path = in_strPath;
        request.body = in_strBody;
        request.headers = in_headers;
        return client.send(request);
    }

    /// Sends bytes as they are, ends the sending side, and reads to the end.
    std::string sendRaw(const std::string& in_strBytes) const
    {
        const int iSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(m_server.getPort()));
        inet_pton(AF_INET, "127.0.0.1", &address.sin_addr);
        EXPECT_EQ(connect(iSocket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        (void)!::send(iSocket, in_strBytes.data(), in_strBytes.size(), MSG_NOSIGNAL);
        shutdown(iSocket, SHUT_WR);
        std::string strAnswer;
        char buffer[4096];
        for (ssize_t size = 0; (size = recv(iSocket, buffer, sizeof buffer, 0)) > 0;)
        {
            strAnswer.append(buffer, static_cast<std::size_t>(size));
        }
        close(iSocket);
        return strAnswer;
    }

    FakeControl m_control;
    Metrics m_metrics;
    HttpServer m_server{m_control, m_metrics};
};

TEST_F(HttpServerTest, PagesOfARunningGateway)
{
    auto answer = send("GET", "/healthz");
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 200);

    answer = send("GET", "/metrics");
    EXPECT_EQ(answer->status, 200);
    EXPECT_NE(answer->body.find("quorvex_memory_objects"), std::string::npos);
    EXPECT_NE(answer->get_header_value("Content-Type").find("version=0.0.4"), std::string::npos);

    answer = send("GET", "/api/status");
    EXPECT_EQ(answer->body, "all quiet\n");

    answer = send("GET", "/api/calls");
    const Json calls = Json::parse(answer->body);
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0]["id"], "c1");
    EXPECT_EQ(calls[0]["seconds"], 1.5);
    EXPECT_EQ(calls[0]["legs"][0]["state"], "connected") << "bad UTF-8 from the wire must not break the list";
}

TEST_F(HttpServerTest, ADrainedGatewayIsNotHealthy)
{
    EXPECT_EQ(send("POST", "/api/drain")->status, 200);
    const auto answer = send("GET", "/healthz");
    EXPECT_EQ(answer->status, 503);
    EXPECT_FALSE(Json::parse(answer->body)["error"].get<std::string>().empty());
    EXPECT_EQ(send("POST", "/api/calls", R"({"leg": {"sip.out.requestUri": "sip:x@y"}})")->status, 503);
}

TEST_F(HttpServerTest, CommandsReachTheCallEngineAsTheyWereSent)
{
    const struct
    {
        const char* m_szMethod;
        const char* m_szPath;
        const char* m_szBody;
        int m_iStatus;
        const char* m_szAnswer;
        const char* m_szAsked;
    } cases[] = {
        {"POST",
         "/api/calls",              R"({"leg": {"sip.out.requestUri": "sip:7@h", "sip.out.accept183": true}, "service": "echo", "hangupAfterMs": 50})",
         201,                                                                                                                                                R"({"id":"c2"})",
         "place sip.out.requestUri=sip:7@h sip.out.accept183=true / service=echo hangupAfterMs=50"                                                                                                              },
        {"DELETE", "/api/calls/c1", "",                                                                                                                 200, R"({"id":"c1"})",                      "hang up c1"},
        {"DELETE", "/api/calls/c9", "",                                                                                                                 404, R"({"error":"There is no call c9."})", "hang up c9"},
        {"POST",
         "/api/calls/c1/info",      R"({"Content-Type": "text/plain", "body": "two\r\nlines", "X-A": "b"})",
         200,                                                                                                                                                R"({"id":"c1"})",
         "info c1 Content-Type=text/plain body=two\r\nlines X-A=b"                                                                                                                                              },
        {"POST",
         "/api/calls/c9/info",      R"({"body": ""})",
         404,                                                                                                                                                R"({"error":"There is no call c9."})",
         "info c9 body="                                                                                                                                                                                        },
        {"POST",
         "/api/calls/c1/transfer",  R"({"leg": {"sip.out.requestUri": "sip:8@h"}})",
         200,                                                                                                                                                R"({"id":"c1"})",
         "transfer c1 sip:8@h"                                                                                                                                                                                  },
    };
    for (const auto& test : cases)
    {
        const auto answer = send(test.m_szMethod, test.m_szPath, test.m_szBody);
        ASSERT_TRUE(answer) << test.m_szPath;
        EXPECT_EQ(answer->status, test.m_iStatus) << test.m_szPath;
        EXPECT_EQ(answer->body, test.m_szAnswer + std::string("\n")) << test.m_szPath;
        EXPECT_EQ(m_control.takeNotes(), test.m_szAsked);
    }
}

TEST_F(HttpServerTest, WrongRequestsGetOneSentenceAndReachNobody)
{
    const std::string strLong(70'000, 'x');
    const std::string strDeep(60'000, '[');
    const struct
    {
        std::string m_strMethod;
        std::string m_strPath;
        std::string m_strBody;
        int m_iStatus;
        std::string m_strHolds;
    } cases[] = {
        {"GET", "/x",                      "",   404,                                                                            "/api/calls"},
        {"GET", "/api/calls/c1/info/more", "",   404,                                                                            "/api/calls"},
        {"GET", "/" + std::string(8000,    'a'), "",                                                                             414,          "too long"},
        {"POST",     "/healthz",                         "",               405,                                                                   "takes GET, not POST"                                                             },
        {"PUT",     "/api/calls",                          "{}",              405,                                                               "GET, POST, not PUT"},
        {"GET",     "/api/calls/c1",                          "",           405,                                                              "takes DELETE"                                                               },
        {"GET",     "/api/drain",                          "",              405,                                                                 "takes POST"},
        {"POST",     "/api/calls",                         "",             400,                                                                 "not JSON"                                                                },
        {"POST",     "/api/calls",                         "{\"leg\": ",             400,                                                       "not JSON"},
        {"POST",     "/api/calls",                         strDeep,             400,                                                            "not JSON"                                                                     },
        {"POST",     "/api/calls",                         "[1]",             400,                                                              "JSON object"},
        {"POST",     "/api/calls",                         "{}",             400,                                                               "\"leg\""                                                                      },
        {"POST",     "/api/calls",                         R"({"leg": "sip:a@b"})",             400,                                            "\"leg\""},
        {"POST",     "/api/calls",                         R"({"leg": {}})",             400,                                                   "sip.out.requestUri"                                                                             },
        {"POST",     "/api/calls",                         R"({"leg": {"sip.out.requestUri": ""}})",             400,                           "sip.out.requestUri"},
        {"POST",     "/api/calls",                         R"({"leg": {"sip.out.requestUri": ["a"]}})",             400,                        "sip.out.requestUri"                                                                          },
        {"POST",     "/api/calls",                         R"({"leg": {"sip.out.requestUri": "a\r\nX: b"}})",             400,                  "control characters"},
        {"POST",     "/api/calls",                         R"({"leg": {"a\nb": "c"}})",             400,                                        "control characters"                                                                                                },
        {"POST",
         "/api/calls",                         R"({"leg": {"sip.out.requestUri": "a"}, "hangupAfterMs": 18446744073709551615})",
         400, "hangupAfterMs"                                                                                                                                 },
        {"POST",
         "/api/calls",                         R"({"leg": {"sip.out.requestUri": "a"}, "service": {"x": 1}})",
         400,                   "service"                                                                                                                                 },
        {"POST",     "/api/calls",                         strLong,             413,                                                            "65536"},
        {"POST",     "/api/calls/c1/info",                         "{}",     400,                                                       "at least one"                                                                                                                                    },
        {"POST",     "/api/calls/c1/info",                         R"({"X-A": 7})",     400,                                            "X-A"},
        {"POST",     "/api/calls/c1/info",                         R"({"X-A": "b\r\nVia: c"})",     400,                                "control characters"                                                                                                                        },
        {"POST",     "/api/calls/c1/info",                         R"({"X A": "b"})",     400,                                          "name of a header"},
        {"POST",     "/api/calls/c1/transfer",                         R"({"leg": {}})", 400,                                       "sip.out.requestUri"                                                                                                                         },
        {"POST",
         "/api/calls/c1/transfer",                         R"({"leg": {"sip.out.requestUri": "a"}, "x": 1})",
         400,                    "nothing but \"leg\""                                                                                                                                 },
    };
    for (const auto& test : cases)
    {
        const auto answer = send(test.m_strMethod, test.m_strPath, test.m_strBody);
        const std::string strWhat =
            test.m_strMethod + " " + test.m_strPath + " " + test.m_strBody.substr(0, 80);
        ASSERT_TRUE(answer) << strWhat;
        EXPECT_EQ(answer->status, test.m_iStatus) << strWhat;
        const Json json = Json::parse(answer->body, nullptr, false);
        ASSERT_TRUE(json.is_object() && json.contains("error")) << strWhat << ": " << answer->body;
        EXPECT_NE(json["error"].get<std::string>().find(test.m_strHolds), std::string::npos)
            << strWhat << ": " << json["error"];
        EXPECT_EQ(answer->has_header("Allow"), test.m_iStatus == 405) << strWhat;
        EXPECT_EQ(m_control.takeNotes(), "") << strWhat;
    }
    EXPECT_EQ(send("GET", "/healthz")->status, 200);
}

TEST_F(HttpServerTest, AFailureInsideIsAnsweredAndServingGoesOn)
{
    const auto answer = send("DELETE", "/api/calls/bug");
    EXPECT_EQ(answer->status, 500);
    EXPECT_TRUE(Json::parse(answer->body).contains("error"));
    EXPECT_EQ(send("GET", "/healthz")->status, 200);
}

TEST_F(HttpServerTest, ABrowserPageOfAnotherOriginCommandsNothing)
{
    const std::string strHere = "http://127.0.0.1:" + std::to_string(m_server.getPort());
    EXPECT_EQ(send("DELETE",
                   "/api/calls/c1",
                   "",
                   {
                       {"Origin", "http://elsewhere.example"}
    })
                  ->status,
              403);
    EXPECT_EQ(m_control.takeNotes(), "");
    EXPECT_EQ(send("DELETE",
                   "/api/calls/c1",
                   "",
                   {
                       {"Origin", strHere}
    })
                  ->status,
              200);
}

TEST_F(HttpServerTest, BytesThatAreNoHttpEndTheirConnectionOnly)
{
    for (const std::string& strBytes :
         {std::string("\r\n\r\n"),
          std::string("\0\0\0\0", 4),
          std::string("INVITE sip:a@b SIP/2.0\r\n\r\n"),
          std::string("POST /api/calls HTTP/1.1\r\nContent-Length: 99999999999999999999\r\n\r\n{}"),
          std::string("POST /api/calls HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n"),
          std::string("GET /healthz HTTP/1.1\r\n") + std::string(200'000, 'h')})
    {
        EXPECT_EQ(sendRaw(strBytes).find("HTTP/1.1 2"), std::string::npos) << strBytes.substr(0, 60);
        ASSERT_TRUE(send("GET", "/healthz"));
        EXPECT_EQ(m_control.takeNotes(), "");
    }
}

TEST_F(HttpServerTest, APortInUseIsRefusedWithTheReason)
{
    const std::string strListen = "127.0.0.1:" + std::to_string(m_server.getPort());
    HttpServer second(m_control, m_metrics);
    std::string strError;
    EXPECT_FALSE(second.start(strListen, strError));
    EXPECT_EQ(strError, "cannot listen on " + strListen + ": Address already in use");
    EXPECT_EQ(second.getPort(), 0);
    m_server.stop();
    m_server.stop();
    EXPECT_TRUE(second.start(strListen, strError)) << strError;
}

TEST(HttpListenTest, Addresses)
{
    const struct
    {
        const char* m_szListen;
        bool m_bGood;
        const char* m_szHost;
        int m_iPort;
    } cases[] = {
        {"127.0.0.1:8080",  true,  "127.0.0.1", 8080 },
        {"localhost:0",     true,  "localhost", 0    },
        {"[::1]:65535",     true,  "::1",       65535},
        {"127.0.0.1:65536", false, "",          0    },
        {"127.0.0.1:-1",    false, "",          0    },
        {"127.0.0.1:",      false, "",          0    },
        {"127.0.0.1:80x",   false, "",          0    },
        {"127.0.0.1",       false, "",          0    },
        {":8080",           false, "",          0    },
        {"::1:8080",        false, "",          0    },
        {"[]:80",           false, "",          0    },
    };
    for (const auto& test : cases)
    {
        std::string strHost;
        int iPort = 0;
        EXPECT_EQ(HttpServer::parseListen(test.m_szListen, strHost, iPort), test.m_bGood) << test.m_szListen;
        EXPECT_EQ(strHost, test.m_szHost);
        EXPECT_EQ(iPort, test.m_iPort);
    }
}

}  // namespace
}  // namespace Quorvex
