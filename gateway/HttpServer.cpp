#include "HttpServer.h"

#include <httplib.h>
#include <sys/socket.h>

#include <cerrno>
#include <functional>
#include <future>
#include <system_error>

#include "CallControl.h"
#include "ConsolePage.h"
#include "HttpJson.h"
#include "Metrics.h"
#include "Text.h"
#include "infra/Logger.h"
#include "infra/ThreadName.h"

namespace Quorvex
{

namespace
{

using Request = httplib::Request;
using Response = httplib::Response;
using Handler = httplib::Server::Handler;

const StaticLogger s_logger("quorvex.gateway.HttpServer");

constexpr std::size_t kThreads = 4;
constexpr std::size_t kMaxBody = std::size_t{64} * 1024;
constexpr std::size_t kMaxPath = 512;
constexpr int kTimeoutS = 5;
// A stop waits this long for a connection that says nothing.
constexpr int kFirstByteTimeoutS = 1;
constexpr const char* kJsonType = "application/json";
constexpr const char* kTextType = "text/plain; charset=utf-8";

void answerError(Response& out_response, int in_iStatus, const std::string& in_strSentence)
{
    out_response.status = in_iStatus;
    out_response.set_content(HttpJson::error(in_strSentence), kJsonType);
}

int statusOf(CommandResult::Kind in_kind)
{
    switch (in_kind)
    {
        case CommandResult::DONE:
            return 200;
        case CommandResult::NO_SUCH_CALL:
            return 404;
        case CommandResult::BAD_REQUEST:
            return 400;
        case CommandResult::WRONG_STATE:
            return 409;
        case CommandResult::UNAVAILABLE:
            return 503;
        case CommandResult::NOT_SUPPORTED:
            return 501;
    }
    return 500;
}

/// Answers with the call's identifier, or with the sentence of the failure.
void answer(Response& out_response,
            const CommandResult& in_result,
            const std::string& in_strId,
            int in_iDone = 200)
{
    if (in_result.m_kind != CommandResult::DONE)
    {
        answerError(out_response, statusOf(in_result.m_kind), in_result.m_strText);
        return;
    }
    out_response.status = in_iDone;
    out_response.set_content(HttpJson::id(in_strId), kJsonType);
}

/// What the library refuses by itself gets a sentence too.
const char* sentenceOf(int in_iStatus)
{
    switch (in_iStatus)
    {
        case 400:
            return "The request is not one of HTTP.";
        case 404:
            return "There is no such page; /, /healthz, /metrics, /api/status, /api/calls and /api/drain are "
                   "served.";
        case 413:
            return "The request's body is longer than 65536 bytes.";
        case 414:
            return "The request's path is too long.";
        default:
            return "The request could not be served.";
    }
}

/// A browser says where a page comes from; a page of another origin may not command the gateway.
bool isForeign(const Request& in_request)
{
    const std::string strOrigin = in_request.get_header_value("Origin");
    return !strOrigin.empty() && strOrigin != "http://" + in_request.get_header_value("Host");
}

httplib::Server::HandlerResponse refuseEarly(const Request& in_request, Response& out_response)
{
    if (in_request.path.size() > kMaxPath)
    {
        answerError(out_response, 414, sentenceOf(414));
        return httplib::Server::HandlerResponse::Handled;
    }
    if (in_request.method != "GET" && isForeign(in_request))
    {
        answerError(out_response, 403, "A page of another origin may not send commands.");
        return httplib::Server::HandlerResponse::Handled;
    }
    return httplib::Server::HandlerResponse::Unhandled;
}

void setErrorHandlers(httplib::Server& io_server)
{
    io_server.set_pre_routing_handler(refuseEarly);
    io_server.set_exception_handler(
        [](const Request& in_request, Response& out_response, std::exception_ptr in_pException)
        {
            std::string strWhat = "unknown exception";
            try
            {
                std::rethrow_exception(std::move(in_pException));
            }
            catch (const std::exception& exception)
            {
                strWhat = exception.what();
            }
            catch (...)
            {
            }
            QLOG_ERROR(s_logger, in_request.method << ' ' << in_request.path << " failed: " << strWhat);
            answerError(out_response, 500, "The request failed; the log says why.");
        });
    io_server.set_error_handler(
        [](const Request&, Response& out_response)
        {
            if (out_response.body.empty())
            {
                answerError(out_response, out_response.status, sentenceOf(out_response.status));
            }
        });
}

struct Methods
{
    Handler m_get;
    Handler m_post;
    Handler m_delete;
};

/// Serves a path with the methods that it has; the others are answered 405.
void serve(httplib::Server& io_server, const std::string& in_strPattern, const Methods& in_methods)
{
    std::string strAllow;
    const auto allow = [&strAllow](const Handler& in_handler, const char* in_szMethod)
    {
        if (in_handler)
        {
            strAllow += (strAllow.empty() ? "" : ", ") + std::string(in_szMethod);
        }
    };
    allow(in_methods.m_get, "GET");
    allow(in_methods.m_post, "POST");
    allow(in_methods.m_delete, "DELETE");
    const Handler refuse = [strAllow](const Request& in_request, Response& out_response)
    {
        out_response.set_header("Allow", strAllow);
        answerError(
            out_response, 405, in_request.path + " takes " + strAllow + ", not " + in_request.method + ".");
    };
    const auto orRefuse = [&refuse](const Handler& in_handler) { return in_handler ? in_handler : refuse; };
    io_server.Get(in_strPattern, orRefuse(in_methods.m_get));
    io_server.Post(in_strPattern, orRefuse(in_methods.m_post));
    io_server.Delete(in_strPattern, orRefuse(in_methods.m_delete));
    io_server.Put(in_strPattern, refuse);
    io_server.Patch(in_strPattern, refuse);
    io_server.Options(in_strPattern, refuse);
}

}  // namespace

HttpServer::HttpServer(CallControl& in_control, Metrics& in_metrics)
    : m_control(in_control), m_metrics(in_metrics)
{
}

HttpServer::~HttpServer()
{
    stop();
}

bool HttpServer::parseListen(const std::string& in_strListen, std::string& out_strHost, int& out_iPort)
{
    const std::size_t colon = in_strListen.rfind(':');
    long port = 0;
    if (colon == std::string::npos || !Text::parseNumber(in_strListen.substr(colon + 1), 0, 65535, port))
    {
        return false;
    }
    std::string strHost = in_strListen.substr(0, colon);
    if (strHost.size() > 2 && strHost.front() == '[' && strHost.back() == ']')
    {
        strHost = strHost.substr(1, strHost.size() - 2);
    }
    else if (strHost.empty() || strHost.find_first_of(":[]") != std::string::npos)
    {
        return false;
    }
    out_strHost = strHost;
    out_iPort = static_cast<int>(port);
    return true;
}

bool HttpServer::start(const std::string& in_strListen, std::string& out_strError)
{
    std::string strHost;
    int iPort = 0;
    if (!parseListen(in_strListen, strHost, iPort))
    {
        out_strError = "\"" + in_strListen + "\" is no address to listen on: host:port expected";
        return false;
    }
    m_pServer = std::make_unique<httplib::Server>();
    // The library's default lets two processes share a port.
    m_pServer->set_socket_options(
        [](socket_t in_socket)
        {
            const int iYes = 1;
            setsockopt(in_socket, SOL_SOCKET, SO_REUSEADDR, &iYes, sizeof iYes);
        });
    // One request a connection: the library looks at an idle connection a hundred times a second.
    m_pServer->set_keep_alive_max_count(1);
    m_pServer->set_keep_alive_timeout(kFirstByteTimeoutS);
    m_pServer->set_read_timeout(kTimeoutS);
    m_pServer->set_write_timeout(kTimeoutS);
    m_pServer->set_payload_max_length(kMaxBody);
    setErrorHandlers(*m_pServer);
    addRoutes();
    addCallRoutes();

    errno = 0;
    m_iPort = iPort == 0 ? m_pServer->bind_to_any_port(strHost)
                         : (m_pServer->bind_to_port(strHost, iPort) ? iPort : -1);
    if (m_iPort <= 0)
    {
        out_strError = "cannot listen on " + in_strListen +
                       (errno == 0 ? "" : ": " + std::error_code(errno, std::generic_category()).message());
        m_iPort = 0;
        m_pServer.reset();
        return false;
    }
    // Serving has begun when the library makes its workers; to stop it earlier would be lost.
    std::promise<void> serving;
    m_pServer->new_task_queue = [&serving]
    {
        auto* pWorkers = new httplib::ThreadPool(kThreads);  // owned by the library
        serving.set_value();
        return pWorkers;
    };
    m_thread = std::thread(
        [this]
        {
            nameThisThread("http");
            m_pServer->listen_after_bind();
        });
    serving.get_future().wait();
    QLOG_DEBUG(s_logger, "HTTP on " << strHost << ":" << m_iPort);
    return true;
}

void HttpServer::stop()
{
    if (m_thread.joinable())
    {
        m_pServer->stop();
        m_thread.join();
    }
    m_pServer.reset();
    m_iPort = 0;
}

void HttpServer::addRoutes()
{
    httplib::Server& server = *m_pServer;
    Methods console;
    console.m_get = [](const Request&, Response& out_response)
    {
        // What calls carry is shown as text; the policy keeps it from loading anything from elsewhere.
        out_response.set_header("Content-Security-Policy",
                                "default-src 'none'; connect-src 'self'; img-src data:; style-src "
                                "'unsafe-inline'; script-src 'unsafe-inline'; frame-ancestors 'none'");
        out_response.set_content(kConsolePage, "text/html; charset=utf-8");
    };
    serve(server, "/", console);

    Methods healthz;
    healthz.m_get = [this](const Request&, Response& out_response)
    {
        if (!m_control.takesCalls())
        {
            answerError(out_response, 503, "The gateway takes no new calls.");
        }
        else if (const std::string trouble = m_control.getTrouble(); !trouble.empty())
        {
            answerError(out_response, 503, trouble);
        }
        else
        {
            out_response.set_content("running\n", kTextType);
        }
    };
    serve(server, "/healthz", healthz);

    Methods metrics;
    metrics.m_get = [this](const Request&, Response& out_response)
    { out_response.set_content(m_metrics.getPage(), "text/plain; version=0.0.4; charset=utf-8"); };
    serve(server, "/metrics", metrics);

    Methods status;
    status.m_get = [this](const Request&, Response& out_response)
    { out_response.set_content(m_control.describe(), kTextType); };
    serve(server, "/api/status", status);

    Methods drain;
    drain.m_post = [this](const Request&, Response& out_response)
    {
        const CommandResult result = m_control.drain();
        if (result.m_kind == CommandResult::DONE)
        {
            out_response.set_content("{\"draining\":true}\n", kJsonType);
        }
        else
        {
            answerError(out_response, statusOf(result.m_kind), result.m_strText);
        }
    };
    serve(server, "/api/drain", drain);
}

void HttpServer::addCallRoutes()
{
    httplib::Server& server = *m_pServer;
    Methods calls;
    calls.m_get = [this](const Request&, Response& out_response)
    { out_response.set_content(HttpJson::calls(m_control.getCalls()), kJsonType); };
    calls.m_post = [this](const Request& in_request, Response& out_response)
    {
        CallLegInfo leg;
        ParameterTrie options;
        std::string strError;
        if (!HttpJson::parseCall(in_request.body, leg, options, strError))
        {
            return answerError(out_response, 400, strError);
        }
        const CommandResult result = m_control.placeCall(leg, options);
        answer(out_response, result, result.m_strText, 201);
    };
    serve(server, "/api/calls", calls);

    Methods oneCall;
    oneCall.m_delete = [this](const Request& in_request, Response& out_response)
    { answer(out_response, m_control.hangUp(in_request.matches[1]), in_request.matches[1]); };
    serve(server, "/api/calls/([^/]+)", oneCall);

    Methods info;
    info.m_post = [this](const Request& in_request, Response& out_response)
    {
        std::vector<Parameter> vParameters;
        std::string strError;
        if (!HttpJson::parseInfo(in_request.body, vParameters, strError))
        {
            return answerError(out_response, 400, strError);
        }
        answer(out_response, m_control.sendInfo(in_request.matches[1], vParameters), in_request.matches[1]);
    };
    serve(server, "/api/calls/([^/]+)/info", info);

    Methods transfer;
    transfer.m_post = [this](const Request& in_request, Response& out_response)
    {
        CallLegInfo leg;
        std::string strError;
        if (!HttpJson::parseTransfer(in_request.body, leg, strError))
        {
            return answerError(out_response, 400, strError);
        }
        answer(out_response, m_control.transfer(in_request.matches[1], leg), in_request.matches[1]);
    };
    serve(server, "/api/calls/([^/]+)/transfer", transfer);
}

}  // namespace Quorvex
